// Every object-model call a command makes, failed in turn. A command runs once clean, which
// numbers its calls into the simulated hosts (Office, Outlook, the simulated mapi32.dll and the
// MAPI library reached by ProgID); then it runs again once per call and fault style with that one
// call failing. Each run starts the add-in as a host does, runs the command and shuts the add-in
// down, and must end with every reference and every MAPI buffer, object and session given back,
// no hand-off naming a file that is missing or empty, and the failure told: in a message box or
// in a log line carrying its status. A call the product starts making later is swept with the
// others, without a new case here.
#include <windows.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "addin/OfficeInterfaces.h"
#include "addin/Ribbon.h"
#include "addin/TalvornAddin.h"
#include "common/ComPtr.h"
#include "common/HostKind.h"
#include "common/Variant.h"
#include "officesim/CallSequence.h"
#include "officesim/FakeCommandBars.h"
#include "outlooksim/FakeOutlook.h"
#include "outlooksim/ItemText.h"
#include "rdosim/FakeRedemption.h"
#include "server/ComServer.h"
#include "common/LogFile.h"
#include "support/BuiltModule.h"
#include "support/ConnectorRecord.h"
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

// A host with the add-in loaded: what one command needs, made fresh for every run.
class Host {
public:
    virtual ~Host() = default;
    virtual IDispatch& Application() const = 0;
    // The window a ribbon control of the command belongs to.
    virtual IDispatch& Context() const { return Application(); }
    virtual RefCountList RefCounts() const = 0;
    // After a run: checks and lets go of what the host's doubles keep for themselves.
    virtual void Settle(const std::string&) {}
    FakeCommandBars& CommandBars() { return m_commandBars; }

protected:
    mutable FakeCommandBars m_commandBars;
};

class OfficeHost final : public Host {
public:
    OfficeHost(int32_t kind, const wchar_t* name, const wchar_t* version) : m_office(kind) {
        m_office.Application()
            .SetProperty(L"Name", name)
            .SetProperty(L"Version", version)
            .SetProperty(L"CommandBars", static_cast<IDispatch*>(&m_commandBars.Collection()));
        if (kind == kHostWord) {
            m_template->SetProperty(L"Saved", true);
            m_office.Application().SetProperty(L"CustomizationContext",
                                               static_cast<IDispatch*>(m_template.get()));
        }
        m_office.OpenFrom(m_folder / (std::wstring(L"Angebot.") + m_office.Extension()));
        m_office.CustomProperties().Add(L"Projekt", Variant(L"Apollo"));
        m_office.BuiltInProperties().Add(L"Title", Variant(L"Angebot"));
    }
    IDispatch& Application() const override { return m_office.Application(); }
    RefCountList RefCounts() const override {
        RefCountList counts = m_office.RefCounts();
        counts.emplace_back(L"template", m_template->RefCount());
        counts.emplace_back(L"command bars", m_commandBars.Collection().RefCount());
        return counts;
    }

private:
    ScratchFolder m_folder;
    FakeOffice m_office;
    ComPtr<FakeDispatch> m_template = FakeDispatch::Create();
};

std::wstring SampleItem(const wchar_t* name) {
    return outlooksim::ReadItemTextFile(TestSourcePath(L"../tools/samples/outlook/") + name);
}

