// The Outlook selection capture end to end: a selection of automation items whose MAPIOBJECT is a
// message of the simulated MAPI, captured into the property maps and message files of the staging
// area. Every case ends with every automation reference, MAPI buffer, object and session given
// back.
#include <windows.h>
#include <mapicode.h>
#include <mapitags.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "capture/CaptureTypes.h"
#include "capture/outlook/MsgFile.h"
#include "capture/outlook/OutlookCapture.h"
#include "officesim/FakeDispatch.h"
#include "support/MapiTestMessages.h"
#include "support/TestFiles.h"
#include "tools/mapisim/MapiSim.h"

namespace {

constexpr IID OutlookIid(unsigned long data1) {
    return {data1, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
}
const IID kMailItem = OutlookIid(0x00063034);

constexpr ULONG kSubject = 0x0037001F;
constexpr ULONG kDeliveryTime = 0x0E060040;

// One selected item: its automation object and the message behind its MAPIOBJECT.
struct Item {
    ComPtr<FakeDispatch> object;
    std::unique_ptr<TestMessage> message;
};

class OutlookCaptureTest : public ::testing::Test {
protected:
    OutlookCaptureTest() {
        application = FakeDispatch::Create();
        explorer = FakeDispatch::Create();
        selection = FakeDispatch::Create();
        application->SetProperty(L"ActiveExplorer", explorer.get());
        application->SetProperty(L"Version", L"16.0.0.5000");
        explorer->SetProperty(L"Selection", selection.get());
        selection->SetComputedProperty(L"Count",
                                       [this](const FakeDispatch::Args&, VARIANT* result) {
                                           result->vt = VT_I4;
                                           result->lVal = static_cast<LONG>(items.size());
                                           return S_OK;
                                       });
        selection->SetComputedProperty(
            L"Item", [this](const FakeDispatch::Args& args, VARIANT* result) {
                const size_t index = static_cast<size_t>(args.at(0).lVal) - 1;
                if (index >= items.size()) {
                    return DISP_E_BADINDEX;
                }
                result->vt = VT_DISPATCH;
                result->pdispVal = items[index].object.get();
                result->pdispVal->AddRef();
                return S_OK;
            });
        for (FakeDispatch* fake : {application.get(), explorer.get(), selection.get()}) {
            references.push_back(fake->RefCount());
        }
    }

    void TearDown() override {
        std::vector<ULONG> after;
        for (FakeDispatch* fake : {application.get(), explorer.get(), selection.get()}) {
            fake->ClearCalls();
            after.push_back(fake->RefCount());
        }
        EXPECT_EQ(references, after);
        for (Item& item : items) {
            item.object->ClearCalls();
            EXPECT_EQ(1u, item.object->RefCount());
        }
        items.clear();
        EXPECT_EQ(0u, MapiSimLiveBuffers());
        EXPECT_EQ(0u, MapiSimLiveObjects());
        EXPECT_EQ(0u, MapiSimLiveSessions());
        EXPECT_EQ(0u, MapiSimBadFrees());
    }

    // Selects an item of `messageClass` that answers `iid`; its message is filled by the caller.
    Item& Select(const wchar_t* messageClass, const IID& iid = kMailItem) {
        Item item{FakeDispatch::Create(), std::make_unique<TestMessage>()};
        item.object->SetProperty(L"MessageClass", messageClass);
        item.object->AnswerInterface(iid);
        VARIANT mapiObject{};
        mapiObject.vt = VT_UNKNOWN;
        mapiObject.punkVal = item.message->get();
        item.object->SetProperty(L"MAPIOBJECT", mapiObject);
        items.push_back(std::move(item));
        return items.back();
    }

    HRESULT Capture() {
        paths.assign(items.size(), PathBuffer{});
        maps.assign(items.size(), PropertyMap{});
        return SaveOutlookDocument(application.get(), paths.data(), maps.data(),
                                   static_cast<int32_t>(items.size()));
    }

    std::wstring Value(size_t item, const wchar_t* name) const {
        const PropertyEntry* entry = maps.at(item).Find(name);
        return entry ? entry->value : L"<absent>";
    }

    TempDirectoryOverride temp;
    LogCapture log;
    ComPtr<FakeDispatch> application, explorer, selection;
    std::vector<ULONG> references;  // of the three above, once set up
    std::vector<Item> items;
    std::vector<PathBuffer> paths;
    std::vector<PropertyMap> maps;
};

std::wstring FileName(const PathBuffer& path) {
    const std::wstring full = path.data();
    return full.substr(full.rfind(L'\\') + 1);
}

// --- Each kind's vocabulary, from the message (a note's from the object model) into the map.

struct Expected {
    const wchar_t* name;
    const wchar_t* value;  // null: must be absent
    uint32_t flag = 1;
};

struct KindCase {
    const wchar_t* messageClass;
    IID iid;
    std::vector<TestProperty> properties;
    std::vector<Expected> expected;
};

void PrintTo(const KindCase& c, std::ostream* os) { *os << ToUtf8(c.messageClass); }

class KindVocabularyTest : public OutlookCaptureTest,
                           public ::testing::WithParamInterface<KindCase> {};

TEST_P(KindVocabularyTest, ReadsTheKindsPropertiesAndStagesTheItem) {
    const KindCase& c = GetParam();
    Item& item = Select(c.messageClass, c.iid);
    item.message->Set(c.properties);
    item.message->AddRecipients({
        {L"Max", L"max@example.com", L"", MAPI_TO},
        {L"Ina", L"/o=Org/cn=ina", L"ina@example.net", MAPI_CC},
        {L"Intern", L"/o=Org/cn=intern", L"", MAPI_BCC},
    });
    item.object->SetProperty(L"Body", L"Notiz aus dem Objektmodell");
    item.object->SetProperty(L"Subject", L"Notiz");

    ASSERT_EQ(S_OK, Capture());

    for (const Expected& e : c.expected) {
        const PropertyEntry* entry = maps[0].Find(e.name);
        if (!e.value) {
            EXPECT_EQ(nullptr, entry) << e.name;
            continue;
        }
        ASSERT_NE(nullptr, entry) << e.name;
        EXPECT_EQ(e.value, entry->value) << e.name;
        EXPECT_EQ(e.flag, entry->flag) << e.name;
    }
    EXPECT_TRUE(FileExists(paths[0].data()));
    EXPECT_EQ(0u, FileName(paths[0]).rfind(L"dorvane_0_", 0)) << paths[0].data();
    EXPECT_TRUE(log.Contains(L"Outlookversion: 16.0.0.5000 (16)\n"));
}

const std::vector<BYTE> kEntryId = {0xAB, 0x0C, 0x01};

INSTANTIATE_TEST_SUITE_P(
    Kinds, KindVocabularyTest,
    ::testing::Values(
        KindCase{L"IPM.Note",
                 kMailItem,
                 {Bytes(0x0FFF0102, kEntryId), Text(0x0C1E001F, L"SMTP"),
                  Text(kSubject, L"Angebot"), Number(0x00170003, 2), Text(0x0E04001F, L"Max"),
                  Text(0x0C1A001F, L"Erika"), Text(0x0C1F001F, L"erika@example.org")},
                 {{L"PR_ENTRYID", L"AB0C01", 0},
                  {L"PR_SENDER_ADDRTYPE", L"SMTP", 0},
                  {L"OTL_MSG_SUBJECT", L"Angebot"},
                  {L"OTL_MSG_IMPORTANCE", L"2"},
                  {L"OTL_MSG_TO", L"Max"},
                  {L"OTL_MSG_SENDERNAME", L"Erika"},
                  {L"OTL_MSG_SENDER_EMAIL_ADDRESS", L"erika@example.org"},
                  // Every recipient type; an address without an at sign is left out.
                  {L"OTL_MSG_TO_SMTP_ADDRESS", L"max@example.com;ina@example.net"},
                  {L"OTL_MSG_BCC", nullptr},
                  {L"OTL_MSG_RECIEVEDATE", nullptr}}},
        KindCase{L"IPM.Contact",
                 OutlookIid(0x00063021),
                 {Text(0x3A08001F, L"+49 30 1234"), Text(0x3A06001F, L"Mia"),
                  Named(kTestPsetidAddress, 0x8083, Text(PT_UNICODE, L"mia@example.com")),
                  Named(kTestPsetidAddress, 0x8045, Text(PT_UNICODE, L"Hauptstr. 1"))},
                 {{L"OTL_CONTACT_OFFICETEL", L"+49 30 1234"},
                  {L"OTL_CONTACT_BUSINESSTELEPHONENUMBER", L"+49 30 1234"},
                  {L"OTL_CONTACT_FIRSTNAME", L"Mia"},
                  {L"OTL_CONTACT_EMAIL1ADDRESS", L"mia@example.com"},
                  {L"OTL_CONTACT_BUSINESSADDRESSSTREET", L"Hauptstr. 1"},
                  {L"OTL_CONTACT_EMAIL2ADDRESS", nullptr},
                  {L"OTL_MSG_TO_SMTP_ADDRESS", nullptr}}},
        KindCase{L"IPM.StickyNote",
                 OutlookIid(0x00063025),
                 {Text(0x1000001F, L"Text im Speicher"), Bytes(0x0FFB0102, kEntryId)},
                 {{L"OTL_STICKYNOTE_BODY", L"Notiz aus dem Objektmodell"},
                  {L"OTL_STICKYNOTE_SUBJECT", L"Notiz"},
                  {L"PR_STORE_ENTRYID", L"AB0C01", 0}}},
        KindCase{L"IPM.Activity",
                 OutlookIid(0x00063022),
                 {Text(kSubject, L"Anruf"), Named(kTestPsetidLog, 0x8707, Number(PT_LONG, 30)),
                  Named(kTestPsetidLog, 0x8712, Text(PT_UNICODE, L"Telefonat"))},
                 {{L"OTL_ACTIVITY_SUBJECT", L"Anruf"},
                  {L"OTL_ACTIVITY_DURATION", L"30"},
                  {L"OTL_ACTIVITY_ENTRYTYPE", L"Telefonat"}}},
        KindCase{L"IPM.Appointment",
                 OutlookIid(0x00063033),
                 {Text(kSubject, L"Termin"),
                  Named(kTestPsetidAppointment, 0x8223, Number(PT_BOOLEAN, 1)),
                  Named(kTestPsetidAppointment, 0x8205, Number(PT_LONG, 2)),
                  Named(kTestPsetidAppointment, 0x823B, Text(PT_UNICODE, L"Max; Ina"))},
                 {{L"OTL_APPOINTMENT_SUBJECT", L"Termin"},
                  {L"OTL_APPOINTMENT_RECURRING", L"1"},
                  {L"OTL_APPOINTMENT_BUSYSTATUS", L"2"},
                  {L"OTL_APPOINTMENT_ATTENDEE", L"Max; Ina"}}},
        KindCase{L"IPM.Schedule.Meeting.Resp.Tent",
                 OutlookIid(0x00063062),
                 {Text(kSubject, L"Termin"),
                  Named(kTestPsetidAppointment, 0x823B, Text(PT_UNICODE, L"Max; Ina"))},
                 {{L"OTL_APPOINTMENT_SUBJECT", L"Termin"}, {L"OTL_APPOINTMENT_ATTENDEE", nullptr}}},
        KindCase{L"IPM.Task",
                 OutlookIid(0x00063035),
                 {Text(kSubject, L"Aufgabe"), Named(kTestPsetidTask, 0x8102, Real(PT_DOUBLE, 0.5)),
                  Named(kTestPsetidTask, 0x811C, Number(PT_BOOLEAN, 0)),
                  Named(kTestPsetidTask, 0x8111, Number(PT_LONG, 120))},
                 {{L"OTL_TASK_SUBJECT", L"Aufgabe"},
                  {L"OTL_TASK_PERCENTCOMPLETE", L"0.5"},
                  {L"OTL_TASK_COMPLETE", L"0"},
                  {L"OTL_TASK_TOTALWORK", L"120"}}},
        KindCase{L"IPM.TaskRequest.Accept",
                 OutlookIid(0x00063038),
                 {Text(kSubject, L"Aufgabe"), Text(0x0C1A001F, L"Erika"),
                  Named(kTestPsetidTask, 0x8102, Real(PT_DOUBLE, 0.5))},
                 {{L"OTL_TASK_SUBJECT", L"Aufgabe"},
                  {L"OTL_TASK_SENDER", L"Erika"},
                  {L"OTL_TASK_PERCENTCOMPLETE", nullptr}}}));

// --- Which classes are recognised: whole strings, without regard to case.

struct ClassCase {
    const wchar_t* messageClass;
    HRESULT expected;
    const wchar_t* logLine;
};

class ClassRecognitionTest : public OutlookCaptureTest,
                             public ::testing::WithParamInterface<ClassCase> {};

TEST_P(ClassRecognitionTest, AcceptsOnlyWholeKnownClasses) {
    Select(GetParam().messageClass);
    EXPECT_EQ(GetParam().expected, Capture());
    EXPECT_TRUE(log.Contains(GetParam().logLine)) << log.Text();
}

INSTANTIATE_TEST_SUITE_P(
    Classes, ClassRecognitionTest,
    ::testing::Values(
        ClassCase{L"ipm.note", S_OK, L"Leave SaveOutlookDocument\n"},
        ClassCase{L"IPM.Note.Receipt", kUnsupportedItem,
                  L"Wrong message class of selected item!\n"},
        ClassCase{L"IPM.Schedule.Meeting.Notification", kUnsupportedItem,
                  L"Wrong message class of selected item!\n"},
        ClassCase{L"IPM.Note.SMIME.MultipartSigned", kUnsupportedItem,
                  L"Signed or encrypted mail (IPM.Note.SMIME.MultipartSigned) can not be archived "
                  L"by this build!\n"}));

// --- The property reader's edges.

TEST_F(OutlookCaptureTest, NamedPropertyMissingFromTheItemIsSkippedNotCreated) {
    Select(L"IPM.Contact", OutlookIid(0x00063021));
    ASSERT_EQ(S_OK, Capture());
    EXPECT_EQ(L"<absent>", Value(0, L"OTL_CONTACT_EMAIL2ADDRESS"));
    EXPECT_TRUE(log.Contains(
        L"Failed to get ID for CDO named property OTL_CONTACT_EMAIL2ADDRESS! hr = 0x00040380\n"));
    EXPECT_FALSE(items[0].message->KnowsName(kTestPsetidAddress, 0x8093));
}

TEST_F(OutlookCaptureTest, ValueTooLargeForGetPropsIsReadWholeThroughItsStream) {
    const std::wstring longSubject(20000, L'x');
    Select(L"IPM.Task", OutlookIid(0x00063035)).message->Set({Text(kSubject, longSubject)});
    ASSERT_EQ(S_OK, Capture());
    EXPECT_TRUE(log.Contains(L"PT_ERROR\n"));
    EXPECT_EQ(longSubject, Value(0, L"OTL_TASK_SUBJECT"));
}

std::wstring DateText(const SYSTEMTIME& time, bool withTime) {
    wchar_t date[64], clock[64];
    GetDateFormatW(0x0400, 0x80000000, &time, nullptr, date, 64);
    GetTimeFormatW(0x0400, 0x80000000, &time, nullptr, clock, 64);
    return withTime ? std::wstring(date) + L" " + clock : date;
}

// ctest runs this with TZ=UTC, a zone without daylight saving for which Wine reports no zone
// information, and with TZ=Europe/Berlin, whose summer time is two hours ahead of UTC.
TEST_F(OutlookCaptureTest, DatesFollowTheComputersTimeZoneOrElseStayInUtc) {
    TIME_ZONE_INFORMATION zone{};
    const bool known = GetTimeZoneInformation(&zone) != TIME_ZONE_ID_UNKNOWN;
    if (known && zone.Bias != -60) {
        GTEST_SKIP() << "needs TZ=UTC or TZ=Europe/Berlin";
    }
    Select(L"IPM.Note").message->Set({Time(kDeliveryTime, 2024, 7, 15, 10, 30)});
    ASSERT_EQ(S_OK, Capture());
    const SYSTEMTIME shown{2024, 7, 1, 15, static_cast<WORD>(known ? 12 : 10), 30, 0, 0};
    EXPECT_EQ(DateText(shown, false), Value(0, L"OTL_MSG_RECIEVEDATE"));
    EXPECT_EQ(DateText(shown, true), Value(0, L"OTL_MSG_RECIEVEDATETIME"));
}

TEST_F(OutlookCaptureTest, ExchangeSenderWithoutReachableAddressBookKeepsAnEmptyAddress) {
    // The Application answers no Outlook interface, so no session can be had.
    Select(L"IPM.Note")
        .message->Set({Text(0x0C1E001F, L"ex"),
                       Text(0x0C1F001F, L"/o=Org/ou=Exchange/cn=Recipients/cn=erika")});
    ASSERT_EQ(S_OK, Capture());
    EXPECT_EQ(L"", Value(0, L"OTL_MSG_SENDER_EMAIL_ADDRESS"));
    EXPECT_TRUE(log.Contains(L"Can't get ApplicationPtr! hr = 0x80004002\n"));
}

// --- Message files.

TEST_F(OutlookCaptureTest, ItemsSavedInOneSecondAreNamedApartByTheirNumbers) {
    Select(L"IPM.Note").message->Set({Text(kSubject, L"Erste")});
    Select(L"IPM.Note").message->Set({Text(kSubject, L"Zweite")});
    ASSERT_EQ(S_OK, Capture());
    EXPECT_EQ(0u, FileName(paths[0]).rfind(L"dorvane_0_", 0));
    EXPECT_EQ(0u, FileName(paths[1]).rfind(L"dorvane_1_", 0));
    EXPECT_EQ(L"Zweite", Value(1, L"OTL_MSG_SUBJECT"));
    EXPECT_TRUE(FileExists(paths[1].data()));
}

TEST(MsgFileNameTest, WaitsInFiftyMillisecondStepsForTheNextSecond) {
    ScratchFolder folder;
    WriteFileBytes(folder / L"dorvane_3_0000AB10.msg", "");
    uint32_t now = 0xAB10;
    std::vector<DWORD> waits;
    MsgNameClock clock{[&] { return now; },
                       [&](DWORD ms) {
                           waits.push_back(ms);
                           if (waits.size() == 3) {
                               ++now;
                           }
                       }};
    wchar_t name[MAX_PATH];
    ASSERT_TRUE(MakeMsgFileNameIn(folder.Path().c_str(), 3, clock, name, MAX_PATH));
    EXPECT_EQ(folder / L"dorvane_3_0000AB11.msg", name);
    EXPECT_EQ((std::vector<DWORD>{50, 50, 50}), waits);
}

struct CopyFailureCase {
    const char* label;
    HRESULT copyResult;
    HRESULT saveAsResult;
    HRESULT expected;
    size_t saveAsCalls;
};

void PrintTo(const CopyFailureCase& c, std::ostream* os) { *os << c.label; }

class CopyFailureTest : public OutlookCaptureTest,
                        public ::testing::WithParamInterface<CopyFailureCase> {};

TEST_P(CopyFailureTest, PlainMailFallsBackToOutlooksSaveAsUnlessOutOfMemory) {
    const CopyFailureCase& c = GetParam();
    Item& item = Select(L"IPM.Note");
    const ComPtr<IMessage> failing =
        FailingMessage(item.message->get(), {{"CopyTo", c.copyResult}});
    VARIANT mapiObject{};
    mapiObject.vt = VT_UNKNOWN;
    mapiObject.punkVal = failing.get();
    item.object->SetProperty(L"MAPIOBJECT", mapiObject);
    item.object->SetMethod(L"SaveAs",
                           [&](const FakeDispatch::Args&, VARIANT*) { return c.saveAsResult; });

    EXPECT_EQ(c.expected, Capture());

    EXPECT_EQ(c.saveAsCalls, item.object->CallCount(L"SaveAs"));
    // The folder of the file MAPI failed to write is given up.
    const std::wstring inbox = temp.Inbox();
    WIN32_FIND_DATAW found{};
    HANDLE search = FindFirstFileW((inbox + L"td_data_*").c_str(), &found);
    ASSERT_NE(INVALID_HANDLE_VALUE, search);
    FindClose(search);
    EXPECT_TRUE(FileExists(inbox + found.cFileName + L"\\__freetodelete__.bin"));
    if (c.saveAsCalls) {
        const FakeDispatch::CallRecord& call = item.object->Calls().back();
        ASSERT_EQ(2u, call.args.size());
        EXPECT_EQ(std::wstring(paths[0].data()), call.args[0].bstrVal);
        EXPECT_EQ(VT_ERROR, call.args[1].vt);
        EXPECT_EQ(DISP_E_PARAMNOTFOUND, call.args[1].scode);
    }
    // The status is logged as 0 whatever Outlook answered: deliberate.
    EXPECT_EQ(FAILED(c.saveAsResult),
              log.Contains(L"Failed to saveas smime mailitem! hr = 0x00000000\n"));
}

INSTANTIATE_TEST_SUITE_P(
    Failures, CopyFailureTest,
    ::testing::Values(CopyFailureCase{"saved by Outlook", E_FAIL, S_OK, S_OK, 1},
                      CopyFailureCase{"Outlook fails too", E_FAIL, E_ACCESSDENIED, S_OK, 1},
                      CopyFailureCase{"out of memory", E_OUTOFMEMORY, S_OK, E_OUTOFMEMORY, 0}));

TEST_F(OutlookCaptureTest, NothingSelected) {
    EXPECT_EQ(kNothingSelected, GetOutlookDocumentCount(application.get()));
    EXPECT_EQ(kNothingSelected, Capture());
    EXPECT_TRUE(log.Contains(L"There are no items selected!\n"));
}

// Stages a mail for an independent reader: with TALVORN_MSG_EXPORT (a folder) set, the staged
// file is copied there as mail.msg (tests/capture/outlook/msgconvert-reads-staged-mail.sh).
TEST_F(OutlookCaptureTest, StagedMailForAnIndependentReader) {
    Item& item = Select(L"IPM.Note");
    item.message->Set({Text(kSubject, L"Angebot Q3"), Text(0x0C1A001F, L"Erika Muster"),
                       Text(0x0C1F001F, L"erika.muster@example.org"), Text(0x0C1E001F, L"SMTP"),
                       Text(0x0E04001F, L"Max Beispiel"), Text(0x001A001F, L"IPM.Note")});
    item.message->AddRecipients({{L"Max Beispiel", L"max.beispiel@example.com", L"", MAPI_TO}});
    ASSERT_EQ(S_OK, Capture());
    if (const wchar_t* folder = _wgetenv(L"TALVORN_MSG_EXPORT")) {
        ASSERT_TRUE(
            CopyFileW(paths[0].data(), (std::wstring(folder) + L"\\mail.msg").c_str(), FALSE));
    }
}

}  // namespace
