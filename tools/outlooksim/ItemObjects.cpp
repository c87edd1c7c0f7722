#include "outlooksim/ItemObjects.h"

#include <imessage.h>
#include <mapitags.h>
#include <mapiutil.h>

#include "common/UniqueResource.h"
#include "common/Variant.h"

namespace outlooksim {

namespace {

using Args = FakeDispatch::Args;

// One row of a table, its values and the row set freed together.
struct RowsFree {
    void operator()(SRowSet* rows) const noexcept {
        for (ULONG i = 0; i < rows->cRows; ++i) {
            MAPIFreeBuffer(rows->aRow[i].lpProps);
        }
        MAPIFreeBuffer(rows);
    }
};
using Rows = std::unique_ptr<SRowSet, RowsFree>;

std::vector<ULONG> AttachmentNumbers(IMessage* message) {
    std::vector<ULONG> numbers;
    ComPtr<IMAPITable> table;
    if (FAILED(message->GetAttachmentTable(MAPI_UNICODE, table.put()))) {
        return numbers;
    }
    for (;;) {
        LPSRowSet raw = nullptr;
        if (FAILED(table->QueryRows(1, 0, &raw)) || !raw) {
            break;
        }
        Rows rows(raw);
        if (rows->cRows == 0) {
            break;
        }
        const SRow& row = rows->aRow[0];
        for (ULONG i = 0; i < row.cValues; ++i) {
            if (row.lpProps[i].ulPropTag == PR_ATTACH_NUM) {
                numbers.push_back(static_cast<ULONG>(row.lpProps[i].Value.l));
            }
        }
    }
    return numbers;
}

ComPtr<FakeDispatch> BuildAttachment(IMessage* message, ULONG number, bool hiddenFlag) {
    ComPtr<IAttach> attach;
    ComPtr<FakeDispatch> object = FakeDispatch::Create();
    if (FAILED(message->OpenAttach(number, nullptr, 0, attach.put()))) {
        return object;
    }
    std::wstring name = TextOf(attach.get(), PR_ATTACH_LONG_FILENAME_W);
    if (name.empty()) {
        name = TextOf(attach.get(), PR_ATTACH_FILENAME_W);
    }
    const std::wstring display = TextOf(attach.get(), PR_DISPLAY_NAME_W);
    auto size = PropertyOf(attach.get(), PR_ATTACH_SIZE);
    auto hidden = PropertyOf(attach.get(), kPrAttachmentHidden);
    object->SetProperty(L"FileName", name.c_str())
        .SetProperty(L"DisplayName", (display.empty() ? name : display).c_str())
        .SetProperty(L"Size", Variant(static_cast<int32_t>(size ? size->Value.l : 0)));
    if (hiddenFlag) {
        object->SetProperty(L"Hidden", hidden && hidden->Value.b);
    }
    // The data is read at the time of the save, so a test may change it meanwhile.
    object->SetMethod(L"SaveAsFile", [attach](const Args& args, VARIANT*) {
        if (args.size() != 1) {
            return DISP_E_BADPARAMCOUNT;
        }
        if (args[0].vt != VT_BSTR || !args[0].bstrVal || !*args[0].bstrVal) {
            return DISP_E_TYPEMISMATCH;
        }
        return WriteBytes(BytesOf(attach.get(), PR_ATTACH_DATA_BIN), args[0].bstrVal);
    });
    return object;
}

}  // namespace

MapiBuffer<SPropValue> PropertyOf(IMAPIProp* object, ULONG tag) {
    SizedSPropTagArray(1, tags) = {1, {tag}};
    ULONG count = 0;
    LPSPropValue raw = nullptr;
    HRESULT hr =
        object->GetProps(reinterpret_cast<LPSPropTagArray>(&tags), MAPI_UNICODE, &count, &raw);
    MapiBuffer<SPropValue> value(raw);
    if (FAILED(hr) || count != 1 || PROP_TYPE(value->ulPropTag) == PT_ERROR) {
        return nullptr;
    }
    return value;
}

std::string BytesOf(IMAPIProp* object, ULONG tag) {
    if (auto value = PropertyOf(object, tag)) {
        if (PROP_TYPE(tag) == PT_BINARY) {
            return std::string(reinterpret_cast<const char*>(value->Value.bin.lpb),
                               value->Value.bin.cb);
        }
        const wchar_t* text = value->Value.lpszW;
        return std::string(reinterpret_cast<const char*>(text), wcslen(text) * sizeof(wchar_t));
    }
    ComPtr<IStream> stream;
    if (FAILED(object->OpenProperty(tag, &IID_IStream, 0, 0,
                                    reinterpret_cast<LPUNKNOWN*>(stream.put())))) {
        return std::string();
    }
    std::string bytes;
    char chunk[4096];
    ULONG read = 0;
    while (SUCCEEDED(stream->Read(chunk, sizeof chunk, &read)) && read > 0) {
        bytes.append(chunk, read);
    }
    return bytes;
}

std::wstring TextOf(IMAPIProp* object, ULONG tag) {
    const std::string bytes = BytesOf(object, tag);
    std::wstring text(reinterpret_cast<const wchar_t*>(bytes.data()),
                      bytes.size() / sizeof(wchar_t));
    if (!text.empty() && text.back() == L'\0') {
        text.pop_back();
    }
    return text;
}

DATE DateOf(IMAPIProp* object, ULONG tag) {
    SYSTEMTIME time{4501, 1, 0, 1, 0, 0, 0, 0};
    FILETIME local{};
    if (auto value = PropertyOf(object, tag)) {
        FileTimeToLocalFileTime(&value->Value.ft, &local);
        FileTimeToSystemTime(&local, &time);
    }
    DATE date = 0;
    SystemTimeToVariantTime(&time, &date);
    return date;
}

std::wstring HexOf(IMAPIProp* object, ULONG tag) {
    auto value = PropertyOf(object, tag);
    return value ? HexText(value->Value.bin.lpb, value->Value.bin.cb) : std::wstring();
}

HRESULT PutText(VARIANT* result, const std::wstring& text) {
    result->bstrVal = SysAllocStringLen(text.data(), static_cast<UINT>(text.size()));
    if (!result->bstrVal) {
        return E_OUTOFMEMORY;
    }
    result->vt = VT_BSTR;
    return S_OK;
}

HRESULT PutObject(VARIANT* result, IDispatch* object) {
    if (object) {
        object->AddRef();
    }
    result->vt = VT_DISPATCH;
    result->pdispVal = object;
    return S_OK;
}

bool IsOmitted(const VARIANT& value) {
    return value.vt == VT_ERROR && value.scode == DISP_E_PARAMNOTFOUND;
}

HRESULT WriteBytes(const std::string& bytes, const std::wstring& path) {
    UniqueFileHandle file(CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                      FILE_ATTRIBUTE_NORMAL, nullptr));
    DWORD written = 0;
    if (!file ||
        !WriteFile(file.get(), bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr)) {
        return HRESULT_FROM_WIN32(GetLastError());
    }
    return written == bytes.size() ? S_OK : E_FAIL;
}

