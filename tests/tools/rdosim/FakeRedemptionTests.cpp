// The simulated MAPI library: its ProgID leads through the registry to the factory the test
// installed, its mails read their values from the Outlook items' messages, what it saves can be
// read again, deleting takes the item out of Outlook's folder, and every reference comes back.
#include <gtest/gtest.h>
#include <windows.h>

#include <mapicode.h>
#include <mapitags.h>

#include <memory>
#include <string>

#include "common/Automation.h"
#include "common/ComPtr.h"
#include "common/Variant.h"
#include "outlooksim/FakeOutlook.h"
#include "rdosim/FakeRedemption.h"
#include "rdosim/RdoSim.h"
#include "support/TestFiles.h"
#include "tools/mapisim/MapiSim.h"

namespace {

constexpr wchar_t kSignedMail[] =
    L"class = IPM.Note.SMIME.MultipartSigned\n"
    L"PR_SUBJECT = Vertrag (signiert)\n"
    L"PR_SENT_REPRESENTING_NAME = Klaus Hartmann\n"
    L"PR_MESSAGE_DELIVERY_TIME = 2024-05-24T09:00:03Z\n"
    L"To = Anna Beispiel | SMTP | anna@example.com\n"
    L"attachment = Vertrag.pdf | %PDF-1.4 Vertrag\n"
    L"hidden attachment = logo.png | PNG\n"
    L"attachment = Anlage.txt | Anlage 1\n";

struct ComApartment {
    ComApartment() { EXPECT_EQ(S_OK, CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED)); }
    ~ComApartment() { CoUninitialize(); }
};

std::wstring Text(IDispatch* object, const wchar_t* name) {
    BStr text;
    EXPECT_EQ(S_OK, GetTextPropertyNoThrow(object, name, &text)) << name;
    return text.c_str() ? text.c_str() : L"";
}

int32_t Number(IDispatch* object, const wchar_t* name) {
    int32_t number = -1;
    EXPECT_EQ(S_OK, GetIntegerPropertyNoThrow(object, name, &number)) << name;
    return number;
}

ComPtr<IDispatch> Object(IDispatch* object, const wchar_t* name, AutomationArgs args = {}) {
    ComPtr<IDispatch> result;
    EXPECT_EQ(S_OK, GetObjectPropertyNoThrow(object, GetOrCall(name), result.put(), args)) << name;
    return result;
}

class FakeRedemptionTest : public ::testing::Test {
protected:
    FakeRedemptionTest() { EXPECT_EQ(S_OK, FakeRedemption::Register()); }
    ~FakeRedemptionTest() override {
        redemption.reset();
        outlook.reset();
        EXPECT_EQ(liveBuffers, MapiSimLiveBuffers());
        EXPECT_EQ(S_OK, FakeRedemption::Unregister());
    }

    // A session the way the product makes one: by ProgID, attached to Outlook's MAPI session.
    ComPtr<IDispatch> LoggedOnSession() {
        CLSID clsid{};
        EXPECT_EQ(S_OK, CLSIDFromProgID(kRdoSimProgId, &clsid));
        ComPtr<IDispatch> session;
        EXPECT_EQ(S_OK, CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, IID_IDispatch,
                                         session.put_void()));
        ComPtr<IUnknown> mapiObject;
        EXPECT_EQ(S_OK, GetUnknownPropertyNoThrow(&outlook->Namespace(), L"MAPIOBJECT",
                                                  mapiObject.put()));
        Variant value;
        value.vt = VT_UNKNOWN;
        value.punkVal = mapiObject.Detach();
        EXPECT_EQ(S_OK, PutPropertyNoThrow(session.get(), L"MAPIOBJECT", value));
        return session;
    }

    ComApartment apartment;
    ULONG liveBuffers = MapiSimLiveBuffers();
    std::unique_ptr<FakeOutlook> outlook = std::make_unique<FakeOutlook>();
    std::unique_ptr<FakeRedemption> redemption = std::make_unique<FakeRedemption>(*outlook);
};

TEST_F(FakeRedemptionTest, ProgIdReachesTheInstalledFactoryUntilUnregistered) {
    CLSID clsid{};
    ASSERT_EQ(S_OK, CLSIDFromProgID(kRdoSimProgId, &clsid));
    EXPECT_TRUE(IsEqualCLSID(kClsidRdoSimSession, clsid));
    ComPtr<IDispatch> session;
    ASSERT_EQ(S_OK, CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, IID_IDispatch,
                                     session.put_void()));
    ASSERT_EQ(1u, redemption->SessionCount());
    EXPECT_EQ(static_cast<IDispatch*>(&redemption->Session(0)), session.get());
    EXPECT_FALSE(Text(session.get(), L"Version").empty());
    // Nothing works before the session is attached to Outlook's.
    const std::wstring folderId = Text(&outlook->Folder(), L"EntryID");
    Variant id(folderId.c_str());
    ComPtr<IDispatch> folder;
    EXPECT_EQ(MAPI_E_NOT_INITIALIZED,
              GetObjectPropertyNoThrow(session.get(), GetOrCall(L"GetFolderFromID"), folder.put(),
                                       {&id}));
    session.reset();
    EXPECT_EQ(1u, redemption->Session(0).RefCount());

    redemption.reset();
    EXPECT_EQ(CLASS_E_CLASSNOTAVAILABLE, CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER,
                                                          IID_IDispatch, session.put_void()));
    ASSERT_EQ(S_OK, FakeRedemption::Unregister());
    EXPECT_TRUE(FAILED(CLSIDFromProgID(kRdoSimProgId, &clsid)));
}

