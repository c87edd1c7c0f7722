#include "addin/TalvornAddin.h"

#include <cwchar>
#include <string>
#include <utility>

#include "addin/EventConnection.h"
#include "addin/Ribbon.h"
#include "addin/commands/ArchiveCommands.h"
#include "addin/commands/DialogCommands.h"
#include "common/Automation.h"
#include "common/ComError.h"
#include "common/HostKind.h"
#include "common/LogFile.h"
#include "common/Variant.h"
#include "settings/AttachmentChoiceDialog.h"

namespace {

// The host names as the hosts report them, tested in this order (compared case-sensitively).
struct HostName {
    const wchar_t* name;
    int32_t kind;
};
constexpr HostName kHostNames[] = {
    {L"Outlook", kHostOutlook},
    {L"Microsoft Word", kHostWord},
    {L"Microsoft Excel", kHostExcel},
    {L"Microsoft PowerPoint", kHostPowerPoint},
};

constexpr int32_t kFirstRibbonVersion = 12;
constexpr int32_t kFirstOutlookRibbonVersion = 14;

// The attachment choice the user sees: the modal dialog over the listed records.
class AttachmentChoiceDialog : public AttachmentChooser {
public:
    int ChooseAttachments(AttachmentList& attachments) override {
        return static_cast<int>(ShowAttachmentChoiceDialog(attachments));
    }
};

// The loadImage callback: the image name is its first argument; the picture is its result.
HRESULT LoadImageCallback(const DISPPARAMS& params, VARIANT* result) {
    if (params.cArgs < 1 || !params.rgvarg) {
        return DISP_E_BADPARAMCOUNT;
    }
    Variant name;
    HRESULT hr = VariantChangeType(&name, &params.rgvarg[params.cArgs - 1], 0, VT_BSTR);
    if (FAILED(hr)) {
        return hr;
    }
    return LoadRibbonImage(name.bstrVal ? name.bstrVal : L"", result);
}

// A sink on one of Outlook's window collections, connected; null when the collection offers no
// events (the windows it opens then go without buttons, the rest of the add-in works on).
template <class Sink>
ComPtr<Sink> ConnectedCollectionSink(WindowEventTarget& target, IDispatch* collection) {
    ComPtr<Sink> sink = MakeComObject<Sink>(target);
    const HRESULT hr = sink->Connect(collection);
    if (FAILED(hr)) {
        LogError(L"Failed to advise the window events! hr = 0x%08X\n", hr);
        sink.reset();
    }
    return sink;
}

}  // namespace

HRESULT CTalvornAddin::GetIDsOfNames(REFIID riid, LPOLESTR* names, UINT count, LCID, DISPID* ids) {
    if (riid != IID_NULL) {
        return DISP_E_UNKNOWNINTERFACE;
    }
    if (!names || !ids) {
        return E_POINTER;
    }
    if (count != 1) {
        return E_INVALIDARG;
    }
    ids[0] = RibbonCallbackId(names[0]);
    return ids[0] == DISPID_UNKNOWN ? DISP_E_UNKNOWNNAME : S_OK;
}

HRESULT CTalvornAddin::Invoke(DISPID id, REFIID riid, LCID, WORD, DISPPARAMS* params,
                              VARIANT* result, EXCEPINFO*, UINT*) {
    if (riid != IID_NULL) {
        return DISP_E_UNKNOWNINTERFACE;
    }
    if (!params) {
        return E_POINTER;
    }
    if (id < kCallbackArchive || id > kCallbackAttachmentSingleOutlook) {
        return DISP_E_MEMBERNOTFOUND;
    }
    try {
        // A command shows modal dialogs and message boxes without an owner; meanwhile the host
        // may disconnect the add-in and release its last reference. Both stay alive until the
        // callback returns.
        const ComPtr<CTalvornAddin> self(this);
        const ComPtr<IDispatch> application = m_application;
        if (id == kCallbackGetImage) {
            return LoadImageCallback(*params, result);
        }
        ComPtr<IDispatch> window;
        if (id == kCallbackArchiveSingleOutlook || id == kCallbackAttachmentSingleOutlook) {
            // The window of the ribbon control; without it there is no item: nothing happens.
            const ComPtr<IDispatch> control = FirstObjectArgument(params);
            if (!control ||
                FAILED(GetObjectPropertyNoThrow(control.get(), L"Context", window.put()))) {
                return S_OK;
            }
        }
        RunCommand(id, window.get(), application.get());
        return S_OK;
    } catch (...) {
        HRESULT hr = HResultFromCaughtException();
        LogError(L"Ribbon callback %d failed! hr = 0x%08X\n", static_cast<int>(id), hr);
        // The commands report their own failures; only the image callback has a result.
        return id == kCallbackGetImage ? hr : S_OK;
    }
}

