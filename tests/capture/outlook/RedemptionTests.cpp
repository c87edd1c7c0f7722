// The signed-mail way through the Redemption library, attachments and the deletion of archived
// mail: the lookup's matching rules against scripted folders, everything else end to end against
// the simulated Outlook and the simulated library registered under its ProgID (or not), which
// these cases pin as well: it reads each mail from its message, saves a file Outlook can open and
// deletes through Outlook's folder. Every case checks that each object got back every reference
// the product took.
#include <windows.h>
#include <mapicode.h>

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "capture/CaptureTypes.h"
#include "capture/outlook/Attachments.h"
#include "capture/outlook/DeleteMail.h"
#include "capture/outlook/OutlookCapture.h"
#include "capture/outlook/Redemption.h"
#include "common/AttachmentRecord.h"
#include "common/Automation.h"
#include "handoff/StagingArea.h"
#include "outlooksim/FakeOutlook.h"
#include "rdosim/FakeRedemption.h"
#include "support/TestFiles.h"
#include "support/WindowWatcher.h"
#include "tools/mapisim/MapiSim.h"

namespace {

// --- FindRDOMail: by entry id, else by the compared values; the first match wins.

struct Mail {
    const wchar_t* entryId = L"00AA";
    const wchar_t* subject = L"Angebot";
    int32_t size = 4096;
    const wchar_t* messageClass = L"IPM.Note.SMIME";
    const wchar_t* sentOnBehalfOf = L"Erika";
    double received = 45426.5;
    const wchar_t* to = L"Max";
    double sentOn = 45426.25;
};

Variant Date(double value) {
    Variant date;
    date.vt = VT_DATE;
    date.date = value;
    return date;
}

ComPtr<FakeDispatch> MakeMail(const Mail& m) {
    ComPtr<FakeDispatch> mail = FakeDispatch::Create();
    mail->SetProperty(L"EntryID", m.entryId)
        .SetProperty(L"Subject", m.subject)
        .SetProperty(L"Size", Variant(m.size))
        .SetProperty(L"MessageClass", m.messageClass)
        .SetProperty(L"SentOnBehalfOfName", m.sentOnBehalfOf)
        .SetProperty(L"ReceivedTime", Date(m.received))
        .SetProperty(L"To", m.to)
        .SetProperty(L"SentOn", Date(m.sentOn));
    return mail;
}

struct FindCase {
    const char* label;
    std::vector<Mail> folder;
    int found;  // index into the folder, -1 for none
};

void PrintTo(const FindCase& c, std::ostream* os) { *os << c.label; }

class FindRDOMailTest : public ::testing::TestWithParam<FindCase> {
protected:
    LogCapture log;
};

TEST_P(FindRDOMailTest, FindsTheFirstMatchingMail) {
    std::vector<ComPtr<FakeDispatch>> mails;
    for (const Mail& m : GetParam().folder) {
        mails.push_back(MakeMail(m));
    }
    ComPtr<FakeDispatch> items = FakeDispatch::Create();
    items->SetProperty(L"Count", Variant(static_cast<int32_t>(mails.size())))
        .SetComputedProperty(L"_Item", [&mails](const FakeDispatch::Args& args, VARIANT* result) {
            result->vt = VT_DISPATCH;
            result->pdispVal = mails.at(args.at(0).lVal - 1).get();
            result->pdispVal->AddRef();
            return S_OK;
        });
    ComPtr<FakeDispatch> folder = FakeDispatch::Create();
    folder->SetProperty(L"Items", items.get());
    ComPtr<FakeDispatch> selected = MakeMail(Mail{});
    {
        ComPtr<IDispatch> found;
        const HRESULT hr = FindRDOMail(folder.get(), selected.get(), found);
        const int index = GetParam().found;
        EXPECT_EQ(index < 0 ? E_FAIL : S_OK, hr);
        EXPECT_EQ(index < 0 ? nullptr : static_cast<IDispatch*>(mails[index].get()), found.get());
        EXPECT_EQ(index < 0, log.Contains(L"### No mail found! ###\n"));
    }
    for (const auto& mail : mails) {
        EXPECT_EQ(1u, mail->RefCount());
    }
    EXPECT_EQ(2u, items->RefCount());
    EXPECT_EQ(1u, folder->RefCount());
    EXPECT_EQ(1u, selected->RefCount());
}

// Mails that differ from the selected one in the values named (and in their entry id).
INSTANTIATE_TEST_SUITE_P(
    Rules, FindRDOMailTest,
    ::testing::Values(
        FindCase{"entry id alone, any case",
                 {Mail{.entryId = L"FF", .subject = L"Rechnung"},
                  Mail{.entryId = L"00aa", .subject = L"Rechnung", .size = 1}},
                 1},
        FindCase{"same values, any case",
                 {Mail{.entryId = L"FF", .subject = L"ANGEBOT", .to = L"Ina", .sentOn = 1}},
                 0},
        FindCase{
            "sender differs, To agrees", {Mail{.entryId = L"FF", .sentOnBehalfOf = L"Ina"}}, 0},
        FindCase{"received differs, sent agrees", {Mail{.entryId = L"FF", .received = 3}}, 0},
        FindCase{"size differs", {Mail{.entryId = L"FF", .size = 4097}}, -1},
        FindCase{"sender and To differ",
                 {Mail{.entryId = L"FF", .sentOnBehalfOf = L"Ina", .to = L"Ina"}},
                 -1},
        FindCase{"both times differ", {Mail{.entryId = L"FF", .received = 3, .sentOn = 4}}, -1},
        FindCase{
            "two identical",
            {Mail{.entryId = L"FF", .size = 1}, Mail{.entryId = L"F1"}, Mail{.entryId = L"F2"}},
            1},
        FindCase{"empty folder", {}, -1}));

// --- End to end through the simulated Outlook and library.

struct ComApartment {
    ComApartment() { EXPECT_EQ(S_OK, CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED)); }
    ~ComApartment() { CoUninitialize(); }
};

