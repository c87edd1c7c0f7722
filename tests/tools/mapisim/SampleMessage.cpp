#include "tools/mapisim/SampleMessage.h"

#include <imessage.h>
#include <mapitags.h>
#include <mapiutil.h>
#include <mapix.h>

#include "common/ComPtr.h"

namespace sample {
namespace {

constexpr CLSID kClsidMailMessage = {0x00020D0B, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
constexpr IID kIidMessage = {0x00020307, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
constexpr GUID kPsPublicStrings = {0x00020329, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};

SPropValue Text(ULONG tag, const wchar_t* text) {
    SPropValue v{};
    v.ulPropTag = tag;
    v.Value.lpszW = const_cast<LPWSTR>(text);
    return v;
}

SPropValue Long(ULONG tag, LONG value) {
    SPropValue v{};
    v.ulPropTag = tag;
    v.Value.l = value;
    return v;
}

SPropValue Binary(ULONG tag, const void* bytes, ULONG count) {
    SPropValue v{};
    v.ulPropTag = tag;
    v.Value.bin.cb = count;
    v.Value.bin.lpb = static_cast<LPBYTE>(const_cast<void*>(bytes));
    return v;
}

// The two named properties' ids, created on the message.
HRESULT NamedTags(IMessage* message, ULONG* number, ULONG* string) {
    GUID common = kPsetidCommon, strings = kPsPublicStrings;
    MAPINAMEID byNumber{&common, MNID_ID, {}}, byName{&strings, MNID_STRING, {}};
    byNumber.Kind.lID = kNamedId;
    byName.Kind.lpwstrName = const_cast<LPWSTR>(kStringName);
    LPMAPINAMEID names[] = {&byNumber, &byName};
    LPSPropTagArray tags = nullptr;
    HRESULT hr = message->GetIDsFromNames(2, names, MAPI_CREATE, &tags);
    if (hr == S_OK) {
        *number = CHANGE_PROP_TYPE(tags->aulPropTag[0], PT_LONG);
        *string = CHANGE_PROP_TYPE(tags->aulPropTag[1], PT_UNICODE);
    }
    MAPIFreeBuffer(tags);
    return hr == S_OK ? S_OK : E_FAIL;
}

HRESULT AddRecipients(IMessage* message) {
    struct Row {
        const wchar_t* name;
        const wchar_t* address;
        LONG type;
    };
    const Row rows[] = {{kToName, kToAddress, MAPI_TO}, {kCcName, kCcAddress, MAPI_CC}};
    LPADRLIST list = nullptr;
    HRESULT hr = MAPIAllocateBuffer(CbNewADRLIST(2), reinterpret_cast<void**>(&list));
    if (FAILED(hr)) {
        return hr;
    }
    list->cEntries = 0;
    for (const Row& row : rows) {
        LPSPropValue values = nullptr;
        hr = MAPIAllocateBuffer(5 * sizeof(SPropValue), reinterpret_cast<void**>(&values));
        if (FAILED(hr)) {
            break;
        }
        values[0] = Text(PR_DISPLAY_NAME_W, row.name);
        values[1] = Text(PR_EMAIL_ADDRESS_W, row.address);
        values[2] = Text(PR_ADDRTYPE_W, L"SMTP");
        values[3] = Text(PROP_TAG(PT_UNICODE, 0x39FE), row.address);  // PR_SMTP_ADDRESS
        values[4] = Long(PR_RECIPIENT_TYPE, row.type);
        list->aEntries[list->cEntries++] = {0, 5, values};
    }
    if (SUCCEEDED(hr)) {
        hr = message->ModifyRecipients(MODRECIP_ADD, list);
    }
    for (ULONG i = 0; i < list->cEntries; ++i) {
        MAPIFreeBuffer(list->aEntries[i].rgPropVals);
    }
    MAPIFreeBuffer(list);
    return hr;
}

HRESULT AddAttachment(IMessage* message) {
    ComPtr<IAttach> attach;
    ULONG number = 0;
    HRESULT hr = message->CreateAttach(nullptr, 0, &number, attach.put());
    if (FAILED(hr)) {
        return hr;
    }
    SPropValue props[] = {
        Long(PR_ATTACH_METHOD, ATTACH_BY_VALUE),
        Text(PR_ATTACH_LONG_FILENAME_W, kAttachmentName),
        Text(PR_ATTACH_FILENAME_W, kAttachmentName),
        Text(PR_DISPLAY_NAME_W, kAttachmentName),
        Text(PR_ATTACH_MIME_TAG_W, L"text/plain"),
        Binary(PR_ATTACH_DATA_BIN, kAttachmentData, sizeof(kAttachmentData) - 1),
    };
    hr = attach->SetProps(ARRAYSIZE(props), props, nullptr);
    return SUCCEEDED(hr) ? attach->SaveChanges(KEEP_OPEN_READWRITE) : hr;
}

HRESULT AddEmbeddedMessage(IMessage* message, ULONG numberTag) {
    ComPtr<IAttach> attach;
    ULONG number = 0;
    HRESULT hr = message->CreateAttach(nullptr, 0, &number, attach.put());
    if (FAILED(hr)) {
        return hr;
    }
    SPropValue props[] = {Long(PR_ATTACH_METHOD, ATTACH_EMBEDDED_MSG),
                          Text(PR_DISPLAY_NAME_W, kEmbeddedSubject)};
    hr = attach->SetProps(ARRAYSIZE(props), props, nullptr);
    ComPtr<IMessage> embedded;
    if (SUCCEEDED(hr)) {
        hr = attach->OpenProperty(PR_ATTACH_DATA_OBJ, &kIidMessage, 0, MAPI_CREATE | MAPI_MODIFY,
                                  reinterpret_cast<LPUNKNOWN*>(embedded.put()));
    }
    if (FAILED(hr)) {
        return hr;
    }
    SPropValue inner[] = {
        Text(PR_MESSAGE_CLASS_W, L"IPM.Note"), Text(PR_SUBJECT_W, kEmbeddedSubject),
        Text(PR_SENDER_NAME_W, kToName),       Text(PR_SENDER_EMAIL_ADDRESS_W, kToAddress),
        Long(numberTag, kEmbeddedNamedValue),
    };
    hr = embedded->SetProps(ARRAYSIZE(inner), inner, nullptr);
    if (SUCCEEDED(hr)) {
        hr = embedded->SaveChanges(KEEP_OPEN_READWRITE);
    }
    return SUCCEEDED(hr) ? attach->SaveChanges(KEEP_OPEN_READWRITE) : hr;
}

HRESULT Fill(IMessage* message) {
    ULONG numberTag = 0, stringTag = 0;
    HRESULT hr = NamedTags(message, &numberTag, &stringTag);
    if (FAILED(hr)) {
        return hr;
    }
    static const BYTE entryId[] = {0x00, 0x00, 0x00, 0x00, 0xDC, 0xA7, 0x40, 0xC8};
    std::wstring body = LongBody();
    SPropValue props[] = {
        Text(PR_MESSAGE_CLASS_W, L"IPM.Note"),
        Text(PR_SUBJECT_W, kSubject),
        Text(PR_SENDER_NAME_W, kSenderName),
        Text(PR_SENDER_EMAIL_ADDRESS_W, kSenderAddress),
        Text(PR_SENDER_ADDRTYPE_W, L"SMTP"),
        Text(PR_DISPLAY_TO_W, kToName),
        Text(PR_DISPLAY_CC_W, kCcName),
        Text(PR_BODY_W, body.c_str()),
        Binary(PR_SENDER_ENTRYID, entryId, sizeof(entryId)),
        Long(PR_IMPORTANCE, IMPORTANCE_HIGH),
        Long(numberTag, kNamedValue),
        Text(stringTag, kStringNamedValue),
        {},
        {},
        {},
        {},
        {},
    };
    props[12].ulPropTag = PR_MESSAGE_DELIVERY_TIME;
    props[12].Value.li.QuadPart = static_cast<LONGLONG>(kDeliveryTime);
    props[13].ulPropTag = PR_READ_RECEIPT_REQUESTED;
    props[13].Value.b = TRUE;
    props[14].ulPropTag = PR_CONVERSATION_TOPIC_A;
    props[14].Value.lpszA = const_cast<LPSTR>("Angebot");
    props[15].ulPropTag = kCategoriesTag;
    props[15].Value.MVszW = {ARRAYSIZE(kCategories), const_cast<LPWSTR*>(kCategories)};
    props[16].ulPropTag = kNumbersTag;
    props[16].Value.MVl = {ARRAYSIZE(kNumbers), const_cast<LONG*>(kNumbers)};
    hr = message->SetProps(ARRAYSIZE(props), props, nullptr);
    if (SUCCEEDED(hr)) {
        hr = AddRecipients(message);
    }
    if (SUCCEEDED(hr)) {
        hr = AddAttachment(message);
    }
    if (SUCCEEDED(hr)) {
        hr = AddEmbeddedMessage(message, numberTag);
    }
    return hr;
}

}  // namespace

std::wstring LongBody() {
    std::wstring body;
    while (body.size() < 40000) {
        body += L"Sehr geehrte Damen und Herren, anbei das Angebot. ";
    }
    return body;
}

HRESULT WriteSampleMessage(const std::wstring& path) {
    ComPtr<IStorage> storage;
    HRESULT hr = StgCreateDocfile(path.c_str(), STGM_TRANSACTED | STGM_CREATE | STGM_READWRITE, 0,
                                  storage.put());
    if (FAILED(hr)) {
        return hr;
    }
    LPMALLOC malloc = MAPIGetDefaultMalloc();
    LPMSGSESS session = nullptr;
    hr = OpenIMsgSession(malloc, 0, &session);
    if (FAILED(hr)) {
        return hr;
    }
    {
        ComPtr<IMessage> message;
        hr = OpenIMsgOnIStg(session, MAPIAllocateBuffer, MAPIAllocateMore, MAPIFreeBuffer, malloc,
                            nullptr, storage.get(), nullptr, 0, 0, message.put());
        if (SUCCEEDED(hr)) {
            hr = WriteClassStg(storage.get(), kClsidMailMessage);
        }
        if (SUCCEEDED(hr)) {
            hr = Fill(message.get());
        }
        if (SUCCEEDED(hr)) {
            hr = message->SaveChanges(KEEP_OPEN_READWRITE);
        }
        if (SUCCEEDED(hr)) {
            hr = storage->Commit(STGC_DEFAULT);
        }
    }
    CloseIMsgSession(session);
    return hr;
}

}  // namespace sample