class OutlookHost final : public Host {
public:
    // A mixed selection: a mail, a signed mail and a mail with attachments, the last one open.
    OutlookHost(bool inspect, const wchar_t* version)
        : OutlookHost(inspect, version,
                      {SampleItem(L"01-angebot.item"), SampleItem(L"10-signiert.item"),
                       SampleItem(L"11-anhaenge.item")}) {}
    OutlookHost(bool inspect, const wchar_t* version, const std::vector<std::wstring>& items) {
        for (const std::wstring& item : items) {
            m_outlook.SelectItemText(item);
        }
        if (inspect) {
            m_outlook.Inspect(items.size() > 2 ? 2 : 0);
        }
        m_outlook.Application().SetProperty(L"Name", L"Outlook").SetProperty(L"Version", version);
        m_inspect = inspect;
    }
    IDispatch& Application() const override { return m_outlook.Application(); }
    IDispatch& Context() const override {
        if (m_inspect) {
            return *m_outlook.Inspector();
        }
        return m_outlook.Explorer();
    }
    RefCountList RefCounts() const override {
        RefCountList counts = m_outlook.RefCounts();
        counts.emplace_back(L"live MAPI objects of Outlook", m_outlook.LiveMapiObjects());
        return counts;
    }
    // The library's objects are held by the double alone; then it goes, and with it the
    // references to Outlook's session that the library's sessions keep.
    void Settle(const std::string& run) override {
        if (!m_redemption) {
            return;
        }
        for (const auto& [label, count] : m_redemption->RefCounts()) {
            EXPECT_EQ(count, 1u) << run << ": " << ToUtf8(label);
        }
        m_redemption.reset();
    }

private:
    FakeOutlook m_outlook;
    std::unique_ptr<FakeRedemption> m_redemption = std::make_unique<FakeRedemption>(m_outlook);
    bool m_inspect = false;
};

// One command as the sweep runs it.
struct Command {
    const char* name;
    std::function<std::unique_ptr<Host>()> host;
    // A ribbon callback; none runs only the start-up and the shutdown.
    std::optional<RibbonCallback> callback;
    // The caption of a dialog the command shows and the button that answers it.
    const wchar_t* dialog = nullptr;
    int answer = IDOK;
    bool multiProcess = false;
    // The error line (before its " hr = ...") that the first call of a member logs when it fails.
    std::vector<std::pair<const wchar_t*, const wchar_t*>> named = {};
    // Calls whose failure means "not there": a command bar or control looked up before it is
    // made. The host answers them with an error on every first start, so they go unlogged.
    std::vector<std::wstring> probes = {};
};

void PrintTo(const Command& command, std::ostream* out) { *out << command.name; }

std::string Utf8(const std::wstring& text) { return ToUtf8(text); }

std::string Describe(const CallSequence::Call& call, Style style) {
    static const char* const kStyles[] = {"plain", "exception", "deferred exception",
                                          "out of memory"};
    return Utf8(call.name) + " failing (" + kStyles[static_cast<int>(style)] + ")";
}

struct MapiCounts {
    ULONG buffers = MapiSimLiveBuffers();
    ULONG objects = MapiSimLiveObjects();
    ULONG sessions = MapiSimLiveSessions();
    ULONG badFrees = MapiSimBadFrees();
    bool operator==(const MapiCounts&) const = default;
};

std::ostream& operator<<(std::ostream& out, const MapiCounts& c) {
    return out << c.buffers << " buffers, " << c.objects << " objects, " << c.sessions
               << " sessions, " << c.badFrees << " bad frees";
}

std::string HexStatus(HRESULT hr) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%08lX", static_cast<unsigned long>(hr));
    return text;
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

// Failures the product recovers from without a word, by design: a presentation whose SaveCopyAs
// fails is staged through SaveAs.
bool RecoveredSilently(const std::wstring& call) {
    return call == L"call SaveCopyAs" || call == L"GetIDsOfNames SaveCopyAs";
}

// Every hand-off in the staging area names a file that is there and not empty.
void ExpectCompleteHandOffs(const std::wstring& temp, const std::string& run) {
    WIN32_FIND_DATAW folder;
    HANDLE folders = FindFirstFileW((temp + L"td_data_*").c_str(), &folder);
    if (folders == INVALID_HANDLE_VALUE) {
        return;
    }
    do {
        const std::wstring path = temp + folder.cFileName + L"\\";
        const std::string xml = ReadFileBytes(path + folder.cFileName + L".xml");
        if (xml.empty()) {
            continue;
        }
        WIN32_FIND_DATAW file;
        HANDLE files = FindFirstFileW((path + L"*").c_str(), &file);
        bool document = false;
        do {
            const std::wstring name = file.cFileName;
            if (name != L"." && name != L".." && name != std::wstring(folder.cFileName) + L".xml") {
                document = true;
                EXPECT_TRUE(file.nFileSizeLow > 0 || file.nFileSizeHigh > 0)
                    << run << ": empty staged file " << Utf8(name);
            }
        } while (files != INVALID_HANDLE_VALUE && FindNextFileW(files, &file));
        if (files != INVALID_HANDLE_VALUE) {
            FindClose(files);
        }
        EXPECT_TRUE(document) << run << ": a hand-off without its file in "
                              << Utf8(folder.cFileName);
    } while (FindNextFileW(folders, &folder));
    FindClose(folders);
}