void CTalvornAddin::RunCommand(DISPID id, IDispatch* window, IDispatch* application) {
    // A click while a command's dialog is open is not a second command.
    if (m_commandRunning) {
        LogWarning(L"Ribbon callback %d ignored: a command is still running.\n",
                   static_cast<int>(id));
        return;
    }
    m_commandRunning = true;
    struct CommandEnd {
        bool& running;
        ~CommandEnd() { running = false; }
    } commandEnd{m_commandRunning};

    AttachmentChoiceDialog choiceDialog;
    CommandContext context{m_hostKind, m_hostMajorVersion, application, m_captures, choiceDialog};
    switch (id) {
    case kCallbackArchive:
        OnArchive(context);
        break;
    case kCallbackAttachment:
        OnAttachment(context, nullptr);
        break;
    case kCallbackArchiveSingleOutlook:
        if (window) {
            OnArchiveSingleOutlook(context, window);
        }
        break;
    case kCallbackAttachmentSingleOutlook:
        if (window) {
            OnAttachmentSingleOutlook(context, window);
        }
        break;
    case kCallbackSettings:
        OnSettings();
        break;
    case kCallbackInfo:
        OnAbout(context);
        break;
    default:
        break;
    }
}

CTalvornAddin::~CTalvornAddin() {
    // Released without a shutdown: no sink may call back into a destroyed add-in.
    ReleaseSinks();
}

void CTalvornAddin::RunButtonCommand(DISPID command, IDispatch* window) {
    // The command's dialogs run a message loop in which the host may release the add-in.
    const ComPtr<CTalvornAddin> self(this);
    const ComPtr<IDispatch> application = m_application;
    RunCommand(command, window, application.get());
}

CommandBarOptions CTalvornAddin::ButtonOptions() const {
    return CommandBarOptions{m_hostKind == kHostOutlook && m_settings.IsOn(L"Attachments"),
                             m_settings.IsOn(L"Nosettings")};
}

void CTalvornAddin::ExplorerOpened(IDispatch* explorer) {
    ComPtr<CExplorerHandler> handler = MakeComObject<CExplorerHandler>(
        static_cast<WindowEventTarget&>(*this), static_cast<ButtonCommandTarget&>(*this));
    const HRESULT hr = handler->Connect(explorer, ButtonOptions());
    if (FAILED(hr)) {
        LogError(L"Failed to add the buttons to the new explorer! hr = 0x%08X\n", hr);
        return;
    }
    m_explorerHandlers.push_back(std::move(handler));
}

void CTalvornAddin::InspectorOpened(IDispatch* inspector) {
    ComPtr<CInspectorHandler> handler = MakeComObject<CInspectorHandler>(
        static_cast<WindowEventTarget&>(*this), static_cast<ButtonCommandTarget&>(*this));
    const HRESULT hr = handler->Connect(inspector, ButtonOptions());
    if (FAILED(hr)) {
        LogError(L"Failed to add the buttons to the new inspector! hr = 0x%08X\n", hr);
        return;
    }
    m_inspectorHandlers.push_back(std::move(handler));
}

namespace {

// Takes `handler` out of `handlers`, disconnected.
template <class Handler>
void DropHandler(std::vector<ComPtr<Handler>>& handlers, Handler& handler) {
    const ComPtr<Handler> held(&handler);
    std::erase_if(handlers,
                  [&handler](const ComPtr<Handler>& entry) { return entry.get() == &handler; });
    handler.Disconnect();
}

}  // namespace

void CTalvornAddin::ExplorerClosed(CExplorerHandler& handler) {
    DropHandler(m_explorerHandlers, handler);
}

void CTalvornAddin::InspectorClosed(CInspectorHandler& handler) {
    DropHandler(m_inspectorHandlers, handler);
}

