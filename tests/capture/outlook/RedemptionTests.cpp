// The signed-mail way through the Redemption library, its attachment listing and the deletion of
// archived mail, against scripted automation objects for the library's folders, mails and
// attachments and for Outlook's namespace and items. Every case checks that each object got back
// every reference the product took.
#include <windows.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "capture/CaptureTypes.h"
#include "capture/outlook/Attachments.h"
#include "capture/outlook/DeleteMail.h"
#include "capture/outlook/OutlookCapture.h"
#include "capture/outlook/Redemption.h"
#include "common/AttachmentRecord.h"
#include "handoff/StagingArea.h"
#include "common/Automation.h"
#include "outlooksim/FakeOutlook.h"
#include "rdosim/FakeRedemption.h"
#include "support/TestFiles.h"
#include "support/WindowWatcher.h"
#include "tools/mapisim/MapiSim.h"

namespace {

Variant Date(double value) {
    Variant date;
    date.vt = VT_DATE;
    date.date = value;
    return date;
}

// The values FindRDOMail compares, as Outlook's item and the library's mail both answer them.
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

// A collection answering Count and, counted from 1, `member`(i).
ComPtr<FakeDispatch> MakeCollection(const std::vector<ComPtr<FakeDispatch>>& elements,
                                    const wchar_t* member) {
    ComPtr<FakeDispatch> collection = FakeDispatch::Create();
    collection->SetProperty(L"Count", Variant(static_cast<int32_t>(elements.size())));
    std::vector<FakeDispatch*> raw;
    for (const auto& element : elements) {
        raw.push_back(element.get());
    }
    collection->SetComputedProperty(member, [raw](const FakeDispatch::Args& args, VARIANT* result) {
        const int32_t index = args.at(0).lVal;
        if (index < 1 || index > static_cast<int32_t>(raw.size())) {
            return DISP_E_BADINDEX;
        }
        result->vt = VT_DISPATCH;
        result->pdispVal = raw[index - 1];
        result->pdispVal->AddRef();
        return S_OK;
    });
    return collection;
}

class RedemptionTest : public ::testing::Test {
protected:
    // The library's folder of `mails`, whose store id is "5TORE".
    void MakeFolder(const std::vector<Mail>& contents) {
        for (const Mail& m : contents) {
            mails.push_back(MakeMail(m));
        }
        items = MakeCollection(mails, L"_Item");
        folder = FakeDispatch::Create();
        folder->SetProperty(L"Items", items.get()).SetProperty(L"StoreID", L"5TORE");
    }

    // Every object is held by the test (the item collection by its folder too) alone again.
    void ExpectAllReleased() const {
        EXPECT_EQ(1u, selected->RefCount());
        if (folder) {
            EXPECT_EQ(1u, folder->RefCount());
            EXPECT_EQ(2u, items->RefCount());
        }
        for (const auto& mail : mails) {
            EXPECT_EQ(1u, mail->RefCount());
        }
    }

