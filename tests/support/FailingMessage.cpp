#include "support/FailingMessage.h"

#include <utility>

#include "common/ComObject.h"

namespace {

constexpr IID kIidMessage = {0x00020307, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
constexpr IID kIidMapiProp = {0x00020303, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};

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

ComPtr<IMessage> FailingMessage(IMessage* inner, std::map<std::string, HRESULT> failures) {
    ComPtr<FailingMessageObject> object =
        MakeComObject<FailingMessageObject>(inner, std::move(failures));
    ComPtr<IMessage> message;
    object.query_to(kIidMessage, message.put());
    return message;
}
