// The simulated Outlook: items built from the text format survive a trip through a message file,
// each message class answers its item interface, and the text format names a bad line. How the
// capture reaches items, their messages and the address book, giving every reference back, is
// pinned by tests/capture/outlook/OutlookCaptureTests.cpp.
#include <gtest/gtest.h>
#include <windows.h>

#include <mapitags.h>
#include <mapix.h>

#include <memory>
#include <string>

#include "common/Automation.h"
#include "common/ComPtr.h"
#include "common/Variant.h"
#include "outlooksim/FakeOutlook.h"
#include "outlooksim/ItemText.h"
#include "support/TestFiles.h"
#include "tools/mapisim/MapiSim.h"

namespace {

constexpr ULONG kPrSmtpAddress = PROP_TAG(PT_UNICODE, 0x39FE);
constexpr IID OutlookInterface(DWORD first) {
    return {first, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
}

struct MapiFree {
    void operator()(void* p) const { MAPIFreeBuffer(p); }
};
template <class T>
using MapiBuffer = std::unique_ptr<T, MapiFree>;

constexpr wchar_t kExchangeMail[] =
    L"# a mail from an Exchange colleague\n"
    L"class = IPM.Note\n"
    L"PR_SUBJECT = Lieferung f\u00fcr KW 21\n"
    L"PR_BODY = Hallo,\\nanbei die Liste.\n"
    L"PR_IMPORTANCE = 2\n"
    L"PR_MESSAGE_DELIVERY_TIME = 2024-05-14T09:30:00Z\n"
    L"PR_SENDER_NAME = Erika Muster\n"
    L"PR_SENDER_ADDRTYPE = EX\n"
    L"PR_SENDER_ENTRYID = 00000000 DCA740C8\n"
    L"Task 0x8102 double = 0.5\n"
    L"Appointment 0x8223 bool = true\n"
    L"To = Max Beispiel | SMTP | max.beispiel@example.com\n"
    L"CC = Ina Kopie | EX | /o=Muster/cn=ina.kopie | ina.kopie@example.net\n"
    L"attachment = Liste.txt | 3 Paletten\n"
    L"addressbook = 00000000DCA740C8 | Erika Muster | erika.muster@example.org\n";

std::wstring Text(IMessage* message, ULONG tag) {
    SizedSPropTagArray(1, tags) = {1, {tag}};
    ULONG count = 0;
    LPSPropValue raw = nullptr;
    message->GetProps(reinterpret_cast<LPSPropTagArray>(&tags), MAPI_UNICODE, &count, &raw);
    MapiBuffer<SPropValue> value(raw);
    return value && PROP_TYPE(value->ulPropTag) == PT_UNICODE ? value->Value.lpszW : L"";
}

ULONG NamedTag(IMessage* message, DWORD set, LONG id, ULONG type) {
    GUID guid = OutlookInterface(set);
    MAPINAMEID name{&guid, MNID_ID, {}};
    name.Kind.lID = id;
    LPMAPINAMEID names[] = {&name};
    LPSPropTagArray raw = nullptr;
    EXPECT_EQ(S_OK, message->GetIDsFromNames(1, names, 0, &raw));
    MapiBuffer<SPropTagArray> tags(raw);
    return tags ? CHANGE_PROP_TYPE(tags->aulPropTag[0], type) : 0;
}

std::vector<std::wstring> RecipientColumn(IMessage* message, ULONG tag) {
    ComPtr<IMAPITable> table;
    EXPECT_EQ(S_OK, message->GetRecipientTable(MAPI_UNICODE, table.put()));
    std::vector<std::wstring> column;
    for (;;) {
        LPSRowSet raw = nullptr;
        if (FAILED(table->QueryRows(1, 0, &raw)) || !raw || raw->cRows == 0) {
            if (raw) {
                MAPIFreeBuffer(raw);
            }
            return column;
        }
        const SRow& row = raw->aRow[0];
        for (ULONG i = 0; i < row.cValues; ++i) {
            if (row.lpProps[i].ulPropTag == tag) {
                column.push_back(row.lpProps[i].Value.lpszW);
            }
        }
        MAPIFreeBuffer(row.lpProps);
        MAPIFreeBuffer(raw);
    }
}

class FakeOutlookTest : public ::testing::Test {
protected:
    void TearDown() override {
        outlook.reset();
        EXPECT_EQ(liveBuffers, MapiSimLiveBuffers());
        EXPECT_EQ(0u, MapiSimBadFrees());
    }
    ULONG liveBuffers = MapiSimLiveBuffers();
    std::unique_ptr<FakeOutlook> outlook = std::make_unique<FakeOutlook>();
};

TEST_F(FakeOutlookTest, ItemTextSurvivesAMessageFile) {
    ScratchFolder folder;
    FakeDispatch& item = outlook->SelectItemText(kExchangeMail);
    Variant path((folder / L"mail.msg").c_str());
    ASSERT_EQ(S_OK, CallMethodNoThrow(&item, L"SaveAs", {&path}));
    outlook->SelectMessageFile(folder / L"mail.msg");

    for (size_t i = 0; i < 2; ++i) {
        SCOPED_TRACE(i == 0 ? "built from text" : "read from the message file");
        IMessage* message = outlook->Message(i);
        EXPECT_EQ(L"Lieferung f\u00fcr KW 21", Text(message, PR_SUBJECT_W));
        EXPECT_EQ(L"Hallo,\r\nanbei die Liste.", Text(message, PR_BODY_W));
        EXPECT_EQ(L"Max Beispiel", Text(message, PR_DISPLAY_TO_W));
        EXPECT_EQ(L"Ina Kopie", Text(message, PR_DISPLAY_CC_W));
        EXPECT_EQ((std::vector<std::wstring>{L"ina.kopie@example.net"}),
                  RecipientColumn(message, kPrSmtpAddress));
        EXPECT_EQ(
            (std::vector<std::wstring>{L"max.beispiel@example.com", L"/o=Muster/cn=ina.kopie"}),
            RecipientColumn(message, PR_EMAIL_ADDRESS_W));

        SizedSPropTagArray(3, tags) = {
            3,
            {NamedTag(message, 0x00062003, 0x8102, PT_DOUBLE),
             NamedTag(message, 0x00062002, 0x8223, PT_BOOLEAN), PR_MESSAGE_DELIVERY_TIME}};
        ULONG count = 0;
        LPSPropValue raw = nullptr;
        ASSERT_EQ(S_OK,
                  message->GetProps(reinterpret_cast<LPSPropTagArray>(&tags), 0, &count, &raw));
        MapiBuffer<SPropValue> values(raw);
        EXPECT_EQ(0.5, values.get()[0].Value.dbl);
        EXPECT_TRUE(values.get()[1].Value.b);
        SYSTEMTIME time{};
        FileTimeToSystemTime(&values.get()[2].Value.ft, &time);
        EXPECT_EQ(2024, time.wYear);
        EXPECT_EQ(9, time.wHour);

        ComPtr<IMAPITable> attachments;
        ASSERT_EQ(S_OK, message->GetAttachmentTable(0, attachments.put()));
        ULONG rows = 0;
        EXPECT_EQ(S_OK, attachments->GetRowCount(0, &rows));
        EXPECT_EQ(1u, rows);
    }
    BStr subject;
    EXPECT_EQ(S_OK, GetTextPropertyNoThrow(&outlook->Item(1), L"Subject", &subject));
    EXPECT_STREQ(L"Lieferung f\u00fcr KW 21", subject.c_str());
}

struct ClassCase {
    const wchar_t* messageClass;
    DWORD iid;  // 0: no item interface
};

class ItemInterfaceTest : public FakeOutlookTest,
                          public ::testing::WithParamInterface<ClassCase> {};

TEST_P(ItemInterfaceTest, MessageClassChoosesTheItemInterface) {
    FakeDispatch& item =
        outlook->SelectItemText(std::wstring(L"class = ") + GetParam().messageClass + L"\n");
    ComPtr<IUnknown> answer;
    constexpr DWORD kAll[] = {0x00063034, 0x00063021, 0x00063025, 0x00063022,
                              0x00063033, 0x00063062, 0x00063035, 0x00063036,
                              0x00063038, 0x00063039, 0x00063037};
    for (DWORD iid : kAll) {
        HRESULT hr = item.QueryInterface(OutlookInterface(iid), answer.put_void());
        EXPECT_EQ(iid == GetParam().iid ? S_OK : E_NOINTERFACE, hr) << std::hex << iid;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Classes, ItemInterfaceTest,
    ::testing::Values(
        ClassCase{L"IPM.Note", 0x00063034}, ClassCase{L"ipm.note.smime", 0x00063034},
        ClassCase{L"IPM.Note.SMIME.MultipartSigned", 0x00063034}, ClassCase{L"IPM.Notes", 0},
        ClassCase{L"IPM.Contact", 0x00063021}, ClassCase{L"IPM.StickyNote", 0x00063025},
        ClassCase{L"IPM.Activity", 0x00063022}, ClassCase{L"IPM.Appointment", 0x00063033},
        ClassCase{L"IPM.Schedule.Meeting.Request", 0x00063062}, ClassCase{L"IPM.Task", 0x00063035},
        ClassCase{L"IPM.TaskRequest", 0x00063036}, ClassCase{L"IPM.TaskRequest.Accept", 0x00063038},
        ClassCase{L"IPM.TaskRequest.Decline", 0x00063039},
        ClassCase{L"IPM.TaskRequest.Update", 0x00063037}, ClassCase{L"IPM.Post", 0}),
    [](const auto& info) {
        std::string name;
        for (const wchar_t* c = info.param.messageClass; *c; ++c) {
            name += *c == L'.' ? '_' : static_cast<char>(*c);
        }
        return name;
    });

class MalformedItemTextTest
    : public ::testing::TestWithParam<std::pair<const wchar_t*, const char*>> {};

TEST_P(MalformedItemTextTest, IsRefusedNamingTheLine) {
    try {
        outlooksim::ParseItemText(GetParam().first);
        FAIL() << "accepted";
    } catch (const std::runtime_error& error) {
        EXPECT_EQ(0, std::string(error.what()).rfind(GetParam().second, 0)) << error.what();
    }
}

INSTANTIATE_TEST_SUITE_P(
    Lines, MalformedItemTextTest,
    ::testing::Values(
        std::pair{L"class = IPM.Note\nPR_SUBJECT Angebot\n", "line 2: expected"},
        std::pair{L"class = IPM.Note\n\n# x\nPR_NOSUCH = 1\n", "line 4: unknown key"},
        std::pair{L"class = IPM.Note\nPR_IMPORTANCE = hoch\n", "line 2: not an integer"},
        std::pair{L"class = IPM.Note\nPR_MESSAGE_DELIVERY_TIME = 14.05.2024\n",
                  "line 2: not a UTC date-time"},
        std::pair{L"class = IPM.Note\nTask 0x8102 float = 1\n", "line 2: a named property"},
        std::pair{L"class = IPM.Note\nPR_ENTRYID = ABC\n", "line 2: not an even number"},
        std::pair{L"class = IPM.Note\nTo = Max Beispiel\n", "line 2: a recipient"},
        std::pair{L"PR_SUBJECT = ohne Klasse\n", "line 1: no \"class"}),
    [](const auto& info) { return "Case" + std::to_string(info.index); });

}  // namespace