// Starts the add-in as the host does, runs the command, shuts the add-in down.
void RunCommand(Host& host, const Command& command) {
    ComPtr<IClassFactory> factory;
    ComPtr<IDTExtensibility2> addin;
    ASSERT_EQ(GetServerClassObject(CLSID_TalvornAddin, IID_IClassFactory, factory.put_void()),
              S_OK);
    ASSERT_EQ(factory->CreateInstance(nullptr, IID_IDTExtensibility2, addin.put_void()), S_OK);
    SAFEARRAY* custom = nullptr;
    addin->OnConnection(&host.Application(), ext_cm_Startup, nullptr, &custom);
    addin->OnStartupComplete(&custom);
    if (command.callback) {
        ComPtr<IDispatch> callbacks;
        ASSERT_EQ(addin.query_to(callbacks.put()), S_OK);
        ComPtr<FakeDispatch> control = FakeDispatch::Create();
        control->SetProperty(L"Id", L"TLPMBTDX2_0001").SetProperty(L"Context", &host.Context());
        Variant argument(static_cast<IDispatch*>(control.get()));
        DISPPARAMS params{&argument, nullptr, 1, 0};
        // The add-in answers the host, whatever went wrong inside.
        EXPECT_EQ(callbacks->Invoke(*command.callback, IID_NULL, LOCALE_USER_DEFAULT,
                                    DISPATCH_METHOD, &params, nullptr, nullptr, nullptr),
                  S_OK);
    }
    addin->OnBeginShutdown(&custom);
    addin->OnDisconnection(ext_dm_HostShutdown, &custom);
}

class FaultSweep : public testing::TestWithParam<Command> {
protected:
    // The host's apartment, in which the add-in creates the library's session.
    static void SetUpTestSuite() {
        CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
        FakeRedemption::Register();
        MapiSimSetCallHook(OfferMapiCall);
    }
    static void TearDownTestSuite() {
        MapiSimSetCallHook(nullptr);
        FakeRedemption::Unregister();
        CoUninitialize();
    }

