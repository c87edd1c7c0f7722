// Every object-model call a command makes, failed in turn. A command runs once clean, which
// numbers its calls into the simulated hosts (Office, Outlook, the simulated mapi32.dll and the
// MAPI library reached by ProgID); then it runs again once per call and fault style with that one
// call failing. A command is a ribbon callback between the add-in's start-up and shutdown, the
// start-up and shutdown alone, or a method of the connector automation object called by name as
// a script calls it. Each run must end with every reference and every MAPI buffer, object and
// session given back; no hand-off for a capture that failed and none handed to the connector
// without its whole file; and the failure told, in a message box or in a log line carrying its
// status. A call the product starts making later is swept with the others, without a new case.
#include <windows.h>
#include <shellapi.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <functional>
#include <memory>
#include <optional>
#include <ostream>
#include <sstream>
#include <string>
#include <vector>

#include "addin/OfficeInterfaces.h"
#include "addin/Ribbon.h"
#include "addin/TDConnectorCOM.h"
#include "addin/TalvornAddin.h"
#include "common/Automation.h"
#include "common/BStr.h"
#include "common/ComPtr.h"
#include "common/HostKind.h"
#include "common/LogFile.h"
#include "common/Variant.h"
#include "officesim/CallSequence.h"
#include "officesim/FakeCommandBars.h"
#include "officesim/ImportPatch.h"
#include "outlooksim/FakeOutlook.h"
#include "outlooksim/ItemText.h"
#include "rdosim/FakeRedemption.h"
#include "server/ComServer.h"
#include "support/BuiltModule.h"
#include "support/FakeOffice.h"
#include "support/RegistrySandbox.h"
#include "support/TestFiles.h"
#include "support/WindowWatcher.h"
#include "tools/mapisim/MapiSim.h"

