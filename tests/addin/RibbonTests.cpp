#include <olectl.h>

#include <ostream>
#include <string>
#include <vector>

#include "addin/AddinTest.h"
#include "common/BStr.h"
#include "common/Messages.h"
#include "common/Variant.h"
#include "officesim/FakeDispatch.h"
#include "resources/resource.h"
#include "support/BuiltModule.h"
#include "support/TestFiles.h"
#include "support/WindowWatcher.h"

namespace {

const std::wstring kErrorCaption = L"Fehler bei der Dokumentablage";
BSTR const kGarbage = reinterpret_cast<BSTR>(0x1234);

// The add-in as the ribbon of a host sees it.
class RibbonTest : public AddinTest {
protected:
    ComPtr<IRibbonExtensibility> Ribbon() {
        ComPtr<IRibbonExtensibility> ribbon;
        EXPECT_EQ(m_addin.query_to(ribbon.put()), S_OK);
        return ribbon;
    }
};

// --- The markup of each served ribbon.

struct MarkupCase {
    const char* name;
    const wchar_t* ribbonId;
    bool attachments;
    bool noSettings;
    const wchar_t* expectedFile;  // below tests/addin/expected
};

void PrintTo(const MarkupCase& row, std::ostream* out) { *out << row.name; }

class RibbonMarkupTest : public RibbonTest, public testing::WithParamInterface<MarkupCase> {};

TEST_P(RibbonMarkupTest, IsServedByteForByte) {
    const MarkupCase& row = GetParam();
    m_registry.SetMachineNumber(L"Attachments", row.attachments ? 1 : 0);
    m_registry.SetMachineNumber(L"Nosettings", row.noSettings ? 1 : 0);
    LogCapture log;

    BStr markup;
    ASSERT_EQ(Ribbon()->GetCustomUI(BStr(row.ribbonId).get(), markup.put()), S_OK);

    ASSERT_NE(markup.get(), nullptr);
    EXPECT_EQ(ToUtf8(markup.c_str()),
              ReadFileBytes(TestSourcePath(std::wstring(L"addin/expected/") + row.expectedFile)));
    EXPECT_TRUE(log.Contains(std::wstring(L"[INF] RibbonID: ") + row.ribbonId + L"\n"))
        << ToUtf8(log.Text());
    EXPECT_EQ(log.Contains(L"[INF] returning RibbonXML\n"), !row.noSettings);
    EXPECT_EQ(log.Contains(L"[INF] returning RibbonXML (no settings)\n"), row.noSettings);
}

// Only Outlook's windows offer the attachments button; the read window acts on its own item.
INSTANTIATE_TEST_SUITE_P(
    Windows, RibbonMarkupTest,
    testing::Values(
        MarkupCase{"OutlookExplorer", L"Microsoft.Outlook.Explorer", false, false, L"archive.xml"},
        MarkupCase{"OutlookExplorer_Attachments", L"Microsoft.Outlook.Explorer", true, false,
                   L"archive_attachments.xml"},
        MarkupCase{"WordDocument_Attachments_Nosettings", L"Microsoft.Word.Document", true, true,
                   L"archive_nosettings.xml"},
        MarkupCase{"ExcelWorkbook", L"Microsoft.Excel.Workbook", false, false, L"archive.xml"},
        MarkupCase{"PowerPointPresentation", L"Microsoft.PowerPoint.Presentation", false, false,
                   L"archive.xml"},
        MarkupCase{"OutlookMailRead", L"Microsoft.Outlook.Mail.Read", false, false,
                   L"single_item.xml"},
        MarkupCase{"OutlookMailRead_Attachments", L"Microsoft.Outlook.Mail.Read", true, false,
                   L"single_item_attachments.xml"},
        MarkupCase{"OutlookMailRead_Attachments_Nosettings", L"Microsoft.Outlook.Mail.Read", true,
                   true, L"single_item_attachments_nosettings.xml"}),
    [](const testing::TestParamInfo<MarkupCase>& info) { return std::string(info.param.name); });

// Other ribbons get no markup, and none comes without the settings, which are read afresh.
TEST_F(RibbonTest, OnlyTheServedRibbonsGetMarkupAndOnlyWithSettings) {
    LogCapture log;
    for (const wchar_t* other : {L"Microsoft.Outlook.Mail.Compose", L"microsoft.word.document",
                                 L"Microsoft.Outlook", static_cast<const wchar_t*>(nullptr)}) {
        BSTR markup = kGarbage;
        EXPECT_EQ(Ribbon()->GetCustomUI(BStr(other).get(), &markup), S_OK);
        EXPECT_EQ(markup, nullptr) << (other ? ToUtf8(other) : "null");
    }
    EXPECT_FALSE(log.Contains(L"returning RibbonXML")) << ToUtf8(log.Text());

    BStr id(L"Microsoft.Outlook.Explorer");
    BStr first;
    ASSERT_EQ(Ribbon()->GetCustomUI(id.get(), first.put()), S_OK);
    ASSERT_NE(first.get(), nullptr);
    m_registry.Wipe();
    BSTR markup = kGarbage;
    EXPECT_EQ(Ribbon()->GetCustomUI(id.get(), &markup), S_OK);
    EXPECT_EQ(markup, nullptr);
    EXPECT_TRUE(log.Contains(L"[ERR] Failed to load settings!\n")) << ToUtf8(log.Text());
    EXPECT_EQ(Ribbon()->GetCustomUI(id.get(), nullptr), E_POINTER);
}

// --- The callbacks of the markup.

TEST_F(RibbonTest, GetIDsOfNamesAndInvokeKnowOnlyTheCallbacks) {
    auto idOf = [this](std::wstring name, DISPID* id) {
        LPOLESTR names[] = {name.data()};
        return m_addin->GetIDsOfNames(IID_NULL, names, 1, LOCALE_USER_DEFAULT, id);
    };
    DISPID id = 0;
    DISPID expected = 1;
    for (const wchar_t* callback : {L"Archive", L"Settings", L"Info", L"GetImage", L"Attachment",
                                    L"ArchiveSingleOutlook", L"AttachmentSingleOutlook"}) {
        EXPECT_EQ(idOf(std::wstring(L"TalvornAddin.") + callback, &id), S_OK) << ToUtf8(callback);
        EXPECT_EQ(id, expected++);
    }
    for (const wchar_t* unknown : {L"talvornaddin.archive", L"Archive", L"TalvornAddin."}) {
        EXPECT_EQ(idOf(unknown, &id), DISP_E_UNKNOWNNAME) << ToUtf8(unknown);
        EXPECT_EQ(id, DISPID_UNKNOWN);
    }

    std::wstring archive = L"TalvornAddin.Archive";
    LPOLESTR names[] = {archive.data(), archive.data()};
    DISPID ids[2] = {0, 0};
    EXPECT_EQ(m_addin->GetIDsOfNames(IID_IDispatch, names, 1, LOCALE_USER_DEFAULT, ids),
              DISP_E_UNKNOWNINTERFACE);
    EXPECT_EQ(m_addin->GetIDsOfNames(IID_NULL, nullptr, 1, LOCALE_USER_DEFAULT, ids), E_POINTER);
    // A member with a named argument is not a ribbon callback, however well its name is known.
    EXPECT_EQ(m_addin->GetIDsOfNames(IID_NULL, names, 2, LOCALE_USER_DEFAULT, ids), E_INVALIDARG);

    DISPPARAMS none{nullptr, nullptr, 0, 0};
    auto invoke = [this](DISPID member, REFIID riid, DISPPARAMS* params) {
        return m_addin->Invoke(member, riid, LOCALE_USER_DEFAULT, DISPATCH_METHOD, params, nullptr,
                               nullptr, nullptr);
    };
    EXPECT_EQ(invoke(1, IID_IDispatch, &none), DISP_E_UNKNOWNINTERFACE);
    EXPECT_EQ(invoke(1, IID_NULL, nullptr), E_POINTER);
    EXPECT_EQ(invoke(DISPID_VALUE, IID_NULL, &none), DISP_E_MEMBERNOTFOUND);
    EXPECT_EQ(invoke(8, IID_NULL, &none), DISP_E_MEMBERNOTFOUND);
}

TEST_F(RibbonTest, ArchiveButtonsOfAnUnconnectedAddinDoNothingButFindNoAttachments) {
    WindowWatcher watcher;
    watcher.Expect(kErrorCaption).Click(IDOK);
    ComPtr<FakeDispatch> control = FakeDispatch::Create();

    for (DISPID id : {1, 5}) {
        EXPECT_EQ(Callback(id, {Variant(static_cast<IDispatch*>(control.get()))}), S_OK) << id;
    }

    watcher.Verify();
    wchar_t text[260] = L"";
    LoadUiString(IDS_NO_ATTACHMENTS, text, 260);
    ASSERT_EQ(watcher.Seen().size(), 1u);
    EXPECT_TRUE(watcher.Seen()[0].HasText(text)) << watcher.Seen()[0];
    EXPECT_TRUE(control->Calls().empty());
    EXPECT_EQ(control->RefCount(), 1u);
}

// Info and settings open their dialogs, each after its log line, whatever arguments come along.
TEST_F(RibbonTest, TheInfoAndSettingsButtonsOpenTheirDialogs) {
    WindowWatcher watcher;
    watcher.Expect(L"Info").Click(IDOK);
    watcher.Expect(L"Einstellungen").Click(IDCANCEL);
    LogCapture log;
    ComPtr<FakeDispatch> control = FakeDispatch::Create();

    EXPECT_EQ(Callback(3, {Variant(static_cast<IDispatch*>(control.get()))}), S_OK);
    EXPECT_EQ(Callback(2), S_OK);

    watcher.Verify();
    EXPECT_EQ(watcher.Seen().size(), 2u);
    EXPECT_TRUE(log.Contains(L"[INF] Outlook CTalvornAddin->OnAbout invoked\n"));
    EXPECT_TRUE(log.Contains(L"[INF] Outlook CTalvornAddin->OnSettings invoked\n"));
    EXPECT_EQ(control->RefCount(), 1u);
}

// The shipped English file beside the module relabels the ribbon; a label it lacked would stay
// German.
TEST_F(RibbonTest, TheShippedEnglishFileRelabelsTheRibbon) {
    m_registry.SetMachineString(L"Dir", BuiltAddinFolder().c_str());
    m_registry.SetMachineString(L"l", L"en");
    BStr markup;

    ASSERT_EQ(Ribbon()->GetCustomUI(BStr(L"Microsoft.Word.Document").get(), markup.put()), S_OK);

    std::wstring text = markup.c_str();
    for (const wchar_t* piece :
         {L"label=\"Archive document\"", L"label=\"Settings\"",
          L"supertip=\"Archive the document into talvorn dorvane\"", L"label=\"dorvane\""}) {
        EXPECT_NE(text.find(piece), std::wstring::npos) << ToUtf8(piece) << "\n" << ToUtf8(text);
    }
}

// The buttons of an open Outlook item find the item through the control's window ("Context"),
// also when the control comes by reference; without a window they do nothing. (With one they
// archive its current item: the fault sweep's open-item runs.)
TEST_F(RibbonTest, TheItemButtonsDoNothingWithoutTheControlsWindow) {
    ComPtr<FakeDispatch> window = FakeDispatch::Create();
    ComPtr<FakeDispatch> failing = FakeDispatch::Create();
    failing->SetProperty(L"Context", static_cast<IDispatch*>(window.get()))
        .FailCallsFrom(L"Context", 1, E_FAIL);
    const std::vector<ULONG> counts = {failing->RefCount(), window->RefCount()};
    IDispatch* byReference = failing.get();
    Variant reference;
    reference.vt = VT_DISPATCH | VT_BYREF;
    reference.ppdispVal = &byReference;
    WindowWatcher watcher;
    LogCapture log;

    EXPECT_EQ(Callback(6, {Variant(static_cast<IDispatch*>(failing.get()))}), S_OK);
    EXPECT_EQ(Callback(7, {reference}), S_OK);
    EXPECT_EQ(Callback(6, {Variant(L"TLPMBTDX2_0001")}), S_OK);
    EXPECT_EQ(Callback(7, {}), S_OK);

    watcher.Verify();
    EXPECT_EQ(failing->CallCount(L"Context"), 2u);
    EXPECT_TRUE(window->Calls().empty());
    EXPECT_FALSE(log.Contains(L"invoked")) << ToUtf8(log.Text());
    EXPECT_EQ(counts, (std::vector<ULONG>{failing->RefCount(), window->RefCount()}));
}

// --- loadImage: the button pictures from the machine's installation folder only.

TEST_F(RibbonTest, EachImageIsABitmapPictureThatOwnsItsBitmap) {
    m_registry.SetMachineString(L"Dir", BuiltAddinFolder().c_str());

    for (const wchar_t* image : {L"resource.bin", L"resource_attachment.bin",
                                 L"resource_setting.bin", L"resource_info.bin"}) {
        SCOPED_TRACE(ToUtf8(image));
        Variant picture;
        ASSERT_EQ(Callback(4, {Variant(image)}, &picture), S_OK);
        ASSERT_EQ(picture.vt, VT_DISPATCH);
        ComPtr<IPicture> bitmapPicture;
        OLE_HANDLE handle = 0;
        ASSERT_EQ(picture.pdispVal->QueryInterface(IID_IPicture, bitmapPicture.put_void()), S_OK);
        ASSERT_EQ(bitmapPicture->get_Handle(&handle), S_OK);
        HBITMAP bitmap = reinterpret_cast<HBITMAP>(static_cast<UINT_PTR>(handle));
        BITMAP info{};
        ASSERT_EQ(GetObjectW(bitmap, sizeof info, &info), static_cast<int>(sizeof info));
        EXPECT_EQ(info.bmWidth, 32);
        EXPECT_EQ(info.bmHeight, 32);

        // The host's last Release of the picture frees the bitmap: no GDI handle per ribbon load.
        bitmapPicture.reset();
        picture.Clear();
        EXPECT_EQ(GetObjectType(bitmap), 0u);
    }
}

TEST_F(RibbonTest, WithoutTheMachinesFolderOrAnImageFileThereIsNoPicture) {
    ScratchFolder scratch;
    WriteFileBytes(scratch / L"resource.bin", "not a picture");
    std::wstring scratchFolder = scratch.Path();
    scratchFolder.pop_back();
    Variant picture;

    EXPECT_EQ(Callback(4, {Variant(L"resource.bin")}, &picture), E_FAIL) << "no folder";
    m_registry.SetUserString(L"Dir", BuiltAddinFolder().c_str());
    EXPECT_EQ(Callback(4, {Variant(L"resource.bin")}, &picture), E_FAIL) << "a user's folder";
    m_registry.SetMachineString(L"Dir", BuiltAddinFolder().c_str());
    EXPECT_EQ(Callback(4, {Variant(L"resource_x.bin")}, &picture), E_FAIL) << "no such file";
    EXPECT_EQ(Callback(4, {}, &picture), DISP_E_BADPARAMCOUNT);
    m_registry.SetMachineString(L"Dir", scratchFolder.c_str());
    EXPECT_EQ(Callback(4, {Variant(L"resource.bin")}, &picture), E_FAIL) << "not an image";
    EXPECT_EQ(picture.vt, VT_EMPTY);
}

}  // namespace
