#include <gtest/gtest.h>

#include <map>
#include <ostream>
#include <sstream>
#include <string>
#include <vector>

#include "addin/OfficeInterfaces.h"
#include "addin/Ribbon.h"
#include "addin/TalvornAddin.h"
#include "common/ComPtr.h"
#include "common/HostKind.h"
#include "common/ServerCounts.h"
#include "common/Variant.h"
#include "server/ComServer.h"
#include "officesim/FakeDispatch.h"
#include "support/BuiltModule.h"
#include "support/ConnectorRecord.h"
#include "support/FakeOffice.h"
#include "support/RegistrySandbox.h"
#include "support/TestFiles.h"
#include "support/WindowWatcher.h"

namespace {

constexpr HRESULT kHostFailure = E_ACCESSDENIED;
const std::wstring kRibbonStartUp = L"[INF] cancel OnStartupComplete, we want to use Ribbons!\n";
const std::wstring kRibbonShutdown = L"[INF] cancel OnBeginShutdown, we used Ribbons!\n";

// An add-in object as a host gets it: from the class factory, through its first face.
ComPtr<IDTExtensibility2> CreateAddin() {
    ComPtr<IClassFactory> factory;
    ComPtr<IDTExtensibility2> addin;
    EXPECT_EQ(GetServerClassObject(CLSID_TalvornAddin, IID_IClassFactory, factory.put_void()),
              S_OK);
    if (factory) {
        EXPECT_EQ(factory->CreateInstance(nullptr, IID_IDTExtensibility2, addin.put_void()), S_OK);
    }
    return addin;
}

// --- Connection to a host and the start-up work.

// A scripted host Application with every object the start-up reads, and the machine-wide
// settings key the add-in needs to start.
class AddinLifecycleTest : public testing::Test {
protected:
    AddinLifecycleTest() {
        m_explorer->SetProperty(L"CommandBars", static_cast<IDispatch*>(m_explorerBars.get()));
        m_template->SetProperty(L"Saved", false);
        m_application->SetProperty(L"CommandBars", static_cast<IDispatch*>(m_commandBars.get()))
            .SetProperty(L"ActiveExplorer", static_cast<IDispatch*>(m_explorer.get()))
            .SetProperty(L"Explorers", static_cast<IDispatch*>(m_collection.get()))
            .SetProperty(L"Inspectors", static_cast<IDispatch*>(m_collection.get()))
            .SetProperty(L"CustomizationContext", static_cast<IDispatch*>(m_template.get()));
        Host(L"Microsoft Word", L"16.0.4266.1001", false);
        for (FakeDispatch* object : HostObjects()) {
            m_startCounts[object] = object->RefCount();
        }
    }

    void Host(const wchar_t* name, const wchar_t* version, bool multiProcess) {
        m_application->SetProperty(L"Name", name).SetProperty(L"Version", version);
        m_registry.SetMachineNumber(L"MultiProcess", multiProcess ? 1 : 0);
    }
    CTalvornAddin& Addin() { return *static_cast<CTalvornAddin*>(m_addin.get()); }
    HRESULT Connect(ext_ConnectMode mode = ext_cm_AfterStartup) {
        return m_addin->OnConnection(m_application.get(), mode, nullptr, nullptr);
    }

    // The references the add-in took to the host objects are all handed back.
    void ExpectHostObjectsReleased() {
        for (FakeDispatch* object : HostObjects()) {
            EXPECT_EQ(object->RefCount(), m_startCounts[object]);
        }
    }
    std::vector<FakeDispatch*> HostObjects() const {
        return {m_application.get(), m_explorer.get(),     m_template.get(),
                m_commandBars.get(), m_explorerBars.get(), m_collection.get()};
    }

