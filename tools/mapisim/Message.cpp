// Message sessions and the message on a storage: OpenIMsgSession, CloseIMsgSession,
// OpenIMsgOnIStg, IMessage and IAttach.
#include <windows.h>
#include <objbase.h>

#include <imessage.h>
#include <mapicode.h>
#include <mapiguid.h>
#include <mapitags.h>
#include <mapix.h>

#include <algorithm>
#include <memory>

#include "tools/mapisim/MapiSim.h"
#include "tools/mapisim/SimObjects.h"

struct _MSGSESS {
    bool open = true;
};

namespace mapisim {
namespace {

std::atomic<ULONG> g_liveSessions{0};

class Message;

// Copies an embedded message onto the attachment `dest`, as its PR_ATTACH_DATA_OBJ.
HRESULT CopyEmbedded(const MessageModel& model, std::vector<NamedProperty>& names, IMAPIProp* dest);

class Attachment final : public ComObject<Attachment, LiveCount::NotCounted,
                                          Implements<IAttach, IID_IAttachment, IID_IMAPIProp>>,
                         LiveObject {
public:
    Attachment(Message* message, PropertyList props, std::shared_ptr<MessageModel> embedded);
    // The attachment's message, as its embedded message saved it.
    void SetEmbedded(std::shared_ptr<MessageModel> model) { m_embedded = std::move(model); }

    HRESULT STDMETHODCALLTYPE GetLastError(HRESULT, ULONG, LPMAPIERROR* error) override {
        if (error) {
            *error = nullptr;
        }
        return S_OK;
    }
    // Puts the attachment into its message; the message file changes when the message is saved.
    HRESULT STDMETHODCALLTYPE SaveChanges(ULONG flags) override;
    HRESULT STDMETHODCALLTYPE GetProps(LPSPropTagArray tags, ULONG flags, ULONG* count,
                                       LPSPropValue* values) override {
        MAPISIM_CALL(L"Attachment::GetProps")
        return Host().GetProps(tags, flags, count, values);
    }
    HRESULT STDMETHODCALLTYPE GetPropList(ULONG flags, LPSPropTagArray* tags) override {
        MAPISIM_CALL(L"Attachment::GetPropList")
        return Host().GetPropList(flags, tags);
    }
    // PR_ATTACH_DATA_OBJ as IID_IMessage opens the embedded message (MAPI_CREATE makes a new one);
    // other properties open as streams.
    HRESULT STDMETHODCALLTYPE OpenProperty(ULONG tag, LPCIID iid, ULONG, ULONG flags,
                                           LPUNKNOWN* unknown) override;
    HRESULT STDMETHODCALLTYPE SetProps(ULONG count, LPSPropValue values,
                                       LPSPropProblemArray* problems) override {
        MAPISIM_CALL(L"Attachment::SetProps")
        return Host().SetProps(count, values, problems);
    }
    HRESULT STDMETHODCALLTYPE DeleteProps(LPSPropTagArray tags,
                                          LPSPropProblemArray* problems) override {
        MAPISIM_CALL(L"Attachment::DeleteProps")
        return Host().DeleteProps(tags, problems);
    }
    HRESULT STDMETHODCALLTYPE CopyTo(ULONG, LPCIID, LPSPropTagArray excluded, ULONG, LPMAPIPROGRESS,
                                     LPCIID, LPVOID dest, ULONG,
                                     LPSPropProblemArray* problems) override;
    HRESULT STDMETHODCALLTYPE CopyProps(LPSPropTagArray, ULONG, LPMAPIPROGRESS, LPCIID, LPVOID,
                                        ULONG, LPSPropProblemArray*) override {
        MAPISIM_CALL(L"Attachment::CopyProps")
        return MAPI_E_NO_SUPPORT;
    }
    HRESULT STDMETHODCALLTYPE GetNamesFromIDs(LPSPropTagArray* tags, LPGUID guid, ULONG flags,
                                              ULONG* count, LPMAPINAMEID** names) override {
        MAPISIM_CALL(L"Attachment::GetNamesFromIDs")
        return Host().GetNamesFromIDs(tags, guid, flags, count, names);
    }
    HRESULT STDMETHODCALLTYPE GetIDsFromNames(ULONG count, LPMAPINAMEID* names, ULONG flags,
                                              LPSPropTagArray* tags) override {
        MAPISIM_CALL(L"Attachment::GetIDsFromNames")
        return Host().GetIDsFromNames(count, names, flags, tags);
    }

private:
    PropertyHost Host();

    ComPtr<IMessage> m_messageRef;  // keeps the message alive
    Message* m_message;
    PropertyList m_props;
    std::shared_ptr<MessageModel> m_embedded;
};

class Message final : public ComObject<Message, LiveCount::NotCounted,
                                       Implements<IMessage, IID_IMessage, IID_IMAPIProp>>,
                      LiveObject {
public:
    // A message on a storage.
    Message(std::shared_ptr<_MSGSESS> session, IStorage* storage, ULONG flags)
        : m_session(std::move(session)), m_storage(storage), m_flags(flags) {}
    // A message embedded in an attachment (saved into `parent`, if any), with the names of the
    // message at the top of the file.
    Message(MessageModel model, std::vector<NamedProperty>* names, Attachment* parent)
        : m_flags(0),
          m_model(std::move(model)),
          m_names(names),
          m_parentRef(parent),
          m_parent(parent) {}
    // Called with the caller's data when the last reference goes.
    void OnRelease(MSGCALLRELEASE* callback, ULONG callerData) {
        m_onRelease = callback;
        m_callerData = callerData;
    }

    HRESULT Load() noexcept try { return ReadMessage(m_storage.get(), m_model); } catch (...) {
        return CaughtError();
    }
    MessageModel& Model() { return m_model; }
    std::vector<NamedProperty>& Names() { return *m_names; }

    HRESULT STDMETHODCALLTYPE GetLastError(HRESULT, ULONG, LPMAPIERROR* error) override {
        if (error) {
            *error = nullptr;
        }
        return S_OK;
    }
    // Writes the whole message into its storage and commits the storage unless the message was
    // opened with IMSG_NO_ISTG_COMMIT.
    HRESULT STDMETHODCALLTYPE SaveChanges(ULONG) override try {
        MAPISIM_CALL(L"Message::SaveChanges")
        if (!m_storage) {
            if (!m_parent) {
                return MAPI_E_NO_ACCESS;
            }
            m_parent->SetEmbedded(std::make_shared<MessageModel>(m_model));
            return S_OK;
        }
        if (!m_session->open) {
            return MAPI_E_OBJECT_DELETED;
        }
        HRESULT hr = WriteMessage(m_storage.get(), m_model);
        if (SUCCEEDED(hr) && !(m_flags & IMSG_NO_ISTG_COMMIT)) {
            hr = m_storage->Commit(STGC_DEFAULT);
        }
        return hr;
    } catch (...) {
        return CaughtError();
    }
    HRESULT STDMETHODCALLTYPE GetProps(LPSPropTagArray tags, ULONG flags, ULONG* count,
                                       LPSPropValue* values) override {
        MAPISIM_CALL(L"Message::GetProps")
        return Host().GetProps(tags, flags, count, values);
    }
    HRESULT STDMETHODCALLTYPE GetPropList(ULONG flags, LPSPropTagArray* tags) override {
        MAPISIM_CALL(L"Message::GetPropList")
        return Host().GetPropList(flags, tags);
    }
    HRESULT STDMETHODCALLTYPE OpenProperty(ULONG tag, LPCIID iid, ULONG, ULONG flags,
                                           LPUNKNOWN* unknown) override {
        MAPISIM_CALL(L"Message::OpenProperty")
        return Host().OpenProperty(tag, iid, flags, unknown);
    }
    HRESULT STDMETHODCALLTYPE SetProps(ULONG count, LPSPropValue values,
                                       LPSPropProblemArray* problems) override {
        MAPISIM_CALL(L"Message::SetProps")
        return Host().SetProps(count, values, problems);
    }
    HRESULT STDMETHODCALLTYPE DeleteProps(LPSPropTagArray tags,
                                          LPSPropProblemArray* problems) override {
        MAPISIM_CALL(L"Message::DeleteProps")
        return Host().DeleteProps(tags, problems);
    }
    // Everything onto another message: properties (named ones by name), recipients and
    // attachments, unless excluded by tag (PR_MESSAGE_RECIPIENTS, PR_MESSAGE_ATTACHMENTS) or,
    // for both, by excluding IID_IMessage.
    HRESULT STDMETHODCALLTYPE CopyTo(ULONG excludedIidCount, LPCIID excludedIids,
                                     LPSPropTagArray excluded, ULONG, LPMAPIPROGRESS, LPCIID iid,
                                     LPVOID dest, ULONG, LPSPropProblemArray* problems) override
        try {
        MAPISIM_CALL(L"Message::CopyTo")
        if (problems) {
            *problems = nullptr;
        }
        if (!dest || !iid) {
            return MAPI_E_INVALID_PARAMETER;
        }
        ComPtr<IMessage> target;
        HRESULT hr = static_cast<IUnknown*>(dest)->QueryInterface(
            IID_IMessage, reinterpret_cast<void**>(target.put()));
        if (FAILED(hr)) {
            return MAPI_E_INTERFACE_NOT_SUPPORTED;
        }
        std::set<ULONG> excludedIds;
        for (ULONG i = 0; excluded && i < excluded->cValues; ++i) {
            excludedIds.insert(PROP_ID(excluded->aulPropTag[i]));
        }
        bool subobjects = true;
        for (ULONG i = 0; excludedIids && i < excludedIidCount; ++i) {
            subobjects &= !IsEqualIID(excludedIids[i], IID_IMessage);
        }
        hr = CopyProperties(m_model.props, *m_names, target.get(), excludedIds);
        if (SUCCEEDED(hr) && subobjects && !excludedIds.count(PROP_ID(PR_MESSAGE_RECIPIENTS))) {
            hr = CopyRecipients(target.get());
        }
        if (SUCCEEDED(hr) && subobjects && !excludedIds.count(PROP_ID(PR_MESSAGE_ATTACHMENTS))) {
            for (const PropertyList& attachment : m_model.attachments) {
                ComPtr<IAttach> copy;
                ULONG number = 0;
                hr = target->CreateAttach(nullptr, 0, &number, copy.put());
                if (SUCCEEDED(hr)) {
                    hr = CopyProperties(attachment, *m_names, copy.get(), {PROP_ID(PR_ATTACH_NUM)});
                }
                auto embedded = m_model.embedded.find(GetLong(attachment, PR_ATTACH_NUM, -1));
                if (SUCCEEDED(hr) && embedded != m_model.embedded.end()) {
                    hr = CopyEmbedded(*embedded->second, *m_names, copy.get());
                }
                if (SUCCEEDED(hr)) {
                    hr = copy->SaveChanges(KEEP_OPEN_READWRITE);
                }
                if (FAILED(hr)) {
                    break;
                }
            }
        }
        return hr;
    } catch (...) {
        return CaughtError();
    }
    HRESULT STDMETHODCALLTYPE CopyProps(LPSPropTagArray, ULONG, LPMAPIPROGRESS, LPCIID, LPVOID,
                                        ULONG, LPSPropProblemArray*) override {
        MAPISIM_CALL(L"Message::CopyProps")
        return MAPI_E_NO_SUPPORT;
    }
    HRESULT STDMETHODCALLTYPE GetNamesFromIDs(LPSPropTagArray* tags, LPGUID guid, ULONG flags,
                                              ULONG* count, LPMAPINAMEID** names) override {
        MAPISIM_CALL(L"Message::GetNamesFromIDs")
        return Host().GetNamesFromIDs(tags, guid, flags, count, names);
    }
    HRESULT STDMETHODCALLTYPE GetIDsFromNames(ULONG count, LPMAPINAMEID* names, ULONG flags,
                                              LPSPropTagArray* tags) override {
        MAPISIM_CALL(L"Message::GetIDsFromNames")
        return Host().GetIDsFromNames(count, names, flags, tags);
    }

    // The attachment table leaves out the attachments' data, as a store's does.
    HRESULT STDMETHODCALLTYPE GetAttachmentTable(ULONG flags, LPMAPITABLE* table) override try {
        MAPISIM_CALL(L"Message::GetAttachmentTable")
        if (!table) {
            return MAPI_E_INVALID_PARAMETER;
        }
        std::vector<PropertyList> rows = m_model.attachments;
        for (PropertyList& row : rows) {
            row.erase(PROP_ID(PR_ATTACH_DATA_BIN));
        }
        return CreateSnapshotTable(std::move(rows), flags & MAPI_UNICODE, table);
    } catch (...) {
        return CaughtError();
    }
    HRESULT STDMETHODCALLTYPE OpenAttach(ULONG number, LPCIID, ULONG, LPATTACH* attach) override
        try {
        MAPISIM_CALL(L"Message::OpenAttach")
        if (!attach) {
            return MAPI_E_INVALID_PARAMETER;
        }
        *attach = nullptr;
        auto it = FindAttachment(number);
        if (it == m_model.attachments.end()) {
            return MAPI_E_NOT_FOUND;
        }
        auto embedded = m_model.embedded.find(static_cast<LONG>(number));
        *attach = MakeComObject<Attachment>(
                      this, *it, embedded == m_model.embedded.end() ? nullptr : embedded->second)
                      .Detach();
        return S_OK;
    } catch (...) {
        return CaughtError();
    }
    HRESULT STDMETHODCALLTYPE CreateAttach(LPCIID, ULONG, ULONG* number, LPATTACH* attach) override
        try {
        MAPISIM_CALL(L"Message::CreateAttach")
        if (!number || !attach) {
            return MAPI_E_INVALID_PARAMETER;
        }
        LONG next = 0;
        for (const PropertyList& existing : m_model.attachments) {
            next = std::max(next, GetLong(existing, PR_ATTACH_NUM, 0) + 1);
        }
        next = std::max(next, m_nextAttachment);
        m_nextAttachment = next + 1;
        PropertyList props;
        PutLong(props, PR_ATTACH_NUM, next);
        *number = static_cast<ULONG>(next);
        *attach = MakeComObject<Attachment>(this, std::move(props), nullptr).Detach();
        return S_OK;
    } catch (...) {
        return CaughtError();
    }
    HRESULT STDMETHODCALLTYPE DeleteAttach(ULONG number, ULONG, LPMAPIPROGRESS, ULONG) override {
        MAPISIM_CALL(L"Message::DeleteAttach")
        auto it = FindAttachment(number);
        if (it == m_model.attachments.end()) {
            return MAPI_E_NOT_FOUND;
        }
        m_model.attachments.erase(it);
        m_model.embedded.erase(static_cast<LONG>(number));
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetRecipientTable(ULONG flags, LPMAPITABLE* table) override try {
        MAPISIM_CALL(L"Message::GetRecipientTable")
        if (!table) {
            return MAPI_E_INVALID_PARAMETER;
        }
        return CreateSnapshotTable(m_model.recipients, flags & MAPI_UNICODE, table);
    } catch (...) {
        return CaughtError();
    }
    // Adds (numbering them with PR_ROWID), modifies or removes recipients; with no flag the list
    // replaces all recipients.
    HRESULT STDMETHODCALLTYPE ModifyRecipients(ULONG flags, LPADRLIST list) override try {
        MAPISIM_CALL(L"Message::ModifyRecipients")
        if (!list) {
            return MAPI_E_INVALID_PARAMETER;
        }
        if (!(flags & (MODRECIP_ADD | MODRECIP_MODIFY | MODRECIP_REMOVE))) {
            m_model.recipients.clear();
            flags = MODRECIP_ADD;
        }
        for (ULONG i = 0; i < list->cEntries; ++i) {
            const ADRENTRY& entry = list->aEntries[i];
            PropertyList row;
            for (ULONG v = 0; v < entry.cValues; ++v) {
                if (PROP_TYPE(entry.rgPropVals[v].ulPropTag) != PT_ERROR) {
                    FromPropValue(entry.rgPropVals[v], row);
                }
            }
            LONG rowId = GetLong(row, PR_ROWID, -1);
            auto existing = std::find_if(
                m_model.recipients.begin(), m_model.recipients.end(),
                [rowId](const PropertyList& r) { return GetLong(r, PR_ROWID, -2) == rowId; });
            if (flags & MODRECIP_ADD) {
                LONG next = 0;
                for (const PropertyList& r : m_model.recipients) {
                    next = std::max(next, GetLong(r, PR_ROWID, 0) + 1);
                }
                PutLong(row, PR_ROWID, next);
                m_model.recipients.push_back(std::move(row));
            } else if (existing == m_model.recipients.end()) {
                return MAPI_E_NOT_FOUND;
            } else if (flags & MODRECIP_MODIFY) {
                *existing = std::move(row);
            } else {
                m_model.recipients.erase(existing);
            }
        }
        return S_OK;
    } catch (...) {
        return CaughtError();
    }
    HRESULT STDMETHODCALLTYPE SubmitMessage(ULONG) override { return MAPI_E_NO_SUPPORT; }
    HRESULT STDMETHODCALLTYPE SetReadFlag(ULONG flags) override try {
        MAPISIM_CALL(L"Message::SetReadFlag")
        LONG messageFlags = GetLong(m_model.props, PR_MESSAGE_FLAGS, 0);
        messageFlags =
            flags & CLEAR_READ_FLAG ? messageFlags & ~MSGFLAG_READ : messageFlags | MSGFLAG_READ;
        PutLong(m_model.props, PR_MESSAGE_FLAGS, messageFlags);
        return S_OK;
    } catch (...) {
        return CaughtError();
    }

private:
    friend ComObject;
    // The caller of OpenIMsgOnIStg hears of the last Release before the message goes.
    void FinalRelease() noexcept {
        if (m_onRelease) {
            m_onRelease(m_callerData, this);
        }
        delete this;
    }

    PropertyHost Host() { return {m_model.props, *m_names, static_cast<IMessage*>(this)}; }

    std::vector<PropertyList>::iterator FindAttachment(ULONG number) {
        return std::find_if(m_model.attachments.begin(), m_model.attachments.end(),
                            [number](const PropertyList& a) {
                                return GetLong(a, PR_ATTACH_NUM, -1) == static_cast<LONG>(number);
                            });
    }

    // The recipients as one address list; named properties of recipients are not carried over.
    HRESULT CopyRecipients(IMessage* target) {
        if (m_model.recipients.empty()) {
            return S_OK;
        }
        LPADRLIST list = nullptr;
        HRESULT hr = MAPIAllocateBuffer(CbNewADRLIST(m_model.recipients.size()),
                                        reinterpret_cast<void**>(&list));
        if (FAILED(hr)) {
            return hr;
        }
        list->cEntries = 0;
        for (const PropertyList& recipient : m_model.recipients) {
            LPSPropValue values = nullptr;
            hr = MAPIAllocateBuffer(static_cast<ULONG>(sizeof(SPropValue) * (recipient.size() + 1)),
                                    reinterpret_cast<void**>(&values));
            if (FAILED(hr)) {
                break;
            }
            ADRENTRY& entry = list->aEntries[list->cEntries++];
            entry.ulReserved1 = 0;
            entry.cValues = 0;
            entry.rgPropVals = values;
            for (const auto& [id, prop] : recipient) {
                if (id < kFirstNamedId && id != PROP_ID(PR_ROWID)) {
                    ToPropValue(recipient, prop.tag, true, false, values, values[entry.cValues++]);
                }
            }
        }
        if (SUCCEEDED(hr)) {
            hr = target->ModifyRecipients(MODRECIP_ADD, list);
        }
        for (ULONG i = 0; i < list->cEntries; ++i) {
            MAPIFreeBuffer(list->aEntries[i].rgPropVals);
        }
        MAPIFreeBuffer(list);
        return hr;
    }

    std::shared_ptr<_MSGSESS> m_session;
    ComPtr<IStorage> m_storage;
    ULONG m_flags;
    MSGCALLRELEASE* m_onRelease = nullptr;
    ULONG m_callerData = 0;
    MessageModel m_model;
    std::vector<NamedProperty>* m_names = &m_model.names;
    ComPtr<IAttach> m_parentRef;  // keeps the parent attachment alive
    Attachment* m_parent = nullptr;
    LONG m_nextAttachment = 0;
};

Attachment::Attachment(Message* message, PropertyList props, std::shared_ptr<MessageModel> embedded)
    : m_messageRef(static_cast<IMessage*>(message)),
      m_message(message),
      m_props(std::move(props)),
      m_embedded(std::move(embedded)) {}

PropertyHost Attachment::Host() {
    return {m_props, m_message->Names(), static_cast<IAttach*>(this)};
}

HRESULT Attachment::OpenProperty(ULONG tag, LPCIID iid, ULONG, ULONG flags,
                                 LPUNKNOWN* unknown) try {
    MAPISIM_CALL(L"Attachment::OpenProperty")
    if (tag != PR_ATTACH_DATA_OBJ || !iid || !IsEqualIID(*iid, IID_IMessage)) {
        return Host().OpenProperty(tag, iid, flags, unknown);
    }
    if (!unknown) {
        return MAPI_E_INVALID_PARAMETER;
    }
    *unknown = nullptr;
    bool create = flags & MAPI_CREATE;
    if (!m_embedded && !create) {
        return MAPI_E_NOT_FOUND;
    }
    MessageModel model = create ? MessageModel{} : *m_embedded;
    *unknown = static_cast<IMessage*>(
        MakeComObject<Message>(std::move(model), &m_message->Names(), this).Detach());
    return S_OK;
} catch (...) {
    return CaughtError();
}

HRESULT CopyEmbedded(const MessageModel& model, std::vector<NamedProperty>& names,
                     IMAPIProp* dest) {
    ComPtr<IUnknown> unknown;
    HRESULT hr = dest->OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IMessage, 0, MAPI_CREATE | MAPI_MODIFY,
                                    unknown.put());
    if (FAILED(hr)) {
        return hr;
    }
    ComPtr<IMessage> target;
    hr = unknown->QueryInterface(IID_IMessage, reinterpret_cast<void**>(target.put()));
    if (FAILED(hr)) {
        return hr;
    }
    ComPtr<Message> source = MakeComObject<Message>(model, &names, nullptr);
    hr = source->CopyTo(0, nullptr, nullptr, 0, nullptr, &IID_IMessage, target.get(), 0, nullptr);
    return SUCCEEDED(hr) ? target->SaveChanges(KEEP_OPEN_READWRITE) : hr;
}

HRESULT Attachment::SaveChanges(ULONG) try {
    MAPISIM_CALL(L"Attachment::SaveChanges")
    std::vector<PropertyList>& attachments = m_message->Model().attachments;
    LONG number = GetLong(m_props, PR_ATTACH_NUM, -1);
    auto it = std::find_if(attachments.begin(), attachments.end(), [number](const PropertyList& a) {
        return GetLong(a, PR_ATTACH_NUM, -2) == number;
    });
    if (it == attachments.end()) {
        attachments.push_back(m_props);
    } else {
        *it = m_props;
    }
    if (m_embedded) {
        m_message->Model().embedded[number] = m_embedded;
    } else {
        m_message->Model().embedded.erase(number);
    }
    return S_OK;
} catch (...) {
    return CaughtError();
}

HRESULT Attachment::CopyTo(ULONG, LPCIID, LPSPropTagArray excluded, ULONG, LPMAPIPROGRESS, LPCIID,
                           LPVOID dest, ULONG, LPSPropProblemArray* problems) try {
    MAPISIM_CALL(L"Attachment::CopyTo")
    if (problems) {
        *problems = nullptr;
    }
    if (!dest) {
        return MAPI_E_INVALID_PARAMETER;
    }
    ComPtr<IMAPIProp> target;
    HRESULT hr = static_cast<IUnknown*>(dest)->QueryInterface(
        IID_IMAPIProp, reinterpret_cast<void**>(target.put()));
    if (FAILED(hr)) {
        return MAPI_E_INTERFACE_NOT_SUPPORTED;
    }
    std::set<ULONG> excludedIds{PROP_ID(PR_ATTACH_NUM)};
    for (ULONG i = 0; excluded && i < excluded->cValues; ++i) {
        excludedIds.insert(PROP_ID(excluded->aulPropTag[i]));
    }
    hr = CopyProperties(m_props, m_message->Names(), target.get(), excludedIds);
    return SUCCEEDED(hr) && m_embedded ? CopyEmbedded(*m_embedded, m_message->Names(), target.get())
                                       : hr;
} catch (...) {
    return CaughtError();
}

// A session handle is shared by the messages opened on it; closing it keeps the messages
// usable for Release only.
std::shared_ptr<_MSGSESS>* SessionOf(LPMSGSESS session) {
    return reinterpret_cast<std::shared_ptr<_MSGSESS>*>(session);
}

}  // namespace
}  // namespace mapisim