class SimulatedLibraryTest : public ::testing::Test {
protected:
    SimulatedLibraryTest() { EXPECT_EQ(S_OK, FakeRedemption::Register()); }
    ~SimulatedLibraryTest() override {
        if (redemption) {
            ReleaseLibrary();
        }
        EXPECT_EQ(before, outlook->RefCounts());
        outlook.reset();
        EXPECT_EQ(0u, MapiSimLiveObjects());
        EXPECT_EQ(0u, MapiSimLiveBuffers());
        EXPECT_EQ(0u, MapiSimLiveSessions());
        EXPECT_EQ(S_OK, FakeRedemption::Unregister());
    }
    // Every library object back to the library's own reference; its sessions hold Outlook's MAPI
    // session until the library goes.
    void ReleaseLibrary() {
        for (const auto& [name, count] : redemption->RefCounts()) {
            EXPECT_EQ(1u, count) << std::string(name.begin(), name.end());
        }
        redemption.reset();
    }
    FakeDispatch& Select(const std::wstring& text) {
        FakeDispatch& item = outlook->SelectItemText(text);
        before = outlook->RefCounts();
        return item;
    }
    static std::wstring Text(IDispatch* object, const wchar_t* name) {
        BStr text;
        EXPECT_EQ(S_OK, GetTextPropertyNoThrow(object, name, &text)) << name;
        return text.c_str();
    }
    std::wstring Value(const wchar_t* name) const {
        const PropertyEntry* entry = map.Find(name);
        return entry ? entry->value + (entry->flag ? L"" : L" (0)") : L"<absent>";
    }

    ComApartment apartment;
    TempDirectoryOverride temp;
    LogCapture log;
    std::unique_ptr<FakeOutlook> outlook = std::make_unique<FakeOutlook>();
    std::unique_ptr<FakeRedemption> redemption = std::make_unique<FakeRedemption>(*outlook);
    RefCountList before;
    PathBuffer path{};
    PropertyMap map;
};