void CTalvornAddin::ReleaseSinks() noexcept {
    ReleaseButtonHandlers(m_buttonHandlers);
    // Each window's sink goes with its collection's: a window open at shutdown keeps no
    // connection either.
    if (m_explorersHandler) {
        m_explorersHandler->Disconnect();
        m_explorersHandler.reset();
    }
    for (const ComPtr<CExplorerHandler>& handler : std::exchange(m_explorerHandlers, {})) {
        handler->Disconnect();
    }
    if (m_inspectorsHandler) {
        m_inspectorsHandler->Disconnect();
        m_inspectorsHandler.reset();
    }
    for (const ComPtr<CInspectorHandler>& handler : std::exchange(m_inspectorHandlers, {})) {
        handler->Disconnect();
    }
}

HRESULT CTalvornAddin::OnConnection(IDispatch* application, ext_ConnectMode connectMode, IDispatch*,
                                    SAFEARRAY** custom) {
    if (!application) {
        return E_POINTER;
    }
    m_application = ComPtr<IDispatch>(application);
    if (connectMode != ext_cm_Startup) {
        // Loaded after the host started: the host will not call OnStartupComplete itself.
        OnStartupComplete(custom);
    }
    return S_OK;
}

HRESULT CTalvornAddin::OnStartupComplete(SAFEARRAY**) {
    try {
        return StartUp();
    } catch (...) {
        HRESULT hr = HResultFromCaughtException();
        LogError(L"OnStartupComplete failed! hr = 0x%08X\n", hr);
        return hr;
    }
}

HRESULT CTalvornAddin::StartUp() {
    // A second start-up starts over: no sink of the first stays advised.
    ReleaseSinks();
    HRESULT hr = m_settings.LoadSettings();
    if (FAILED(hr)) {
        LogError(L"Failed to load settings!\n");
        return hr;
    }
    BStr name;
    hr = GetTextPropertyNoThrow(m_application.get(), L"Name", &name);
    if (FAILED(hr)) {
        LogError(L"Failed to get office application name! hr = 0x%08X\n", hr);
        return hr;
    }
    const wchar_t* hostName = name.c_str();
    LogInfo(L"Office Application %s\n", hostName);

    BStr version;
    hr = GetTextPropertyNoThrow(m_application.get(), L"Version", &version);
    if (FAILED(hr)) {
        LogError(L"Can't get version from application! hr = 0x%08X\n", hr);
        return hr;
    }
    const std::wstring fullVersion = version.c_str();
    const std::wstring major = fullVersion.substr(0, fullVersion.find(L'.'));
    LogInfo(L"%s Version: %s (%s)\n", hostName, major.c_str(), fullVersion.c_str());
    m_hostMajorVersion = static_cast<int32_t>(wcstol(major.c_str(), nullptr, 10));

    m_hostKind = kHostOther;
    for (const HostName& known : kHostNames) {
        if (lstrcmpW(hostName, known.name) == 0) {
            m_hostKind = known.kind;
            break;
        }
    }

    ComPtr<IDispatch> commandBars;
    if (m_hostKind != kHostOutlook) {
        hr = GetObjectPropertyNoThrow(m_application.get(), L"CommandBars", commandBars.put());
        if (FAILED(hr)) {
            LogError(L"Failed to access CommandBars property! hr = 0x%08X\n", hr);
            return hr;
        }
    } else if (m_hostMajorVersion < kFirstOutlookRibbonVersion) {
        hr = ReadOutlookWindows(commandBars);
        if (FAILED(hr)) {
            return hr;
        }
    }

    if (!UsesCommandBars()) {
        LogInfo(L"cancel OnStartupComplete, we want to use Ribbons!\n");
        return S_OK;
    }
    hr = SetUpCommandBars(commandBars.get(), ButtonOptions(), *this, m_buttonHandlers);
    if (FAILED(hr)) {
        return hr;
    }
    if (m_hostKind == kHostWord) {
        return MarkWordTemplateSaved();
    }
    return S_OK;
}