    TempDirectoryOverride temp;
    LogCapture log;
    std::vector<ComPtr<FakeDispatch>> mails;
    ComPtr<FakeDispatch> items;
    ComPtr<FakeDispatch> folder;
    ComPtr<FakeDispatch> selected = MakeMail(Mail{});
};

// --- FindRDOMail: by entry id, else by the compared values; the first match wins.

struct FindCase {
    const char* label;
    std::vector<Mail> folder;
    int found;  // index into the folder, -1 for none
};

void PrintTo(const FindCase& c, std::ostream* os) { *os << c.label; }

class FindRDOMailTest : public RedemptionTest, public ::testing::WithParamInterface<FindCase> {};

TEST_P(FindRDOMailTest, FindsTheFirstMatchingMail) {
    MakeFolder(GetParam().folder);
    ComPtr<IDispatch> found;
    const HRESULT hr = FindRDOMail(folder.get(), selected.get(), found);
    if (GetParam().found < 0) {
        EXPECT_EQ(E_FAIL, hr);
        EXPECT_FALSE(found);
        EXPECT_TRUE(log.Contains(L"### No mail found! ###\n"));
    } else {
        ASSERT_EQ(S_OK, hr);
        EXPECT_EQ(static_cast<IDispatch*>(mails[GetParam().found].get()), found.get());
        found.reset();
    }
    EXPECT_TRUE(log.Contains(L"There are " + std::to_wstring(GetParam().folder.size()) +
                             L" items in that folder.\n"));
    ExpectAllReleased();
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

// --- The mail's values, read by automation name.

TEST_F(RedemptionTest, MailValuesAreReadByNameIntoTheMap) {
    MakeFolder({});
    ComPtr<FakeDispatch> mail = MakeMail(Mail{});
    const std::wstring longSubject(3000, L's');
    mail->SetProperty(L"To", L"")
        .SetProperty(L"CC", L"Ina")
        .SetProperty(L"BCC", L"Bert")
        .SetProperty(L"Importance", Variant(2))
        .SetProperty(L"Subject", longSubject.c_str())
        .SetProperty(L"SenderName", L"Erika Muster")
        .SetProperty(L"ReceivedTime", Date(45426.75));  // 2024-05-14 18:00
    PropertyMap map;

    ReadRDOMailValues(mail.get(), folder.get(), map);

    wchar_t date[32];
    const SYSTEMTIME may14{2024, 5, 2, 14, 18, 0, 0, 0};
    GetDateFormatW(LOCALE_USER_DEFAULT, LOCALE_NOUSEROVERRIDE, &may14, nullptr, date, 32);
    const struct {
        const wchar_t* name;
        std::wstring value;
        uint32_t flag;
    } expected[] = {
        {L"OTL_MSG_BCC", L"Bert", 1},
        {L"OTL_MSG_CC", L"Ina", 1},
        {L"OTL_MSG_IMPORTANCE", L"2", 1},
        {L"OTL_MSG_RECIEVEDATE", date, 1},
        {L"OTL_MSG_SENDERNAME", L"Erika Muster", 1},
        {L"OTL_MSG_SENDER_EMAIL_ADDRESS", L"", 1},
        {L"OTL_MSG_SUBJECT", longSubject.substr(0, 2047), 1},
        {L"OTL_MSG_TO", L"", 1},
        {L"OTL_MSG_TO_SMTP_ADDRESS", L";Ina;Bert", 1},
        {L"PR_ENTRYID", L"00AA", 0},
        {L"PR_STORE_ENTRYID", L"5TORE", 0},
    };
    ASSERT_EQ(std::size(expected), map.size());
    auto entry = map.begin();
    for (const auto& e : expected) {
        EXPECT_EQ(e.name, entry->first);
        EXPECT_EQ(e.value, entry->second.value) << e.name;
        EXPECT_EQ(e.flag, entry->second.flag) << e.name;
        ++entry;
    }
    // The sender's address is missing; its failure has always borrowed the sender name's text.
    EXPECT_TRUE(log.Contains(L"Can't get property SenderName from mail item! hr = 0x80020006\n"));
    EXPECT_TRUE(
        log.Contains(L"Collect MAPI property PR_SMTP_ADDRESS/PR_EMAIL_ADDRESS value ;Ina;Bert\n"));
    EXPECT_EQ(1u, mail->RefCount());
    ExpectAllReleased();
}

// --- Attachments: listed from the decrypted message, hidden ones left out, chosen ones saved.

class AttachmentQueryTest : public RedemptionTest {
protected:
    void SetUp() override {
        MakeFolder({Mail{}});
        const struct {
            const wchar_t* name;
            int32_t size;
            bool hidden;
        } files[] = {{L"logo.png", 10, true},
                     {L"Angebot.pdf", 1200, false},
                     {L"bild.gif", 20, true},
                     {L"Preise.xlsx", 800, false}};
        for (const auto& f : files) {
            ComPtr<FakeDispatch> attachment = FakeDispatch::Create();
            attachment->SetProperty(L"FileName", f.name)
                .SetProperty(L"Size", Variant(f.size))
                .SetProperty(L"Hidden", f.hidden)
                .SetMethod(L"SaveAsFile", [](const FakeDispatch::Args&, VARIANT*) { return S_OK; });
            attachments.push_back(attachment);
        }
        collection = MakeCollection(attachments, L"Item");
        decrypted->SetProperty(L"Attachments", collection.get());
        IDispatch* message = decrypted.get();
        mails[0]->SetMethod(L"GetDecryptedMessage",
                            [message](const FakeDispatch::Args&, VARIANT* result) {
                                result->vt = VT_DISPATCH;
                                result->pdispVal = message;
                                message->AddRef();
                                return S_OK;
                            });
    }
    void TearDown() override {
        for (const auto& object : attachments) {
            EXPECT_EQ(1u, object->RefCount());
        }
        EXPECT_EQ(2u, collection->RefCount());  // the message's and the test's
        EXPECT_EQ(1u, decrypted->RefCount());
        ExpectAllReleased();
    }
    HRESULT Query(int32_t mode) {
        return QueryRDOItemAttachmentList(folder.get(), selected.get(), mode, list, files);
    }

    std::vector<ComPtr<FakeDispatch>> attachments;
    ComPtr<FakeDispatch> collection;
    ComPtr<FakeDispatch> decrypted = FakeDispatch::Create();
    AttachmentList list;
    FileList files;
};

TEST_F(AttachmentQueryTest, SavesEachChosenAttachmentIntoAStagingFolderOfItsOwn) {
    ASSERT_EQ(S_OK, Query(kListAttachments));
    // Any text marks a record chosen, even "0".
    list[0].Add(kAttachmentSelected, L"0", 0);
    list[1].Add(kAttachmentSelected, L"1", 0);
    attachments[1]->FailCall(L"SaveAsFile", 1, E_ACCESSDENIED);

    ASSERT_EQ(S_OK, Query(kSaveAttachments));
    ASSERT_EQ(1u, files.size());
    EXPECT_TRUE(IsInStagingArea(files[0].c_str())) << files[0].c_str();
    EXPECT_EQ(L"\\Preise.xlsx", files[0].substr(files[0].rfind(L'\\')));
    ASSERT_EQ(1u, attachments[3]->CallCount(L"SaveAsFile"));
    EXPECT_EQ(files[0], attachments[3]->Calls().back().args.at(0).bstrVal);
    EXPECT_TRUE(log.Contains(L"Can't save the attachment! hr = 0x80070005\n"));
    // The failed one had its own folder, given up; the saved one's folder holds it alone.
    const std::wstring failedPath = attachments[1]->Calls().back().args.at(0).bstrVal;
    const std::wstring failedFolder = failedPath.substr(0, failedPath.rfind(L'\\') + 1);
    EXPECT_NE(failedFolder, files[0].substr(0, files[0].rfind(L'\\') + 1));
    EXPECT_TRUE(FileExists(failedFolder + L"__freetodelete__.bin"));
    EXPECT_EQ(0u, attachments[0]->CallCount(L"SaveAsFile"));
}

// --- The library not installed: the user is told, and nothing is archived.

TEST(UnregisteredRedemptionTest, SignedMailIsNotArchivedAndTheUserIsTold) {
    ASSERT_EQ(S_OK, FakeRedemption::Unregister());
    TempDirectoryOverride temp;
    LogCapture log;
    {
        FakeOutlook outlook;
        outlook.SelectItemText(L"class = IPM.Note.SMIME\nPR_SUBJECT = Signiert\n");
        WindowWatcher watcher;
        watcher.Expect(L"talvorn dorvane").Click(IDOK);
        PathBuffer path{};
        PropertyMap map;
        const RefCountList before = outlook.RefCounts();

        EXPECT_TRUE(FAILED(SaveOutlookDocument(&outlook.Application(), &path, &map, 1)));

        watcher.Verify();
        ASSERT_EQ(1u, watcher.Seen().size());
        EXPECT_TRUE(
            watcher.Seen()[0].HasText(L"Die Redemption Schnittstelle ist nicht registriert."));
        EXPECT_EQ(L"", std::wstring(path.data()));
        EXPECT_TRUE(map.empty());
        EXPECT_EQ(before, outlook.RefCounts());
        EXPECT_TRUE(log.Contains(L"Can't get CLSID for Redemption.RDOSession! hr = 0x800401F3\n"));
    }
    EXPECT_EQ(0u, MapiSimLiveObjects());
    EXPECT_EQ(0u, MapiSimLiveBuffers());
}

// --- Deleting an archived mail, named by its identifiers.

class DeleteMailTest : public ::testing::Test {
protected:
    DeleteMailTest() {
        IDispatch* ns = nameSpace.get();
        application->SetProperty(L"Version", L"16.0.0.5000")
            .SetMethod(L"GetNameSpace", [ns](const FakeDispatch::Args&, VARIANT* result) {
                result->vt = VT_DISPATCH;
                result->pdispVal = ns;
                ns->AddRef();
                return S_OK;
            });
        IDispatch* found = item.get();
        nameSpace->SetMethod(L"GetItemFromID", [found](const FakeDispatch::Args&, VARIANT* result) {
            result->vt = VT_DISPATCH;
            result->pdispVal = found;
            found->AddRef();
            return S_OK;
        });
        item->SetProperty(L"MessageClass", L"IPM.Note")
            .SetProperty(L"Session", nameSpace.get())
            .SetMethod(L"Delete", [](const FakeDispatch::Args&, VARIANT*) { return S_OK; });
        properties.Add(kEntryIdName, L"00AA", 0);
        properties.Add(kStoreEntryIdName, L"00BB", 0);
    }
    ~DeleteMailTest() override {
        item->SetProperty(L"Session", static_cast<IDispatch*>(nullptr));
        application->ClearCalls();
        nameSpace->ClearCalls();
        EXPECT_EQ(1u, application->RefCount());
        EXPECT_EQ(1u, nameSpace->RefCount());
        EXPECT_EQ(1u, item->RefCount());
    }

    TempDirectoryOverride temp;
    LogCapture log;
    ComPtr<FakeDispatch> application = FakeDispatch::Create();
    ComPtr<FakeDispatch> nameSpace = FakeDispatch::Create();
    ComPtr<FakeDispatch> item = FakeDispatch::Create();
    PropertyMap properties;
};

struct DeleteCase {
    const char* label;
    const wchar_t* entryId;  // null: absent
    const wchar_t* storeId;
    const wchar_t* failing;  // a member of the namespace or the item, failing E_ACCESSDENIED
    const wchar_t* logLine;
    size_t deleteCalls;
};

void PrintTo(const DeleteCase& c, std::ostream* os) { *os << c.label; }

class DeleteCaseTest : public DeleteMailTest, public ::testing::WithParamInterface<DeleteCase> {};

TEST_P(DeleteCaseTest, DeletesThroughOutlookOrLogsWhyNot) {
    const DeleteCase& c = GetParam();
    properties = PropertyMap();
    properties.Add(kEntryIdName, c.entryId, 0);
    properties.Add(kStoreEntryIdName, c.storeId, 0);
    if (c.failing) {
        (std::wstring(c.failing) == L"Delete" ? item : nameSpace)
            ->FailCall(c.failing, 1, E_ACCESSDENIED);
    }
    const HRESULT hr = DeleteMailItem(application.get(), properties);
    EXPECT_EQ(!c.logLine, SUCCEEDED(hr));
    EXPECT_EQ(c.deleteCalls, item->CallCount(L"Delete"));
    if (c.logLine) {
        EXPECT_TRUE(log.Contains(c.logLine)) << log.Text();
    } else {
        const FakeDispatch::CallRecord& lookup = nameSpace->Calls().back();
        EXPECT_EQ(std::wstring(L"00AA"), lookup.args.at(0).bstrVal);
        EXPECT_EQ(std::wstring(L"00BB"), lookup.args.at(1).bstrVal);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Requests, DeleteCaseTest,
    ::testing::Values(DeleteCase{"plain mail", L"00AA", L"00BB", nullptr, nullptr, 1},
                      DeleteCase{"no entry id", nullptr, L"00BB", nullptr,
                                 L"Can't find custom document property PR_ENTRYID!\n", 0},
                      DeleteCase{"empty entry id", L"", L"00BB", nullptr,
                                 L"Invalid value of custom document property PR_ENTRYID!\n", 0},
                      DeleteCase{"empty store id", L"00AA", L"", nullptr,
                                 L"Invalid value of custom document property PR_STORE_ENTRYID!\n",
                                 0},
                      DeleteCase{"item not found", L"00AA", L"00BB", L"GetItemFromID",
                                 L"Error in GetItemFromID(00AA,00BB)! hr = 0x80070005\n", 0},
                      DeleteCase{"Outlook refuses", L"00AA", L"00BB", L"Delete",
                                 L"Failed to delete mail item! hr = 0x80070005\n", 1}));

TEST_F(DeleteMailTest, SignedMailGoesToTheLibraryWhichMustBeInstalled) {
    ASSERT_EQ(S_OK, FakeRedemption::Unregister());
    item->SetProperty(L"MessageClass", L"ipm.note.smime.multipartsigned");
    nameSpace->SetProperty(L"MAPIOBJECT", static_cast<IDispatch*>(application.get()));
    WindowWatcher watcher;
    watcher.Expect(L"talvorn dorvane").Click(IDOK);

    EXPECT_EQ(CO_E_CLASSSTRING, DeleteMailItem(application.get(), properties));

    watcher.Verify();
    EXPECT_EQ(0u, item->CallCount(L"Delete"));
    EXPECT_TRUE(log.Contains(L"Fehler bei der Kommunikation mit der Redemption Schnittstelle.\n"));
    EXPECT_TRUE(log.Contains(L"Can't get CLSID for Redemption.RDOSession! hr = 0x800401F3\n"));
    nameSpace->SetProperty(L"MAPIOBJECT", static_cast<IDispatch*>(nullptr));
}

// --- End to end through the simulated library, registered under its ProgID.

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
    FakeDispatch& Select(const wchar_t* text) {
        FakeDispatch& item = outlook->SelectItemText(text);
        before = outlook->RefCounts();
        return item;
    }
    std::wstring Text(IDispatch* object, const wchar_t* name) {
        BStr text;
        EXPECT_EQ(S_OK, GetTextPropertyNoThrow(object, name, &text)) << name;
        return text.c_str();
    }

    ComApartment apartment;
    TempDirectoryOverride temp;
    LogCapture log;
    std::unique_ptr<FakeOutlook> outlook = std::make_unique<FakeOutlook>();
    std::unique_ptr<FakeRedemption> redemption = std::make_unique<FakeRedemption>(*outlook);
    RefCountList before;
};

TEST_F(SimulatedLibraryTest, SignedMailIsSavedByTheLibraryWithItsValues) {
    FakeDispatch& item = Select(
        L"class = IPM.Note.SMIME.MultipartSigned\nPR_SUBJECT = Vertrag\nPR_IMPORTANCE = 2\n"
        L"CC = Ina | SMTP | ina@example.net\n");
    PathBuffer path{};
    PropertyMap map;

    ASSERT_EQ(S_OK, SaveOutlookDocument(&outlook->Application(), &path, &map, 1));

    EXPECT_TRUE(FileExists(path.data()));
    EXPECT_NE(nullptr, wcsstr(path.data(), L"\\dorvane_0_")) << path.data();
    for (const FakeDispatch::CallRecord& call : redemption->Mail(0).Calls()) {
        if (call.member == L"SaveAs") {
            EXPECT_EQ(path.data(), std::wstring(call.args.at(0).bstrVal));
            EXPECT_EQ(9, call.args.at(1).lVal);
        }
    }
    EXPECT_EQ(1u, redemption->Mail(0).CallCount(L"SaveAs"));
    EXPECT_EQ(L"Vertrag", map.Find(L"OTL_MSG_SUBJECT")->value);
    EXPECT_EQ(L"2", map.Find(L"OTL_MSG_IMPORTANCE")->value);
    EXPECT_EQ(L";Ina", map.Find(L"OTL_MSG_TO_SMTP_ADDRESS")->value);
    EXPECT_EQ(Text(&item, L"EntryID"), map.Find(kEntryIdName)->value);
    EXPECT_EQ(Text(&outlook->Folder(), L"StoreID"), map.Find(kStoreEntryIdName)->value);
    EXPECT_EQ(nullptr, map.Find(L"OTL_MSG_RECIEVEDATETIME"));
    EXPECT_EQ(1u, redemption->SessionCount());
    EXPECT_TRUE(log.Contains(L"Redemption DLL version: "));
    redemption->Mail(0).ClearCalls();
}

// Keys count within one mail: a record chosen from the second mail saves nothing of the first.
TEST_F(SimulatedLibraryTest, AttachmentsOfTheSelectionAreListedAndSavedMailByMail) {
    outlook->SelectItemText(
        L"class = IPM.Note\nPR_SUBJECT = Preise\n"
        L"attachment = Preise.txt | 42 EUR\n");
    Select(
        L"class = IPM.Note.SMIME\nPR_SUBJECT = Vertrag\nattachment = Vertrag.pdf | %PDF\n"
        L"hidden attachment = logo.png | PNG\nattachment = Anlage.txt | Anlage 1\n");
    AttachmentList list;
    ASSERT_EQ(S_OK, GetAttachmentList(&outlook->Application(), nullptr, list));
    ASSERT_EQ(3u, list.size());
    // The hidden picture is left out but counted: the records of the second mail have keys 1 and 3.
    const PropertyMap anlage = [] {
        PropertyMap record;
        record.Add(kAttachmentName, L"Anlage.txt", 0);
        record.Add(kAttachmentSize, L"8", 0);
        record.Add(kAttachmentHidden, L"0", 0);
        record.Add(kAttachmentKey, L"3", 0);
        return record;
    }();
    EXPECT_TRUE(std::equal(anlage.begin(), anlage.end(), list[2].begin(), list[2].end(),
                           [](const auto& a, const auto& b) {
                               return a.first == b.first && a.second.value == b.second.value &&
                                      a.second.flag == b.second.flag;
                           }));
    list[1].Add(kAttachmentSelected, L"1", 0);
    FileList files;

    ASSERT_EQ(S_OK, SaveAttachments(&outlook->Application(), nullptr, list, files));

    ASSERT_EQ(1u, files.size());
    EXPECT_EQ(L"\\Vertrag.pdf", files[0].substr(files[0].rfind(L'\\')));
    EXPECT_EQ("%PDF", ReadFileBytes(files[0]));
}

TEST_F(SimulatedLibraryTest, SignedMailIsDeletedThroughTheLibrary) {
    FakeDispatch& item = Select(L"class = IPM.Note.SMIME\nPR_SUBJECT = Vertrag\n");
    PropertyMap properties;
    properties.Add(kEntryIdName, Text(&item, L"EntryID").c_str(), 0);
    properties.Add(kStoreEntryIdName, Text(&outlook->Folder(), L"StoreID").c_str(), 0);

    ASSERT_EQ(S_OK, DeleteMailItem(&outlook->Application(), properties));

    // Gone from Outlook's folder and selection, by the library's hand.
    int32_t left = -1;
    EXPECT_EQ(S_OK, GetIntegerPropertyNoThrow(&outlook->Selection(), L"Count", &left));
    EXPECT_EQ(0, left);
    EXPECT_EQ(1u, redemption->Session(0).CallCount(L"GetMessageFromID"));
    redemption->Session(0).ClearCalls();
    ReleaseLibrary();
    before = outlook->RefCounts();
}

}  // namespace