// The folder holds an unselected mail before the selected signed one; the library finds both,
// reads them from their messages, saves them, lists attachments with their hidden flag and
// deletes through Outlook.
TEST_F(FakeRedemptionTest, FolderMailsComeFromTheirMessages) {
    outlook->AddItemText(L"class = IPM.Note\nPR_SUBJECT = Vorher\n", false);
    FakeDispatch& selected = outlook->SelectItemText(kSignedMail);
    ScratchFolder scratch;
    {
        ComPtr<IDispatch> session = LoggedOnSession();
        const std::wstring folderId = Text(&outlook->Folder(), L"EntryID");
        Variant id(folderId.c_str()), two(int32_t{2});
        ComPtr<IDispatch> folder = Object(session.get(), L"GetFolderFromID", {&id});
        ASSERT_TRUE(folder);
        ComPtr<IDispatch> items = Object(folder.get(), L"Items");
        ASSERT_TRUE(items);
        EXPECT_EQ(2, Number(items.get(), L"Count"));
        ComPtr<IDispatch> mail = Object(items.get(), L"_Item", {&two});
        ASSERT_TRUE(mail);
        EXPECT_EQ(static_cast<IDispatch*>(&redemption->Mail(1)), mail.get());
        for (const wchar_t* name : {L"EntryID", L"Subject", L"MessageClass", L"To",
                                    L"SentOnBehalfOfName", L"ReceivedTime", L"SentOn"}) {
            EXPECT_EQ(Text(&selected, name), Text(mail.get(), name)) << name;
        }
        EXPECT_EQ(Number(&selected, L"Size"), Number(mail.get(), L"Size"));
        EXPECT_EQ(L"Klaus Hartmann", Text(mail.get(), L"SentOnBehalfOfName"));

        Variant msgPath((scratch / L"mail.msg").c_str()), unicode(int32_t{9});
        ASSERT_EQ(S_OK, CallMethodNoThrow(mail.get(), L"SaveAs", {&msgPath, &unicode}));
        FakeOutlook reader;
        EXPECT_EQ(L"Vertrag (signiert)",
                  Text(&reader.SelectMessageFile(scratch / L"mail.msg"), L"Subject"));

        ComPtr<IDispatch> decrypted = Object(mail.get(), L"GetDecryptedMessage");
        ComPtr<IDispatch> attachments = Object(decrypted.get(), L"Attachments");
        ASSERT_TRUE(attachments);
        ASSERT_EQ(3, Number(attachments.get(), L"Count"));
        const std::pair<const wchar_t*, bool> expected[] = {
            {L"Vertrag.pdf", false}, {L"logo.png", true}, {L"Anlage.txt", false}};
        for (int32_t i = 1; i <= 3; ++i) {
            Variant index(i);
            ComPtr<IDispatch> attachment = Object(attachments.get(), L"Item", {&index});
            EXPECT_EQ(expected[i - 1].first, Text(attachment.get(), L"FileName"));
            bool hidden = !expected[i - 1].second;
            EXPECT_EQ(S_OK, GetBooleanPropertyNoThrow(attachment.get(), L"Hidden", &hidden));
            EXPECT_EQ(expected[i - 1].second, hidden);
        }
        Variant three(int32_t{3}), filePath((scratch / L"Anlage.txt").c_str());
        ComPtr<IDispatch> last = Object(attachments.get(), L"Item", {&three});
        EXPECT_EQ(8, Number(last.get(), L"Size"));
        ASSERT_EQ(S_OK, CallMethodNoThrow(last.get(), L"SaveAsFile", {&filePath}));
        EXPECT_EQ("Anlage 1", ReadFileBytes(scratch / L"Anlage.txt"));

        const std::wstring entryId = Text(&selected, L"EntryID");
        Variant mailId(entryId.c_str());
        ComPtr<IDispatch> message = Object(session.get(), L"GetMessageFromID", {&mailId});
        ASSERT_EQ(S_OK, CallMethodNoThrow(message.get(), L"Delete"));
        EXPECT_EQ(1, Number(items.get(), L"Count"));
        EXPECT_EQ(0, Number(&outlook->Selection(), L"Count"));
        ComPtr<IDispatch> gone;
        EXPECT_EQ(MAPI_E_NOT_FOUND,
                  GetObjectPropertyNoThrow(&outlook->Namespace(), GetOrCall(L"GetItemFromID"),
                                           gone.put(), {&mailId}));
        redemption->Session(0).ClearCalls();
    }
    for (const auto& [name, count] : redemption->RefCounts()) {
        EXPECT_EQ(1u, count) << std::string(name.begin(), name.end());
    }
    // The sessions keep Outlook's MAPI session they were given until the library goes.
    EXPECT_EQ(1u, outlook->LiveMapiObjects());
    redemption.reset();
    EXPECT_EQ(0u, outlook->LiveMapiObjects());
    // The deleted item is out of the folder and the selection, whose references went with it.
    EXPECT_EQ(1u, selected.RefCount());
}

}  // namespace