TEST_F(SimulatedLibraryTest, SignedMailIsSavedByTheLibraryWithItsValues) {
    const std::wstring longSubject(3000, L's');
    FakeDispatch& item =
        Select(L"class = IPM.Note.SMIME.MultipartSigned\nPR_SUBJECT = " + longSubject +
               L"\nPR_IMPORTANCE = 2\nPR_SENDER_NAME = Erika\n"
               L"PR_MESSAGE_DELIVERY_TIME = 2024-05-14T23:30:00Z\n"
               L"CC = Ina | SMTP | ina@example.net\nBCC = Bert | SMTP | b@x.de\n");
    // The sender's address cannot be read; its failure has always borrowed the sender name's text.
    redemption->Mail(0).FailCall(L"SenderEmailAddress", 1, E_FAIL);

    ASSERT_EQ(S_OK, SaveOutlookDocument(&outlook->Application(), &path, &map, 1));

    EXPECT_NE(nullptr, wcsstr(path.data(), L"\\dorvane_0_")) << path.data();
    {
        FakeOutlook reader;  // the library's file, as Outlook opens it
        EXPECT_EQ(L"Erika", Text(&reader.SelectMessageFile(path.data()), L"SenderName"));
    }
    for (const FakeDispatch::CallRecord& call : redemption->Mail(0).Calls()) {
        if (call.member == L"SaveAs") {
            EXPECT_EQ(path.data(), std::wstring(call.args.at(0).bstrVal));
            EXPECT_EQ(9, call.args.at(1).lVal);
        }
    }
    EXPECT_EQ(1u, redemption->Mail(0).CallCount(L"SaveAs"));
    redemption->Mail(0).ClearCalls();
    // The date as the library gives it, in no time zone, and without its time of day.
    wchar_t date[32];
    const SYSTEMTIME may14{2024, 5, 2, 14, 23, 30, 0, 0};
    GetDateFormatW(LOCALE_USER_DEFAULT, LOCALE_NOUSEROVERRIDE, &may14, nullptr, date, 32);
    const std::pair<const wchar_t*, std::wstring> expected[] = {
        {L"OTL_MSG_BCC", L"Bert"},
        {L"OTL_MSG_CC", L"Ina"},
        {L"OTL_MSG_IMPORTANCE", L"2"},
        {L"OTL_MSG_RECIEVEDATE", date},
        {L"OTL_MSG_SENDERNAME", L"Erika"},
        {L"OTL_MSG_SENDER_EMAIL_ADDRESS", L""},
        {L"OTL_MSG_SUBJECT", longSubject.substr(0, 2047)},
        {L"OTL_MSG_TO", L""},
        {L"OTL_MSG_TO_SMTP_ADDRESS", L";Ina;Bert"},
        {L"PR_ENTRYID", Text(&item, L"EntryID") + L" (0)"},
        {L"PR_STORE_ENTRYID", Text(&outlook->Folder(), L"StoreID") + L" (0)"},
    };
    EXPECT_EQ(std::size(expected), map.size());
    for (const auto& [name, value] : expected) {
        EXPECT_EQ(value, Value(name)) << name;
    }
    EXPECT_TRUE(log.Contains(L"Can't get property SenderName from mail item! hr = 0x80004005\n"));
    EXPECT_TRUE(log.Contains(L"Redemption DLL version: "));
    EXPECT_EQ(1u, redemption->SessionCount());
}

TEST_F(SimulatedLibraryTest, OneOpenItemIsStagedAsItemNumberZero) {
    outlook->SelectItemText(L"class = IPM.Note\nPR_SUBJECT = Erste\n");
    FakeDispatch& open = Select(L"class = IPM.Note.SMIME\nPR_SUBJECT = Offen\n");
    ASSERT_EQ(S_OK, SaveOutlookItem(&outlook->Application(), &open, path, map));
    EXPECT_EQ(L"Offen", Value(L"OTL_MSG_SUBJECT"));
    EXPECT_NE(nullptr, wcsstr(path.data(), L"\\dorvane_0_")) << path.data();
}

