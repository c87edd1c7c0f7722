#include <gtest/gtest.h>

#include <map>
#include <ostream>
#include <string>
#include <vector>

#include "addin/OfficeInterfaces.h"
#include "addin/TalvornAddin.h"
#include "common/BStr.h"
#include "common/ComPtr.h"
#include "common/HostKind.h"
#include "server/ComServer.h"
#include "support/FakeDispatch.h"
#include "support/RegistrySandbox.h"
#include "support/TestFiles.h"

namespace {

constexpr HRESULT kHostFailure = E_ACCESSDENIED;
const std::wstring kHostFailureText = L"hr = 0x80070005\n";
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

// --- The object's faces and reference counts.

class AddinObjectTest : public testing::Test {
protected:
    ComPtr<IDTExtensibility2> m_addin = CreateAddin();
};

TEST_F(AddinObjectTest, TheFirstFaceAnswersIUnknownIDispatchAndTheConnectionInterface) {
    ASSERT_TRUE(m_addin);
    for (const IID& iid : {IID_IUnknown, IID_IDispatch, IID_IDTExtensibility2}) {
        ComPtr<IUnknown> face;
        ASSERT_EQ(m_addin->QueryInterface(iid, face.put_void()), S_OK);
        EXPECT_EQ(static_cast<void*>(face.get()), static_cast<void*>(m_addin.get()));
    }
    for (const IID& iid : {IID_IClassFactory, IID_IPersist, IID_IMarshal, IID_IEnumVARIANT}) {
        void* out = reinterpret_cast<void*>(0x1234);
        EXPECT_EQ(m_addin->QueryInterface(iid, &out), E_NOINTERFACE);
        EXPECT_EQ(out, nullptr);
    }
    EXPECT_EQ(m_addin->QueryInterface(IID_IUnknown, nullptr), E_POINTER);
}

TEST_F(AddinObjectTest, TheRibbonFaceIsASecondFaceOfTheSameObject) {
    ASSERT_TRUE(m_addin);
    ComPtr<IRibbonExtensibility> ribbon;
    ASSERT_EQ(m_addin.query_to(ribbon.put()), S_OK);
    EXPECT_NE(static_cast<void*>(ribbon.get()), static_cast<void*>(m_addin.get()));

    // Identity: IUnknown from either face is the first face.
    ComPtr<IUnknown> fromRibbon;
    ASSERT_EQ(ribbon->QueryInterface(IID_IUnknown, fromRibbon.put_void()), S_OK);
    EXPECT_EQ(static_cast<void*>(fromRibbon.get()), static_cast<void*>(m_addin.get()));
    ComPtr<IDTExtensibility2> back;
    ASSERT_EQ(ribbon.query_to(back.put()), S_OK);
    EXPECT_EQ(back.get(), m_addin.get());
    ComPtr<IRibbonExtensibility> again;
    ASSERT_EQ(back.query_to(again.put()), S_OK);
    EXPECT_EQ(again.get(), ribbon.get());

    // Its v-table is the ribbon's: an unknown ribbon gets no markup.
    BStr id(L"Microsoft.Visio.Drawing");
    BSTR markup = reinterpret_cast<BSTR>(0x1234);
    EXPECT_EQ(ribbon->GetCustomUI(id.get(), &markup), S_OK);
    EXPECT_EQ(markup, nullptr);
}

TEST_F(AddinObjectTest, BothFacesShareOneCountAndTheLastReleaseEndsTheObject) {
    IDTExtensibility2* addin = m_addin.Detach();
    ASSERT_NE(addin, nullptr);
    const LONG live = LiveObjectCount();

    EXPECT_EQ(addin->AddRef(), 2u);
    IRibbonExtensibility* ribbon = nullptr;
    ASSERT_EQ(addin->QueryInterface(IID_IRibbonExtensibility, reinterpret_cast<void**>(&ribbon)),
              S_OK);
    EXPECT_EQ(ribbon->AddRef(), 4u);
    EXPECT_EQ(addin->Release(), 3u);
    EXPECT_EQ(ribbon->Release(), 2u);
    EXPECT_EQ(addin->Release(), 1u);
    EXPECT_EQ(LiveObjectCount(), live);
    EXPECT_EQ(ribbon->Release(), 0u);
    EXPECT_EQ(LiveObjectCount(), live - 1);
}

TEST_F(AddinObjectTest, OffersNoTypeInformation) {
    ASSERT_TRUE(m_addin);
    UINT count = 99;
    EXPECT_EQ(m_addin->GetTypeInfoCount(&count), S_OK);
    EXPECT_EQ(count, 0u);
    EXPECT_EQ(m_addin->GetTypeInfoCount(nullptr), E_POINTER);

    ITypeInfo* info = reinterpret_cast<ITypeInfo*>(0x1234);
    EXPECT_EQ(m_addin->GetTypeInfo(0, LOCALE_USER_DEFAULT, &info), E_FAIL);
    EXPECT_EQ(info, nullptr);
    EXPECT_EQ(m_addin->GetTypeInfo(0, LOCALE_USER_DEFAULT, nullptr), E_POINTER);
}

// --- Connection to a host and the start-up work.

// A scripted host Application with every object the start-up reads, and the machine-wide
// settings key the add-in needs to start.
class AddinLifecycleTest : public testing::Test {
protected:
    AddinLifecycleTest() {
        m_registry.SetMachineNumber(L"MultiProcess", 0);
        m_explorer->SetProperty(L"CommandBars", static_cast<IDispatch*>(m_explorerBars.get()));
        m_template->SetProperty(L"Saved", false);
        m_application->SetProperty(L"CommandBars", static_cast<IDispatch*>(m_commandBars.get()))
            .SetProperty(L"ActiveExplorer", static_cast<IDispatch*>(m_explorer.get()))
            .SetProperty(L"Explorers", static_cast<IDispatch*>(m_collection.get()))
            .SetProperty(L"Inspectors", static_cast<IDispatch*>(m_collection.get()))
            .SetProperty(L"CustomizationContext", static_cast<IDispatch*>(m_template.get()));
        Host(L"Microsoft Word", L"16.0.4266.1001");
        for (FakeDispatch* object : HostObjects()) {
            m_startCounts[object] = object->RefCount();
        }
    }

