#include <gtest/gtest.h>
#include <olectl.h>

#include <algorithm>
#include <ostream>
#include <string>
#include <vector>

#include "addin/OfficeInterfaces.h"
#include "addin/TalvornAddin.h"
#include "common/BStr.h"
#include "common/ComPtr.h"
#include "common/Messages.h"
#include "common/Variant.h"
#include "resources/resource.h"
#include "server/ComServer.h"
#include "support/BuiltModule.h"
#include "support/FakeDispatch.h"
#include "support/RegistrySandbox.h"
#include "support/TestFiles.h"
#include "support/WindowWatcher.h"

namespace {

const std::wstring kErrorCaption = L"Fehler bei der Dokumentablage";

ComPtr<IDTExtensibility2> CreateAddin() {
    ComPtr<IClassFactory> factory;
    ComPtr<IDTExtensibility2> addin;
    EXPECT_EQ(GetServerClassObject(CLSID_TalvornAddin, IID_IClassFactory, factory.put_void()),
              S_OK);
    if (factory) {
        EXPECT_EQ(factory->CreateInstance(nullptr, IID_IDTExtensibility2, addin.put_void()), S_OK);
    }
    return addin;
}

std::wstring UiText(UINT id) {
    wchar_t text[260] = L"";
    LoadUiString(id, text, 260);
    return text;
}

// The add-in as the ribbon of a host sees it, with the machine-wide settings it needs.
class RibbonTest : public testing::Test {
protected:
    RibbonTest() { m_registry.SetMachineNumber(L"MultiProcess", 0); }

    ComPtr<IRibbonExtensibility> Ribbon() {
        ComPtr<IRibbonExtensibility> ribbon;
        EXPECT_EQ(m_addin.query_to(ribbon.put()), S_OK);
        return ribbon;
    }

    // Calls back like a host: arguments in their natural order, handed over last to first.
    HRESULT Callback(DISPID id, std::vector<VARIANT> args, VARIANT* result = nullptr) {
        std::reverse(args.begin(), args.end());
        DISPPARAMS params{args.data(), nullptr, static_cast<UINT>(args.size()), 0};
        return m_addin->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_METHOD, &params, result,
                               nullptr, nullptr);
    }

    RegistrySandbox m_registry;
    ComPtr<IDTExtensibility2> m_addin = CreateAddin();
};

// --- The markup of each served ribbon.

struct MarkupCase {
    std::string name;
    std::wstring ribbonId;
    bool attachments;
    bool noSettings;
    std::wstring expectedFile;  // below tests/addin/expected
};

void PrintTo(const MarkupCase& row, std::ostream* out) { *out << row.name; }

std::vector<MarkupCase> MarkupCases() {
    struct Window {
        const char* name;
        const wchar_t* id;
        const wchar_t* file;  // the markup file's name without its options
        bool outlook;
    };
    const Window windows[] = {
        {"OutlookExplorer", L"Microsoft.Outlook.Explorer", L"archive", true},
        {"OutlookMailRead", L"Microsoft.Outlook.Mail.Read", L"single_item", true},
        {"WordDocument", L"Microsoft.Word.Document", L"archive", false},
        {"PowerPointPresentation", L"Microsoft.PowerPoint.Presentation", L"archive", false},
        {"ExcelWorkbook", L"Microsoft.Excel.Workbook", L"archive", false},
    };
    std::vector<MarkupCase> cases;
    for (const Window& window : windows) {
        for (bool attachments : {false, true}) {
            for (bool noSettings : {false, true}) {
                std::string name = window.name;
                std::wstring file = window.file;
                if (attachments) {
                    name += "_Attachments";
                    // Only Outlook's windows offer the attachments button.
                    file += window.outlook ? L"_attachments" : L"";
                }
                if (noSettings) {
                    name += "_Nosettings";
                    file += L"_nosettings";
                }
                cases.push_back({name, window.id, attachments, noSettings, file + L".xml"});
            }
        }
    }
    return cases;
}

class RibbonMarkupTest : public RibbonTest, public testing::WithParamInterface<MarkupCase> {};