    // One run of the command; with a fault, the `ordinal`-th call fails in `style`. Returns the
    // calls the run made.
    std::vector<CallSequence::Call> Run(std::optional<std::pair<size_t, Style>> fault) {
        const Command& command = GetParam();
        TestMakesProgress();
        const std::string run =
            fault ? Describe(m_clean.at(fault->first - 1), fault->second) : "clean run";
        TempDirectoryOverride temp;
        RegistrySandbox registry;
        registry.SetMachineNumber(L"MultiProcess", command.multiProcess ? 1 : 0);
        registry.SetMachineNumber(L"Attachments", 1);
        // The program lies one folder deeper than the others: <build>\tests\robustness.
        registry.SetMachineString(L"Dir", (BuiltAddinFolder() + L"\\..\\..\\addin").c_str());
        registry.SetMachineTargets({StorageTarget(L"Rechnungen", L"42", L"7")});
        ConnectorRecord connector;
        WindowWatcher watcher;
        watcher.CancelUnexpected();
        if (command.dialog) {
            watcher.Expect(command.dialog).Click(command.answer);
        }
        std::unique_ptr<Host> host = command.host();
        const RefCountList refCounts = host->RefCounts();
        const MapiCounts mapi;
        LogCapture log;

        CallSequence::Reset();
        if (fault) {
            CallSequence::Arm(fault->first, fault->second);
        }
        RunCommand(*host, command);
        std::vector<CallSequence::Call> calls = CallSequence::Calls();
        const bool fired = CallSequence::Fired();
        CallSequence::Reset();

        host->Settle(run);
        EXPECT_EQ(host->RefCounts(), refCounts) << run;
        EXPECT_EQ(MapiCounts(), mapi) << run;
        ExpectCompleteHandOffs(temp.Path(), run);
        const bool archives = command.callback && *command.callback != kCallbackSettings &&
                              *command.callback != kCallbackInfo;
        if (!fault && archives) {
            EXPECT_EQ(connector.WaitForUrls(1).size(), 1u)
                << "the clean run hands nothing off\n--- log ---\n"
                << Utf8(log.Text());
        }
        if (fault) {
            EXPECT_TRUE(fired) << run << ": the call was not made again";
            const std::wstring text = log.Text();
            const HRESULT hr =
                fault->second == Style::OutOfMemory ? E_OUTOFMEMORY : CallSequence::kInjected;
            // A failed call is logged with its status ("... hr = 0x8007000E"), or the user is
            // told in a box.
            const std::string status = "hr = " + HexStatus(hr);
            const bool told = Utf8(text).find(status) != std::string::npos ||
                              !watcher.Seen().empty() || NamedWithoutStatus(text) ||
                              RecoveredSilently(m_clean.at(fault->first - 1).name) ||
                              std::count(command.probes.begin(), command.probes.end(),
                                         m_clean.at(fault->first - 1).name) > 0;
            const std::wstring& call = m_clean.at(fault->first - 1).name;
            const bool first =
                std::find_if(m_clean.begin(), m_clean.end(),
                             [&](const CallSequence::Call& c) { return c.name == call; }) -
                    m_clean.begin() ==
                static_cast<ptrdiff_t>(fault->first - 1);
            for (const auto& [member, line] : command.named) {
                if (first && call == member) {
                    const std::wstring expected = std::wstring(L"[ERR] ") + line + L" hr = " +
                                                  std::wstring(status.begin() + 5, status.end()) +
                                                  L"\n";
                    EXPECT_NE(text.find(expected), std::wstring::npos)
                        << run << ": expected " << Utf8(expected);
                }
            }
            EXPECT_TRUE(told) << run << ": neither a message box nor a log line with " << status
                              << " (call " << fault->first << ")\n--- log ---\n"
                              << Utf8(text);
        }
        return calls;
    }

    std::vector<CallSequence::Call> m_clean;
};

TEST_P(FaultSweep, EveryCallFailingInEveryStyleIsSurvivedAndTold) {
    const auto started = std::chrono::steady_clock::now();
    m_clean = Run(std::nullopt);
    ASSERT_FALSE(HasFailure()) << "the clean run";
    ASSERT_FALSE(m_clean.empty());
    size_t injected = 0;
    for (size_t k = 1; k <= m_clean.size() && !HasFatalFailure(); ++k) {
        // Invoke knows every style; a name lookup or a MAPI call answers a status only. A call
        // made again (the next item of a loop) fails plainly: its handling is the same code.
        const CallSequence::Call& call = m_clean[k - 1];
        const bool again = std::find_if(m_clean.begin(), m_clean.begin() + (k - 1),
                                        [&](const CallSequence::Call& earlier) {
                                            return earlier.name == call.name;
                                        }) != m_clean.begin() + (k - 1);
        const bool automation = call.kind == CallSequence::Kind::Automation &&
                                call.name.rfind(L"GetIDsOfNames", 0) != 0;
        const std::vector<Style> styles =
            again        ? std::vector{Style::Plain}
            : automation ? std::vector{Style::Plain, Style::Exception, Style::DeferredException,
                                       Style::OutOfMemory}
                         : std::vector{Style::Plain, Style::OutOfMemory};
        for (Style style : styles) {
            Run(std::make_pair(k, style));
            ++injected;
        }
    }
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    std::printf("[ sweep    ] %s: %zu calls, %zu faults injected, %s in %.1f s\n", GetParam().name,
                m_clean.size(), injected, HasFailure() ? "FAILURES" : "all passed", seconds);
}

