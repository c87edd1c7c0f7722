#include "rdosim/FakeRedemption.h"

#include <mapitags.h>

#include <map>
#include <stdexcept>
#include <vector>

#include "common/ComObject.h"
#include "common/UniqueResource.h"
#include "common/Variant.h"
#include "outlooksim/FakeOutlook.h"
#include "outlooksim/ItemObjects.h"
#include "rdosim/RdoSim.h"

namespace {

using namespace outlooksim;
using Args = FakeDispatch::Args;

// What the library answers for a session used before its MAPIOBJECT is set.
constexpr HRESULT kNotLoggedOn = MAPI_E_NOT_INITIALIZED;

std::wstring ProgramFolder() {
    wchar_t path[MAX_PATH] = {};
    const DWORD length = GetModuleFileNameW(nullptr, path, MAX_PATH);
    std::wstring folder(path, length < MAX_PATH ? length : 0);
    return folder.substr(0, folder.find_last_of(L"\\/") + 1);
}

UniqueHModule LoadRdoSim() {
    UniqueHModule module(LoadLibraryW((ProgramFolder() + L"rdosim.dll").c_str()));
    if (!module) {
        throw std::runtime_error("FakeRedemption: rdosim.dll is not beside the program");
    }
    return module;
}

template <class Function>
Function Export(HMODULE module, const char* name) {
    return reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(module, name)));
}

bool IsText(const Args& args, size_t index) {
    return args.size() > index && args[index].vt == VT_BSTR && args[index].bstrVal;
}

}  // namespace

struct FakeRedemption::State {
    struct Mail {
        ComPtr<FakeDispatch> dispatch;
        std::shared_ptr<AttachmentObjects> attachments = std::make_shared<AttachmentObjects>();
    };

    class Factory final : public ComObject<Factory, LiveCount::NotCounted,
                                           Implements<IClassFactory, IID_IClassFactory>> {
    public:
        explicit Factory(State* state) : m_state(state) {}
        void Orphan() noexcept { m_state = nullptr; }

        HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID iid,
                                                 void** object) noexcept override {
            if (!object) {
                return E_POINTER;
            }
            *object = nullptr;
            if (outer) {
                return CLASS_E_NOAGGREGATION;
            }
            if (!m_state) {
                return E_UNEXPECTED;
            }
            try {
                return m_state->NewSession()->QueryInterface(iid, object);
            } catch (const std::bad_alloc&) {
                return E_OUTOFMEMORY;
            } catch (...) {
                return E_UNEXPECTED;
            }
        }
        HRESULT STDMETHODCALLTYPE LockServer(BOOL) noexcept override { return S_OK; }

    private:
        friend ComObject;
        ~Factory() override = default;
        State* m_state;
    };

    explicit State(FakeOutlook& outlook) : outlook(outlook) {}
    ~State() { *alive = false; }
    State(const State&) = delete;
    State& operator=(const State&) = delete;

    // The handlers reach the state through `this`; an object somebody still holds after this
    // FakeRedemption has gone answers CO_E_OBJNOTCONNECTED instead.
    std::shared_ptr<bool> alive = std::make_shared<bool>(true);

    FakeOutlook& outlook;
    UniqueHModule module = LoadRdoSim();
    ComPtr<Factory> factory = MakeComObject<Factory>(this);
    std::vector<ComPtr<FakeDispatch>> sessions;
    std::function<void(FakeDispatch&)> script;
    // One folder and its Items for all sessions: they all look at the same Outlook folder.
    ComPtr<FakeDispatch> folder;
    ComPtr<FakeDispatch> folderItems;
    std::map<size_t, Mail> mails;

    ComPtr<FakeDispatch> NewSession();
    FakeDispatch& Folder();
    FakeDispatch& MailAt(size_t index);
    std::optional<size_t> FindInFolder(const wchar_t* entryId) const;
};

