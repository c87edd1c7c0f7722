// The Outlook selection capture end to end, against the simulated Outlook: items made from the
// readable item text, captured into property maps and message files in the staging area. Every
// case checks that the capture gave back each automation reference it took, and ends with every
// MAPI buffer, object and session of the simulated mapi32.dll released.
#include <windows.h>
#include <mapicode.h>
#include <mapix.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "capture/CaptureTypes.h"
#include "capture/outlook/MsgFile.h"
#include "capture/outlook/OutlookCapture.h"
#include "outlooksim/FakeOutlook.h"
#include "support/TestFiles.h"
#include "tools/mapisim/MapiSim.h"

namespace {

class OutlookCaptureTest : public ::testing::Test {
protected:
    void TearDown() override {
        outlook.reset();
        EXPECT_EQ(0u, MapiSimLiveBuffers());
        EXPECT_EQ(0u, MapiSimLiveObjects());
        EXPECT_EQ(0u, MapiSimLiveSessions());
        EXPECT_EQ(0u, MapiSimBadFrees());
    }

    HRESULT Capture() {
        const size_t count = outlook->ItemCount();
        paths.assign(count, PathBuffer{});
        maps.assign(count, PropertyMap{});
        const RefCountList before = outlook->RefCounts();
        const HRESULT hr = SaveOutlookDocument(&outlook->Application(), paths.data(), maps.data(),
                                               static_cast<int32_t>(count));
        EXPECT_EQ(before, outlook->RefCounts());
        EXPECT_EQ(0u, outlook->LiveMapiObjects());
        return hr;
    }

    std::wstring Value(size_t item, const wchar_t* name) const {
        const PropertyEntry* entry = maps.at(item).Find(name);
        return entry ? entry->value : L"<absent>";
    }
    std::wstring FileName(size_t item) const {
        const std::wstring path = paths.at(item).data();
        return path.substr(path.rfind(L'\\') + 1);
    }