HRESULT WriteMessageFile(IMessage* source, const std::wstring& path) {
    ComPtr<IStorage> storage;
    HRESULT hr = StgCreateDocfile(path.c_str(), STGM_TRANSACTED | STGM_CREATE | STGM_READWRITE, 0,
                                  storage.put());
    if (FAILED(hr)) {
        return hr;
    }
    MsgSession session = OpenMsgSession();
    if (!session) {
        return MAPI_E_CALL_FAILED;
    }
    ComPtr<IMessage> target;
    hr =
        OpenIMsgOnIStg(session.get(), MAPIAllocateBuffer, MAPIAllocateMore, MAPIFreeBuffer,
                       MAPIGetDefaultMalloc(), nullptr, storage.get(), nullptr, 0, 0, target.put());
    if (SUCCEEDED(hr)) {
        hr = WriteClassStg(storage.get(), kClsidMailMessage);
    }
    if (SUCCEEDED(hr)) {
        hr =
            source->CopyTo(0, nullptr, nullptr, 0, nullptr, &kIidMessage, target.get(), 0, nullptr);
    }
    if (SUCCEEDED(hr)) {
        hr = target->SaveChanges(KEEP_OPEN_READWRITE);
    }
    if (SUCCEEDED(hr)) {
        hr = storage->Commit(STGC_DEFAULT);
    }
    return hr;
}