TEST_P(RibbonMarkupTest, IsServedByteForByte) {
    const MarkupCase& row = GetParam();
    m_registry.SetMachineNumber(L"Attachments", row.attachments ? 1 : 0);
    m_registry.SetMachineNumber(L"Nosettings", row.noSettings ? 1 : 0);
    LogCapture log;

    BStr id(row.ribbonId.c_str());
    BStr markup;
    ASSERT_EQ(Ribbon()->GetCustomUI(id.get(), markup.put()), S_OK);

    ASSERT_NE(markup.get(), nullptr);
    EXPECT_EQ(ToUtf8(markup.c_str()),
              ReadFileBytes(TestSourcePath(L"addin/expected/" + row.expectedFile)));
    EXPECT_TRUE(log.Contains(L"[INF] RibbonID: " + row.ribbonId + L"\n")) << ToUtf8(log.Text());
    EXPECT_EQ(log.Contains(L"[INF] returning RibbonXML\n"), !row.noSettings);
    EXPECT_EQ(log.Contains(L"[INF] returning RibbonXML (no settings)\n"), row.noSettings);
}

INSTANTIATE_TEST_SUITE_P(Windows, RibbonMarkupTest, testing::ValuesIn(MarkupCases()),
                         [](const testing::TestParamInfo<MarkupCase>& info) {
                             return info.param.name;
                         });

TEST_F(RibbonTest, EachWindowGetsTheSettingsAsTheyAreThen) {
    const std::wstring id = L"Microsoft.Outlook.Explorer";
    BStr first;
    ASSERT_EQ(Ribbon()->GetCustomUI(BStr(id.c_str()).get(), first.put()), S_OK);
    m_registry.SetMachineNumber(L"Attachments", 1);
    BStr second;
    ASSERT_EQ(Ribbon()->GetCustomUI(BStr(id.c_str()).get(), second.put()), S_OK);

    EXPECT_EQ(ToUtf8(first.c_str()), ReadFileBytes(TestSourcePath(L"addin/expected/archive.xml")));
    EXPECT_EQ(ToUtf8(second.c_str()),
              ReadFileBytes(TestSourcePath(L"addin/expected/archive_attachments.xml")));
}

TEST_F(RibbonTest, WithoutSettingsOrAPlaceForTheMarkupNothingIsServed) {
    BStr id(L"Microsoft.Word.Document");
    EXPECT_EQ(Ribbon()->GetCustomUI(id.get(), nullptr), E_POINTER);

    m_registry.Wipe();
    LogCapture log;
    BSTR markup = reinterpret_cast<BSTR>(0x1234);
    EXPECT_EQ(Ribbon()->GetCustomUI(id.get(), &markup), S_OK);
    EXPECT_EQ(markup, nullptr);
    EXPECT_TRUE(log.Contains(L"[ERR] Failed to load settings!\n")) << ToUtf8(log.Text());
}

struct UnknownRibbonCase {
    const char* name;
    const wchar_t* ribbonId;  // null for a null BSTR
};

void PrintTo(const UnknownRibbonCase& row, std::ostream* out) { *out << row.name; }

class UnknownRibbonTest : public RibbonTest,
                          public testing::WithParamInterface<UnknownRibbonCase> {};

TEST_P(UnknownRibbonTest, GetsNoMarkup) {
    LogCapture log;
    BStr id(GetParam().ribbonId);
    BSTR markup = reinterpret_cast<BSTR>(0x1234);

    EXPECT_EQ(Ribbon()->GetCustomUI(id.get(), &markup), S_OK);

    EXPECT_EQ(markup, nullptr);
    EXPECT_TRUE(log.Contains(std::wstring(L"[INF] RibbonID: ") + id.c_str() + L"\n"))
        << ToUtf8(log.Text());
    EXPECT_FALSE(log.Contains(L"returning RibbonXML"));
}

INSTANTIATE_TEST_SUITE_P(
    Ids, UnknownRibbonTest,
    testing::Values(UnknownRibbonCase{"OutlookCompose", L"Microsoft.Outlook.Mail.Compose"},
                    UnknownRibbonCase{"OtherCase", L"microsoft.word.document"},
                    UnknownRibbonCase{"TrailingBlank", L"Microsoft.Word.Document "},
                    UnknownRibbonCase{"Prefix", L"Microsoft.Outlook"},
                    UnknownRibbonCase{"Empty", L""}, UnknownRibbonCase{"Null", nullptr}),
    [](const testing::TestParamInfo<UnknownRibbonCase>& info) {
        return std::string(info.param.name);
    });