ComPtr<FakeDispatch> FakeRedemption::State::NewSession() {
    ComPtr<FakeDispatch> session = FakeDispatch::Create();
    FakeDispatch* self = session.get();
    // The session's MAPIOBJECT is a stored property: it holds Outlook's session once put.
    auto loggedOn = [self] {
        const VARIANT& value = self->Value(L"MAPIOBJECT");
        return (value.vt == VT_UNKNOWN || value.vt == VT_DISPATCH) && value.punkVal;
    };
    // GetFolderFromID and GetMessageFromID check their call alike before they look the id up.
    auto idCallError = [alive = alive, loggedOn](const Args& args) -> HRESULT {
        if (!*alive) {
            return CO_E_OBJNOTCONNECTED;
        }
        if (args.empty() || args.size() > 3) {
            return DISP_E_BADPARAMCOUNT;
        }
        if (!IsText(args, 0)) {
            return DISP_E_TYPEMISMATCH;
        }
        return loggedOn() ? S_OK : kNotLoggedOn;
    };
    session->SetProperty(L"Version", L"1.0.0.0")
        .SetProperty(L"MAPIOBJECT", Variant())
        .SetMethod(L"GetFolderFromID",
                   [this, idCallError](const Args& args, VARIANT* result) {
                       if (const HRESULT hr = idCallError(args); FAILED(hr)) {
                           return hr;
                       }
                       const VARIANT& id = outlook.Folder().Value(L"EntryID");
                       if (id.vt != VT_BSTR || _wcsicmp(id.bstrVal, args[0].bstrVal) != 0) {
                           return MAPI_E_NOT_FOUND;
                       }
                       return PutObject(result, &Folder());
                   })
        .SetMethod(L"GetMessageFromID", [this, idCallError](const Args& args, VARIANT* result) {
            if (const HRESULT hr = idCallError(args); FAILED(hr)) {
                return hr;
            }
            const auto index = FindInFolder(args[0].bstrVal);
            return index ? PutObject(result, &MailAt(*index)) : MAPI_E_NOT_FOUND;
        });
    if (script) {
        script(*session.get());
    }
    sessions.push_back(session);
    return session;
}

FakeDispatch& FakeRedemption::State::Folder() {
    if (folder) {
        return *folder.get();
    }
    folderItems = FakeDispatch::Create();
    auto count = [this, alive = alive](const Args& args, VARIANT* result) {
        if (!*alive) {
            return CO_E_OBJNOTCONNECTED;
        }
        if (!args.empty()) {
            return DISP_E_BADPARAMCOUNT;
        }
        result->vt = VT_I4;
        result->lVal = static_cast<LONG>(outlook.FolderItems().size());
        return S_OK;
    };
    auto item = [this, alive = alive](const Args& args, VARIANT* result) {
        if (!*alive) {
            return CO_E_OBJNOTCONNECTED;
        }
        const std::vector<size_t> items = outlook.FolderItems();
        size_t index = 0;
        const HRESULT hr = ItemIndex(args, items.size(), &index);
        return FAILED(hr) ? hr : PutObject(result, &MailAt(items[index]));
    };
    folderItems->SetComputedProperty(L"Count", count)
        .SetMethod(L"Item", item)
        .SetMethod(L"_Item", item);
    folder = FakeDispatch::Create();
    const FakeDispatch& outlookFolder = outlook.Folder();
    folder->SetProperty(L"Name", outlookFolder.Value(L"Name"))
        .SetProperty(L"EntryID", outlookFolder.Value(L"EntryID"))
        .SetProperty(L"StoreID", outlookFolder.Value(L"StoreID"))
        .SetComputedProperty(L"Items", [this, alive = alive](const Args& args, VARIANT* result) {
            if (!*alive) {
                return CO_E_OBJNOTCONNECTED;
            }
            return args.empty() ? PutObject(result, folderItems.get()) : DISP_E_BADPARAMCOUNT;
        });
    return *folder.get();
}

std::optional<size_t> FakeRedemption::State::FindInFolder(const wchar_t* entryId) const {
    for (size_t index : outlook.FolderItems()) {
        if (_wcsicmp(HexOf(outlook.Message(index), PR_ENTRYID).c_str(), entryId) == 0) {
            return index;
        }
    }
    return std::nullopt;
}