namespace {

using Style = CallSequence::Style;

HRESULT STDAPICALLTYPE OfferMapiCall(const wchar_t* call) {
    CallSequence::Fault fault{};
    return CallSequence::Next(call, CallSequence::Kind::Mapi, fault) ? fault.hr : S_OK;
}

std::string Utf8(const std::wstring& text) { return ToUtf8(text); }

// A host with the add-in loaded, or an automation client's process: what one command needs, made
// fresh for every run.
class Host {
public:
    virtual ~Host() = default;
    virtual IDispatch* Application() const { return nullptr; }
    // The window a ribbon control of the command belongs to.
    virtual IDispatch* Context() const { return Application(); }
    virtual RefCountList RefCounts() const { return {}; }
    // After a run: checks and lets go of what the host's doubles keep for themselves.
    virtual void Settle(const std::string&) {}
};

class OfficeHost final : public Host {
public:
    OfficeHost(int32_t kind, const wchar_t* name, const wchar_t* version, bool unsaved)
        : m_office(kind) {
        m_office.Application()
            .SetProperty(L"Name", name)
            .SetProperty(L"Version", version)
            .SetProperty(L"CommandBars", static_cast<IDispatch*>(&m_commandBars.Collection()));
        if (kind == kHostWord) {
            m_template->SetProperty(L"Saved", true);
            m_office.Application().SetProperty(L"CustomizationContext",
                                               static_cast<IDispatch*>(m_template.get()));
        }
        if (unsaved) {
            m_office.StartUnsaved(L"Angebot");
        } else {
            m_office.OpenFrom(m_folder / (std::wstring(L"Angebot.") + m_office.Extension()));
        }
        m_office.CustomProperties().Add(L"Projekt", Variant(L"Apollo"));
        m_office.BuiltInProperties().Add(L"Title", Variant(L"Angebot"));
    }
    IDispatch* Application() const override { return &m_office.Application(); }
    RefCountList RefCounts() const override {
        RefCountList counts = m_office.RefCounts();
        counts.emplace_back(L"template", m_template->RefCount());
        counts.emplace_back(L"command bars", m_commandBars.Collection().RefCount());
        return counts;
    }

private:
    ScratchFolder m_folder;
    mutable FakeCommandBars m_commandBars;
    FakeOffice m_office;
    ComPtr<FakeDispatch> m_template = FakeDispatch::Create();
};

std::wstring SampleItem(const wchar_t* name) {
    return outlooksim::ReadItemTextFile(TestSourcePath(L"../tools/samples/outlook/") + name);
}

struct OutlookSetup {
    std::vector<std::wstring> items;
    std::optional<size_t> inspect =
        std::nullopt;  // the item open in an inspector, the ribbon's context
    const wchar_t* version = L"16.0.0.5000";
};

class OutlookHost final : public Host {
public:
    explicit OutlookHost(const OutlookSetup& setup) : m_inspect(setup.inspect.has_value()) {
        for (const std::wstring& item : setup.items) {
            m_outlook.SelectItemText(item);
        }
        if (setup.inspect) {
            m_outlook.Inspect(*setup.inspect);
        }
        m_outlook.Application()
            .SetProperty(L"Name", L"Outlook")
            .SetProperty(L"Version", setup.version);
    }
    FakeOutlook& Outlook() { return m_outlook; }
    IDispatch* Application() const override { return &m_outlook.Application(); }
    IDispatch* Context() const override {
        return m_inspect ? static_cast<IDispatch*>(m_outlook.Inspector()) : &m_outlook.Explorer();
    }
    // A deleted item is held by neither the folder nor the selection any more.
    RefCountList RefCounts() const override {
        RefCountList counts = m_outlook.RefCounts();
        const std::vector<size_t> kept = m_outlook.FolderItems();
        for (auto& [label, count] : counts) {
            for (size_t i = 0; i < m_outlook.ItemCount(); ++i) {
                const bool deleted = std::find(kept.begin(), kept.end(), i) == kept.end();
                count += deleted && label == L"item " + std::to_wstring(i + 1) ? 2 : 0;
            }
        }
        counts.emplace_back(L"live MAPI objects of Outlook", m_outlook.LiveMapiObjects());
        return counts;
    }
    // The library's objects are held by the double alone; then it goes, and with it the
    // references to Outlook's session that the library's sessions keep.
    void Settle(const std::string& run) override {
        for (const auto& [label, count] : m_redemption->RefCounts()) {
            EXPECT_EQ(count, 1u) << run << ": " << ToUtf8(label);
        }
        m_redemption.reset();
    }

private:
    FakeOutlook m_outlook;
    std::unique_ptr<FakeRedemption> m_redemption = std::make_unique<FakeRedemption>(m_outlook);
    bool m_inspect;
};

// What the failure of a call, where a command names it, must do beyond its log line.
enum class Effect {
    Unstated,
    GoesOn,           // no box; all the clean run handed off is handed off
    LeavesOneOut,     // no box; all but one of it
    EndsCapture,      // the capture's box or line, nothing handed off
    EndsOutOfMemory,  // the same with the out-of-memory box
};

struct Named {
    std::wstring call;
    const wchar_t* line;  // the error line before its " hr = ..."; null: none asked for
    Effect effect = Effect::Unstated;
    std::optional<Effect> outOfMemory = std::nullopt;  // where an out-of-memory failure differs
    size_t occurrence = 1;  // which call of that name; a later one fails in the plain style only
};

// One command as the sweep runs it.
struct Command {
    const char* name;
    std::function<std::unique_ptr<Host>()> host;
    std::function<void(Host&)> run;
    bool archives = false;  // the clean run hands something to the connector
    // The caption of a dialog the command shows and the button that answers it.
    const wchar_t* dialog = nullptr;
    int answer = IDOK;
    bool multiProcess = false;
    std::vector<Named> named = {};
    // Calls whose failure means "not there": a command bar or control looked up before it is
    // made. The host answers them with an error on every first start, so they go unlogged.
    std::vector<std::wstring> probes = {};
};

void PrintTo(const Command& command, std::ostream* out) { *out << command.name; }

// Live buffers, objects and sessions of the simulated mapi32.dll, and its bad frees.
std::array<ULONG, 4> MapiCounts() {
    return {MapiSimLiveBuffers(), MapiSimLiveObjects(), MapiSimLiveSessions(), MapiSimBadFrees()};
}

// Failures whose log lines carry no status, by this system's long-standing wording: a document
// property that cannot be read is skipped with a warning; a message session that cannot be opened.
bool NamedWithoutStatus(const std::wstring& log) {
    for (const wchar_t* line :
         {L"[WRN] Failed to access property ", L"[WRN] Can't get name of property ",
          L"[WRN] Can't get value of property ", L"[ERR] Failed to open an IMessage session!\n"}) {
        if (log.find(line) != std::wstring::npos) {
            return true;
        }
    }
    return false;
}

// --- What reaches the connector.

// The connector launches of a run, noted where the add-in asks the shell (this program's import of
// ShellExecuteExW: the product is linked in) and answered as done, so that what a URL names is
// checked as it was handed over and no run waits for a connector process.
std::vector<std::wstring> g_launches;

BOOL WINAPI NoteLaunch(SHELLEXECUTEINFOW* info) {
    g_launches.push_back(info->lpFile);
    return TRUE;
}

std::shared_ptr<void> NotingLaunches() {
    g_launches.clear();
    return std::make_shared<ImportPatch>(GetModuleHandleW(nullptr),
                                         reinterpret_cast<void*>(GetProcAddress(
                                             GetModuleHandleW(L"shell32.dll"), "ShellExecuteExW")),
                                         reinterpret_cast<void*>(&NoteLaunch));
}

// The hand-off names a connector URL carries after "$files=", separated by commas.
std::vector<std::wstring> HandedOff(const std::wstring& url) {
    std::vector<std::wstring> names;
    std::wistringstream list(url.substr(url.find(L"$files=") + 7));
    for (std::wstring name; std::getline(list, name, L',');) {
        names.push_back(name);
    }
    return names;
}

// The staging folders of the run that hold a hand-off, and whether the file it names (staged
// there, or an automation client's own) is there and not empty.
std::vector<std::pair<std::wstring, bool>> HandOffFolders(const std::wstring& inbox) {
    std::vector<std::pair<std::wstring, bool>> folders;
    WIN32_FIND_DATAW found;
    HANDLE search = FindFirstFileW((inbox + L"td_data_*").c_str(), &found);
    for (bool more = search != INVALID_HANDLE_VALUE; more; more = FindNextFileW(search, &found)) {
        const std::wstring name = found.cFileName, handOff = inbox + name + L"\\" + name + L".xml";
        if (GetFileAttributesW(handOff.c_str()) != INVALID_FILE_ATTRIBUTES) {
            const std::string xml = ReadFileBytes(handOff);
            const size_t path = xml.find("<path>") + 6, end = xml.find("</path>");
            WIN32_FILE_ATTRIBUTE_DATA file{};
            folders.emplace_back(
                name, path > 6 && end != std::string::npos && end > path &&
                          GetFileAttributesExW(FromUtf8(xml.substr(path, end - path)).c_str(),
                                               GetFileExInfoStandard, &file) &&
                          (file.nFileSizeLow > 0 || file.nFileSizeHigh > 0));
        }
    }
    FindClose(search);
    return folders;
}

struct Outcome {
    std::vector<CallSequence::Call> calls;
    bool fired = false;
    std::wstring log;
    std::vector<WindowWatcher::Window> windows;
    std::vector<std::wstring> urls;
    bool failed = false;  // the capture failed: a box or line of the commands says so
};

// The boxes that end a capture (8007, and 8055 which begins with the same sentence; 8008, 8010,
// 8054), and the lines with which the single-item and attachment commands end theirs unshown.
bool CaptureFailed(const Outcome& outcome) {
    std::wstring told = outcome.log;
    for (const WindowWatcher::Window& window : outcome.windows) {
        for (const WindowWatcher::Control& control : window.controls) {
            told += L"[BOX] " + control.text + L"\n";
        }
    }
    for (const wchar_t* ending :
         {L"[BOX] Das Dokument konnte nicht zwischengespeichert werden!",
          L"[BOX] Es wurde kein Dokument selektiert!", L"[BOX] Unzul\u00E4ssiger Dokumenttyp!",
          L"[BOX] Es konnten keine Anh\u00E4nge gefunden werden.",
          L"[ERR] Can't get CurrentItem from Context!", L"[ERR] Can't save current item!",
          L"[ERR] error saving attachment files to disk\n"}) {
        if (told.find(ending) != std::wstring::npos) {
            return true;
        }
    }
    return false;
}

using Spoil = std::function<std::shared_ptr<void>(const std::wstring& temp)>;

// Runs the command once in a fresh host, with the `ordinal`-th call failing in `style` when a
// fault is given, in an environment `spoil` spoils for the run. Checks what every run must end
// with: every reference and MAPI buffer given back, and hand-offs only of whole captures (a
// selection's items are archived all or none; the folders of a failed capture are left as they
// are, without a hand-off), the connector handed only folders with a hand-off and its file.
Outcome RunOnce(const Command& command, const std::string& run,
                std::optional<std::pair<size_t, Style>> fault, const Spoil& spoil = nullptr) {
    TestMakesProgress();
    TempDirectoryOverride temp;
    RegistrySandbox registry;
    registry.SetMachineNumber(L"MultiProcess", command.multiProcess ? 1 : 0);
    registry.SetMachineNumber(L"Attachments", 1);
    // The program lies one folder deeper than the others: <build>\tests\robustness.
    registry.SetMachineString(L"Dir", (BuiltAddinFolder() + L"\\..\\..\\addin").c_str());
    registry.SetMachineTargets({StorageTarget(L"Rechnungen", L"42", L"7")});
    WindowWatcher watcher;
    watcher.CancelUnexpected();
    if (command.dialog) {
        watcher.Expect(command.dialog).Click(command.answer);
    }
    std::unique_ptr<Host> host = command.host();
    const RefCountList refCounts = host->RefCounts();
    const std::array<ULONG, 4> mapi = MapiCounts();
    LogCapture log;
    Outcome outcome;
    {
        const std::shared_ptr<void> spoiled = spoil ? spoil(temp.Path()) : nullptr;
        const std::shared_ptr<void> launches = NotingLaunches();
        CallSequence::Reset();
        if (fault) {
            CallSequence::Arm(fault->first, fault->second);
        }
        command.run(*host);
        outcome.calls = CallSequence::Calls();
        outcome.fired = CallSequence::Fired();
        CallSequence::Reset();
        outcome.urls = g_launches;
    }
    host->Settle(run);
    EXPECT_EQ(host->RefCounts(), refCounts) << run;
    EXPECT_EQ(MapiCounts(), mapi) << run;
    outcome.log = log.Text();
    outcome.windows = watcher.Seen();
    outcome.failed = CaptureFailed(outcome);
    const auto folders = HandOffFolders(temp.Inbox());
    for (const auto& [name, whole] : folders) {
        EXPECT_TRUE(whole) << run << ": a hand-off without its whole file in " << Utf8(name);
        EXPECT_FALSE(outcome.failed)
            << run << ": a hand-off for a failed capture in " << Utf8(name);
    }
    EXPECT_FALSE(outcome.failed && !outcome.urls.empty())
        << run << ": a failed capture handed to the connector";
    for (const std::wstring& url : outcome.urls) {
        for (const std::wstring& name : HandedOff(url)) {
            EXPECT_TRUE(std::count(folders.begin(), folders.end(), std::pair(name, true)) == 1)
                << run << ": the connector was handed " << Utf8(name) << " without its hand-off";
        }
    }
    return outcome;
}

// --- The commands.

// Starts the add-in as the host does, runs the ribbon callback (none: the start-up and shutdown
// alone) and shuts the add-in down.
std::function<void(Host&)> Ribbon(std::optional<RibbonCallback> callback) {
    return [callback](Host& host) {
        ComPtr<IClassFactory> factory;
        ComPtr<IDTExtensibility2> addin;
        ASSERT_EQ(GetServerClassObject(CLSID_TalvornAddin, IID_IClassFactory, factory.put_void()),
                  S_OK);
        ASSERT_EQ(factory->CreateInstance(nullptr, IID_IDTExtensibility2, addin.put_void()), S_OK);
        SAFEARRAY* custom = nullptr;
        addin->OnConnection(host.Application(), ext_cm_Startup, nullptr, &custom);
        addin->OnStartupComplete(&custom);
        if (callback) {
            ComPtr<IDispatch> callbacks;
            ASSERT_EQ(addin.query_to(callbacks.put()), S_OK);
            ComPtr<FakeDispatch> control = FakeDispatch::Create();
            control->SetProperty(L"Id", L"TLPMBTDX2_0001").SetProperty(L"Context", host.Context());
            Variant argument(static_cast<IDispatch*>(control.get()));
            DISPPARAMS params{&argument, nullptr, 1, 0};
            // The add-in answers the host, whatever went wrong inside.
            EXPECT_EQ(callbacks->Invoke(*callback, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_METHOD,
                                        &params, nullptr, nullptr, nullptr),
                      S_OK);
        }
        addin->OnBeginShutdown(&custom);
        addin->OnDisconnection(ext_dm_HostShutdown, &custom);
    };
}

// Calls `method` of the connector automation object the DLL hands out, by name and with texts in
// their natural order, as a script does. Whatever failed inside, the client gets its answer.
void CallConnector(const wchar_t* method, const std::vector<std::wstring>& texts = {}) {
    ComPtr<IClassFactory> factory;
    ComPtr<IDispatch> connector;
    ASSERT_EQ(GetServerClassObject(CLSID_TDConnectorCOM, IID_IClassFactory, factory.put_void()),
              S_OK);
    ASSERT_EQ(factory->CreateInstance(nullptr, IID_IDispatch, connector.put_void()), S_OK);
    LPOLESTR names[] = {const_cast<LPOLESTR>(method)};
    DISPID id = DISPID_UNKNOWN;
    ASSERT_EQ(connector->GetIDsOfNames(IID_NULL, names, 1, LOCALE_USER_DEFAULT, &id), S_OK);
    std::vector<Variant> arguments;
    for (auto text = texts.rbegin(); text != texts.rend(); ++text) {
        arguments.emplace_back(text->c_str());
    }
    DISPPARAMS params{arguments.data(), nullptr, static_cast<UINT>(arguments.size()), 0};
    Variant result;
    EXPECT_EQ(connector->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_METHOD, &params,
                                &result, nullptr, nullptr),
              S_OK);
}