std::function<std::unique_ptr<Host>()> Office(int32_t kind, const wchar_t* name,
                                              const wchar_t* version = L"16.0") {
    return [=] { return std::make_unique<OfficeHost>(kind, name, version); };
}

std::function<std::unique_ptr<Host>()> Outlook(bool inspect = false,
                                               const wchar_t* version = L"16.0.0.5000") {
    return [=] { return std::make_unique<OutlookHost>(inspect, version); };
}

const std::vector<std::wstring> kCommandBarProbes = {L"GetIDsOfNames FindControl",
                                                     L"call FindControl", L"get FindControl",
                                                     L"GetIDsOfNames Item", L"get Item"};

const std::vector<std::pair<const wchar_t*, const wchar_t*>> kCurrentItemNamed = {
    {L"get CurrentItem", L"Can't get CurrentItem from Context!"}};

const wchar_t kChoice[] = L"Anh\u00E4nge ausw\u00E4hlen";

INSTANTIATE_TEST_SUITE_P(
    Commands, FaultSweep,
    testing::Values(
        Command{"ArchiveWord", Office(kHostWord, L"Microsoft Word"), kCallbackArchive},
        Command{"ArchiveExcel", Office(kHostExcel, L"Microsoft Excel"), kCallbackArchive},
        Command{"ArchivePowerPoint", Office(kHostPowerPoint, L"Microsoft PowerPoint"),
                kCallbackArchive},
        Command{"ArchiveOutlookSelection", Outlook(), kCallbackArchive},
        Command{"ArchiveOpenItem", Outlook(true), kCallbackArchiveSingleOutlook, nullptr, IDOK,
                false, kCurrentItemNamed},
        // The signed mail's attachments come through the library, the other mail's through
        // Outlook; a third mail would only repeat one of the two paths at the sweep's cost.
        Command{"AttachmentsOfSelection",
                [] {
                    return std::make_unique<OutlookHost>(
                        false, L"16.0.0.5000",
                        std::vector{SampleItem(L"10-signiert.item"),
                                    SampleItem(L"11-anhaenge.item")});
                },
                kCallbackAttachment, kChoice},
        Command{"AttachmentsOfOpenItem", Outlook(true), kCallbackAttachmentSingleOutlook, kChoice,
                IDOK, false, kCurrentItemNamed},
        Command{"Settings", Office(kHostWord, L"Microsoft Word"), kCallbackSettings},
        Command{"Info", Outlook(), kCallbackInfo},
        Command{"StartAndStopWithCommandBars",
                Office(kHostWord, L"Microsoft Word", L"11.0"),
                std::nullopt,
                nullptr,
                IDOK,
                false,
                {{L"get Name", L"Failed to get office application name!"},
                 {L"get Version", L"Can't get version from application!"},
                 {L"get CommandBars", L"Failed to access CommandBars property!"},
                 {L"get CustomizationContext", L"Failed to get the current word template!"},
                 {L"put Saved", L"Failed to set saved flag of the current word template!"}},
                kCommandBarProbes},
        // Reading the explorers is reported with the active explorer's text.
        Command{"StartAndStopOutlookWithCommandBars",
                Outlook(false, L"12.0"),
                std::nullopt,
                nullptr,
                IDOK,
                true,
                {{L"get ActiveExplorer", L"Failed to access ActiveExplorer property!"},
                 {L"get Explorers", L"Failed to access ActiveExplorer property!"},
                 {L"get CommandBars", L"Failed to access CommandBars property!"},
                 {L"get Inspectors", L"Failed to access Inspectors property!"}},
                kCommandBarProbes}),
    [](const testing::TestParamInfo<Command>& info) { return std::string(info.param.name); });