// --- The callback names of the markup and their dispatch identifiers.

struct CallbackNameCase {
    const char* name;
    const wchar_t* callback;
    DISPID id;  // DISPID_UNKNOWN: not a callback
};

void PrintTo(const CallbackNameCase& row, std::ostream* out) { *out << row.name; }

class CallbackNameTest : public RibbonTest, public testing::WithParamInterface<CallbackNameCase> {};

TEST_P(CallbackNameTest, ResolvesToItsIdentifier) {
    std::wstring callback = GetParam().callback;
    LPOLESTR names[] = {callback.data()};
    DISPID id = 0;

    EXPECT_EQ(m_addin->GetIDsOfNames(IID_NULL, names, 1, LOCALE_USER_DEFAULT, &id),
              GetParam().id == DISPID_UNKNOWN ? DISP_E_UNKNOWNNAME : S_OK);
    EXPECT_EQ(id, GetParam().id);
}

INSTANTIATE_TEST_SUITE_P(
    Names, CallbackNameTest,
    testing::Values(
        CallbackNameCase{"Archive", L"TalvornAddin.Archive", 1},
        CallbackNameCase{"Settings", L"TalvornAddin.Settings", 2},
        CallbackNameCase{"Info", L"TalvornAddin.Info", 3},
        CallbackNameCase{"GetImage", L"TalvornAddin.GetImage", 4},
        CallbackNameCase{"Attachment", L"TalvornAddin.Attachment", 5},
        CallbackNameCase{"ArchiveSingleOutlook", L"TalvornAddin.ArchiveSingleOutlook", 6},
        CallbackNameCase{"AttachmentSingleOutlook", L"TalvornAddin.AttachmentSingleOutlook", 7},
        CallbackNameCase{"OtherCase", L"talvornaddin.archive", DISPID_UNKNOWN},
        CallbackNameCase{"WithoutPrefix", L"Archive", DISPID_UNKNOWN},
        CallbackNameCase{"TrailingBlank", L"TalvornAddin.Info ", DISPID_UNKNOWN},
        CallbackNameCase{"PrefixOnly", L"TalvornAddin.", DISPID_UNKNOWN},
        CallbackNameCase{"Empty", L"", DISPID_UNKNOWN}),
    [](const testing::TestParamInfo<CallbackNameCase>& info) {
        return std::string(info.param.name);
    });

TEST_F(RibbonTest, GetIDsOfNamesTakesOneNameOfTheDefaultInterface) {
    wchar_t archive[] = L"TalvornAddin.Archive";
    wchar_t info[] = L"TalvornAddin.Info";
    LPOLESTR names[] = {archive, info};
    DISPID ids[2] = {0, 0};

    EXPECT_EQ(m_addin->GetIDsOfNames(IID_IDispatch, names, 1, LOCALE_USER_DEFAULT, ids),
              DISP_E_UNKNOWNINTERFACE);
    EXPECT_EQ(m_addin->GetIDsOfNames(IID_NULL, nullptr, 1, LOCALE_USER_DEFAULT, ids), E_POINTER);
    EXPECT_EQ(m_addin->GetIDsOfNames(IID_NULL, names, 1, LOCALE_USER_DEFAULT, nullptr), E_POINTER);
    // A member with a named argument is not a ribbon callback, however well its name is known.
    EXPECT_EQ(m_addin->GetIDsOfNames(IID_NULL, names, 2, LOCALE_USER_DEFAULT, ids), E_INVALIDARG);
    EXPECT_EQ(m_addin->GetIDsOfNames(IID_NULL, names, 0, LOCALE_USER_DEFAULT, ids), E_INVALIDARG);
}

// --- Invoke: the callbacks.