std::function<void(Host&)> Connector(const wchar_t* method) {
    return [method](Host&) { CallConnector(method); };
}

constexpr CLSID kOutlookClsid = {
    0x0006F03A, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};

// The connector object deletes each mail of the Outlook running on the desktop, named by the
// identifiers the connector side knows (read without counting). Outlook's ProgID and running
// object are the prefix's, as the library's registration is.
void DeleteEach(Host& host) {
    FakeOutlook& outlook = static_cast<OutlookHost&>(host).Outlook();
    std::vector<std::vector<std::wstring>> requests;
    {
        const CallSequence::Serving uncounted;
        BStr store, entry;
        GetTextPropertyNoThrow(&outlook.Folder(), L"StoreID", &store);
        for (size_t i = 0; i < outlook.ItemCount(); ++i) {
            GetTextPropertyNoThrow(&outlook.Item(i), L"EntryID", &entry);
            requests.push_back({L"PR_ENTRYID", entry.c_str(), L"PR_STORE_ENTRYID", store.c_str()});
        }
    }
    wchar_t clsid[40] = {};
    StringFromGUID2(kOutlookClsid, clsid, 40);
    SetText(HKEY_CLASSES_ROOT, L"Outlook.Application\\CLSID", nullptr, clsid);
    DWORD running = 0;
    ASSERT_EQ(
        RegisterActiveObject(&outlook.Application(), kOutlookClsid, ACTIVEOBJECT_STRONG, &running),
        S_OK);
    for (const std::vector<std::wstring>& request : requests) {
        CallConnector(L"DeleteMail", request);
    }
    RevokeActiveObject(running, nullptr);
    RegDeleteTreeW(HKEY_CLASSES_ROOT, L"Outlook.Application");
}