void AttachmentObjects::AddRefCounts(RefCountList& counts, const std::wstring& label) const {
    if (!collection) {
        return;
    }
    counts.emplace_back(label + L" attachments", collection->RefCount());
    for (size_t i = 0; i < attachments->size(); ++i) {
        counts.emplace_back(label + L" attachment " + std::to_wstring(i + 1),
                            (*attachments)[i]->RefCount());
    }
}

AttachmentObjects BuildAttachments(IMessage* message, bool hiddenFlag) {
    AttachmentObjects objects;
    for (ULONG number : AttachmentNumbers(message)) {
        objects.attachments->push_back(BuildAttachment(message, number, hiddenFlag));
    }
    objects.collection = FakeDispatch::Create();
    auto attachments = objects.attachments;
    const auto count = static_cast<int32_t>(attachments->size());
    objects.collection->SetProperty(L"Count", Variant(count))
        .SetMethod(L"Item", [attachments](const Args& args, VARIANT* result) {
            size_t index = 0;
            const HRESULT hr = ItemIndex(args, attachments->size(), &index);
            return FAILED(hr) ? hr : PutObject(result, (*attachments)[index].get());
        });
    return objects;
}

void DefineAttachments(FakeDispatch& dispatch, const ComPtr<IMessage>& message,
                       const std::shared_ptr<AttachmentObjects>& attachments, bool hiddenFlag) {
    dispatch.SetComputedProperty(
        L"Attachments",
        [message, attachments, hiddenFlag](const FakeDispatch::Args& args, VARIANT* result) {
            if (!args.empty()) {
                return DISP_E_BADPARAMCOUNT;
            }
            if (!attachments->collection) {
                *attachments = BuildAttachments(message.get(), hiddenFlag);
            }
            return PutObject(result, attachments->collection.get());
        });
}

void DefineMessageValues(FakeDispatch& dispatch, const ComPtr<IMessage>& message) {
    using Args = FakeDispatch::Args;
    ComPtr<IMessage> held(message);
    const std::pair<const wchar_t*, ULONG> texts[] = {
        {L"MessageClass", PR_MESSAGE_CLASS_W},
        {L"Subject", PR_SUBJECT_W},
        {L"Body", PR_BODY_W},
        {L"To", PR_DISPLAY_TO_W},
        {L"CC", PR_DISPLAY_CC_W},
        {L"BCC", PR_DISPLAY_BCC_W},
        {L"SenderName", PR_SENDER_NAME_W},
        {L"SenderEmailAddress", PR_SENDER_EMAIL_ADDRESS_W},
        {L"SentOnBehalfOfName", PR_SENT_REPRESENTING_NAME_W},
    };
    for (const auto& [name, tag] : texts) {
        dispatch.SetComputedProperty(name, [held, tag](const Args& args, VARIANT* result) {
            return args.empty() ? PutText(result, TextOf(held.get(), tag)) : DISP_E_BADPARAMCOUNT;
        });
    }
    const std::pair<const wchar_t*, ULONG> dates[] = {{L"ReceivedTime", PR_MESSAGE_DELIVERY_TIME},
                                                      {L"SentOn", PR_CLIENT_SUBMIT_TIME}};
    for (const auto& [name, tag] : dates) {
        dispatch.SetComputedProperty(name, [held, tag](const Args& args, VARIANT* result) {
            if (!args.empty()) {
                return DISP_E_BADPARAMCOUNT;
            }
            result->vt = VT_DATE;
            result->date = DateOf(held.get(), tag);
            return S_OK;
        });
    }
    dispatch.SetComputedProperty(L"Importance", [held](const Args& args, VARIANT* result) {
        if (!args.empty()) {
            return DISP_E_BADPARAMCOUNT;
        }
        auto value = PropertyOf(held.get(), PR_IMPORTANCE);
        result->vt = VT_I4;
        result->lVal = value ? value->Value.l : IMPORTANCE_NORMAL;
        return S_OK;
    });
}

}  // namespace outlooksim