    RegistrySandbox m_registry;
    ComPtr<FakeDispatch> m_application = FakeDispatch::Create();
    ComPtr<FakeDispatch> m_explorer = FakeDispatch::Create();
    ComPtr<FakeDispatch> m_template = FakeDispatch::Create();
    ComPtr<FakeDispatch> m_commandBars = FakeDispatch::Create();
    ComPtr<FakeDispatch> m_explorerBars = FakeDispatch::Create();
    ComPtr<FakeDispatch> m_collection = FakeDispatch::Create();
    std::map<FakeDispatch*, ULONG> m_startCounts;
    ComPtr<IDTExtensibility2> m_addin = CreateAddin();
};

// At start-up and at shutdown the host makes its own calls (OnStartupComplete, OnBeginShutdown),
// so the add-in leaves that work to them.
TEST_F(AddinLifecycleTest, AStartupConnectionAndAHostShutdownLeaveTheWorkToTheHostsCalls) {
    EXPECT_EQ(m_addin->OnConnection(nullptr, ext_cm_AfterStartup, nullptr, nullptr), E_POINTER);
    ASSERT_EQ(Connect(ext_cm_Startup), S_OK);
    EXPECT_EQ(Addin().HostKind(), kHostNotConnected);
    EXPECT_TRUE(m_application->Calls().empty());
    EXPECT_EQ(m_addin->OnStartupComplete(nullptr), S_OK);
    EXPECT_EQ(Addin().HostKind(), kHostWord);
    EXPECT_EQ(Addin().HostMajorVersion(), 16);
    LogCapture log;

    EXPECT_EQ(m_addin->OnDisconnection(ext_dm_HostShutdown, nullptr), S_OK);

    EXPECT_FALSE(log.Contains(kRibbonShutdown)) << ToUtf8(log.Text());
    EXPECT_TRUE(log.Contains(L"[INF] Addin is being unloaded on shutdown.\n"));
    ExpectHostObjectsReleased();
}

// One host as it names itself, and what the add-in makes of it.
struct HostCase {
    const char* name;
    const wchar_t* hostName;
    const wchar_t* version;
    bool multiProcess;
    int32_t kind;
    int32_t major;
    bool ribbon;
};

void PrintTo(const HostCase& row, std::ostream* out) { *out << row.name; }

class HostTest : public AddinLifecycleTest, public testing::WithParamInterface<HostCase> {};

TEST_P(HostTest, StartUpReadsWhatTheModeNeedsAndAUserUnloadLetsGo) {
    const HostCase& host = GetParam();
    Host(host.hostName, host.version, host.multiProcess);
    const bool outlookBars = host.kind == kHostOutlook && !host.ribbon;
    const bool wordBars = host.kind == kHostWord && !host.ribbon;
    LogCapture log;

    ASSERT_EQ(Connect(), S_OK);

    EXPECT_EQ(Addin().HostKind(), host.kind);
    EXPECT_EQ(Addin().HostMajorVersion(), host.major);
    EXPECT_EQ(log.Contains(kRibbonStartUp), host.ribbon) << ToUtf8(log.Text());
    EXPECT_EQ(m_application->CallCount(L"CommandBars"), host.kind == kHostOutlook ? 0u : 1u);
    EXPECT_EQ(m_application->CallCount(L"ActiveExplorer"), outlookBars ? 1u : 0u);
    EXPECT_EQ(m_application->CallCount(L"Explorers"), outlookBars && host.multiProcess ? 1u : 0u);
    EXPECT_EQ(m_explorer->CallCount(L"CommandBars"), outlookBars ? 1u : 0u);
    EXPECT_EQ(m_application->CallCount(L"Inspectors"), outlookBars ? 1u : 0u);
    EXPECT_EQ(m_application->CallCount(L"CustomizationContext"), wordBars ? 1u : 0u);

    // Unloaded by the user, the add-in ends the ribbon itself before it disconnects.
    EXPECT_EQ(m_addin->OnDisconnection(ext_dm_UserClosed, nullptr), S_OK);
    const std::wstring text = log.Text();
    const size_t unloaded = text.find(L"[INF] Addin is being unloaded by the user.\n");
    ASSERT_NE(unloaded, std::wstring::npos) << ToUtf8(text);
    EXPECT_EQ(text.find(kRibbonShutdown) < unloaded, host.ribbon) << ToUtf8(text);
    ExpectHostObjectsReleased();

    // Word before the ribbon has its template marked saved, with a short -1.
    const std::vector<FakeDispatch::CallRecord>& calls = m_template->Calls();
    ASSERT_EQ(calls.size(), wordBars ? 1u : 0u);
    if (wordBars) {
        EXPECT_EQ(calls[0].member, L"Saved");
        EXPECT_EQ(calls[0].kind, FakeDispatch::CallKind::Put);
        ASSERT_EQ(calls[0].args.size(), 1u);
        EXPECT_EQ(calls[0].args[0].vt, VT_I2);
        EXPECT_EQ(calls[0].args[0].iVal, -1);
    }
}

// The ribbon from version 12 on, in Outlook from 14 on; the major version read as a number.
INSTANTIATE_TEST_SUITE_P(
    Hosts, HostTest,
    testing::Values(
        HostCase{"Outlook14MultiProcess", L"Outlook", L"14", true, kHostOutlook, 14, true},
        HostCase{"Outlook13", L"Outlook", L"13.0", false, kHostOutlook, 13, false},
        HostCase{"Outlook12MultiProcess", L"Outlook", L"12.0.6423.1000", true, kHostOutlook, 12,
                 false},
        HostCase{"Word12", L"Microsoft Word", L"12.0.4518", false, kHostWord, 12, true},
        HostCase{"Word11", L"Microsoft Word", L"11.0.8173", false, kHostWord, 11, false},
        HostCase{"ExcelVersionNotANumber", L"Microsoft Excel", L"x.1", false, kHostExcel, 0, false},
        HostCase{"PowerPointMajorComparedAsANumber", L"Microsoft PowerPoint", L"100.1", false,
                 kHostPowerPoint, 100, true},
        HostCase{"NamesAreCaseSensitive", L"microsoft word", L"11.0", false, kHostOther, 11,
                 false}),
    [](const testing::TestParamInfo<HostCase>& info) { return std::string(info.param.name); });

TEST_F(AddinLifecycleTest, WithoutTheMachineWideSettingsNothingStarts) {
    m_registry.Wipe();
    LogCapture log;

    EXPECT_EQ(Connect(ext_cm_Startup), S_OK);
    EXPECT_EQ(m_addin->OnStartupComplete(nullptr), E_ACCESSDENIED);

    EXPECT_TRUE(log.Contains(L"[ERR] Failed to load settings!\n")) << ToUtf8(log.Text());
    EXPECT_TRUE(m_application->Calls().empty());
    EXPECT_EQ(Addin().HostKind(), kHostNotConnected);
}

// One host call failing during the start-up of Outlook 12 with MultiProcess or of Word 11: what
// is logged and what is no longer asked.
enum class HostObject { Application, Explorer, Template };

struct StartUpFailureCase {
    const char* name;
    bool outlook;
    HostObject failing;
    const wchar_t* member;
    const wchar_t* logLine;  // followed by " hr = 0x80070005\n"
    std::wstring notAsked;   // Application members, blank-separated, not read after it
};

void PrintTo(const StartUpFailureCase& row, std::ostream* out) { *out << row.name; }

class StartUpFailureTest : public AddinLifecycleTest,
                           public testing::WithParamInterface<StartUpFailureCase> {};

TEST_P(StartUpFailureTest, IsLoggedAndEndsTheStartUpWhichStillConnects) {
    const StartUpFailureCase& row = GetParam();
    if (row.outlook) {
        Host(L"Outlook", L"12.0", true);
    } else {
        Host(L"Microsoft Word", L"11.0", false);
    }
    FakeDispatch& failing = row.failing == HostObject::Explorer   ? *m_explorer.get()
                            : row.failing == HostObject::Template ? *m_template.get()
                                                                  : *m_application.get();
    failing.FailCallsFrom(row.member, 1, kHostFailure);
    LogCapture log;

    // OnConnection keeps the failure from the host; OnStartupComplete, run again, returns it.
    EXPECT_EQ(Connect(), S_OK);
    EXPECT_EQ(m_addin->OnStartupComplete(nullptr), kHostFailure);

    EXPECT_TRUE(log.Contains(std::wstring(L"[ERR] ") + row.logLine + L" hr = 0x80070005\n"))
        << ToUtf8(log.Text());
    std::wistringstream notAsked(row.notAsked);
    for (std::wstring member; notAsked >> member;) {
        EXPECT_EQ(m_application->CallCount(member), 0u) << ToUtf8(member);
    }
    EXPECT_FALSE(log.Contains(kRibbonStartUp));
    EXPECT_EQ(m_addin->OnDisconnection(ext_dm_HostShutdown, nullptr), S_OK);
    ExpectHostObjectsReleased();
}

INSTANTIATE_TEST_SUITE_P(
    Failures, StartUpFailureTest,
    testing::Values(
        StartUpFailureCase{"Name", false, HostObject::Application, L"Name",
                           L"Failed to get office application name!", L"Version CommandBars"},
        StartUpFailureCase{"Version", false, HostObject::Application, L"Version",
                           L"Can't get version from application!", L"CommandBars"},
        StartUpFailureCase{"CommandBars", false, HostObject::Application, L"CommandBars",
                           L"Failed to access CommandBars property!", L"CustomizationContext"},
        StartUpFailureCase{"WordTemplate", false, HostObject::Application, L"CustomizationContext",
                           L"Failed to get the current word template!", L""},
        StartUpFailureCase{"WordTemplateSaved", false, HostObject::Template, L"Saved",
                           L"Failed to set saved flag of the current word template!", L""},
        StartUpFailureCase{"ActiveExplorer", true, HostObject::Application, L"ActiveExplorer",
                           L"Failed to access ActiveExplorer property!", L"Explorers Inspectors"},
        // Reported with the ActiveExplorer text, as it always has been.
        StartUpFailureCase{"Explorers", true, HostObject::Application, L"Explorers",
                           L"Failed to access ActiveExplorer property!", L"Inspectors"},
        StartUpFailureCase{"ExplorerCommandBars", true, HostObject::Explorer, L"CommandBars",
                           L"Failed to access CommandBars property!", L"Inspectors"},
        StartUpFailureCase{"Inspectors", true, HostObject::Application, L"Inspectors",
                           L"Failed to access Inspectors property!", L""}),
    [](const testing::TestParamInfo<StartUpFailureCase>& info) {
        return std::string(info.param.name);
    });

// --- Ribbon commands and the host's calls while a command's dialog is open.

// An add-in connected to Word whose archive command waits at the storage-target choice, a modal
// dialog without owner: the host's windows stay live and may call the add-in meanwhile.
class CommandDialogTest : public testing::Test {
protected:
    CommandDialogTest() {
        m_office.Application()
            .SetProperty(L"Name", L"Microsoft Word")
            .SetProperty(L"Version", L"16.0")
            .SetProperty(L"CommandBars", true);
        m_registry.SetMachineTargets(
            {StorageTarget(L"Angebote", L"1", L"1"), StorageTarget(L"Rechnungen", L"2", L"1")});
        m_registry.SetMachineString(L"Dir", BuiltAddinFolder().c_str());
        m_startCounts = m_office.RefCounts();
        m_addin->OnConnection(&m_office.Application(), ext_cm_AfterStartup, nullptr, nullptr);
    }
    ~CommandDialogTest() override {
        if (m_addin) {
            m_addin->OnDisconnection(ext_dm_HostShutdown, nullptr);
            m_addin.reset();
        }
        EXPECT_EQ(m_office.RefCounts(), m_startCounts);
    }

