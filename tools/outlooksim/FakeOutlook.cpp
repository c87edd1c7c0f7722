#include "outlooksim/FakeOutlook.h"

#include <imessage.h>
#include <mapitags.h>
#include <mapiutil.h>

#include <algorithm>
#include <memory>
#include <utility>
#include <stdexcept>

#include "common/UniqueResource.h"
#include "common/Variant.h"
#include "outlooksim/ItemObjects.h"
#include "outlooksim/ItemText.h"
#include "outlooksim/MapiHelpers.h"
#include "outlooksim/MapiSession.h"

namespace {

using namespace outlooksim;
using Args = FakeDispatch::Args;

constexpr IID OutlookInterface(DWORD first) {
    return {first, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
}

constexpr IID kIidApplication = OutlookInterface(0x00063001);
constexpr IID kIidNameSpace = OutlookInterface(0x00063002);

// The window events: ExplorersEvents, InspectorsEvents, ExplorerEvents(_10),
// InspectorEvents(_10), with NewExplorer/NewInspector and Close.
constexpr IID kExplorersEvents = OutlookInterface(0x00063078);
constexpr IID kInspectorsEvents = OutlookInterface(0x00063079);
constexpr IID kExplorerEvents = OutlookInterface(0x0006304F);
constexpr IID kExplorerEvents10 = OutlookInterface(0x0006300F);
constexpr IID kInspectorEvents = OutlookInterface(0x0006307D);
constexpr IID kInspectorEvents10 = OutlookInterface(0x0006302A);
constexpr DISPID kNewWindow = 0xF001;
constexpr DISPID kClose = 0xF008;

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

// A collection's Item(i), counted from 1.
template <class Object>
HRESULT ItemAt(const std::vector<ComPtr<Object>>& list, const Args& args, VARIANT* result) {
    size_t index = 0;
    const HRESULT hr = ItemIndex(args, list.size(), &index);
    return FAILED(hr) ? hr : PutObject(result, static_cast<IDispatch*>(list[index].get()));
}

// Count and Item(i) of a collection over the list `list` picks out of what `weak` holds; once
// that is gone, both fail E_UNEXPECTED.
template <class Held, class List>
void DefineListMembers(FakeDispatch& collection, std::weak_ptr<Held> weak, List list) {
    collection
        .SetComputedProperty(L"Count",
                             [weak, list](const Args& args, VARIANT* result) {
                                 auto held = weak.lock();
                                 if (!args.empty() || !held) {
                                     return args.empty() ? E_UNEXPECTED : DISP_E_BADPARAMCOUNT;
                                 }
                                 result->vt = VT_I4;
                                 result->lVal = static_cast<LONG>(list(*held).size());
                                 return S_OK;
                             })
        .SetMethod(L"Item", [weak, list](const Args& args, VARIANT* result) {
            auto held = weak.lock();
            return held ? ItemAt(list(*held), args, result) : E_UNEXPECTED;
        });
}

// An Outlook window: its automation object and its command bars.
struct OutlookWindow {
    ComPtr<FakeEventSource> object;
    std::unique_ptr<FakeCommandBars> bars;
};

// One kind of window: every one opened, and the collection listing the open ones.
struct WindowList {
    WindowList(const IID& collectionEvents, std::vector<IID> windowEvents)
        : events(std::move(windowEvents)),
          collection(MakeComObject<FakeEventSource>(std::vector<IID>{collectionEvents})),
          open(std::make_shared<std::vector<ComPtr<FakeEventSource>>>()) {
        DefineListMembers(
            collection->Properties(), std::weak_ptr(open),
            [](const std::vector<ComPtr<FakeEventSource>>& windows) -> const auto& {
                return windows;
            });
    }

    // A new window, prepared, listed and announced to the collection's sinks.
    template <class Prepare>
    FakeEventSource& Open(Prepare prepare) {
        OutlookWindow window{MakeComObject<FakeEventSource>(events),
                             std::make_unique<FakeCommandBars>()};
        window.object->Properties().SetProperty(
            L"CommandBars", static_cast<IDispatch*>(&window.bars->Collection()));
        prepare(*window.object.get());
        all.push_back(std::move(window));
        FakeEventSource& opened = *all.back().object.get();
        open->push_back(ComPtr<FakeEventSource>(&opened));
        VARIANT argument;
        argument.vt = VT_DISPATCH;
        argument.pdispVal = static_cast<IDispatch*>(&opened);
        collection->Fire(kNewWindow, {argument});
        return opened;
    }

    void Close(size_t index) {
        FakeEventSource* window = all.at(index).object.get();
        if (std::find_if(open->begin(), open->end(), [window](const auto& entry) {
                return entry.get() == window;
            }) == open->end()) {
            return;
        }
        window->Fire(kClose, {});
        std::erase_if(*open, [window](const auto& entry) { return entry.get() == window; });
    }

    std::vector<IID> events;
    ComPtr<FakeEventSource> collection;
    std::shared_ptr<std::vector<ComPtr<FakeEventSource>>> open;
    std::vector<OutlookWindow> all;
};

// The store all items live in, and the folder the explorer shows: its long-term entry ids.
constexpr BYTE kStoreId[] = {0,    0,    0,    0,    0x9E, 0x6A, 0x3D, 0x51, 0x7C, 0x42, 0x4B, 0x1F,
                             0xA8, 0x55, 0x2B, 0x90, 0x31, 0xD4, 0x6E, 0x07, 'p',  's',  't',  0};
constexpr BYTE kFolderId[] = {0,    0,    0,    0,    0x9E, 0x6A, 0x3D, 0x51,
                              0x7C, 0x42, 0x4B, 0x1F, 0xA8, 0x55, 0x2B, 0x90,
                              0x31, 0xD4, 0x6E, 0x07, 0x01, 0x00, 0x00, 0x80};

}  // namespace

struct FakeOutlook::State {
    struct Item {
        ComPtr<ILockBytes> bytes;
        ComPtr<IStorage> storage;
        ComPtr<IMessage> message;
        ComPtr<FakeDispatch> dispatch;
        // Built on the first read of the item's Attachments.
        std::shared_ptr<AttachmentObjects> attachments = std::make_shared<AttachmentObjects>();
    };
    // What the folder holds and what of it is selected, shared with the handlers that list or
    // delete items.
    struct Contents {
        std::vector<ComPtr<FakeDispatch>> folder;
        std::vector<ComPtr<FakeDispatch>> selected;