using namespace mapisim;

extern "C" {

SCODE STDAPICALLTYPE OpenIMsgSession(LPMALLOC, ULONG, LPMSGSESS* lppMsgSess) {
    MAPISIM_CALL(L"OpenIMsgSession")
    if (!lppMsgSess) {
        return MAPI_E_INVALID_PARAMETER;
    }
    try {
        // The handle owns a share of the session; CloseIMsgSession takes it back.
        auto handle = std::make_unique<std::shared_ptr<_MSGSESS>>(std::make_shared<_MSGSESS>());
        *lppMsgSess = reinterpret_cast<LPMSGSESS>(handle.release());
    } catch (...) {
        *lppMsgSess = nullptr;
        return MAPI_E_NOT_ENOUGH_MEMORY;
    }
    ++g_liveSessions;
    return S_OK;
}

// The messages opened on the session can no longer be saved.
void STDAPICALLTYPE CloseIMsgSession(LPMSGSESS lpMsgSess) {
    if (!lpMsgSess) {
        return;
    }
    std::unique_ptr<std::shared_ptr<_MSGSESS>> handle(SessionOf(lpMsgSess));
    (*handle)->open = false;
    --g_liveSessions;
}

SCODE STDAPICALLTYPE OpenIMsgOnIStg(LPMSGSESS lpMsgSess, LPALLOCATEBUFFER, LPALLOCATEMORE,
                                    LPFREEBUFFER, LPMALLOC, LPVOID, LPSTORAGE lpStg,
                                    MSGCALLRELEASE* lpfMsgCallRelease, ULONG ulCallerData,
                                    ULONG ulFlags, LPMESSAGE* lppMsg) {
    MAPISIM_CALL(L"OpenIMsgOnIStg")
    if (!lppMsg) {
        return MAPI_E_INVALID_PARAMETER;
    }
    *lppMsg = nullptr;
    if (!lpMsgSess || !lpStg) {
        return MAPI_E_INVALID_PARAMETER;
    }
    try {
        ComPtr<Message> message = MakeComObject<Message>(*SessionOf(lpMsgSess), lpStg, ulFlags);
        HRESULT hr = message->Load();
        if (FAILED(hr)) {
            return hr;
        }
        message->OnRelease(lpfMsgCallRelease, ulCallerData);
        *lppMsg = message.Detach();
        return S_OK;
    } catch (...) {
        return CaughtError();
    }
}

ULONG STDAPICALLTYPE MapiSimLiveSessions() { return g_liveSessions; }

}  // extern "C"