// The library registered for a sweep or run that reaches it. The registration is the prefix's:
// such test cases hold the ctest lock rdosim_registration.
std::shared_ptr<void> RegisteredLibrary() {
    FakeRedemption::Register();
    return std::shared_ptr<void>(nullptr, [](void*) { FakeRedemption::Unregister(); });
}

// The test process is the host's apartment, in which the add-in creates the library's session.
template <class Row>
class InHostApartment : public testing::TestWithParam<Row> {
protected:
    static void SetUpTestSuite() {
        CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
        MapiSimSetCallHook(OfferMapiCall);
    }
    static void TearDownTestSuite() {
        MapiSimSetCallHook(nullptr);
        CoUninitialize();
    }
};

class FaultSweep : public InHostApartment<Command> {
protected:
    void RunFaulted(size_t ordinal, Style style) {
        const Command& command = GetParam();
        const std::wstring& call = m_clean.at(ordinal - 1).name;
        static const char* const kStyles[] = {"plain", "exception", "deferred exception",
                                              "out of memory"};
        const std::string run = Utf8(call) + " failing (" + kStyles[static_cast<int>(style)] + ")";
        const Outcome outcome = RunOnce(command, run, std::make_pair(ordinal, style));
        EXPECT_TRUE(outcome.fired) << run << ": the call was not made again";
        // A failed call is logged with its status ("... hr = 0x8007000E"), or the user is told
        // in a box. A presentation whose SaveCopyAs fails is staged through SaveAs without a word.
        wchar_t status[16];
        std::swprintf(status, 16, L"0x%08lX",
                      static_cast<unsigned long>(
                          style == Style::OutOfMemory ? E_OUTOFMEMORY : CallSequence::kInjected));
        const bool told = outcome.log.find(std::wstring(L"hr = ") + status) != std::wstring::npos ||
                          !outcome.windows.empty() || NamedWithoutStatus(outcome.log) ||
                          call == L"call SaveCopyAs" || call == L"GetIDsOfNames SaveCopyAs" ||
                          std::count(command.probes.begin(), command.probes.end(), call) > 0;
        EXPECT_TRUE(told) << run << ": neither a message box nor a log line with " << Utf8(status)
                          << " (call " << ordinal << ")\n--- log ---\n"
                          << Utf8(outcome.log);
        const size_t occurrence = static_cast<size_t>(
            std::count_if(m_clean.begin(), m_clean.begin() + ordinal,
                          [&](const CallSequence::Call& c) { return c.name == call; }));
        for (const Named& named : command.named) {
            if (named.call != call || named.occurrence != occurrence) {
                continue;
            }
            const std::wstring line =
                named.line ? std::wstring(L"[ERR] ") + named.line + L" hr = " + status + L"\n"
                           : L"";
            EXPECT_NE(outcome.log.find(line), std::wstring::npos)
                << run << ": expected " << Utf8(line) << "--- log ---\n"
                << Utf8(outcome.log);
            ExpectEffect(style == Style::OutOfMemory ? named.outOfMemory.value_or(named.effect)
                                                     : named.effect,
                         outcome, run);
        }
    }