    static HRESULT Click(IDispatch* addin, DISPID id, VARIANT* argument = nullptr,
                         VARIANT* result = nullptr) {
        DISPPARAMS params{argument, nullptr, argument ? 1u : 0u, 0};
        return addin->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_METHOD, &params, result,
                             nullptr, nullptr);
    }

    RegistrySandbox m_registry;
    FakeOffice m_office{kHostWord};
    RefCountList m_startCounts;
    ComPtr<IDTExtensibility2> m_addin = CreateAddin();
    ConnectorRecord m_connector;
    WindowWatcher m_watcher;
};

TEST_F(CommandDialogTest, AHostThatLetsGoOfTheAddinMeanwhileDoesNotEndTheCommand) {
    IDTExtensibility2* addin = m_addin.get();
    const LONG live = LiveObjectCount();
    m_watcher.Expect(L"Dokument ablegen")
        .Call([&] {
            EXPECT_EQ(m_addin->OnDisconnection(ext_dm_UserClosed, nullptr), S_OK);
            m_addin.reset();
            EXPECT_EQ(LiveObjectCount(), live) << "the command holds the add-in";
            EXPECT_EQ(m_office.Application().RefCount(), m_startCounts[0].second + 1)
                << "the command holds the Application";
        })
        .Click(IDOK);

    EXPECT_EQ(Click(addin, kCallbackArchive), S_OK);

    m_watcher.Verify();
    EXPECT_EQ(m_connector.WaitForUrls(1).size(), 1u);
    EXPECT_EQ(LiveObjectCount(), live - 1);
}

