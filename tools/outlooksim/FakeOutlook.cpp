#include "outlooksim/FakeOutlook.h"

#include <imessage.h>
#include <mapitags.h>
#include <mapiutil.h>

#include <stdexcept>

#include "common/UniqueResource.h"
#include "common/Variant.h"
#include "outlooksim/ItemText.h"
#include "outlooksim/MapiHelpers.h"
#include "outlooksim/MapiSession.h"

namespace {

using outlooksim::MapiBuffer;
using Args = FakeDispatch::Args;

constexpr IID OutlookInterface(DWORD first) {
    return {first, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
}

constexpr IID kIidApplication = OutlookInterface(0x00063001);
constexpr IID kIidNameSpace = OutlookInterface(0x00063002);

// Which Outlook item interface a message class is reached through. "IPM.Note" stands for every
// class of the mail family, "IPM.Schedule.Meeting" for the meeting requests and responses.
struct ItemInterface {
    const wchar_t* messageClass;
    bool family;
    DWORD iid;
};
constexpr ItemInterface kItemInterfaces[] = {
    {L"IPM.Note", true, 0x00063034},                  // _MailItem
    {L"IPM.Contact", false, 0x00063021},              // _ContactItem
    {L"IPM.StickyNote", false, 0x00063025},           // _NoteItem
    {L"IPM.Activity", false, 0x00063022},             // _JournalItem
    {L"IPM.Appointment", false, 0x00063033},          // _AppointmentItem
    {L"IPM.Schedule.Meeting", true, 0x00063062},      // _MeetingItem
    {L"IPM.Task", false, 0x00063035},                 // _TaskItem
    {L"IPM.TaskRequest", false, 0x00063036},          // _TaskRequestItem
    {L"IPM.TaskRequest.Accept", false, 0x00063038},   // _TaskRequestAcceptItem
    {L"IPM.TaskRequest.Decline", false, 0x00063039},  // _TaskRequestDeclineItem
    {L"IPM.TaskRequest.Update", false, 0x00063037},   // _TaskRequestUpdateItem
};

std::optional<IID> InterfaceOf(const std::wstring& messageClass) {
    for (const ItemInterface& kind : kItemInterfaces) {
        const std::wstring name = kind.messageClass;
        if (_wcsicmp(messageClass.c_str(), name.c_str()) == 0 ||
            (kind.family && messageClass.size() > name.size() &&
             _wcsnicmp(messageClass.c_str(), (name + L".").c_str(), name.size() + 1) == 0)) {
            return OutlookInterface(kind.iid);
        }
    }
    return std::nullopt;
}

// One property of the message; null when it is missing or too long for GetProps.
MapiBuffer<SPropValue> PropertyOf(IMessage* message, ULONG tag) {
    SizedSPropTagArray(1, tags) = {1, {tag}};
    ULONG count = 0;
    LPSPropValue raw = nullptr;
    HRESULT hr =
        message->GetProps(reinterpret_cast<LPSPropTagArray>(&tags), MAPI_UNICODE, &count, &raw);
    MapiBuffer<SPropValue> value(raw);
    if (FAILED(hr) || count != 1 || PROP_TYPE(value->ulPropTag) == PT_ERROR) {
        return nullptr;
    }
    return value;
}

// A text property, read through a stream when it is too long for GetProps.
std::wstring TextOf(IMessage* message, ULONG tag) {
    if (auto value = PropertyOf(message, tag)) {
        return value->Value.lpszW;
    }
    ComPtr<IStream> stream;
    if (FAILED(message->OpenProperty(tag, &IID_IStream, 0, 0,
                                     reinterpret_cast<LPUNKNOWN*>(stream.put())))) {
        return std::wstring();
    }
    std::wstring text;
    wchar_t chunk[2048];
    ULONG read = 0;
    while (SUCCEEDED(stream->Read(chunk, sizeof chunk, &read)) && read > 0) {
        text.append(chunk, read / sizeof(wchar_t));
    }
    if (!text.empty() && text.back() == L'\0') {
        text.pop_back();
    }
    return text;
}

// Outlook's dates are local times; a date it does not have is 1 January 4501.
DATE DateOf(IMessage* message, ULONG tag) {
    SYSTEMTIME time{4501, 1, 0, 1, 0, 0, 0, 0};
    FILETIME local{};
    if (auto value = PropertyOf(message, tag)) {
        FileTimeToLocalFileTime(&value->Value.ft, &local);
        FileTimeToSystemTime(&local, &time);
    }
    DATE date = 0;
    SystemTimeToVariantTime(&time, &date);
    return date;
}

HRESULT PutText(VARIANT* result, const std::wstring& text) {
    result->bstrVal = SysAllocStringLen(text.data(), static_cast<UINT>(text.size()));
    if (!result->bstrVal) {
        return E_OUTOFMEMORY;
    }
    result->vt = VT_BSTR;
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

// The message as a message file at `path`: a new compound file, a message on it, a copy of
// everything, saved and committed.
HRESULT WriteMessageFile(IMessage* source, const std::wstring& path) {
    ComPtr<IStorage> storage;
    HRESULT hr = StgCreateDocfile(path.c_str(), STGM_TRANSACTED | STGM_CREATE | STGM_READWRITE, 0,
                                  storage.put());
    if (FAILED(hr)) {
        return hr;
    }
    outlooksim::MsgSession session = outlooksim::OpenMsgSession();
    if (!session) {
        return MAPI_E_CALL_FAILED;
    }
    ComPtr<IMessage> target;
    hr =
        OpenIMsgOnIStg(session.get(), MAPIAllocateBuffer, MAPIAllocateMore, MAPIFreeBuffer,
                       MAPIGetDefaultMalloc(), nullptr, storage.get(), nullptr, 0, 0, target.put());
    if (SUCCEEDED(hr)) {
        hr = WriteClassStg(storage.get(), outlooksim::kClsidMailMessage);
    }
    if (SUCCEEDED(hr)) {
        hr = source->CopyTo(0, nullptr, nullptr, 0, nullptr, &outlooksim::kIidMessage, target.get(),
                            0, nullptr);
    }
    if (SUCCEEDED(hr)) {
        hr = target->SaveChanges(KEEP_OPEN_READWRITE);
    }
    if (SUCCEEDED(hr)) {
        hr = storage->Commit(STGC_DEFAULT);
    }
    return hr;
}

std::string ReadFileBytes(const std::wstring& path) {
    UniqueFileHandle file(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                                      OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) {
        throw std::runtime_error("FakeOutlook: cannot open " + outlooksim::Narrow(path, CP_UTF8));
    }
    std::string bytes;
    char chunk[4096];
    DWORD read = 0;
    while (ReadFile(file.get(), chunk, sizeof chunk, &read, nullptr) && read > 0) {
        bytes.append(chunk, read);
    }
    return bytes;
}

void ThrowIfFailed(HRESULT hr, const char* what) {
    if (FAILED(hr)) {
        char code[16];
        snprintf(code, sizeof code, "0x%08lX", static_cast<unsigned long>(hr));
        throw std::runtime_error(std::string("FakeOutlook: ") + what + " failed: " + code);
    }
}

}  // namespace

struct FakeOutlook::State {
    struct Item {
        ComPtr<ILockBytes> bytes;
        ComPtr<IStorage> storage;
        ComPtr<IMessage> message;
        ComPtr<FakeDispatch> dispatch;
    };

    // Declared first, closed last: the messages belong to it.
    outlooksim::MsgSession messageSession = outlooksim::OpenMsgSession();
    outlooksim::SimulatedSession mapiSession;
    ComPtr<FakeDispatch> application = FakeDispatch::Create();
    ComPtr<FakeDispatch> explorer = FakeDispatch::Create();
    ComPtr<FakeDispatch> selection = FakeDispatch::Create();
    ComPtr<FakeDispatch> nameSpace = FakeDispatch::Create();
    // Shared with the selection's handlers.
    std::shared_ptr<std::vector<ComPtr<FakeDispatch>>> selected =
        std::make_shared<std::vector<ComPtr<FakeDispatch>>>();
    std::vector<Item> items;
    ULONG nextEntryId = 1;

    FakeDispatch& Add(Item item, std::shared_ptr<const std::string> fileBytes);
};

FakeOutlook::FakeOutlook(std::wstring version) : m_state(std::make_unique<State>()) {
    State& state = *m_state;
    if (!state.messageSession) {
        throw std::runtime_error(
            "FakeOutlook: no message session (is the simulated mapi32.dll "
            "beside the program?)");
    }
    ComPtr<FakeDispatch> nameSpace = state.nameSpace;
    state.application->AnswerInterface(kIidApplication)
        .SetProperty(L"Name", L"Outlook")
        .SetProperty(L"Version", version.c_str())
        .SetProperty(L"Session", static_cast<IDispatch*>(nameSpace.get()));
    // The handlers hold what they hand out; nothing refers back, so there is no cycle.
    ComPtr<FakeDispatch> explorer = state.explorer;
    state.application->SetMethod(L"ActiveExplorer", [explorer](const Args& args, VARIANT* result) {
        if (!args.empty()) {
            return DISP_E_BADPARAMCOUNT;
        }
        explorer->AddRef();
        result->vt = VT_DISPATCH;
        result->pdispVal = explorer.get();
        return S_OK;
    });
    state.application->SetMethod(L"GetNamespace", [nameSpace](const Args& args, VARIANT* result) {
        if (args.size() != 1) {
            return DISP_E_BADPARAMCOUNT;
        }
        if (args[0].vt != VT_BSTR || !args[0].bstrVal || _wcsicmp(args[0].bstrVal, L"MAPI") != 0) {
            return E_INVALIDARG;
        }
        nameSpace->AddRef();
        result->vt = VT_DISPATCH;
        result->pdispVal = nameSpace.get();
        return S_OK;
    });
    state.explorer->SetProperty(L"Selection", static_cast<IDispatch*>(state.selection.get()));

    auto selected = state.selected;
    state.selection->SetComputedProperty(L"Count", [selected](const Args& args, VARIANT* result) {
        if (!args.empty()) {
            return DISP_E_BADPARAMCOUNT;
        }
        result->vt = VT_I4;
        result->lVal = static_cast<LONG>(selected->size());
        return S_OK;
    });
    state.selection->SetMethod(L"Item", [selected](const Args& args, VARIANT* result) {
        if (args.size() != 1) {
            return DISP_E_BADPARAMCOUNT;
        }
        Variant index;
        if (FAILED(::VariantChangeType(&index, const_cast<Variant*>(&args[0]), 0, VT_I4))) {
            return DISP_E_TYPEMISMATCH;
        }
        if (index.lVal < 1 || static_cast<size_t>(index.lVal) > selected->size()) {
            return DISP_E_BADINDEX;
        }
        FakeDispatch* item = (*selected)[static_cast<size_t>(index.lVal) - 1].get();
        item->AddRef();
        result->vt = VT_DISPATCH;
        result->pdispVal = item;
        return S_OK;
    });

    ComPtr<IMAPISession> session = state.mapiSession.Share();
    state.nameSpace->AnswerInterface(kIidNameSpace)
        .SetProperty(L"Type", L"MAPI")
        .SetComputedProperty(L"MAPIOBJECT", [session](const Args& args, VARIANT* result) {
            if (!args.empty()) {
                return DISP_E_BADPARAMCOUNT;
            }
            session->AddRef();
            result->vt = VT_UNKNOWN;
            result->punkVal = session.get();
            return S_OK;
        });
}

FakeOutlook::~FakeOutlook() = default;

FakeDispatch& FakeOutlook::Application() const { return *m_state->application.get(); }
FakeDispatch& FakeOutlook::Explorer() const { return *m_state->explorer.get(); }
FakeDispatch& FakeOutlook::Selection() const { return *m_state->selection.get(); }
FakeDispatch& FakeOutlook::Namespace() const { return *m_state->nameSpace.get(); }

FakeDispatch& FakeOutlook::SelectItemText(const std::wstring& text) {
    const outlooksim::ItemDescription description = outlooksim::ParseItemText(text);
    State::Item item;
    ThrowIfFailed(CreateILockBytesOnHGlobal(nullptr, TRUE, item.bytes.put()), "CreateILockBytes");
    ThrowIfFailed(StgCreateDocfileOnILockBytes(item.bytes.get(),
                                               STGM_CREATE | STGM_READWRITE | STGM_SHARE_EXCLUSIVE,
                                               0, item.storage.put()),
                  "StgCreateDocfileOnILockBytes");
    ThrowIfFailed(OpenIMsgOnIStg(m_state->messageSession.get(), MAPIAllocateBuffer,
                                 MAPIAllocateMore, MAPIFreeBuffer, MAPIGetDefaultMalloc(), nullptr,
                                 item.storage.get(), nullptr, 0, 0, item.message.put()),
                  "OpenIMsgOnIStg");
    ThrowIfFailed(WriteClassStg(item.storage.get(), outlooksim::kClsidMailMessage),
                  "WriteClassStg");
    ThrowIfFailed(outlooksim::WriteItem(description, item.message.get()), "writing the item");
    for (const outlooksim::AddressBookEntry& entry : description.addressBook) {
        m_state->mapiSession.AddEntry(entry);
    }
    return m_state->Add(std::move(item), nullptr);
}

FakeDispatch& FakeOutlook::SelectMessageFile(const std::wstring& path) {
    auto fileBytes = std::make_shared<const std::string>(ReadFileBytes(path));
    State::Item item;
    HGLOBAL memory = GlobalAlloc(GMEM_MOVEABLE, fileBytes->size());
    if (!memory) {
        throw std::bad_alloc();
    }
    if (void* bytes = GlobalLock(memory)) {
        memcpy(bytes, fileBytes->data(), fileBytes->size());
        GlobalUnlock(memory);
    }
    HRESULT hr = CreateILockBytesOnHGlobal(memory, TRUE, item.bytes.put());
    if (FAILED(hr)) {
        GlobalFree(memory);
    }
    ThrowIfFailed(hr, "CreateILockBytesOnHGlobal");
    ThrowIfFailed(
        StgOpenStorageOnILockBytes(item.bytes.get(), nullptr, STGM_READWRITE | STGM_SHARE_EXCLUSIVE,
                                   nullptr, 0, item.storage.put()),
        "StgOpenStorageOnILockBytes (not a message file?)");
    ThrowIfFailed(OpenIMsgOnIStg(m_state->messageSession.get(), MAPIAllocateBuffer,
                                 MAPIAllocateMore, MAPIFreeBuffer, MAPIGetDefaultMalloc(), nullptr,
                                 item.storage.get(), nullptr, 0, 0, item.message.put()),
                  "OpenIMsgOnIStg");
    return m_state->Add(std::move(item), std::move(fileBytes));
}

// Gives the message the identifiers a store would, saves it, and builds its automation object.
FakeDispatch& FakeOutlook::State::Add(Item item, std::shared_ptr<const std::string> fileBytes) {
    IMessage* message = item.message.get();
    if (!PropertyOf(message, PR_ENTRYID)) {
        // A store's long-term entry id: flags, the store's provider id, the item's number.
        BYTE entryId[24] = {0,    0,    0,    0,    0x9E, 0x6A, 0x3D, 0x51, 0x7C, 0x42,
                            0x4B, 0x1F, 0xA8, 0x55, 0x2B, 0x90, 0x31, 0xD4, 0x6E, 0x07};
        const ULONG number = nextEntryId++;
        memcpy(entryId + 20, &number, sizeof number);
        static const BYTE storeId[] = {0,    0,    0,    0,    0x9E, 0x6A, 0x3D, 0x51,
                                       0x7C, 0x42, 0x4B, 0x1F, 0xA8, 0x55, 0x2B, 0x90,
                                       0x31, 0xD4, 0x6E, 0x07, 'p',  's',  't',  0};
        SPropValue ids[2] = {};
        ids[0].ulPropTag = PR_ENTRYID;
        ids[0].Value.bin = {sizeof entryId, entryId};
        ids[1].ulPropTag = PR_STORE_ENTRYID;
        ids[1].Value.bin = {sizeof storeId, const_cast<BYTE*>(storeId)};
        ThrowIfFailed(message->SetProps(2, ids, nullptr), "setting the entry ids");
    }
    if (!fileBytes) {
        ThrowIfFailed(message->SaveChanges(KEEP_OPEN_READWRITE), "saving the item");
    }
    STATSTG stat{};
    LONG size = fileBytes ? static_cast<LONG>(fileBytes->size()) : 0;
    if (!fileBytes && SUCCEEDED(item.bytes->Stat(&stat, STATFLAG_NONAME))) {
        size = static_cast<LONG>(stat.cbSize.QuadPart);
    }

    item.dispatch = FakeDispatch::Create();
    FakeDispatch& dispatch = *item.dispatch.get();
    // The handlers hold the message, so an item somebody keeps stays usable.
    ComPtr<IMessage> held(message);
    const std::wstring messageClass = TextOf(message, PR_MESSAGE_CLASS_W);
    if (auto iid = InterfaceOf(messageClass)) {
        dispatch.AnswerInterface(*iid);
    }
    const std::pair<const wchar_t*, ULONG> texts[] = {
        {L"MessageClass", PR_MESSAGE_CLASS_W},
        {L"Subject", PR_SUBJECT_W},
        {L"Body", PR_BODY_W},
        {L"To", PR_DISPLAY_TO_W},
        {L"CC", PR_DISPLAY_CC_W},
        {L"BCC", PR_DISPLAY_BCC_W},
        {L"SenderName", PR_SENDER_NAME_W},
        {L"SenderEmailAddress", PR_SENDER_EMAIL_ADDRESS_W},
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
    dispatch.SetComputedProperty(L"EntryID", [held](const Args& args, VARIANT* result) {
        if (!args.empty()) {
            return DISP_E_BADPARAMCOUNT;
        }
        auto value = PropertyOf(held.get(), PR_ENTRYID);
        return PutText(result, value
                                   ? outlooksim::HexText(value->Value.bin.lpb, value->Value.bin.cb)
                                   : std::wstring());
    });
    dispatch.SetComputedProperty(L"Importance", [held](const Args& args, VARIANT* result) {
        if (!args.empty()) {
            return DISP_E_BADPARAMCOUNT;
        }
        auto value = PropertyOf(held.get(), PR_IMPORTANCE);
        result->vt = VT_I4;
        result->lVal = value ? value->Value.l : IMPORTANCE_NORMAL;
        return S_OK;
    });
    dispatch.SetComputedProperty(L"MAPIOBJECT", [held](const Args& args, VARIANT* result) {
        if (!args.empty()) {
            return DISP_E_BADPARAMCOUNT;
        }
        held->AddRef();
        result->vt = VT_UNKNOWN;
        result->punkVal = held.get();
        return S_OK;
    });
    dispatch.SetProperty(L"Size", Variant(static_cast<int32_t>(size)))
        .SetProperty(L"Session", static_cast<IDispatch*>(nameSpace.get()));
    // SaveAs(Path[, Type]): a message file, olMSG (3) or olMSGUnicode (9); other formats are not
    // modelled. An item read from a file writes that file's bytes again.
    dispatch.SetMethod(L"SaveAs", [held, fileBytes](const Args& args, VARIANT*) {
        if (args.empty() || args.size() > 2 || IsOmitted(args[0])) {
            return args.size() > 2 ? DISP_E_BADPARAMCOUNT : DISP_E_PARAMNOTFOUND;
        }
        if (args[0].vt != VT_BSTR || !args[0].bstrVal || !*args[0].bstrVal) {
            return DISP_E_TYPEMISMATCH;
        }
        if (args.size() == 2 && !IsOmitted(args[1])) {
            Variant type;
            if (FAILED(::VariantChangeType(&type, const_cast<Variant*>(&args[1]), 0, VT_I4))) {
                return DISP_E_TYPEMISMATCH;
            }
            if (type.lVal != 3 && type.lVal != 9) {
                return E_NOTIMPL;
            }
        }
        return fileBytes ? WriteBytes(*fileBytes, args[0].bstrVal)
                         : WriteMessageFile(held.get(), args[0].bstrVal);
    });

    selected->push_back(item.dispatch);
    items.push_back(std::move(item));
    return dispatch;
}

size_t FakeOutlook::ItemCount() const { return m_state->items.size(); }

FakeDispatch& FakeOutlook::Item(size_t index) const {
    return *m_state->items.at(index).dispatch.get();
}

IMessage* FakeOutlook::Message(size_t index) const {
    return m_state->items.at(index).message.get();
}

void FakeOutlook::AddAddressBookEntry(const std::vector<BYTE>& entryId,
                                      const std::wstring& displayName,
                                      const std::wstring& smtpAddress) {
    m_state->mapiSession.AddEntry(
        {entryId, displayName, smtpAddress, outlooksim::ExchangeAddressFor(smtpAddress)});
}

RefCountList FakeOutlook::RefCounts() const {
    const State& state = *m_state;
    RefCountList counts{{L"Application", state.application->RefCount()},
                        {L"Explorer", state.explorer->RefCount()},
                        {L"Selection", state.selection->RefCount()},
                        {L"Namespace", state.nameSpace->RefCount()}};
    for (size_t i = 0; i < state.items.size(); ++i) {
        counts.emplace_back(L"item " + std::to_wstring(i + 1), state.items[i].dispatch->RefCount());
    }
    for (auto& entry : state.mapiSession.RefCounts()) {
        counts.push_back(std::move(entry));
    }
    return counts;
}

ULONG FakeOutlook::LiveMapiObjects() const { return m_state->mapiSession.LiveObjects(); }