    void ExpectEffect(Effect effect, const Outcome& outcome, const std::string& run) const {
        const size_t handedOff = outcome.urls.size() == 1 ? HandedOff(outcome.urls[0]).size() : 0;
        if (effect == Effect::GoesOn || effect == Effect::LeavesOneOut) {
            for (const WindowWatcher::Window& window : outcome.windows) {
                EXPECT_TRUE(GetParam().dialog && window.caption == GetParam().dialog)
                    << run << ": " << window;
            }
            EXPECT_EQ(outcome.urls.size(), 1u) << run;
            EXPECT_EQ(handedOff, m_handedOff - (effect == Effect::LeavesOneOut ? 1 : 0)) << run;
        }
        EXPECT_TRUE(effect != Effect::EndsCapture || outcome.failed)
            << run << ": the capture went on";
        EXPECT_TRUE(effect != Effect::EndsOutOfMemory ||
                    (outcome.windows.size() == 1 &&
                     outcome.windows[0].HasText(L"Das Dokument konnte nicht zwischengespeichert "
                                                L"werden! Der Anwendung steht zu wenig Speicher "
                                                L"zur Verf\u00FCgung.")))
            << run << ": not the out-of-memory box";
    }

    std::vector<CallSequence::Call> m_clean;
    size_t m_handedOff = 0;  // hand-offs of the clean run
};