// --- A hostile environment: what the sweep's hosts meet on a badly set-up computer.

struct EnvironmentCase {
    const char* name;
    Command command;
    // Spoils the environment for the run; what it returns lives as long as the run.
    std::function<std::shared_ptr<void>(const std::wstring& temp)> spoil;
    bool delivered;  // whether the connector still gets a hand-off
};

void PrintTo(const EnvironmentCase& row, std::ostream* out) { *out << row.name; }

class HostileEnvironment : public testing::TestWithParam<EnvironmentCase> {};

TEST_P(HostileEnvironment, IsRefusedOrSurvivedWithoutATruncatedHandOff) {
    const EnvironmentCase& row = GetParam();
    TempDirectoryOverride temp;
    RegistrySandbox registry;
    registry.SetMachineNumber(L"MultiProcess", 0);
    registry.SetMachineNumber(L"Attachments", 1);
    registry.SetMachineTargets({StorageTarget(L"Rechnungen", L"42", L"7")});
    ConnectorRecord connector;
    WindowWatcher watcher;
    watcher.CancelUnexpected();
    if (row.command.dialog) {
        watcher.Expect(row.command.dialog).Click(row.command.answer);
    }
    std::unique_ptr<Host> host = row.command.host();
    const RefCountList refCounts = host->RefCounts();
    const MapiCounts mapi;
    LogCapture log;
    {
        std::shared_ptr<void> spoiled = row.spoil(temp.Path());
        RunCommand(*host, row.command);
    }
    host->Settle(row.name);
    EXPECT_EQ(host->RefCounts(), refCounts);
    EXPECT_EQ(MapiCounts(), mapi);
    ExpectCompleteHandOffs(temp.Path(), row.name);
    if (row.delivered) {
        EXPECT_EQ(connector.WaitForUrls(1).size(), 1u);
    } else {
        EXPECT_TRUE(connector.Urls().empty());
        EXPECT_FALSE(watcher.Seen().empty() && log.Text().find(L"[ERR]") == std::wstring::npos)
            << "the refusal is neither shown nor logged\n"
            << Utf8(log.Text());
    }
}

std::shared_ptr<void> Nothing(const std::wstring&) { return nullptr; }

// TEMP (and TMP) pointing elsewhere for the run.
std::function<std::shared_ptr<void>(const std::wstring&)> TempAt(std::wstring folder) {
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
    return
        [=] { return std::make_unique<OutlookHost>(inspect, L"16.0.0.5000", std::vector{item}); };
}

const std::wstring kLongName(300, L'n');

INSTANTIATE_TEST_SUITE_P(
    Cases, HostileEnvironment,
    testing::Values(
        EnvironmentCase{"MissingTemp",
                        {"Word", Office(kHostWord, L"Microsoft Word"), kCallbackArchive},
                        TempAt(L"C:\\nicht\\vorhanden\\"),
                        false},
        EnvironmentCase{"TempIsAFile",
                        {"Word", Office(kHostWord, L"Microsoft Word"), kCallbackArchive},
                        [](const std::wstring& temp) {
                            WriteFileBytes(temp + L"datei", "x");
                            return TempAt(temp + L"datei\\")(temp);
                        },
                        false},
        EnvironmentCase{"LogCannotBeOpened",
                        {"Word", Office(kHostWord, L"Microsoft Word"), kCallbackArchive},
                        LockedLog,
                        true},
        EnvironmentCase{
            "SubjectLongerThanAPath",
            {"Outlook", OutlookWith(L"class = IPM.Note\nPR_SUBJECT = " + kLongName + L"\n"),
             kCallbackArchive},
            Nothing,
            true},
        EnvironmentCase{
            "AttachmentNameLongerThanAPath",
            {"Outlook",
             OutlookWith(L"class = IPM.Note\nattachment = " + kLongName + L".txt | Inhalt\n", true),
             kCallbackAttachmentSingleOutlook, kChoice},
            Nothing,
            false}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