HRESULT CTalvornAddin::ReadOutlookWindows(ComPtr<IDispatch>& commandBars) {
    ComPtr<IDispatch> explorer;
    HRESULT hr =
        GetObjectPropertyNoThrow(m_application.get(), GetOrCall(L"ActiveExplorer"), explorer.put());
    if (FAILED(hr)) {
        LogError(L"Failed to access ActiveExplorer property! hr = 0x%08X\n", hr);
        return hr;
    }
    if (m_settings.IsOn(L"MultiProcess")) {
        // Further explorer windows get buttons only when several windows are the setting.
        ComPtr<IDispatch> explorers;
        hr = GetObjectPropertyNoThrow(m_application.get(), L"Explorers", explorers.put());
        if (FAILED(hr)) {
            // The Explorers failure has always been reported with the ActiveExplorer text.
            LogError(L"Failed to access ActiveExplorer property! hr = 0x%08X\n", hr);
            return hr;
        }
        m_explorersHandler = ConnectedCollectionSink<CExplorersHandler>(*this, explorers.get());
    }
    hr = GetObjectPropertyNoThrow(explorer.get(), L"CommandBars", commandBars.put());
    if (FAILED(hr)) {
        LogError(L"Failed to access CommandBars property! hr = 0x%08X\n", hr);
        return hr;
    }
    ComPtr<IDispatch> inspectors;
    hr = GetObjectPropertyNoThrow(m_application.get(), L"Inspectors", inspectors.put());
    if (FAILED(hr)) {
        LogError(L"Failed to access Inspectors property! hr = 0x%08X\n", hr);
        return hr;
    }
    m_inspectorsHandler = ConnectedCollectionSink<CInspectorsHandler>(*this, inspectors.get());
    return S_OK;
}

HRESULT CTalvornAddin::MarkWordTemplateSaved() {
    ComPtr<IDispatch> templateDocument;
    HRESULT hr = GetObjectPropertyNoThrow(m_application.get(), L"CustomizationContext",
                                          templateDocument.put());
    if (FAILED(hr)) {
        LogError(L"Failed to get the current word template! hr = 0x%08X\n", hr);
        return hr;
    }
    // Word expects the flag as a VT_I2 -1, which is what it has always been sent.
    Variant saved;
    saved.vt = VT_I2;
    saved.iVal = -1;
    hr = PutPropertyNoThrow(templateDocument.get(), L"Saved", saved);
    if (FAILED(hr)) {
        LogError(L"Failed to set saved flag of the current word template! hr = 0x%08X\n", hr);
        return hr;
    }
    return S_OK;
}

bool CTalvornAddin::UsesCommandBars() const noexcept {
    return m_hostMajorVersion < kFirstOutlookRibbonVersion &&
           (m_hostMajorVersion < kFirstRibbonVersion || m_hostKind == kHostOutlook);
}

HRESULT CTalvornAddin::OnBeginShutdown(SAFEARRAY**) {
    if (UsesCommandBars()) {
        ReleaseSinks();
    } else {
        LogInfo(L"cancel OnBeginShutdown, we used Ribbons!\n");
    }
    return S_OK;
}

HRESULT CTalvornAddin::OnDisconnection(ext_DisconnectMode removeMode, SAFEARRAY** custom) {
    if (removeMode != ext_dm_HostShutdown) {
        // Unloaded by the user: the host did not call OnBeginShutdown.
        OnBeginShutdown(custom);
    }
    LogInfo(L"Addin is being unloaded %s.\n",
            removeMode != ext_dm_HostShutdown ? L"by the user" : L"on shutdown");
    m_application.reset();
    return S_OK;
}

HRESULT CTalvornAddin::OnAddInsUpdate(SAFEARRAY**) { return S_OK; }

HRESULT CTalvornAddin::GetCustomUI(BSTR ribbonId, BSTR* ribbonXml) {
    if (!ribbonXml) {
        return E_POINTER;
    }
    *ribbonXml = nullptr;
    try {
        const wchar_t* id = ribbonId ? ribbonId : L"";
        LogInfo(L"RibbonID: %s\n", id);
        if (!IsServedRibbon(id)) {
            return S_OK;
        }
        // Each window's markup reflects the settings as they are now.
        CTDCSettings settings;
        if (FAILED(settings.LoadSettings())) {
            LogError(L"Failed to load settings!\n");
            return S_OK;
        }
        RibbonOptions options{settings.IsOn(L"Attachments"), settings.IsOn(L"Nosettings")};
        std::optional<std::wstring> xml = BuildRibbonXml(id, options);
        if (!xml) {
            return S_OK;
        }
        BStr markup(xml->c_str());
        if (options.noSettings) {
            LogInfo(L"returning RibbonXML (no settings)\n");
        } else {
            LogInfo(L"returning RibbonXML\n");
        }
        *ribbonXml = markup.release();
        return S_OK;
    } catch (...) {
        return HResultFromCaughtException();
    }
}
