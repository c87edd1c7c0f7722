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

    template <class Method, class... Args>
    HRESULT Call(const char* name, Method method, Args... args) {
        const auto failure = m_failures.find(name);
        return failure != m_failures.end() ? failure->second : (m_inner.get()->*method)(args...);
    }

    HRESULT STDMETHODCALLTYPE GetLastError(HRESULT a, ULONG b, LPMAPIERROR* c) override {
        return Call("GetLastError", &IMessage::GetLastError, a, b, c);
    }
    HRESULT STDMETHODCALLTYPE SaveChanges(ULONG a) override {
        return Call("SaveChanges", &IMessage::SaveChanges, a);
    }
    HRESULT STDMETHODCALLTYPE GetProps(LPSPropTagArray a, ULONG b, ULONG* c,
                                       LPSPropValue* d) override {
        return Call("GetProps", &IMessage::GetProps, a, b, c, d);
    }
    HRESULT STDMETHODCALLTYPE GetPropList(ULONG a, LPSPropTagArray* b) override {
        return Call("GetPropList", &IMessage::GetPropList, a, b);
    }
    HRESULT STDMETHODCALLTYPE OpenProperty(ULONG a, LPCIID b, ULONG c, ULONG d,
                                           LPUNKNOWN* e) override {
        return Call("OpenProperty", &IMessage::OpenProperty, a, b, c, d, e);
    }
    HRESULT STDMETHODCALLTYPE SetProps(ULONG a, LPSPropValue b, LPSPropProblemArray* c) override {
        return Call("SetProps", &IMessage::SetProps, a, b, c);
    }
    HRESULT STDMETHODCALLTYPE DeleteProps(LPSPropTagArray a, LPSPropProblemArray* b) override {
        return Call("DeleteProps", &IMessage::DeleteProps, a, b);
    }
    HRESULT STDMETHODCALLTYPE CopyTo(ULONG a, LPCIID b, LPSPropTagArray c, ULONG d,
                                     LPMAPIPROGRESS e, LPCIID f, LPVOID g, ULONG h,
                                     LPSPropProblemArray* i) override {
        return Call("CopyTo", &IMessage::CopyTo, a, b, c, d, e, f, g, h, i);
    }
    HRESULT STDMETHODCALLTYPE CopyProps(LPSPropTagArray a, ULONG b, LPMAPIPROGRESS c, LPCIID d,
                                        LPVOID e, ULONG f, LPSPropProblemArray* g) override {
        return Call("CopyProps", &IMessage::CopyProps, a, b, c, d, e, f, g);
    }
    HRESULT STDMETHODCALLTYPE GetNamesFromIDs(LPSPropTagArray* a, LPGUID b, ULONG c, ULONG* d,
                                              LPMAPINAMEID** e) override {
        return Call("GetNamesFromIDs", &IMessage::GetNamesFromIDs, a, b, c, d, e);
    }
    HRESULT STDMETHODCALLTYPE GetIDsFromNames(ULONG a, LPMAPINAMEID* b, ULONG c,
                                              LPSPropTagArray* d) override {
        return Call("GetIDsFromNames", &IMessage::GetIDsFromNames, a, b, c, d);
    }
    HRESULT STDMETHODCALLTYPE GetAttachmentTable(ULONG a, LPMAPITABLE* b) override {
        return Call("GetAttachmentTable", &IMessage::GetAttachmentTable, a, b);
    }
    HRESULT STDMETHODCALLTYPE OpenAttach(ULONG a, LPCIID b, ULONG c, LPATTACH* d) override {
        return Call("OpenAttach", &IMessage::OpenAttach, a, b, c, d);
    }
    HRESULT STDMETHODCALLTYPE CreateAttach(LPCIID a, ULONG b, ULONG* c, LPATTACH* d) override {
        return Call("CreateAttach", &IMessage::CreateAttach, a, b, c, d);
    }
    HRESULT STDMETHODCALLTYPE DeleteAttach(ULONG a, ULONG b, LPMAPIPROGRESS c, ULONG d) override {
        return Call("DeleteAttach", &IMessage::DeleteAttach, a, b, c, d);
    }
    HRESULT STDMETHODCALLTYPE GetRecipientTable(ULONG a, LPMAPITABLE* b) override {
        return Call("GetRecipientTable", &IMessage::GetRecipientTable, a, b);
    }
    HRESULT STDMETHODCALLTYPE ModifyRecipients(ULONG a, LPADRLIST b) override {
        return Call("ModifyRecipients", &IMessage::ModifyRecipients, a, b);
    }
    HRESULT STDMETHODCALLTYPE SubmitMessage(ULONG a) override {
        return Call("SubmitMessage", &IMessage::SubmitMessage, a);
    }
    HRESULT STDMETHODCALLTYPE SetReadFlag(ULONG a) override {
        return Call("SetReadFlag", &IMessage::SetReadFlag, a);
    }

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