    void Host(const wchar_t* name, const wchar_t* version) {
        m_application->SetProperty(L"Name", name).SetProperty(L"Version", version);
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

TEST_F(AddinLifecycleTest, ConnectionWithoutAnApplicationIsRefused) {
    EXPECT_EQ(m_addin->OnConnection(nullptr, ext_cm_AfterStartup, nullptr, nullptr), E_POINTER);
    EXPECT_EQ(Addin().HostKind(), kHostNotConnected);
}

struct ConnectModeCase {
    const char* name;
    ext_ConnectMode mode;
    bool startsAtOnce;  // the host will not call OnStartupComplete
};

void PrintTo(const ConnectModeCase& row, std::ostream* out) { *out << row.name; }

class ConnectModeTest : public AddinLifecycleTest,
                        public testing::WithParamInterface<ConnectModeCase> {};

TEST_P(ConnectModeTest, OnlyAStartupConnectionLeavesTheWorkToOnStartupComplete) {
    EXPECT_EQ(Connect(GetParam().mode), S_OK);
    if (GetParam().startsAtOnce) {
        EXPECT_EQ(Addin().HostKind(), kHostWord);
        EXPECT_EQ(m_application->CallCount(L"Name"), 1u);
    } else {
        EXPECT_EQ(Addin().HostKind(), kHostNotConnected);
        EXPECT_TRUE(m_application->Calls().empty());
        EXPECT_EQ(m_addin->OnStartupComplete(nullptr), S_OK);
        EXPECT_EQ(Addin().HostKind(), kHostWord);
    }
    EXPECT_EQ(Addin().HostMajorVersion(), 16);
    EXPECT_EQ(m_addin->OnDisconnection(ext_dm_HostShutdown, nullptr), S_OK);
    ExpectHostObjectsReleased();
}

INSTANTIATE_TEST_SUITE_P(Modes, ConnectModeTest,
                         testing::Values(ConnectModeCase{"AfterStartup", ext_cm_AfterStartup, true},
                                         ConnectModeCase{"Startup", ext_cm_Startup, false},
                                         ConnectModeCase{"External", ext_cm_External, true},
                                         ConnectModeCase{"CommandLine", ext_cm_CommandLine, true}),
                         [](const testing::TestParamInfo<ConnectModeCase>& info) {
                             return std::string(info.param.name);
                         });

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

TEST_P(HostTest, StartUpReadsWhatTheModeNeedsAndDisconnectionLetsGo) {
    const HostCase& host = GetParam();
    Host(host.hostName, host.version);
    m_registry.SetMachineNumber(L"MultiProcess", host.multiProcess ? 1 : 0);
    const bool outlook = host.kind == kHostOutlook;
    const bool outlookBars = outlook && !host.ribbon;
    LogCapture log;

    ASSERT_EQ(Connect(), S_OK);

    EXPECT_EQ(Addin().HostKind(), host.kind);
    EXPECT_EQ(Addin().HostMajorVersion(), host.major);
    EXPECT_EQ(log.Contains(kRibbonStartUp), host.ribbon) << ToUtf8(log.Text());
    EXPECT_EQ(m_application->CallCount(L"CommandBars"), outlook ? 0u : 1u);
    EXPECT_EQ(m_application->CallCount(L"ActiveExplorer"), outlookBars ? 1u : 0u);
    EXPECT_EQ(m_application->CallCount(L"Explorers"), outlookBars && host.multiProcess ? 1u : 0u);
    EXPECT_EQ(m_explorer->CallCount(L"CommandBars"), outlookBars ? 1u : 0u);
    EXPECT_EQ(m_application->CallCount(L"Inspectors"), outlookBars ? 1u : 0u);
    const bool wordBars = host.kind == kHostWord && !host.ribbon;
    EXPECT_EQ(m_application->CallCount(L"CustomizationContext"), wordBars ? 1u : 0u);
    EXPECT_EQ(m_template->CallCount(L"Saved", FakeDispatch::CallKind::Put), wordBars ? 1u : 0u);

    EXPECT_EQ(m_addin->OnBeginShutdown(nullptr), S_OK);
    EXPECT_EQ(log.Contains(kRibbonShutdown), host.ribbon);
    EXPECT_EQ(m_addin->OnDisconnection(ext_dm_HostShutdown, nullptr), S_OK);
    EXPECT_TRUE(log.Contains(L"[INF] Addin is being unloaded on shutdown.\n"));
    ExpectHostObjectsReleased();
}

INSTANTIATE_TEST_SUITE_P(
    Hosts, HostTest,
    testing::Values(
        HostCase{"Outlook14", L"Outlook", L"14.0.0.7015", false, kHostOutlook, 14, true},
        HostCase{"Outlook13JustBelowTheRibbon", L"Outlook", L"13.0", false, kHostOutlook, 13,
                 false},
        HostCase{"Outlook12", L"Outlook", L"12.0.6423.1000", false, kHostOutlook, 12, false},
        HostCase{"Outlook12MultiProcess", L"Outlook", L"12.0", true, kHostOutlook, 12, false},
        HostCase{"Outlook11", L"Outlook", L"11.0.8217", false, kHostOutlook, 11, false},
        HostCase{"Outlook15MultiProcess", L"Outlook", L"15.0", true, kHostOutlook, 15, true},
        HostCase{"Word12", L"Microsoft Word", L"12.0.4518", false, kHostWord, 12, true},
        HostCase{"Word11", L"Microsoft Word", L"11.0.8173", false, kHostWord, 11, false},
        HostCase{"Excel16", L"Microsoft Excel", L"16.0", false, kHostExcel, 16, true},
        HostCase{"Excel9", L"Microsoft Excel", L"9.0", false, kHostExcel, 9, false},
        HostCase{"PowerPoint15", L"Microsoft PowerPoint", L"15.0.4420.1017", false, kHostPowerPoint,
                 15, true},
        HostCase{"PowerPoint11", L"Microsoft PowerPoint", L"11.0", false, kHostPowerPoint, 11,
                 false},
        HostCase{"NamesAreCaseSensitive", L"microsoft word", L"11.0", false, kHostOther, 11, false},
        HostCase{"OtherHostWithRibbon", L"Visio", L"12.0", false, kHostOther, 12, true},
        HostCase{"OtherHostBeforeRibbon", L"Microsoft Access", L"11.0", false, kHostOther, 11,
                 false},
        HostCase{"VersionWithoutDot", L"Outlook", L"14", false, kHostOutlook, 14, true},
        HostCase{"MajorComparedAsANumber", L"Microsoft Excel", L"100.1", false, kHostExcel, 100,
                 true},
        HostCase{"VersionNotANumber", L"Microsoft Excel", L"x.1", false, kHostExcel, 0, false}),
    [](const testing::TestParamInfo<HostCase>& info) { return std::string(info.param.name); });

TEST_F(AddinLifecycleTest, WordBeforeTheRibbonMarksItsTemplateSavedWithAShortMinusOne) {
    Host(L"Microsoft Word", L"11.0");
    ASSERT_EQ(Connect(), S_OK);

    const std::vector<FakeDispatch::CallRecord>& calls = m_template->Calls();
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].member, L"Saved");
    EXPECT_EQ(calls[0].kind, FakeDispatch::CallKind::Put);
    ASSERT_EQ(calls[0].args.size(), 1u);
    EXPECT_EQ(calls[0].args[0].vt, VT_I2);
    EXPECT_EQ(calls[0].args[0].iVal, -1);
}

TEST_F(AddinLifecycleTest, AFailedStartUpStillConnects) {
    m_application->FailCall(L"CommandBars", 1, kHostFailure);
    LogCapture log;

    EXPECT_EQ(Connect(), S_OK);

    EXPECT_TRUE(log.Contains(L"[ERR] Failed to access CommandBars property! " + kHostFailureText))
        << ToUtf8(log.Text());
    EXPECT_FALSE(log.Contains(kRibbonStartUp));
    EXPECT_EQ(m_addin->OnDisconnection(ext_dm_HostShutdown, nullptr), S_OK);
    ExpectHostObjectsReleased();
}

TEST_F(AddinLifecycleTest, WithoutTheMachineWideSettingsNothingStarts) {
    m_registry.Wipe();
    LogCapture log;

    EXPECT_EQ(Connect(ext_cm_Startup), S_OK);
    EXPECT_EQ(m_addin->OnStartupComplete(nullptr), E_ACCESSDENIED);

    EXPECT_TRUE(log.Contains(L"[ERR] Failed to load settings!\n")) << ToUtf8(log.Text());
    EXPECT_TRUE(m_application->Calls().empty());
    EXPECT_EQ(Addin().HostKind(), kHostNotConnected);
}

TEST_F(AddinLifecycleTest, AUserUnloadEndsTheRibbonBeforeDisconnecting) {
    ASSERT_EQ(Connect(), S_OK);
    LogCapture log;

    EXPECT_EQ(m_addin->OnDisconnection(ext_dm_UserClosed, nullptr), S_OK);

    const std::wstring text = log.Text();
    const size_t shutdown = text.find(kRibbonShutdown);
    const size_t unloaded = text.find(L"[INF] Addin is being unloaded by the user.\n");
    ASSERT_NE(shutdown, std::wstring::npos) << ToUtf8(text);
    ASSERT_NE(unloaded, std::wstring::npos) << ToUtf8(text);
    EXPECT_LT(shutdown, unloaded);
    ExpectHostObjectsReleased();
}

TEST_F(AddinLifecycleTest, AHostShutdownLeavesOnBeginShutdownToTheHost) {
    ASSERT_EQ(Connect(), S_OK);
    LogCapture log;

    EXPECT_EQ(m_addin->OnDisconnection(ext_dm_HostShutdown, nullptr), S_OK);

    EXPECT_FALSE(log.Contains(kRibbonShutdown)) << ToUtf8(log.Text());
    EXPECT_TRUE(log.Contains(L"[INF] Addin is being unloaded on shutdown.\n"));
}

// One host call failing during the start-up: what is logged and what is no longer asked.
enum class HostObject { Application, Explorer, Template };

struct StartUpFailureCase {
    const char* name;
    const wchar_t* hostName;
    const wchar_t* version;
    bool multiProcess;
    HostObject failing;
    const wchar_t* member;
    const wchar_t* logLine;                // followed by " hr = 0x80070005\n"
    std::vector<const wchar_t*> notAsked;  // Application members not read after the failure
};

void PrintTo(const StartUpFailureCase& row, std::ostream* out) { *out << row.name; }

class StartUpFailureTest : public AddinLifecycleTest,
                           public testing::WithParamInterface<StartUpFailureCase> {
protected:
    FakeDispatch& Object(HostObject object) {
        switch (object) {
        case HostObject::Explorer:
            return *m_explorer.get();
        case HostObject::Template:
            return *m_template.get();
        case HostObject::Application:
            break;
        }
        return *m_application.get();
    }
};

TEST_P(StartUpFailureTest, IsLoggedReturnedAndEndsTheStartUp) {
    const StartUpFailureCase& row = GetParam();
    Host(row.hostName, row.version);
    m_registry.SetMachineNumber(L"MultiProcess", row.multiProcess ? 1 : 0);
    Object(row.failing).FailCall(row.member, 1, kHostFailure);
    LogCapture log;

    ASSERT_EQ(Connect(ext_cm_Startup), S_OK);
    EXPECT_EQ(m_addin->OnStartupComplete(nullptr), kHostFailure);

    EXPECT_TRUE(log.Contains(std::wstring(L"[ERR] ") + row.logLine + L" " + kHostFailureText))
        << ToUtf8(log.Text());
    for (const wchar_t* member : row.notAsked) {
        EXPECT_EQ(m_application->CallCount(member), 0u) << ToUtf8(member);
    }
    EXPECT_FALSE(log.Contains(kRibbonStartUp));
    EXPECT_EQ(m_addin->OnDisconnection(ext_dm_HostShutdown, nullptr), S_OK);
    ExpectHostObjectsReleased();
}

INSTANTIATE_TEST_SUITE_P(
    Failures, StartUpFailureTest,
    testing::Values(StartUpFailureCase{"Name",
                                       L"Microsoft Word",
                                       L"16.0",
                                       false,
                                       HostObject::Application,
                                       L"Name",
                                       L"Failed to get office application name!",
                                       {L"Version", L"CommandBars"}},
                    StartUpFailureCase{"Version",
                                       L"Microsoft Word",
                                       L"16.0",
                                       false,
                                       HostObject::Application,
                                       L"Version",
                                       L"Can't get version from application!",
                                       {L"CommandBars"}},
                    StartUpFailureCase{"CommandBars",
                                       L"Microsoft Excel",
                                       L"16.0",
                                       false,
                                       HostObject::Application,
                                       L"CommandBars",
                                       L"Failed to access CommandBars property!",
                                       {}},
                    StartUpFailureCase{"WordCommandBarsBeforeTheTemplate",
                                       L"Microsoft Word",
                                       L"11.0",
                                       false,
                                       HostObject::Application,
                                       L"CommandBars",
                                       L"Failed to access CommandBars property!",
                                       {L"CustomizationContext"}},
                    StartUpFailureCase{"ActiveExplorer",
                                       L"Outlook",
                                       L"12.0",
                                       true,
                                       HostObject::Application,
                                       L"ActiveExplorer",
                                       L"Failed to access ActiveExplorer property!",
                                       {L"Explorers", L"Inspectors"}},
                    // Reported with the ActiveExplorer text, as it always has been.
                    StartUpFailureCase{"Explorers",
                                       L"Outlook",
                                       L"12.0",
                                       true,
                                       HostObject::Application,
                                       L"Explorers",
                                       L"Failed to access ActiveExplorer property!",
                                       {L"Inspectors"}},
                    StartUpFailureCase{"ExplorerCommandBars",
                                       L"Outlook",
                                       L"11.0",
                                       false,
                                       HostObject::Explorer,
                                       L"CommandBars",
                                       L"Failed to access CommandBars property!",
                                       {L"Inspectors"}},
                    StartUpFailureCase{"Inspectors",
                                       L"Outlook",
                                       L"12.0",
                                       false,
                                       HostObject::Application,
                                       L"Inspectors",
                                       L"Failed to access Inspectors property!",
                                       {}},
                    StartUpFailureCase{"WordTemplate",
                                       L"Microsoft Word",
                                       L"11.0",
                                       false,
                                       HostObject::Application,
                                       L"CustomizationContext",
                                       L"Failed to get the current word template!",
                                       {}},
                    StartUpFailureCase{"WordTemplateSaved",
                                       L"Microsoft Word",
                                       L"10.0",
                                       false,
                                       HostObject::Template,
                                       L"Saved",
                                       L"Failed to set saved flag of the current word template!",
                                       {}}),
    [](const testing::TestParamInfo<StartUpFailureCase>& info) {
        return std::string(info.param.name);
    });

}  // namespace