// Keys count within one mail, hidden attachments included: a record chosen from the second mail
// saves nothing of the first, and each chosen file gets a staging folder of its own.
TEST_F(SimulatedLibraryTest, AttachmentsOfTheSelectionAreListedAndSavedMailByMail) {
    outlook->SelectItemText(L"class = IPM.Note\nattachment = Preise.txt | 42 EUR\n");
    Select(
        L"class = IPM.Note.SMIME\nattachment = Vertrag.pdf | %PDF\n"
        L"hidden attachment = logo.png | PNG\nattachment = Anlage.txt | Anlage 1\n");
    AttachmentList list;
    ASSERT_EQ(S_OK, GetAttachmentList(&outlook->Application(), nullptr, list));
    ASSERT_EQ(3u, list.size());
    const std::pair<const wchar_t*, const wchar_t*> anlage[] = {{kAttachmentHidden, L"0"},
                                                                {kAttachmentKey, L"3"},
                                                                {kAttachmentName, L"Anlage.txt"},
                                                                {kAttachmentSize, L"8"}};
    map = list[2];
    EXPECT_EQ(std::size(anlage), map.size());
    for (const auto& [name, value] : anlage) {
        EXPECT_EQ(std::wstring(value) + L" (0)", Value(name)) << name;
    }
    // Any text marks a record chosen, even "0".
    list[1].Add(kAttachmentSelected, L"0", 0);
    list[2].Add(kAttachmentSelected, L"1", 0);
    FileList files;

    ASSERT_EQ(S_OK, SaveAttachments(&outlook->Application(), nullptr, list, files));

    ASSERT_EQ(2u, files.size());
    EXPECT_EQ("%PDF", ReadFileBytes(files[0]));
    EXPECT_EQ("Anlage 1", ReadFileBytes(files[1]));
    for (const std::wstring& file : files) {
        EXPECT_TRUE(IsInStagingArea(file.c_str())) << file.c_str();
    }
    EXPECT_NE(files[0].substr(0, files[0].rfind(L'\\')), files[1].substr(0, files[1].rfind(L'\\')));
}

// Like the real library, a session answers nothing before it has Outlook's MAPI session: a capture
// that forgot to hand it over fails against the double too.
TEST_F(SimulatedLibraryTest, TheLibraryAnswersNothingBeforeItHasOutlooksSession) {
    Select(L"class = IPM.Note.SMIME\n");
    CLSID clsid{};
    ASSERT_EQ(S_OK, CLSIDFromProgID(L"Redemption.RDOSession", &clsid));
    ComPtr<IDispatch> session, folder;
    ASSERT_EQ(S_OK, CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, IID_IDispatch,
                                     session.put_void()));
    Variant id(Text(&outlook->Folder(), L"EntryID").c_str());
    EXPECT_EQ(MAPI_E_NOT_INITIALIZED,
              GetObjectPropertyNoThrow(session.get(), GetOrCall(L"GetFolderFromID"), folder.put(),
                                       {&id}));
}

// --- Deleting an archived mail, named by its identifiers.

struct DeleteCase {
    const char* label;
    const wchar_t* messageClass;
    const wchar_t* entryId;  // null: the item's own; empty: an empty entry; "-": absent
    const wchar_t* storeId;
    const wchar_t* failing;  // a member of the namespace or the item failing E_ACCESSDENIED
    const wchar_t* logLine;  // null: deleted
};

void PrintTo(const DeleteCase& c, std::ostream* os) { *os << c.label; }

class DeleteMailTest : public SimulatedLibraryTest,
                       public ::testing::WithParamInterface<DeleteCase> {};