        void Remove(FakeDispatch* item) {
            for (auto* list : {&folder, &selected}) {
                std::erase_if(*list, [item](const auto& entry) { return entry.get() == item; });
            }
        }
    };

    // Declared first, closed last: the messages belong to it.
    MsgSession messageSession = OpenMsgSession();
    SimulatedSession mapiSession;
    ComPtr<FakeDispatch> application = FakeDispatch::Create();
    ComPtr<FakeDispatch> explorer = FakeDispatch::Create();
    ComPtr<FakeDispatch> selection = FakeDispatch::Create();
    ComPtr<FakeDispatch> nameSpace = FakeDispatch::Create();
    ComPtr<FakeDispatch> folder = FakeDispatch::Create();
    ComPtr<FakeDispatch> folderItems = FakeDispatch::Create();
    FakeCommandBars explorerBars;
    WindowList explorers{kExplorersEvents, {kExplorerEvents10, kExplorerEvents}};
    WindowList inspectors{kInspectorsEvents, {kInspectorEvents10, kInspectorEvents}};
    std::shared_ptr<Contents> contents = std::make_shared<Contents>();

    WindowList& Windows(WindowKind kind) {
        return kind == WindowKind::Explorer ? explorers : inspectors;
    }
    std::vector<Item> items;
    ULONG nextEntryId = 1;