TEST_F(RibbonTest, InvokeRefusesOtherInterfacesMissingArgumentsAndUnknownMembers) {
    DISPPARAMS none{nullptr, nullptr, 0, 0};
    EXPECT_EQ(m_addin->Invoke(1, IID_IDispatch, LOCALE_USER_DEFAULT, DISPATCH_METHOD, &none,
                              nullptr, nullptr, nullptr),
              DISP_E_UNKNOWNINTERFACE);
    EXPECT_EQ(m_addin->Invoke(1, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_METHOD, nullptr, nullptr,
                              nullptr, nullptr),
              E_POINTER);
    for (DISPID id : {DISPID_VALUE, 8, DISPID_NEWENUM, DISPID_UNKNOWN, 1000}) {
        EXPECT_EQ(m_addin->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_METHOD, &none,
                                  nullptr, nullptr, nullptr),
                  DISP_E_MEMBERNOTFOUND)
            << id;
    }
}

TEST_F(RibbonTest, ButtonsOfAnUnconnectedAddinDoNothing) {
    WindowWatcher watcher;
    ComPtr<FakeDispatch> control = FakeDispatch::Create();
    for (DISPID id : {1, 2, 3}) {
        EXPECT_EQ(Callback(id, {Variant(static_cast<IDispatch*>(control.get()))}), S_OK) << id;
    }
    watcher.Verify();
    EXPECT_TRUE(control->Calls().empty());
    EXPECT_EQ(control->RefCount(), 1u);
}

TEST_F(RibbonTest, TheAttachmentButtonOfAnUnconnectedAddinFindsNoAttachments) {
    WindowWatcher watcher;
    watcher.Expect(kErrorCaption).Click(IDOK);

    EXPECT_EQ(Callback(5, {}), S_OK);

    watcher.Verify();
    std::vector<WindowWatcher::Window> seen = watcher.Seen();
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_TRUE(seen[0].HasText(UiText(IDS_NO_ATTACHMENTS))) << seen[0];
}

// The buttons of an open Outlook item find the item through the control's window ("Context").
enum class ControlArgument { ContextFails, ContextFailsByReference, NotAnObject, Missing };

struct NoWindowCase {
    const char* name;
    DISPID id;
    ControlArgument argument;
};

void PrintTo(const NoWindowCase& row, std::ostream* out) { *out << row.name; }

class NoWindowTest : public RibbonTest, public testing::WithParamInterface<NoWindowCase> {};

TEST_P(NoWindowTest, WithoutTheControlsWindowNothingHappens) {
    ComPtr<FakeDispatch> window = FakeDispatch::Create();
    ComPtr<FakeDispatch> control = FakeDispatch::Create();
    control->SetProperty(L"Context", static_cast<IDispatch*>(window.get()))
        .FailCall(L"Context", 1, E_FAIL);
    const ULONG controlCount = control->RefCount();
    const ULONG windowCount = window->RefCount();
    IDispatch* byReference = control.get();
    Variant argument;
    switch (GetParam().argument) {
    case ControlArgument::ContextFails:
        argument = Variant(static_cast<IDispatch*>(control.get()));
        break;
    case ControlArgument::ContextFailsByReference:
        argument.vt = VT_DISPATCH | VT_BYREF;
        argument.ppdispVal = &byReference;
        break;
    case ControlArgument::NotAnObject:
        argument = Variant(L"TLPMBTDX2_0001");
        break;
    case ControlArgument::Missing:
        break;
    }
    WindowWatcher watcher;
    LogCapture log;

    EXPECT_EQ(Callback(GetParam().id, GetParam().argument == ControlArgument::Missing
                                          ? std::vector<VARIANT>{}
                                          : std::vector<VARIANT>{argument}),
              S_OK);

    watcher.Verify();
    const bool readsContext = GetParam().argument == ControlArgument::ContextFails ||
                              GetParam().argument == ControlArgument::ContextFailsByReference;
    EXPECT_EQ(control->CallCount(L"Context"), readsContext ? 1u : 0u);
    EXPECT_TRUE(window->Calls().empty());
    EXPECT_FALSE(log.Contains(L"invoked")) << ToUtf8(log.Text());
    argument.Clear();
    EXPECT_EQ(control->RefCount(), controlCount);
    EXPECT_EQ(window->RefCount(), windowCount);
}