TEST_P(DeleteMailTest, DeletesTheItemOrLogsWhyNot) {
    const DeleteCase& c = GetParam();
    FakeDispatch& item = Select(std::wstring(L"class = ") + c.messageClass + L"\n");
    const std::wstring entryId = c.entryId ? c.entryId : Text(&item, L"EntryID");
    const std::wstring storeId = c.storeId ? c.storeId : Text(&outlook->Folder(), L"StoreID");
    if (entryId != L"-") {
        map.Add(kEntryIdName, entryId.c_str(), 0);
    }
    map.Add(kStoreEntryIdName, storeId.c_str(), 0);
    if (c.failing) {
        (std::wstring(c.failing) == L"Delete" ? item : outlook->Namespace())
            .FailCall(c.failing, 1, E_ACCESSDENIED);
    }

    const HRESULT hr = DeleteMailItem(&outlook->Application(), map);

    EXPECT_EQ(!c.logLine, SUCCEEDED(hr));
    if (c.logLine) {
        EXPECT_TRUE(log.Contains(c.logLine)) << log.Text();
        return;
    }
    int32_t left = -1;
    EXPECT_EQ(S_OK, GetIntegerPropertyNoThrow(&outlook->Selection(), L"Count", &left));
    EXPECT_EQ(0, left);
    // Signed mail by the library's hand, any other through Outlook.
    const bool signedMail = std::wstring(c.messageClass).find(L"SMIME") != std::wstring::npos;
    EXPECT_EQ(signedMail ? 0u : 1u, item.CallCount(L"Delete"));
    EXPECT_EQ(signedMail ? 1u : 0u, redemption->SessionCount());
    ReleaseLibrary();
    before = outlook->RefCounts();
}

INSTANTIATE_TEST_SUITE_P(
    Requests, DeleteMailTest,
    ::testing::Values(DeleteCase{"plain mail", L"IPM.Note", nullptr, nullptr, nullptr, nullptr},
                      DeleteCase{"signed mail", L"IPM.Note.SMIME.MultipartSigned", nullptr, nullptr,
                                 nullptr, nullptr},
                      DeleteCase{"no entry id", L"IPM.Note", L"-", nullptr, nullptr,
                                 L"Can't find custom document property PR_ENTRYID!\n"},
                      DeleteCase{"empty entry id", L"IPM.Note", L"", nullptr, nullptr,
                                 L"Invalid value of custom document property PR_ENTRYID!\n"},
                      DeleteCase{"empty store id", L"IPM.Note", nullptr, L"", nullptr,
                                 L"Invalid value of custom document property PR_STORE_ENTRYID!\n"},
                      DeleteCase{"item not found", L"IPM.Note", L"00AA", L"00BB", L"GetItemFromID",
                                 L"Error in GetItemFromID(00AA,00BB)! hr = 0x80070005\n"},
                      DeleteCase{"Outlook refuses", L"IPM.Note", nullptr, nullptr, L"Delete",
                                 L"Failed to delete mail item! hr = 0x80070005\n"}));

// --- The library not installed: the user is told, nothing is archived and nothing deleted.

TEST_F(SimulatedLibraryTest, WithoutTheLibrarySignedMailIsNeitherArchivedNorDeleted) {
    ASSERT_EQ(S_OK, FakeRedemption::Unregister());
    FakeDispatch& item = Select(L"class = IPM.Note.SMIME\nPR_SUBJECT = Signiert\n");
    WindowWatcher watcher;
    watcher.Expect(L"talvorn dorvane").Click(IDOK);
    watcher.Expect(L"talvorn dorvane").Click(IDOK);

    EXPECT_EQ(CO_E_CLASSSTRING, SaveOutlookDocument(&outlook->Application(), &path, &map, 1));
    EXPECT_EQ(L"", std::wstring(path.data()));
    EXPECT_TRUE(map.empty());
    map.Add(kEntryIdName, Text(&item, L"EntryID").c_str(), 0);
    map.Add(kStoreEntryIdName, Text(&outlook->Folder(), L"StoreID").c_str(), 0);
    EXPECT_EQ(CO_E_CLASSSTRING, DeleteMailItem(&outlook->Application(), map));

    watcher.Verify();
    for (const auto& box : watcher.Seen()) {
        EXPECT_TRUE(box.HasText(L"Die Redemption Schnittstelle ist nicht registriert."));
    }
    EXPECT_EQ(0u, item.CallCount(L"Delete"));
    EXPECT_EQ(0u, redemption->SessionCount());
    EXPECT_TRUE(log.Contains(L"Can't get CLSID for Redemption.RDOSession! hr = 0x800401F3\n"));
    EXPECT_TRUE(log.Contains(L"Fehler bei der Kommunikation mit der Redemption Schnittstelle.\n"));
}

}  // namespace