FakeDispatch& FakeRedemption::State::MailAt(size_t index) {
    Mail& mail = mails[index];
    if (mail.dispatch) {
        return *mail.dispatch.get();
    }
    mail.dispatch = FakeDispatch::Create();
    FakeDispatch& dispatch = *mail.dispatch.get();
    ComPtr<IMessage> held(outlook.Message(index));
    DefineMessageValues(dispatch, held);
    dispatch.SetComputedProperty(L"EntryID", [held](const Args& args, VARIANT* result) {
        return args.empty() ? PutText(result, HexOf(held.get(), PR_ENTRYID)) : DISP_E_BADPARAMCOUNT;
    });
    // The size the store reports, which is what Outlook shows as well.
    dispatch.SetProperty(L"Size", outlook.Item(index).Value(L"Size"));
    // SaveAs(path, type): only the message formats, olMSG (3) and olMSGUnicode (9).
    dispatch.SetMethod(L"SaveAs", [held](const Args& args, VARIANT*) {
        if (args.empty() || args.size() > 2) {
            return DISP_E_BADPARAMCOUNT;
        }
        if (!IsText(args, 0) || !*args[0].bstrVal) {
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
        return WriteMessageFile(held.get(), args[0].bstrVal);
    });
    // The simulated S/MIME items keep their content in plain properties: the decrypted message
    // is the mail itself.
    FakeDispatch* self = &dispatch;
    dispatch.SetMethod(L"GetDecryptedMessage", [self](const Args& args, VARIANT* result) {
        return args.empty() ? PutObject(result, self) : DISP_E_BADPARAMCOUNT;
    });
    DefineAttachments(dispatch, held, mail.attachments, true);
    dispatch.SetMethod(L"Delete", [this, alive = alive, index](const Args& args, VARIANT*) {
        if (!*alive) {
            return CO_E_OBJNOTCONNECTED;
        }
        if (!args.empty()) {
            return DISP_E_BADPARAMCOUNT;
        }
        const std::vector<size_t> items = outlook.FolderItems();
        if (std::find(items.begin(), items.end(), index) == items.end()) {
            return MAPI_E_NOT_FOUND;
        }
        outlook.Delete(index);
        return S_OK;
    });
    return dispatch;
}

FakeRedemption::FakeRedemption(FakeOutlook& outlook) : m_state(std::make_unique<State>(outlook)) {
    auto install =
        Export<RdoSimInstallFactoryFunction>(m_state->module.get(), "RdoSimInstallFactory");
    if (!install || FAILED(install(m_state->factory.get()))) {
        throw std::runtime_error("FakeRedemption: rdosim.dll has no RdoSimInstallFactory");
    }
}

FakeRedemption::~FakeRedemption() {
    if (auto install =
            Export<RdoSimInstallFactoryFunction>(m_state->module.get(), "RdoSimInstallFactory")) {
        install(nullptr);
    }
    m_state->factory->Orphan();
}

namespace {

HRESULT CallRegistration(const char* name) {
    UniqueHModule module(LoadLibraryW((ProgramFolder() + L"rdosim.dll").c_str()));
    if (!module) {
        return HRESULT_FROM_WIN32(GetLastError());
    }
    auto function = Export<HRESULT(STDAPICALLTYPE*)()>(module.get(), name);
    return function ? function() : E_NOINTERFACE;
}

}  // namespace

HRESULT FakeRedemption::Register() { return CallRegistration("DllRegisterServer"); }
HRESULT FakeRedemption::Unregister() { return CallRegistration("DllUnregisterServer"); }

size_t FakeRedemption::SessionCount() const { return m_state->sessions.size(); }

FakeDispatch& FakeRedemption::Session(size_t index) const {
    return *m_state->sessions.at(index).get();
}

void FakeRedemption::OnNewSession(std::function<void(FakeDispatch& session)> script) {
    m_state->script = std::move(script);
}

FakeDispatch& FakeRedemption::Mail(size_t index) const { return m_state->MailAt(index); }

RefCountList FakeRedemption::RefCounts() const {
    const State& state = *m_state;
    RefCountList counts;
    for (size_t i = 0; i < state.sessions.size(); ++i) {
        counts.emplace_back(L"RDO session " + std::to_wstring(i + 1),
                            state.sessions[i]->RefCount());
    }
    if (state.folder) {
        counts.emplace_back(L"RDO folder", state.folder->RefCount());
        counts.emplace_back(L"RDO folder items", state.folderItems->RefCount());
    }
    for (const auto& [index, mail] : state.mails) {
        const std::wstring label = L"RDO mail " + std::to_wstring(index + 1);
        counts.emplace_back(label, mail.dispatch->RefCount());
        mail.attachments->AddRefCounts(counts, label);
    }
    return counts;
}