TEST_F(CommandDialogTest, AClickMeanwhileEndsQuietlyButTheImagesStillLoad) {
    LogCapture log;
    Variant picture;
    m_watcher.Expect(L"Dokument ablegen")
        .Call([&] {
            EXPECT_EQ(Click(m_addin.get(), kCallbackArchive), S_OK);
            Variant image(L"resource.bin");
            EXPECT_EQ(Click(m_addin.get(), kCallbackGetImage, &image, &picture), S_OK);
        })
        .Click(IDOK);

    EXPECT_EQ(Click(m_addin.get(), kCallbackArchive), S_OK);

    m_watcher.Verify();
    const std::wstring text = log.Text();
    EXPECT_NE(text.find(L"[WRN] Ribbon callback 1 ignored: a command is still running.\n"),
              std::wstring::npos)
        << ToUtf8(text);
    EXPECT_EQ(text.find(L"OnArchive invoked"), text.rfind(L"OnArchive invoked"));
    EXPECT_EQ(picture.vt, VT_DISPATCH);
    EXPECT_EQ(m_connector.WaitForUrls(1).size(), 1u);
}

// A host started for automation or from the command line calls no OnStartupComplete after the
// connection, as after its start-up: the add-in starts up at once.
class ConnectModeTest : public testing::TestWithParam<ext_ConnectMode> {};