TEST_P(FaultSweep, EveryCallFailingInEveryStyleIsSurvivedAndTold) {
    const auto started = std::chrono::steady_clock::now();
    const std::string suite =
        testing::UnitTest::GetInstance()->current_test_info()->test_suite_name();
    // The commands of the instantiations Library and Running reach the library.
    const std::shared_ptr<void> library =
        suite.rfind("Hosts/", 0) != 0 ? RegisteredLibrary() : nullptr;
    const Outcome clean = RunOnce(GetParam(), "clean run", std::nullopt);
    m_clean = clean.calls;
    m_handedOff = clean.urls.size() == 1 ? HandedOff(clean.urls[0]).size() : 0;
    // The clean run does its work: it hands off, or deletes the mails without an error.
    EXPECT_EQ(m_handedOff > 0, GetParam().archives) << Utf8(clean.log);
    EXPECT_TRUE(suite.rfind("Running/", 0) != 0 || clean.log.find(L"[ERR]") == std::wstring::npos)
        << Utf8(clean.log);
    for (const Named& named : GetParam().named) {
        EXPECT_GE(std::count_if(m_clean.begin(), m_clean.end(),
                                [&](const auto& call) { return call.name == named.call; }),
                  static_cast<ptrdiff_t>(named.occurrence))
            << "the clean run makes no call " << Utf8(named.call);
    }
    ASSERT_FALSE(HasFailure()) << "the clean run";
    size_t injected = 0;
    for (size_t k = 1; k <= m_clean.size() && !HasFatalFailure(); ++k) {
        // Invoke knows every style; a name lookup or a MAPI call answers a status only. A call
        // made again (the next item of a loop) fails plainly: its handling is the same code.
        const CallSequence::Call& call = m_clean[k - 1];
        const bool again =
            std::any_of(m_clean.begin(), m_clean.begin() + (k - 1),
                        [&](const auto& earlier) { return earlier.name == call.name; });
        const bool automation = call.kind == CallSequence::Kind::Automation &&
                                call.name.rfind(L"GetIDsOfNames", 0) != 0;
        const std::vector<Style> styles =
            again        ? std::vector{Style::Plain}
            : automation ? std::vector{Style::Plain, Style::Exception, Style::DeferredException,
                                       Style::OutOfMemory}
                         : std::vector{Style::Plain, Style::OutOfMemory};
        for (Style style : styles) {
            RunFaulted(k, style);
            ++injected;
        }
    }
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    std::printf("[ sweep    ] %s: %zu calls, %zu faults injected, %s in %.1f s\n", GetParam().name,
                m_clean.size(), injected, HasFailure() ? "FAILURES" : "all passed", seconds);
}

std::function<std::unique_ptr<Host>()> Office(int32_t kind, const wchar_t* name,
                                              const wchar_t* version = L"16.0",
                                              bool unsaved = false) {
    return [=] { return std::make_unique<OfficeHost>(kind, name, version, unsaved); };
}

std::function<std::unique_ptr<Host>()> Outlook(OutlookSetup setup) {
    return [=] { return std::make_unique<OutlookHost>(setup); };
}

// An automation client's process.
std::function<std::unique_ptr<Host>()> Client() {
    return [] { return std::make_unique<Host>(); };
}
// A mail, a signed mail and a mail with attachments.
std::vector<std::wstring> MixedSelection() {
    return {SampleItem(L"01-angebot.item"), SampleItem(L"10-signiert.item"),
            SampleItem(L"11-anhaenge.item")};
}

const std::vector<std::wstring> kCommandBarProbes = {L"GetIDsOfNames FindControl",
                                                     L"call FindControl", L"get FindControl",
                                                     L"GetIDsOfNames Item", L"get Item"};

const Named kCurrentItem{L"get CurrentItem", L"Can't get CurrentItem from Context!",
                         Effect::EndsCapture};

const wchar_t kChoice[] = L"Anh\u00E4nge ausw\u00E4hlen";

constexpr Effect kEnds = Effect::EndsCapture;
constexpr Effect kGoesOn = Effect::GoesOn;

std::string RowName(const testing::TestParamInfo<Command>& info) { return info.param.name; }