    FakeDispatch& Add(Item item, std::shared_ptr<const std::string> fileBytes, bool select);
    void BuildFolder();
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
        return args.empty() ? PutObject(result, explorer.get()) : DISP_E_BADPARAMCOUNT;
    });
    // The inspector opened last and still open; Nothing until an item is opened in one.
    std::weak_ptr<std::vector<ComPtr<FakeEventSource>>> openInspectors = state.inspectors.open;
    state.application->SetMethod(
        L"ActiveInspector", [openInspectors](const Args& args, VARIANT* result) {
            auto held = openInspectors.lock();
            if (!args.empty() || !held) {
                return args.empty() ? E_UNEXPECTED : DISP_E_BADPARAMCOUNT;
            }
            return PutObject(result,
                             held->empty() ? nullptr : static_cast<IDispatch*>(held->back().get()));
        });
    state.application
        ->SetProperty(L"Explorers", static_cast<IDispatch*>(state.explorers.collection.get()))
        .SetProperty(L"Inspectors", static_cast<IDispatch*>(state.inspectors.collection.get()));
    state.application->SetMethod(L"GetNamespace", [nameSpace](const Args& args, VARIANT* result) {
        if (args.size() != 1) {
            return DISP_E_BADPARAMCOUNT;
        }
        if (args[0].vt != VT_BSTR || !args[0].bstrVal || _wcsicmp(args[0].bstrVal, L"MAPI") != 0) {
            return E_INVALIDARG;
        }
        return PutObject(result, nameSpace.get());
    });
    state.explorer->SetProperty(L"Selection", static_cast<IDispatch*>(state.selection.get()))
        .SetProperty(L"CurrentFolder", static_cast<IDispatch*>(state.folder.get()))
        .SetProperty(L"CommandBars", static_cast<IDispatch*>(&state.explorerBars.Collection()));

    std::weak_ptr<State::Contents> contents = state.contents;
    DefineListMembers(
        *state.selection.get(), contents,
        [](const State::Contents& held) -> const auto& { return held.selected; });
    state.BuildFolder();

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
    // GetItemFromID(EntryID[, StoreID]): an item of the folder; the store id, when given, must
    // be the store's.
    const std::wstring storeId = HexText(kStoreId, sizeof kStoreId);
    state.nameSpace->SetMethod(
        L"GetItemFromID", [contents, storeId](const Args& args, VARIANT* result) {
            if (args.empty() || args.size() > 2) {
                return DISP_E_BADPARAMCOUNT;
            }
            if (args[0].vt != VT_BSTR || !args[0].bstrVal ||
                (args.size() == 2 && !IsOmitted(args[1]) && args[1].vt != VT_BSTR)) {
                return DISP_E_TYPEMISMATCH;
            }
            auto held = contents.lock();
            if (!held) {
                return E_UNEXPECTED;
            }
            if (args.size() == 2 && args[1].vt == VT_BSTR &&
                _wcsicmp(args[1].bstrVal ? args[1].bstrVal : L"", storeId.c_str()) != 0) {
                return MAPI_E_NOT_FOUND;
            }
            for (const auto& item : held->folder) {
                const std::wstring id = item->Value(L"EntryID").vt == VT_BSTR
                                            ? item->Value(L"EntryID").bstrVal
                                            : std::wstring();
                if (_wcsicmp(id.c_str(), args[0].bstrVal) == 0) {
                    return PutObject(result, item.get());
                }
            }
            return MAPI_E_NOT_FOUND;
        });
}

void FakeOutlook::State::BuildFolder() {
    std::weak_ptr<Contents> weak = contents;
    DefineListMembers(
        *folderItems.get(), weak, [](const Contents& held) -> const auto& { return held.folder; });
    folder->SetProperty(L"Name", L"Posteingang")
        .SetProperty(L"FolderPath", L"\\\\Postfach - Anna Beispiel\\Posteingang")
        .SetProperty(L"EntryID", HexText(kFolderId, sizeof kFolderId).c_str())
        .SetProperty(L"StoreID", HexText(kStoreId, sizeof kStoreId).c_str())
        .SetProperty(L"Items", static_cast<IDispatch*>(folderItems.get()));
}