    TempDirectoryOverride temp;
    LogCapture log;
    std::unique_ptr<FakeOutlook> outlook = std::make_unique<FakeOutlook>();
    std::vector<PathBuffer> paths;
    std::vector<PropertyMap> maps;
};

// --- Each kind's vocabulary, from the message (a note's from the object model) into the map.

struct Expected {
    const wchar_t* name;
    const wchar_t* value;  // null: must be absent
    uint32_t flag = 1;
};

struct KindCase {
    const wchar_t* item;
    std::vector<Expected> expected;
};

void PrintTo(const KindCase& c, std::ostream* os) {
    const std::string text = ToUtf8(c.item);
    *os << text.substr(8, text.find('\n') - 8);  // the class
}

class KindVocabularyTest : public OutlookCaptureTest,
                           public ::testing::WithParamInterface<KindCase> {};

TEST_P(KindVocabularyTest, ReadsTheKindsPropertiesAndStagesTheItem) {
    outlook
        ->SelectItemText(std::wstring(GetParam().item) +
                         L"To = Max | SMTP | max@example.com\n"
                         L"CC = Ina | EX | /o=Org/cn=ina | ina@example.net\n"
                         L"BCC = Intern | EX | /o=Org/cn=intern\n")
        .SetProperty(L"Body", L"Notiz aus dem Objektmodell");

    ASSERT_EQ(S_OK, Capture());

    for (const Expected& e : GetParam().expected) {
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
    EXPECT_EQ(0u, FileName(0).rfind(L"dorvane_0_", 0)) << paths[0].data();
    EXPECT_TRUE(log.Contains(L"Outlookversion: 16.0.0.5000 (16)\n"));
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, KindVocabularyTest,
    ::testing::Values(
        KindCase{L"class = IPM.Note\nPR_ENTRYID = AB0C01\nPR_SENDER_ADDRTYPE = SMTP\n"
                 L"PR_SUBJECT = Angebot\nPR_IMPORTANCE = 2\nPR_SENDER_NAME = Erika\n"
                 L"PR_SENDER_EMAIL_ADDRESS = erika@example.org\n",
                 {{L"PR_ENTRYID", L"AB0C01", 0},
                  {L"PR_SENDER_ADDRTYPE", L"SMTP", 0},
                  {L"OTL_MSG_SUBJECT", L"Angebot"},
                  {L"OTL_MSG_IMPORTANCE", L"2"},
                  {L"OTL_MSG_TO", L"Max"},
                  {L"OTL_MSG_SENDERNAME", L"Erika"},
                  {L"OTL_MSG_SENDER_EMAIL_ADDRESS", L"erika@example.org"},
                  // Every recipient type; an address without an at sign is left out.
                  {L"OTL_MSG_TO_SMTP_ADDRESS", L"max@example.com;ina@example.net"},
                  {L"OTL_MSG_RECIEVEDATE", nullptr}}},
        KindCase{L"class = IPM.Contact\nPR_BUSINESS_TELEPHONE_NUMBER = +49 30 1234\n"
                 L"PR_GIVEN_NAME = Mia\nAddress 0x8083 text = mia@example.com\n",
                 {{L"OTL_CONTACT_OFFICETEL", L"+49 30 1234"},
                  {L"OTL_CONTACT_BUSINESSTELEPHONENUMBER", L"+49 30 1234"},
                  {L"OTL_CONTACT_FIRSTNAME", L"Mia"},
                  {L"OTL_CONTACT_EMAIL1ADDRESS", L"mia@example.com"},
                  {L"OTL_MSG_TO_SMTP_ADDRESS", nullptr}}},
        KindCase{L"class = IPM.StickyNote\nPR_SUBJECT = Notiz\nPR_ENTRYID = AB0C01\n",
                 {{L"OTL_STICKYNOTE_BODY", L"Notiz aus dem Objektmodell"},
                  {L"OTL_STICKYNOTE_SUBJECT", L"Notiz"},
                  {L"PR_ENTRYID", L"AB0C01", 0}}},
        KindCase{L"class = IPM.Activity\nLog 0x8707 i32 = 30\nLog 0x8712 text = Telefonat\n",
                 {{L"OTL_ACTIVITY_DURATION", L"30"}, {L"OTL_ACTIVITY_ENTRYTYPE", L"Telefonat"}}},
        KindCase{
            L"class = IPM.Appointment\nAppointment 0x8223 bool = true\n"
            L"Appointment 0x823B text = Max; Ina\n",
            {{L"OTL_APPOINTMENT_RECURRING", L"1"}, {L"OTL_APPOINTMENT_ATTENDEE", L"Max; Ina"}}},
        KindCase{L"class = IPM.Schedule.Meeting.Resp.Tent\nPR_SUBJECT = Termin\n"
                 L"Appointment 0x823B text = Max; Ina\n",
                 {{L"OTL_APPOINTMENT_SUBJECT", L"Termin"}, {L"OTL_APPOINTMENT_ATTENDEE", nullptr}}},
        KindCase{L"class = IPM.Task\nTask 0x8102 double = 0.5\nTask 0x811C bool = false\n"
                 L"Task 0x8111 i32 = 120\n",
                 {{L"OTL_TASK_PERCENTCOMPLETE", L"0.5"},
                  {L"OTL_TASK_COMPLETE", L"0"},
                  {L"OTL_TASK_TOTALWORK", L"120"}}},
        KindCase{L"class = IPM.TaskRequest.Accept\nPR_SENDER_NAME = Erika\n"
                 L"Task 0x8102 double = 0.5\n",
                 {{L"OTL_TASK_SENDER", L"Erika"}, {L"OTL_TASK_PERCENTCOMPLETE", nullptr}}}));

// --- Which classes are recognised: whole strings, without regard to case.

struct ClassCase {
    const wchar_t* messageClass;
    HRESULT expected;
    const wchar_t* logLine;
};

class ClassRecognitionTest : public OutlookCaptureTest,
                             public ::testing::WithParamInterface<ClassCase> {};

TEST_P(ClassRecognitionTest, AcceptsOnlyWholeKnownClasses) {
    outlook->SelectItemText(std::wstring(L"class = ") + GetParam().messageClass + L"\n");
    EXPECT_EQ(GetParam().expected, Capture());
    EXPECT_TRUE(log.Contains(GetParam().logLine)) << log.Text();
}

INSTANTIATE_TEST_SUITE_P(
    Classes, ClassRecognitionTest,
    ::testing::Values(ClassCase{L"ipm.note", S_OK, L"Leave SaveOutlookDocument\n"},
                      ClassCase{L"IPM.Note.Receipt", kUnsupportedItem,
                                L"Wrong message class of selected item!\n"},
                      ClassCase{L"IPM.Schedule.Meeting.Notification", kUnsupportedItem,
                                L"Wrong message class of selected item!\n"}));

// --- The property reader's edges.

TEST_F(OutlookCaptureTest, NamedPropertyMissingFromTheItemIsSkippedNotCreated) {
    outlook->SelectItemText(L"class = IPM.Contact\n");
    ASSERT_EQ(S_OK, Capture());
    EXPECT_EQ(L"<absent>", Value(0, L"OTL_CONTACT_EMAIL2ADDRESS"));
    EXPECT_TRUE(log.Contains(
        L"Failed to get ID for CDO named property OTL_CONTACT_EMAIL2ADDRESS! hr = 0x00040380\n"));
    GUID address = {0x00062004, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
    MAPINAMEID name{&address, MNID_ID, {}};
    name.Kind.lID = 0x8093;
    MAPINAMEID* names[] = {&name};
    SPropTagArray* tags = nullptr;
    EXPECT_EQ(MAPI_W_ERRORS_RETURNED, outlook->Message(0)->GetIDsFromNames(1, names, 0, &tags));
    MAPIFreeBuffer(tags);
}

TEST_F(OutlookCaptureTest, ValueTooLargeForGetPropsIsReadWholeThroughItsStream) {
    const std::wstring longSubject(20000, L'x');
    outlook->SelectItemText(L"class = IPM.Task\nPR_SUBJECT = " + longSubject + L"\n");
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
    outlook->SelectItemText(L"class = IPM.Note\nPR_MESSAGE_DELIVERY_TIME = 2024-07-15T10:30:00Z\n");
    ASSERT_EQ(S_OK, Capture());
    const SYSTEMTIME shown{2024, 7, 1, 15, static_cast<WORD>(known ? 12 : 10), 30, 0, 0};
    EXPECT_EQ(DateText(shown, false), Value(0, L"OTL_MSG_RECIEVEDATE"));
    EXPECT_EQ(DateText(shown, true), Value(0, L"OTL_MSG_RECIEVEDATETIME"));
}

// An Exchange sender's address is looked up in the session's address book; one that is not found
// there leaves the address empty rather than a distinguished name.
TEST_F(OutlookCaptureTest, ExchangeSendersAreResolvedThroughTheAddressBook) {
    const std::wstring exchange = L"PR_SENDER_ADDRTYPE = ex\nPR_SENDER_EMAIL_ADDRESS = /o=Org/cn=";
    outlook->SelectItemText(L"class = IPM.Note\n" + exchange +
                            L"erika\nPR_SENDER_ENTRYID = 0102\n"
                            L"addressbook = 0102 | Erika | erika@example.org\n");
    outlook->SelectItemText(L"class = IPM.Note\n" + exchange +
                            L"jonas\nPR_SENDER_ENTRYID = 0304\n");
    ASSERT_EQ(S_OK, Capture());
    EXPECT_EQ(L"erika@example.org", Value(0, L"OTL_MSG_SENDER_EMAIL_ADDRESS"));
    EXPECT_EQ(L"", Value(1, L"OTL_MSG_SENDER_EMAIL_ADDRESS"));
    EXPECT_TRUE(log.Contains(L"Can't open MailUser Object!"));
}

// --- Message files.

TEST_F(OutlookCaptureTest, ItemsSavedInOneSecondAreNamedApartByTheirNumbers) {
    outlook->SelectItemText(L"class = IPM.Note\nPR_SUBJECT = Erste\n");
    outlook->SelectItemText(L"class = IPM.Note\nPR_SUBJECT = Zweite\n");
    ASSERT_EQ(S_OK, Capture());
    EXPECT_EQ(0u, FileName(0).rfind(L"dorvane_0_", 0));
    EXPECT_EQ(0u, FileName(1).rfind(L"dorvane_1_", 0));
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
                           now += waits.size() == 3 ? 1 : 0;
                       }};
    wchar_t name[MAX_PATH];
    ASSERT_TRUE(MakeMsgFileNameIn(folder.Path().c_str(), 3, clock, name, MAX_PATH));
    EXPECT_EQ(folder / L"dorvane_3_0000AB11.msg", name);
    EXPECT_EQ((std::vector<DWORD>{50, 50, 50}), waits);
}

// A mail MAPI cannot copy is written by Outlook itself (the fault sweep fails each call once).
// When Outlook fails too, the path is handed back all the same and the failure logged with the
// status 0, deliberately; the folder of the file MAPI failed to write is given up.
HRESULT STDAPICALLTYPE CopyFails(const wchar_t* call) {
    return std::wstring(call) == L"Message::CopyTo" ? E_FAIL : S_OK;
}

TEST_F(OutlookCaptureTest, MailNeitherMapiNorOutlookCanWriteIsNamedAllTheSame) {
    FakeDispatch& item = outlook->SelectItemText(L"class = IPM.Note\n");
    item.FailCall(L"SaveAs", 1, E_ACCESSDENIED);
    MapiSimSetCallHook(CopyFails);
    const HRESULT hr = Capture();
    MapiSimSetCallHook(nullptr);

    EXPECT_EQ(S_OK, hr);
    ASSERT_EQ(1u, item.CallCount(L"SaveAs"));
    // Outlook is given the path and no format: it chooses its own.
    const FakeDispatch::Args& saveAs = item.Calls().back().args;
    ASSERT_EQ(2u, saveAs.size());
    EXPECT_EQ(std::wstring(paths[0].data()), saveAs[0].bstrVal);
    EXPECT_EQ(0u, FileName(0).rfind(L"dorvane_0_", 0)) << paths[0].data();
    EXPECT_TRUE(VT_ERROR == saveAs[1].vt && DISP_E_PARAMNOTFOUND == saveAs[1].scode);
    EXPECT_TRUE(log.Contains(L"Failed to saveas smime mailitem! hr = 0x00000000\n"));
    WIN32_FIND_DATAW found{};
    FindClose(FindFirstFileW((temp.Inbox() + L"td_data_*").c_str(), &found));
    EXPECT_TRUE(FileExists(temp.Inbox() + found.cFileName + L"\\__freetodelete__.bin"));
}

TEST_F(OutlookCaptureTest, NothingSelected) {
    EXPECT_EQ(kNothingSelected, GetOutlookDocumentCount(&outlook->Application()));
    EXPECT_EQ(kNothingSelected, Capture());
    EXPECT_TRUE(log.Contains(L"There are no items selected!\n"));
}

}  // namespace
