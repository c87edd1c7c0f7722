#include "support/MapiTestMessages.h"

#include <imessage.h>
#include <mapicode.h>
#include <mapitags.h>
#include <mapiutil.h>
#include <mapix.h>

#include <gtest/gtest.h>

#include <utility>

#include "common/ComObject.h"

namespace {

constexpr IID kIidMessage = {0x00020307, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
constexpr IID kIidMapiProp = {0x00020303, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};

// The tag to set `property` under on `message`, its named property created when needed.
ULONG TagOn(IMessage* message, const TestProperty& property) {
    if (!property.set) {
        return property.tag;
    }
    MAPINAMEID name{const_cast<GUID*>(property.set), MNID_ID, {}};
    name.Kind.lID = property.id;
    MAPINAMEID* names[] = {&name};
    SPropTagArray* tags = nullptr;
    EXPECT_EQ(S_OK, message->GetIDsFromNames(1, names, MAPI_CREATE, &tags));
    const ULONG tag = tags ? CHANGE_PROP_TYPE(tags->aulPropTag[0], PROP_TYPE(property.tag)) : 0;
    MAPIFreeBuffer(tags);
    return tag;
}

SPropValue ValueOf(const TestProperty& property, ULONG tag) {
    SPropValue value{};
    value.ulPropTag = tag;
    switch (PROP_TYPE(tag)) {
    case PT_UNICODE:
        value.Value.lpszW = const_cast<wchar_t*>(property.text.c_str());
        break;
    case PT_BINARY:
        value.Value.bin.cb = static_cast<ULONG>(property.bytes.size());
        value.Value.bin.lpb = const_cast<BYTE*>(property.bytes.data());
        break;
    case PT_DOUBLE:
        value.Value.dbl = property.real;
        break;
    case PT_SYSTIME:
        value.Value.li.QuadPart = property.number;
        break;
    case PT_I2:
        value.Value.i = static_cast<short>(property.number);
        break;
    case PT_BOOLEAN:
        value.Value.b = static_cast<unsigned short>(property.number);
        break;
    default:
        value.Value.l = static_cast<LONG>(property.number);
        break;
    }
    return value;
}

// Every IMessage call goes to the inner message unless its name is among the failures.
class FailingMessageObject final
    : public ComObject<FailingMessageObject, LiveCount::NotCounted,
                       Implements<IMessage, kIidMessage, kIidMapiProp>> {
public:
    FailingMessageObject(IMessage* inner, std::map<std::string, HRESULT> failures)
        : m_inner(inner), m_failures(std::move(failures)) {}

#define FORWARD(name, call)                                                   \
    if (auto failure = m_failures.find(#name); failure != m_failures.end()) { \
        return failure->second;                                               \
    }                                                                         \
    return m_inner->call

    HRESULT STDMETHODCALLTYPE GetLastError(HRESULT hr, ULONG flags, LPMAPIERROR* error) override {
        FORWARD(GetLastError, GetLastError(hr, flags, error));
    }
    HRESULT STDMETHODCALLTYPE SaveChanges(ULONG flags) override {
        FORWARD(SaveChanges, SaveChanges(flags));
    }
    HRESULT STDMETHODCALLTYPE GetProps(LPSPropTagArray tags, ULONG flags, ULONG* count,
                                       LPSPropValue* values) override {
        FORWARD(GetProps, GetProps(tags, flags, count, values));
    }
    HRESULT STDMETHODCALLTYPE GetPropList(ULONG flags, LPSPropTagArray* tags) override {
        FORWARD(GetPropList, GetPropList(flags, tags));
    }
    HRESULT STDMETHODCALLTYPE OpenProperty(ULONG tag, LPCIID iid, ULONG options, ULONG flags,
                                           LPUNKNOWN* object) override {
        FORWARD(OpenProperty, OpenProperty(tag, iid, options, flags, object));
    }
    HRESULT STDMETHODCALLTYPE SetProps(ULONG count, LPSPropValue values,
                                       LPSPropProblemArray* problems) override {
        FORWARD(SetProps, SetProps(count, values, problems));
    }
    HRESULT STDMETHODCALLTYPE DeleteProps(LPSPropTagArray tags,
                                          LPSPropProblemArray* problems) override {
        FORWARD(DeleteProps, DeleteProps(tags, problems));
    }
    HRESULT STDMETHODCALLTYPE CopyTo(ULONG excludedCount, LPCIID excluded,
                                     LPSPropTagArray excludedProps, ULONG window,
                                     LPMAPIPROGRESS progress, LPCIID iid, LPVOID target,
                                     ULONG flags, LPSPropProblemArray* problems) override {
        FORWARD(CopyTo, CopyTo(excludedCount, excluded, excludedProps, window, progress, iid,
                               target, flags, problems));
    }
    HRESULT STDMETHODCALLTYPE CopyProps(LPSPropTagArray tags, ULONG window, LPMAPIPROGRESS progress,
                                        LPCIID iid, LPVOID target, ULONG flags,
                                        LPSPropProblemArray* problems) override {
        FORWARD(CopyProps, CopyProps(tags, window, progress, iid, target, flags, problems));
    }
    HRESULT STDMETHODCALLTYPE GetNamesFromIDs(LPSPropTagArray* tags, LPGUID set, ULONG flags,
                                              ULONG* count, LPMAPINAMEID** names) override {
        FORWARD(GetNamesFromIDs, GetNamesFromIDs(tags, set, flags, count, names));
    }
    HRESULT STDMETHODCALLTYPE GetIDsFromNames(ULONG count, LPMAPINAMEID* names, ULONG flags,
                                              LPSPropTagArray* tags) override {
        FORWARD(GetIDsFromNames, GetIDsFromNames(count, names, flags, tags));
    }
    HRESULT STDMETHODCALLTYPE GetAttachmentTable(ULONG flags, LPMAPITABLE* table) override {
        FORWARD(GetAttachmentTable, GetAttachmentTable(flags, table));
    }
    HRESULT STDMETHODCALLTYPE OpenAttach(ULONG number, LPCIID iid, ULONG flags,
                                         LPATTACH* attach) override {
        FORWARD(OpenAttach, OpenAttach(number, iid, flags, attach));
    }
    HRESULT STDMETHODCALLTYPE CreateAttach(LPCIID iid, ULONG flags, ULONG* number,
                                           LPATTACH* attach) override {
        FORWARD(CreateAttach, CreateAttach(iid, flags, number, attach));
    }
    HRESULT STDMETHODCALLTYPE DeleteAttach(ULONG number, ULONG window, LPMAPIPROGRESS progress,
                                           ULONG flags) override {
        FORWARD(DeleteAttach, DeleteAttach(number, window, progress, flags));
    }
    HRESULT STDMETHODCALLTYPE GetRecipientTable(ULONG flags, LPMAPITABLE* table) override {
        FORWARD(GetRecipientTable, GetRecipientTable(flags, table));
    }
    HRESULT STDMETHODCALLTYPE ModifyRecipients(ULONG flags, LPADRLIST list) override {
        FORWARD(ModifyRecipients, ModifyRecipients(flags, list));
    }
    HRESULT STDMETHODCALLTYPE SubmitMessage(ULONG flags) override {
        FORWARD(SubmitMessage, SubmitMessage(flags));
    }
    HRESULT STDMETHODCALLTYPE SetReadFlag(ULONG flags) override {
        FORWARD(SetReadFlag, SetReadFlag(flags));
    }
#undef FORWARD

private:
    ComPtr<IMessage> m_inner;
    std::map<std::string, HRESULT> m_failures;
};

}  // namespace

TestProperty Text(ULONG tag, std::wstring text) {
    TestProperty p;
    p.tag = tag;
    p.text = std::move(text);
    return p;
}
TestProperty Number(ULONG tag, LONGLONG number) {
    TestProperty p;
    p.tag = tag;
    p.number = number;
    return p;
}
TestProperty Real(ULONG tag, double value) {
    TestProperty p;
    p.tag = tag;
    p.real = value;
    return p;
}
TestProperty Bytes(ULONG tag, std::vector<BYTE> bytes) {
    TestProperty p;
    p.tag = tag;
    p.bytes = std::move(bytes);
    return p;
}
TestProperty Time(ULONG tag, WORD year, WORD month, WORD day, WORD hour, WORD minute) {
    SYSTEMTIME st{year, month, 0, day, hour, minute, 0, 0};
    FILETIME ft{};
    SystemTimeToFileTime(&st, &ft);
    return Number(tag, (static_cast<LONGLONG>(ft.dwHighDateTime) << 32) | ft.dwLowDateTime);
}
TestProperty Named(const GUID& set, LONG id, TestProperty value) {
    value.set = &set;
    value.id = id;
    return value;
}

TestMessage::TestMessage() {
    ComPtr<ILockBytes> bytes;
    ComPtr<IStorage> storage;
    LPMSGSESS session = nullptr;
    if (FAILED(CreateILockBytesOnHGlobal(nullptr, TRUE, bytes.put())) ||
        FAILED(StgCreateDocfileOnILockBytes(
            bytes.get(), STGM_CREATE | STGM_READWRITE | STGM_SHARE_EXCLUSIVE, 0, storage.put())) ||
        FAILED(OpenIMsgSession(MAPIGetDefaultMalloc(), 0, &session))) {
        ADD_FAILURE() << "no message session";
        return;
    }
    m_session = session;
    EXPECT_EQ(S_OK, OpenIMsgOnIStg(session, MAPIAllocateBuffer, MAPIAllocateMore, MAPIFreeBuffer,
                                   MAPIGetDefaultMalloc(), nullptr, storage.get(), nullptr, 0, 0,
                                   m_message.put()));
}

TestMessage::~TestMessage() {
    m_message.reset();
    if (m_session) {
        CloseIMsgSession(static_cast<LPMSGSESS>(m_session));
    }
}

void TestMessage::Set(const std::vector<TestProperty>& properties) {
    std::vector<SPropValue> values;
    for (const TestProperty& property : properties) {
        values.push_back(ValueOf(property, TagOn(m_message.get(), property)));
    }
    ASSERT_EQ(S_OK, m_message->SetProps(static_cast<ULONG>(values.size()), values.data(), nullptr));
}

void TestMessage::AddRecipients(const std::vector<TestRecipient>& recipients) {
    ADRLIST* list = nullptr;
    ASSERT_EQ(S_OK,
              MAPIAllocateBuffer(CbNewADRLIST(recipients.size()), reinterpret_cast<void**>(&list)));
    list->cEntries = 0;
    for (const TestRecipient& recipient : recipients) {
        SPropValue* values = nullptr;
        ASSERT_EQ(S_OK,
                  MAPIAllocateBuffer(5 * sizeof(SPropValue), reinterpret_cast<void**>(&values)));
        ULONG count = 0;
        values[count].ulPropTag = PR_DISPLAY_NAME_W;
        values[count++].Value.lpszW = const_cast<wchar_t*>(recipient.name.c_str());
        values[count].ulPropTag = PR_EMAIL_ADDRESS_W;
        values[count++].Value.lpszW = const_cast<wchar_t*>(recipient.emailAddress.c_str());
        values[count].ulPropTag = PR_ADDRTYPE_W;
        values[count++].Value.lpszW = const_cast<wchar_t*>(
            recipient.emailAddress.find(L'@') == std::wstring::npos ? L"EX" : L"SMTP");
        if (!recipient.smtpAddress.empty()) {
            values[count].ulPropTag = PROP_TAG(PT_UNICODE, 0x39FE);
            values[count++].Value.lpszW = const_cast<wchar_t*>(recipient.smtpAddress.c_str());
        }
        values[count].ulPropTag = PR_RECIPIENT_TYPE;
        values[count++].Value.l = recipient.type;
        list->aEntries[list->cEntries++] = {0, count, values};
    }
    EXPECT_EQ(S_OK, m_message->ModifyRecipients(MODRECIP_ADD, list));
    for (ULONG i = 0; i < list->cEntries; ++i) {
        MAPIFreeBuffer(list->aEntries[i].rgPropVals);
    }
    MAPIFreeBuffer(list);
}

bool TestMessage::KnowsName(const GUID& set, LONG id) const {
    MAPINAMEID name{const_cast<GUID*>(&set), MNID_ID, {}};
    name.Kind.lID = id;
    MAPINAMEID* names[] = {&name};
    SPropTagArray* tags = nullptr;
    const HRESULT hr = m_message->GetIDsFromNames(1, names, 0, &tags);
    const bool known = hr == S_OK && tags && PROP_TYPE(tags->aulPropTag[0]) != PT_ERROR;
    MAPIFreeBuffer(tags);
    return known;
}

ComPtr<IMessage> FailingMessage(IMessage* inner, std::map<std::string, HRESULT> failures) {
    ComPtr<FailingMessageObject> object =
        MakeComObject<FailingMessageObject>(inner, std::move(failures));
    ComPtr<IMessage> message;
    object.query_to(kIidMessage, message.put());
    return message;
}