// The Office hosts, and the commands that reach no library: they run beside the others.
INSTANTIATE_TEST_SUITE_P(
    Hosts, FaultSweep,
    testing::Values(
        Command{
            "ArchiveWord",
            Office(kHostWord, L"Microsoft Word"),
            Ribbon(kCallbackArchive),
            true,
            nullptr,
            IDOK,
            false,
            {{L"get Path", L"Can't get path of active document!", kEnds},
             {L"get FullName", L"Can't get name of active document!", kEnds},
             {L"call SaveAs", L"Can't save initially created document!", kEnds},
             {L"get CustomDocumentProperties", L"Can't get custom document properties!", kGoesOn},
             {L"put Saved", L"Failed to set saved flag of the current word document!", kGoesOn}}},
        Command{"ArchiveExcel",
                Office(kHostExcel, L"Microsoft Excel"),
                Ribbon(kCallbackArchive),
                true,
                nullptr,
                IDOK,
                false,
                {{L"get ActiveWorkbook", L"Can't get active work book!", kEnds},
                 {L"call Save", L"Can't save workbook!", kEnds},
                 {L"get Name", L"Can't get name of active workbook!", kEnds, std::nullopt, 2},
                 {L"call SaveCopyAs", L"Can not SaveCopyAs active document!", kGoesOn},
                 {L"get BuiltInDocumentProperties", L"Can't get built-in document properties!",
                  kGoesOn}}},
        // PowerPoint reports its built-in collection with the custom collection's text, and
        // stages through SaveAs when SaveCopyAs fails.
        Command{"ArchivePowerPoint",
                Office(kHostPowerPoint, L"Microsoft PowerPoint"),
                Ribbon(kCallbackArchive),
                true,
                nullptr,
                IDOK,
                false,
                {{L"get ReadOnly", L"Can't get ReadOnly flag of active document!", kEnds},
                 {L"call SaveCopyAs", nullptr, kGoesOn},
                 {L"get BuiltInDocumentProperties", L"Can't get custom document properties!",
                  kGoesOn}}},
        Command{"ArchiveNewPowerPoint",
                Office(kHostPowerPoint, L"Microsoft PowerPoint", L"16.0", true),
                Ribbon(kCallbackArchive),
                true,
                nullptr,
                IDOK,
                false,
                {{L"get Name", L"Can't get name of active presentation!", kEnds, std::nullopt, 2},
                 {L"call SaveAs", L"Can't save initially created presentation!", kEnds}}},
        Command{"Settings", Office(kHostWord, L"Microsoft Word"), Ribbon(kCallbackSettings)},
        Command{"StartAndStopWithCommandBars",
                Office(kHostWord, L"Microsoft Word", L"11.0"),
                Ribbon(std::nullopt),
                false,
                nullptr,
                IDOK,
                false,
                {{L"get Name", L"Failed to get office application name!"},
                 {L"get Version", L"Can't get version from application!"},
                 {L"get CommandBars", L"Failed to access CommandBars property!"},
                 {L"get CustomizationContext", L"Failed to get the current word template!"},
                 {L"put Saved", L"Failed to set saved flag of the current word template!"}},
                kCommandBarProbes},
        Command{"Info", Outlook({MixedSelection()}), Ribbon(kCallbackInfo)},
        // Reading the explorers is reported with the active explorer's text.
        Command{"StartAndStopOutlookWithCommandBars",
                Outlook({MixedSelection(), std::nullopt, L"12.0"}),
                Ribbon(std::nullopt),
                false,
                nullptr,
                IDOK,
                true,
                {{L"get Explorers", L"Failed to access ActiveExplorer property!"},
                 {L"get CommandBars", L"Failed to access CommandBars property!"},
                 {L"get Inspectors", L"Failed to access Inspectors property!"}},
                kCommandBarProbes},
        // The connector object's methods that call no host: each is its clean run alone.
        Command{"ConnectorRun", Client(),
                [](Host&) {
                    CallConnector(L"Run", {TestSourcePath(L"../tools/samples/Angebot 2024.docx")});
                },
                true},
        Command{"ConnectorDisplaySettings", Client(), Connector(L"DisplaySettings"), false,
                L"Einstellungen"},
        Command{"ConnectorDisplayInfo", Client(), Connector(L"DisplayInfo"), false, L"Info"}),
    RowName);

// The Outlook commands that reach the library.
INSTANTIATE_TEST_SUITE_P(
    Library, FaultSweep,
    testing::Values(
        // A mail MAPI cannot copy is written by Outlook itself, unless memory ran out. A failing
        // item ends the whole selection.
        Command{"ArchiveOutlookSelection",
                Outlook({MixedSelection()}),
                Ribbon(kCallbackArchive),
                true,
                nullptr,
                IDOK,
                false,
                {{L"Message::CopyTo", L"Failed to copy message properties!", kGoesOn,
                  Effect::EndsOutOfMemory}}},
        // The open item is the signed mail, which goes through the library.
        Command{"ArchiveOpenItem",
                Outlook({{SampleItem(L"10-signiert.item")}, 0}),
                Ribbon(kCallbackArchiveSingleOutlook),
                true,
                nullptr,
                IDOK,
                false,
                {kCurrentItem}},
        // The signed mail's attachments come through the library, the other mail's through
        // Outlook; a third mail would only repeat one of the two paths at the sweep's cost. An
        // attachment that cannot be saved is left out; the others are handed off.
        Command{"AttachmentsOfSelection",
                Outlook({{SampleItem(L"10-signiert.item"), SampleItem(L"11-anhaenge.item")}}),
                Ribbon(kCallbackAttachment),
                true,
                kChoice,
                IDOK,
                false,
                {{L"call SaveAsFile", L"Can't save the attachment!", Effect::LeavesOneOut}}},
        Command{"AttachmentsOfOpenItem",
                Outlook({MixedSelection(), 2}),
                Ribbon(kCallbackAttachmentSingleOutlook),
                true,
                kChoice,
                IDOK,
                false,
                {kCurrentItem}}),
    RowName);

