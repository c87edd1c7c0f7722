#include <map>
#include <ostream>
#include <string>
#include <vector>

#include "addin/AddinTest.h"
#include "common/HostKind.h"
#include "common/ServerCounts.h"
#include "common/Variant.h"
#include "officesim/FakeCommandBars.h"
#include "officesim/FakeDispatch.h"
#include "support/BuiltModule.h"
#include "support/ConnectorRecord.h"
#include "support/FakeOffice.h"
#include "support/TestFiles.h"
#include "support/WindowWatcher.h"

namespace {

const std::wstring kRibbonStartUp = L"[INF] cancel OnStartupComplete, we want to use Ribbons!\n";
const std::wstring kRibbonShutdown = L"[INF] cancel OnBeginShutdown, we used Ribbons!\n";

// --- Connection to a host and the start-up work.

// A scripted host Application with every object the start-up reads.
class AddinLifecycleTest : public AddinTest {
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
        for (FakeDispatch* object :
             {m_application.get(), m_explorer.get(), m_template.get(), m_commandBars.get(),
              m_explorerBars.get(), m_collection.get()}) {
            m_startCounts[object] = object->RefCount();
        }
    }

    void Host(const wchar_t* name, const wchar_t* version, bool multiProcess) {
        m_application->SetProperty(L"Name", name).SetProperty(L"Version", version);
        m_registry.SetMachineNumber(L"MultiProcess", multiProcess ? 1 : 0);
    }
    HRESULT Connect(ext_ConnectMode mode = ext_cm_AfterStartup) {
        return m_addin->OnConnection(m_application.get(), mode, nullptr, nullptr);
    }
    // The references the add-in took to the host objects are all handed back.
    void ExpectHostObjectsReleased() {
        for (const auto& [object, count] : m_startCounts) {
            EXPECT_EQ(object->RefCount(), count);
        }
    }

    ComPtr<FakeDispatch> m_application = FakeDispatch::Create();
    ComPtr<FakeDispatch> m_explorer = FakeDispatch::Create();
    ComPtr<FakeDispatch> m_template = FakeDispatch::Create();
    FakeCommandBars m_hostBars;
    FakeCommandBars m_outlookBars;
    ComPtr<FakeDispatch> m_commandBars{&m_hostBars.Collection()};
    ComPtr<FakeDispatch> m_explorerBars{&m_outlookBars.Collection()};
    ComPtr<FakeDispatch> m_collection = FakeDispatch::Create();
    std::map<FakeDispatch*, ULONG> m_startCounts;
};

// At start-up and at shutdown the host makes its own calls (OnStartupComplete, OnBeginShutdown),
// so the add-in leaves that work to them. Without the machine-wide settings nothing starts.
TEST_F(AddinLifecycleTest, AStartupConnectionAndAHostShutdownLeaveTheWorkToTheHostsCalls) {
    EXPECT_EQ(m_addin->OnConnection(nullptr, ext_cm_AfterStartup, nullptr, nullptr), E_POINTER);
    m_registry.Wipe();
    LogCapture log;
    ASSERT_EQ(Connect(ext_cm_Startup), S_OK);
    EXPECT_FALSE(log.Contains(L"[ERR] Failed to load settings!\n")) << ToUtf8(log.Text());
    EXPECT_EQ(m_addin->OnStartupComplete(nullptr), E_ACCESSDENIED);
    EXPECT_TRUE(log.Contains(L"[ERR] Failed to load settings!\n")) << ToUtf8(log.Text());
    EXPECT_TRUE(m_application->Calls().empty());
    EXPECT_EQ(Addin().HostKind(), kHostNotConnected);

    Host(L"Microsoft Word", L"16.0.4266.1001", false);
    EXPECT_EQ(m_addin->OnStartupComplete(nullptr), S_OK);
    EXPECT_EQ(Addin().HostKind(), kHostWord);
    EXPECT_EQ(Addin().HostMajorVersion(), 16);
    EXPECT_EQ(m_addin->OnDisconnection(ext_dm_HostShutdown, nullptr), S_OK);

    EXPECT_FALSE(log.Contains(kRibbonShutdown)) << ToUtf8(log.Text());
    EXPECT_TRUE(log.Contains(L"[INF] Addin is being unloaded on shutdown.\n"));
    ExpectHostObjectsReleased();
}