TEST_P(ConnectModeTest, OtherThanAtStartUpStartsUpAtOnce) {
    RegistrySandbox registry;
    registry.SetMachineNumber(L"MultiProcess", 0);
    ComPtr<FakeDispatch> bars = FakeDispatch::Create();
    ComPtr<FakeDispatch> application = FakeDispatch::Create();
    application->SetProperty(L"Name", L"Microsoft Word")
        .SetProperty(L"Version", L"16.0")
        .SetProperty(L"CommandBars", static_cast<IDispatch*>(bars.get()));
    ComPtr<IDTExtensibility2> addin = CreateAddin();

    EXPECT_EQ(addin->OnConnection(application.get(), GetParam(), nullptr, nullptr), S_OK);

    EXPECT_EQ(static_cast<CTalvornAddin*>(addin.get())->HostKind(), kHostWord);
    EXPECT_EQ(addin->OnDisconnection(ext_dm_UserClosed, nullptr), S_OK);
}

INSTANTIATE_TEST_SUITE_P(Modes, ConnectModeTest,
                         testing::Values(ext_cm_External, ext_cm_CommandLine),
                         [](const testing::TestParamInfo<ext_ConnectMode>& info) {
                             return info.param == ext_cm_External ? "External" : "CommandLine";
                         });

}  // namespace