INSTANTIATE_TEST_SUITE_P(
    Arguments, NoWindowTest,
    testing::Values(NoWindowCase{"Archive_ContextFails", 6, ControlArgument::ContextFails},
                    NoWindowCase{"Archive_ContextFailsByReference", 6,
                                 ControlArgument::ContextFailsByReference},
                    NoWindowCase{"Archive_NotAnObject", 6, ControlArgument::NotAnObject},
                    NoWindowCase{"Archive_Missing", 6, ControlArgument::Missing},
                    NoWindowCase{"Attachment_ContextFails", 7, ControlArgument::ContextFails},
                    NoWindowCase{"Attachment_ContextFailsByReference", 7,
                                 ControlArgument::ContextFailsByReference},
                    NoWindowCase{"Attachment_NotAnObject", 7, ControlArgument::NotAnObject},
                    NoWindowCase{"Attachment_Missing", 7, ControlArgument::Missing}),
    [](const testing::TestParamInfo<NoWindowCase>& info) { return std::string(info.param.name); });

// An open item's window behind the control: each button reaches its own command with it.
class OpenItemTest : public RibbonTest {
protected:
    OpenItemTest() {
        m_window->SetProperty(L"CurrentItem", static_cast<IDispatch*>(m_item.get()));
        m_control->SetProperty(L"Context", static_cast<IDispatch*>(m_window.get()));
        m_counts = {m_control->RefCount(), m_window->RefCount(), m_item->RefCount()};
    }
    void ExpectReferencesBack() {
        EXPECT_EQ(m_control->RefCount(), m_counts[0]) << "references to the control";
        EXPECT_EQ(m_window->RefCount(), m_counts[1]) << "references to the window";
        EXPECT_EQ(m_item->RefCount(), m_counts[2]) << "references to the item";
    }

    ComPtr<FakeDispatch> m_control = FakeDispatch::Create();
    ComPtr<FakeDispatch> m_window = FakeDispatch::Create();
    ComPtr<FakeDispatch> m_item = FakeDispatch::Create();
    std::vector<ULONG> m_counts;
};

TEST_F(OpenItemTest, TheArchiveButtonArchivesTheWindowsCurrentItem) {
    WindowWatcher watcher;
    LogCapture log;

    EXPECT_EQ(Callback(6, {Variant(static_cast<IDispatch*>(m_control.get()))}), S_OK);

    watcher.Verify();
    EXPECT_TRUE(log.Contains(L"[INF] Outlook CTalvornAddin->OnArchiveSingleOutlook invoked\n"))
        << ToUtf8(log.Text());
    EXPECT_EQ(m_window->CallCount(L"CurrentItem"), 1u);
    // The Outlook item capture of this build refuses, which the command logs.
    EXPECT_TRUE(log.Contains(L"[ERR] Can't save current item! hr = 0x80004001\n"));
    ExpectReferencesBack();
}

TEST_F(OpenItemTest, TheAttachmentButtonLooksForTheWindowsCurrentItemsAttachments) {
    WindowWatcher watcher;
    watcher.Expect(kErrorCaption).Click(IDOK);
    LogCapture log;

    EXPECT_EQ(Callback(7, {Variant(static_cast<IDispatch*>(m_control.get()))}), S_OK);

    watcher.Verify();
    EXPECT_TRUE(log.Contains(L"[INF] Outlook CTalvornAddin->OnAttachmentSingleOutlook invoked\n"))
        << ToUtf8(log.Text());
    EXPECT_EQ(m_window->CallCount(L"CurrentItem"), 1u);
    std::vector<WindowWatcher::Window> seen = watcher.Seen();
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_TRUE(seen[0].HasText(UiText(IDS_NO_ATTACHMENTS))) << seen[0];
    ExpectReferencesBack();
}

// --- loadImage: the button pictures from the installation folder.

class RibbonImageTest : public RibbonTest, public testing::WithParamInterface<const wchar_t*> {};