// One host as it names itself, and what the add-in makes of it. A host started for automation or
// from the command line calls no OnStartupComplete: the add-in starts up at once.
struct HostCase {
    const char* name;
    const wchar_t* hostName;
    const wchar_t* version;
    bool multiProcess;
    int32_t kind;
    int32_t major;
    bool ribbon;
    ext_ConnectMode mode = ext_cm_AfterStartup;
};

void PrintTo(const HostCase& row, std::ostream* out) { *out << row.name; }

class HostTest : public AddinLifecycleTest, public testing::WithParamInterface<HostCase> {};

TEST_P(HostTest, StartUpReadsWhatTheModeNeedsAndAUserUnloadLetsGo) {
    const HostCase& host = GetParam();
    Host(host.hostName, host.version, host.multiProcess);
    const bool outlookBars = host.kind == kHostOutlook && !host.ribbon;
    const bool wordBars = host.kind == kHostWord && !host.ribbon;
    LogCapture log;

    ASSERT_EQ(Connect(host.mode), S_OK);

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
        EXPECT_TRUE(calls[0].member == L"Saved" && calls[0].kind == FakeDispatch::CallKind::Put &&
                    calls[0].args.size() == 1 && calls[0].args[0].vt == VT_I2 &&
                    calls[0].args[0].iVal == -1);
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
        HostCase{"Word12External", L"Microsoft Word", L"12.0.4518", false, kHostWord, 12, true,
                 ext_cm_External},
        HostCase{"Word11CommandLine", L"Microsoft Word", L"11.0.8173", false, kHostWord, 11, false,
                 ext_cm_CommandLine},
        HostCase{"ExcelVersionNotANumber", L"Microsoft Excel", L"x.1", false, kHostExcel, 0, false},
        HostCase{"PowerPointMajorComparedAsANumber", L"Microsoft PowerPoint", L"100.1", false,
                 kHostPowerPoint, 100, true},
        HostCase{"NamesAreCaseSensitive", L"microsoft word", L"11.0", false, kHostOther, 11,
                 false}),
    [](const testing::TestParamInfo<HostCase>& info) { return std::string(info.param.name); });

// --- Ribbon commands and the host's calls while a command's dialog is open.

// An add-in connected to Word whose archive command waits at the storage-target choice, a modal
// dialog without owner: the host's windows stay live and may call the add-in meanwhile.
class CommandDialogTest : public AddinTest {
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

    FakeOffice m_office{kHostWord};
    RefCountList m_startCounts;
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

    EXPECT_EQ(Callback(addin, kCallbackArchive), S_OK);

    m_watcher.Verify();
    EXPECT_EQ(m_connector.WaitForUrls(1).size(), 1u);
    EXPECT_EQ(LiveObjectCount(), live - 1);
}

TEST_F(CommandDialogTest, AClickMeanwhileEndsQuietlyButTheImagesStillLoad) {
    LogCapture log;
    Variant picture;
    m_watcher.Expect(L"Dokument ablegen")
        .Call([&] {
            EXPECT_EQ(Callback(kCallbackArchive), S_OK);
            EXPECT_EQ(Callback(kCallbackGetImage, {Variant(L"resource.bin")}, &picture), S_OK);
        })
        .Click(IDOK);

    EXPECT_EQ(Callback(kCallbackArchive), S_OK);

    m_watcher.Verify();
    const std::wstring text = log.Text();
    EXPECT_NE(text.find(L"[WRN] Ribbon callback 1 ignored: a command is still running.\n"),
              std::wstring::npos)
        << ToUtf8(text);
    EXPECT_EQ(text.find(L"OnArchive invoked"), text.rfind(L"OnArchive invoked"));
    EXPECT_EQ(picture.vt, VT_DISPATCH);
    EXPECT_EQ(m_connector.WaitForUrls(1).size(), 1u);
}

}  // namespace