FakeOutlook::~FakeOutlook() = default;

FakeDispatch& FakeOutlook::Application() const { return *m_state->application.get(); }
FakeDispatch& FakeOutlook::Explorer() const { return *m_state->explorer.get(); }
FakeDispatch& FakeOutlook::Selection() const { return *m_state->selection.get(); }
FakeDispatch& FakeOutlook::Namespace() const { return *m_state->nameSpace.get(); }
FakeDispatch& FakeOutlook::Folder() const { return *m_state->folder.get(); }
FakeEventSource* FakeOutlook::Inspector() const {
    const auto& open = *m_state->inspectors.open;
    return open.empty() ? nullptr : open.back().get();
}

FakeDispatch& FakeOutlook::SelectItemText(const std::wstring& text) {
    return AddItemText(text, true);
}

FakeDispatch& FakeOutlook::AddItemText(const std::wstring& text, bool select) {
    const ItemDescription description = ParseItemText(text);
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
    ThrowIfFailed(WriteClassStg(item.storage.get(), kClsidMailMessage), "WriteClassStg");
    ThrowIfFailed(WriteItem(description, item.message.get()), "writing the item");
    for (const AddressBookEntry& entry : description.addressBook) {
        m_state->mapiSession.AddEntry(entry);
    }
    return m_state->Add(std::move(item), nullptr, select);
}

FakeDispatch& FakeOutlook::SelectMessageFile(const std::wstring& path) {
    return AddMessageFile(path, true);
}

FakeDispatch& FakeOutlook::AddMessageFile(const std::wstring& path, bool select) {
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
    return m_state->Add(std::move(item), std::move(fileBytes), select);
}