// The connector object deletes a plain mail through Outlook and a signed one through the library.
INSTANTIATE_TEST_SUITE_P(
    Running, FaultSweep,
    testing::Values(Command{
        "ConnectorDeleteMail",
        Outlook({{SampleItem(L"01-angebot.item"), SampleItem(L"10-signiert.item")}}),
        DeleteEach,
        false,
        nullptr,
        IDOK,
        false,
        {{L"get Version", L"Can't get version from outlook!"},
         {L"get MessageClass", L"Can't get message class for selected item!"},
         {L"call Delete", L"Failed to delete mail item!"},
         {L"get Session", L"Can't get session!"},
         {L"call GetMessageFromID", L"Can't call GetMessageFromID!"}}}),
    RowName);

// --- A hostile environment: what the sweep's hosts meet on a badly set-up computer.

struct EnvironmentCase {
    const char* name;
    Command command;
    Spoil spoil;     // what it returns lives as long as the run
    bool delivered;  // whether the connector still gets a hand-off
};

void PrintTo(const EnvironmentCase& row, std::ostream* out) { *out << row.name; }

class HostileEnvironment : public InHostApartment<EnvironmentCase> {};

TEST_P(HostileEnvironment, IsRefusedOrSurvivedWithoutATruncatedHandOff) {
    const EnvironmentCase& row = GetParam();
    const std::shared_ptr<void> library = RegisteredLibrary();
    const Outcome outcome = RunOnce(row.command, row.name, std::nullopt, row.spoil);
    EXPECT_EQ(outcome.urls.size(), row.delivered ? 1u : 0u);
    EXPECT_TRUE(row.delivered || !outcome.windows.empty() ||
                outcome.log.find(L"[ERR]") != std::wstring::npos)
        << "the refusal is neither shown nor logged\n"
        << Utf8(outcome.log);
}

// TEMP (and TMP) pointing elsewhere for the run.
Spoil TempAt(std::wstring folder) {
    return [folder](const std::wstring&) {
        SetEnvironmentVariableW(L"TEMP", folder.c_str());
        SetEnvironmentVariableW(L"TMP", folder.c_str());
        return std::shared_ptr<void>();
    };
}

// The log file held open by another program that lets nobody write.
std::shared_ptr<void> LockedLog(const std::wstring&) {
    HANDLE file = CreateFileW(TheLog().Path().c_str(), GENERIC_READ, 0, nullptr, OPEN_ALWAYS,
                              FILE_ATTRIBUTE_NORMAL, nullptr);
    return std::shared_ptr<void>(file, [](HANDLE handle) {
        if (handle != INVALID_HANDLE_VALUE) {
            CloseHandle(handle);
        }
    });
}

std::function<std::unique_ptr<Host>()> OutlookWith(std::wstring item, bool inspect = false) {
    return Outlook({{item}, inspect ? std::optional<size_t>(0) : std::nullopt});
}

const std::wstring kLongName(300, L'n');
const Command kArchiveWord{"Word", Office(kHostWord, L"Microsoft Word"), Ribbon(kCallbackArchive)};

INSTANTIATE_TEST_SUITE_P(
    Cases, HostileEnvironment,
    testing::Values(
        EnvironmentCase{"MissingTemp", kArchiveWord, TempAt(L"C:\\nicht\\vorhanden\\"), false},
        EnvironmentCase{"TempIsAFile", kArchiveWord,
                        [](const std::wstring& temp) {
                            WriteFileBytes(temp + L"datei", "x");
                            return TempAt(temp + L"datei\\")(temp);
                        },
                        false},
        EnvironmentCase{"LogCannotBeOpened", kArchiveWord, LockedLog, true},
        EnvironmentCase{
            "SubjectLongerThanAPath",
            {"Outlook", OutlookWith(L"class = IPM.Note\nPR_SUBJECT = " + kLongName + L"\n"),
             Ribbon(kCallbackArchive)},
            nullptr,
            true},
        EnvironmentCase{
            "AttachmentNameLongerThanAPath",
            {"Outlook",
             OutlookWith(L"class = IPM.Note\nattachment = " + kLongName + L".txt | Inhalt\n", true),
             Ribbon(kCallbackAttachmentSingleOutlook), true, kChoice},
            nullptr,
            false}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