TEST_P(RibbonImageTest, IsABitmapPictureThatOwnsItsBitmap) {
    m_registry.SetMachineString(L"Dir", BuiltAddinFolder().c_str());
    Variant picture;

    ASSERT_EQ(Callback(4, {Variant(GetParam())}, &picture), S_OK);

    ASSERT_EQ(picture.vt, VT_DISPATCH);
    ASSERT_NE(picture.pdispVal, nullptr);
    ComPtr<IPicture> bitmapPicture;
    ASSERT_EQ(picture.pdispVal->QueryInterface(IID_IPicture, bitmapPicture.put_void()), S_OK);
    SHORT type = 0;
    ASSERT_EQ(bitmapPicture->get_Type(&type), S_OK);
    EXPECT_EQ(type, PICTYPE_BITMAP);

    HDC screen = GetDC(nullptr);
    const int dotsX = GetDeviceCaps(screen, LOGPIXELSX);
    const int dotsY = GetDeviceCaps(screen, LOGPIXELSY);
    ReleaseDC(nullptr, screen);
    OLE_XSIZE_HIMETRIC width = 0;
    OLE_YSIZE_HIMETRIC height = 0;
    ASSERT_EQ(bitmapPicture->get_Width(&width), S_OK);
    ASSERT_EQ(bitmapPicture->get_Height(&height), S_OK);
    EXPECT_EQ(width, MulDiv(32, 2540, dotsX));
    EXPECT_EQ(height, MulDiv(32, 2540, dotsY));

    OLE_HANDLE handle = 0;
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

INSTANTIATE_TEST_SUITE_P(Images, RibbonImageTest,
                         testing::Values(L"resource.bin", L"resource_attachment.bin",
                                         L"resource_setting.bin", L"resource_info.bin"),
                         [](const testing::TestParamInfo<const wchar_t*>& info) {
                             std::string name = ToUtf8(info.param);
                             return name.substr(0, name.find('.'));
                         });

enum class ImageFolder { None, PerUserOnly, Installation, Scratch };

struct MissingImageCase {
    const char* name;
    ImageFolder folder;  // where "Dir" points
    const wchar_t* image;
};

void PrintTo(const MissingImageCase& row, std::ostream* out) { *out << row.name; }

class MissingImageTest : public RibbonTest, public testing::WithParamInterface<MissingImageCase> {
protected:
    ScratchFolder m_scratch;
};

TEST_P(MissingImageTest, FailsWithoutAPicture) {
    const std::wstring installation = BuiltAddinFolder();
    // A file by an image's name that holds no image.
    WriteFileBytes(m_scratch / L"resource.bin", "not a picture");
    std::wstring scratch = m_scratch.Path();
    scratch.pop_back();
    switch (GetParam().folder) {
    case ImageFolder::None:
        break;
    case ImageFolder::PerUserOnly:
        m_registry.SetUserString(L"Dir", installation.c_str());
        break;
    case ImageFolder::Installation:
        m_registry.SetMachineString(L"Dir", installation.c_str());
        break;
    case ImageFolder::Scratch:
        m_registry.SetMachineString(L"Dir", scratch.c_str());
        break;
    }
    Variant picture;

    EXPECT_EQ(Callback(4, {Variant(GetParam().image)}, &picture), E_FAIL);

    EXPECT_EQ(picture.vt, VT_EMPTY);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, MissingImageTest,
    testing::Values(MissingImageCase{"NoFolder", ImageFolder::None, L"resource.bin"},
                    MissingImageCase{"FolderOnlyPerUser", ImageFolder::PerUserOnly,
                                     L"resource.bin"},
                    MissingImageCase{"NoSuchFile", ImageFolder::Installation, L"resource_x.bin"},
                    MissingImageCase{"NotAnImage", ImageFolder::Scratch, L"resource.bin"}),
    [](const testing::TestParamInfo<MissingImageCase>& info) {
        return std::string(info.param.name);
    });

TEST_F(RibbonTest, LoadImageNeedsTheImageName) {
    m_registry.SetMachineString(L"Dir", BuiltAddinFolder().c_str());
    Variant picture;
    EXPECT_EQ(Callback(4, {}, &picture), DISP_E_BADPARAMCOUNT);
    EXPECT_EQ(picture.vt, VT_EMPTY);
}

}  // namespace