// Gives the message the identifiers a store would, saves it, and builds its automation object.
FakeDispatch& FakeOutlook::State::Add(Item item, std::shared_ptr<const std::string> fileBytes,
                                      bool select) {
    IMessage* message = item.message.get();
    if (!PropertyOf(message, PR_ENTRYID)) {
        // A store's long-term entry id: flags, the store's provider id, the item's number.
        BYTE entryId[24] = {};
        memcpy(entryId, kStoreId, 20);
        const ULONG number = nextEntryId++;
        memcpy(entryId + 20, &number, sizeof number);
        SPropValue ids[2] = {};
        ids[0].ulPropTag = PR_ENTRYID;
        ids[0].Value.bin = {sizeof entryId, entryId};
        ids[1].ulPropTag = PR_STORE_ENTRYID;
        ids[1].Value.bin = {sizeof kStoreId, const_cast<BYTE*>(kStoreId)};
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
    DefineMessageValues(dispatch, held);
    // Kept as a stored value: GetItemFromID finds the item by it.
    dispatch.SetProperty(L"EntryID", HexOf(message, PR_ENTRYID).c_str());
    dispatch.SetComputedProperty(L"MAPIOBJECT", [held](const Args& args, VARIANT* result) {
        if (!args.empty()) {
            return DISP_E_BADPARAMCOUNT;
        }
        held->AddRef();
        result->vt = VT_UNKNOWN;
        result->punkVal = held.get();
        return S_OK;
    });
    DefineAttachments(dispatch, held, item.attachments, false);
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
    // Delete(): the item leaves the folder and the selection (it stays usable for whoever holds
    // it, as a deleted item does until it is released).
    std::weak_ptr<Contents> weak = contents;
    FakeDispatch* self = &dispatch;
    dispatch.SetMethod(L"Delete", [weak, self](const Args& args, VARIANT*) {
        if (!args.empty()) {
            return DISP_E_BADPARAMCOUNT;
        }
        auto held = weak.lock();
        if (!held || std::none_of(held->folder.begin(), held->folder.end(),
                                  [self](const auto& entry) { return entry.get() == self; })) {
            return MAPI_E_NOT_FOUND;
        }
        held->Remove(self);
        return S_OK;
    });

    contents->folder.push_back(item.dispatch);
    if (select) {
        contents->selected.push_back(item.dispatch);
    }
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

std::vector<size_t> FakeOutlook::FolderItems() const {
    std::vector<size_t> indexes;
    for (const auto& entry : m_state->contents->folder) {
        for (size_t i = 0; i < m_state->items.size(); ++i) {
            if (m_state->items[i].dispatch.get() == entry.get()) {
                indexes.push_back(i);
            }
        }
    }
    return indexes;
}

void FakeOutlook::Delete(size_t index) {
    m_state->contents->Remove(m_state->items.at(index).dispatch.get());
}

FakeEventSource& FakeOutlook::Inspect(size_t index) {
    State& state = *m_state;
    IDispatch* item = state.items.at(index).dispatch.get();
    // The item is there before the inspector is announced, as in Outlook.
    FakeEventSource& inspector = state.inspectors.Open(
        [item](FakeEventSource& window) { window.Properties().SetProperty(L"CurrentItem", item); });
    return inspector;
}

size_t FakeOutlook::OpenExplorer() {
    State& state = *m_state;
    state.explorers.Open([](FakeEventSource&) {});
    return state.explorers.all.size() - 1;
}

size_t FakeOutlook::WindowCount(WindowKind kind) const { return m_state->Windows(kind).all.size(); }

FakeEventSource& FakeOutlook::Window(WindowKind kind, size_t index) const {
    return *m_state->Windows(kind).all.at(index).object.get();
}

FakeCommandBars& FakeOutlook::WindowBars(WindowKind kind, size_t index) const {
    return *m_state->Windows(kind).all.at(index).bars;
}

void FakeOutlook::CloseWindow(WindowKind kind, size_t index) {
    m_state->Windows(kind).Close(index);
    if (kind == WindowKind::Inspector) {
        // A closed inspector lets go of its item.
        Window(kind, index)
            .Properties()
            .SetProperty(L"CurrentItem", static_cast<IDispatch*>(nullptr));
    }
}

FakeCommandBars& FakeOutlook::ExplorerBars() const { return m_state->explorerBars; }

FakeEventSource& FakeOutlook::Explorers() const { return *m_state->explorers.collection.get(); }

FakeEventSource& FakeOutlook::Inspectors() const { return *m_state->inspectors.collection.get(); }

void FakeOutlook::AddAddressBookEntry(const std::vector<BYTE>& entryId,
                                      const std::wstring& displayName,
                                      const std::wstring& smtpAddress) {
    m_state->mapiSession.AddEntry(
        {entryId, displayName, smtpAddress, ExchangeAddressFor(smtpAddress)});
}

RefCountList FakeOutlook::RefCounts() const {
    const State& state = *m_state;
    RefCountList counts{{L"Application", state.application->RefCount()},
                        {L"Explorer", state.explorer->RefCount()},
                        {L"Selection", state.selection->RefCount()},
                        {L"Namespace", state.nameSpace->RefCount()},
                        {L"Folder", state.folder->RefCount()},
                        {L"Folder items", state.folderItems->RefCount()},
                        {L"Explorers", state.explorers.collection->RefCount()},
                        {L"Inspectors", state.inspectors.collection->RefCount()}};
    for (const WindowList* list : {&state.explorers, &state.inspectors}) {
        const std::wstring kind = list == &state.explorers ? L"explorer " : L"inspector ";
        for (size_t i = 0; i < list->all.size(); ++i) {
            counts.emplace_back(kind + std::to_wstring(i + 1), list->all[i].object->RefCount());
        }
    }
    for (size_t i = 0; i < state.items.size(); ++i) {
        const std::wstring label = L"item " + std::to_wstring(i + 1);
        counts.emplace_back(label, state.items[i].dispatch->RefCount());
        state.items[i].attachments->AddRefCounts(counts, label);
    }
    for (auto& entry : state.mapiSession.RefCounts()) {
        counts.push_back(std::move(entry));
    }
    return counts;
}

ULONG FakeOutlook::LiveMapiObjects() const { return m_state->mapiSession.LiveObjects(); }
