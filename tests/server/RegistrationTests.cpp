#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "addin/OfficeInterfaces.h"
#include "common/ComPtr.h"
#include "common/UniqueResource.h"
#include "support/BuiltModule.h"
#include "support/RegistrySandbox.h"
#include "support/TestFiles.h"
#include "support/WindowWatcher.h"

namespace {

const std::wstring kAddinClsid = L"{9BEC1BC7-AFD5-4B83-B6FF-1AB8711015D9}";
const std::wstring kAddinProgId = L"Talvorn.DorvaneAddin";
const std::wstring kAddinName = L"Talvorn dorvane addin";
const std::wstring kConnectorClsid = L"{6BD2E17D-9699-4A1A-B817-5D42E0FF39E5}";
const std::wstring kConnectorProgId = L"Talvorn.DorvaneConnectorDX2COM";
const std::wstring kConnectorName = L"Talvorn dorvane ConnectorDX2COM";
const std::wstring kErrorCaption = L"Fehler bei der Dokumentablage";
const std::wstring kNoHostText =
    L"Failed to install the Office Addin or COM interface.\r\nPlease check parameters in file "
    L"setup.ini";
constexpr const wchar_t* kOfficeHosts[] = {L"Excel", L"PowerPoint", L"Word", L"Outlook"};

std::wstring OfficeKeyPath(const std::wstring& host) {
    return L"Software\\Microsoft\\Office\\" + host;
}
std::wstring AddinKeyPath(const std::wstring& host) {
    return OfficeKeyPath(host) + L"\\Addins\\" + kAddinProgId;
}

bool KeyExists(HKEY root, const std::wstring& path) {
    UniqueHKey key;
    return RegOpenKeyExW(root, path.c_str(), 0, KEY_READ, key.put()) == ERROR_SUCCESS;
}

// A REG_SZ value (the default value for an empty name); nothing when it is missing or of another
// type.
std::optional<std::wstring> ReadText(HKEY root, const std::wstring& path,
                                     const std::wstring& name = L"") {
    wchar_t text[2048];
    DWORD size = sizeof text;
    if (RegGetValueW(root, path.c_str(), name.empty() ? nullptr : name.c_str(), RRF_RT_REG_SZ,
                     nullptr, text, &size) != ERROR_SUCCESS) {
        return std::nullopt;
    }
    return std::wstring(text);
}

std::optional<DWORD> ReadNumber(HKEY root, const std::wstring& path, const std::wstring& name) {
    DWORD number = 0;
    DWORD size = sizeof number;
    if (RegGetValueW(root, path.c_str(), name.c_str(), RRF_RT_REG_DWORD, nullptr, &number, &size) !=
        ERROR_SUCCESS) {
        return std::nullopt;
    }
    return number;
}

// The names of a key's values, sorted; the default value is the empty name.
std::vector<std::wstring> ValueNames(HKEY root, const std::wstring& path) {
    std::vector<std::wstring> names;
    UniqueHKey key;
    if (RegOpenKeyExW(root, path.c_str(), 0, KEY_READ, key.put()) != ERROR_SUCCESS) {
        return names;
    }
    for (DWORD index = 0;; ++index) {
        wchar_t name[256];
        DWORD length = 256;
        if (RegEnumValueW(key.get(), index, name, &length, nullptr, nullptr, nullptr, nullptr) !=
            ERROR_SUCCESS) {
            break;
        }
        names.emplace_back(name, length);
    }
    std::sort(names.begin(), names.end());
    return names;
}

// Removes whatever a registration of the add-in writes outside the settings keys (those are the
// RegistrySandbox's): both classes and the Office hosts' add-in keys, with the host keys left
// empty by them.
class RegisteredClasses {
public:
    RegisteredClasses() { Remove(); }
    ~RegisteredClasses() { Remove(); }
    RegisteredClasses(const RegisteredClasses&) = delete;
    RegisteredClasses& operator=(const RegisteredClasses&) = delete;

private:
    static void Remove() {
        for (const std::wstring& clsid : {kAddinClsid, kConnectorClsid}) {
            RegDeleteTreeW(HKEY_CLASSES_ROOT, (L"CLSID\\" + clsid).c_str());
        }
        for (const std::wstring& progId : {kAddinProgId, kConnectorProgId}) {
            RegDeleteTreeW(HKEY_CLASSES_ROOT, progId.c_str());
        }
        for (const wchar_t* host : kOfficeHosts) {
            RegDeleteTreeW(HKEY_LOCAL_MACHINE, AddinKeyPath(host).c_str());
            DeleteIfEmpty(OfficeKeyPath(host) + L"\\Addins");
            DeleteIfEmpty(OfficeKeyPath(host));
        }
        DeleteIfEmpty(L"Software\\Microsoft\\Office");
    }

    // A key that holds neither values nor subkeys was made by the registration, not by the prefix.
    static void DeleteIfEmpty(const std::wstring& path) {
        UniqueHKey key;
        DWORD subkeys = 0;
        DWORD values = 0;
        if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, KEY_READ, key.put()) !=
                ERROR_SUCCESS ||
            RegQueryInfoKeyW(key.get(), nullptr, nullptr, nullptr, &subkeys, nullptr, nullptr,
                             &values, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS ||
            subkeys != 0 || values != 0) {
            return;
        }
        key.reset();
        RegDeleteKeyW(HKEY_LOCAL_MACHINE, path.c_str());
    }
};

// Sets the process's current directory for the life of the object.
class CurrentDirectory {
public:
    explicit CurrentDirectory(const std::wstring& folder) {
        wchar_t old[MAX_PATH];
        m_old.assign(old, GetCurrentDirectoryW(MAX_PATH, old));
        SetCurrentDirectoryW(folder.c_str());
    }
    ~CurrentDirectory() { SetCurrentDirectoryW(m_old.c_str()); }
    CurrentDirectory(const CurrentDirectory&) = delete;
    CurrentDirectory& operator=(const CurrentDirectory&) = delete;

private:
    std::wstring m_old;
};

// Each test starts from a registry without the add-in and an installation folder of its own; the
// built module is loaded into the test process for the registration calls that show messages.
class RegistrationTest : public testing::Test {
protected:
    using EntryPoint = HRESULT(STDAPICALLTYPE*)();

    void SetUp() override {
        m_module.reset(LoadLibraryW(BuiltAddinPath().c_str()));
        ASSERT_TRUE(m_module) << "cannot load " << ToUtf8(BuiltAddinPath());
        wchar_t path[MAX_PATH];
        m_modulePath.assign(path, GetModuleFileNameW(m_module.get(), path, MAX_PATH));
        m_moduleFolder = m_modulePath.substr(0, m_modulePath.find_last_of(L'\\'));
    }

    // Writes "setup.ini" into the installation folder as an administrator's editor saves it.
    void WriteSetup(const std::string& lines, bool byteOrderMark = true) {
        WriteFileBytes(m_installation / L"setup.ini",
                       (byteOrderMark ? "\xEF\xBB\xBF" : "") + lines);
    }

    // Runs the prefix's regsvr32 silently on the built module from the installation folder and
    // returns its exit code, 0 on success.
    DWORD RunRegsvr32(const std::wstring& options) {
        std::wstring command = L"regsvr32.exe " + options + L" \"" + BuiltAddinPath() + L"\"";
        STARTUPINFOW startup{};
        startup.cb = sizeof startup;
        PROCESS_INFORMATION started{};
        if (!CreateProcessW(nullptr /* application: from the command line */, command.data(),
                            nullptr, nullptr, FALSE /* inherit handles */, 0, nullptr,
                            m_installation.Path().c_str(), &startup, &started)) {
            ADD_FAILURE() << "cannot start regsvr32, error " << GetLastError();
            return ~0u;
        }
        UniqueHandle process(started.hProcess);
        UniqueHandle thread(started.hThread);
        if (WaitForSingleObject(process.get(), 60000) != WAIT_OBJECT_0) {
            TerminateProcess(process.get(), 1);
            ADD_FAILURE() << "regsvr32 did not end within a minute";
            return ~0u;
        }
        DWORD exitCode = ~0u;
        GetExitCodeProcess(process.get(), &exitCode);
        return exitCode;
    }

    // Calls an entry point of the loaded module from the installation folder.
    HRESULT CallInProcess(const char* entryPoint) {
        auto function = reinterpret_cast<EntryPoint>(
            reinterpret_cast<void*>(GetProcAddress(m_module.get(), entryPoint)));
        if (!function) {
            ADD_FAILURE() << "no export " << entryPoint;
            return E_FAIL;
        }
        CurrentDirectory inInstallation(m_installation.Path());
        return function();
    }

    void ExpectClass(const std::wstring& clsid, const std::wstring& progId,
                     const std::wstring& name) {
        const std::wstring clsidKey = L"CLSID\\" + clsid;
        EXPECT_EQ(ReadText(HKEY_CLASSES_ROOT, clsidKey), name);
        EXPECT_EQ(ReadText(HKEY_CLASSES_ROOT, clsidKey + L"\\InprocServer32"), m_modulePath);
        // No ThreadingModel: the host's main apartment.
        EXPECT_EQ(ValueNames(HKEY_CLASSES_ROOT, clsidKey + L"\\InprocServer32"),
                  std::vector<std::wstring>{L""});
        EXPECT_EQ(ReadText(HKEY_CLASSES_ROOT, clsidKey + L"\\ProgID"), progId);
        EXPECT_EQ(ReadText(HKEY_CLASSES_ROOT, progId), name);
        EXPECT_EQ(ReadText(HKEY_CLASSES_ROOT, progId + L"\\CLSID"), clsid);
    }

    void ExpectClassAbsent(const std::wstring& clsid, const std::wstring& progId) {
        EXPECT_FALSE(KeyExists(HKEY_CLASSES_ROOT, L"CLSID\\" + clsid)) << ToUtf8(clsid);
        EXPECT_FALSE(KeyExists(HKEY_CLASSES_ROOT, progId)) << ToUtf8(progId);
    }

    std::vector<std::wstring> HostsWithAddinKey() {
        std::vector<std::wstring> hosts;
        for (const wchar_t* host : kOfficeHosts) {
            if (KeyExists(HKEY_LOCAL_MACHINE, AddinKeyPath(host))) {
                hosts.push_back(host);
            }
        }
        return hosts;
    }

    RegistrySandbox m_registry;
    RegisteredClasses m_classes;
    ScratchFolder m_installation;
    UniqueHModule m_module;
    std::wstring m_modulePath;    // as GetModuleFileNameW gives it
    std::wstring m_moduleFolder;  // the same without the file name
};

constexpr char kFullSetup[] =
    "[talvorn dorvane]\r\n"
    "MSWord=yes\r\n"
    "MSOutlook=YES\r\n"
    "COM=yes\r\n"
    "Params=label=\"Rechnungen\" appid=1 configid=2\r\n"
    "Params=label=\"Angebote\" appid=3 configid=4\r\n"
    "Params=label=\"Vertr\xC3\xA4ge\" appid=5 configid=6\r\n"
    "Attachments=yes\r\n"
    "l=de\r\n";

TEST_F(RegistrationTest, Regsvr32RegistersBothClassesTheChosenHostsAndTheSettings) {
    WriteSetup(kFullSetup);

    ASSERT_EQ(RunRegsvr32(L"/s"), 0u);

    ExpectClass(kAddinClsid, kAddinProgId, kAddinName);
    ExpectClass(kConnectorClsid, kConnectorProgId, kConnectorName);

    EXPECT_EQ(HostsWithAddinKey(), (std::vector<std::wstring>{L"Word", L"Outlook"}));
    for (const wchar_t* host : {L"Word", L"Outlook"}) {
        SCOPED_TRACE(ToUtf8(host));
        const std::wstring key = AddinKeyPath(host);
        EXPECT_EQ(ValueNames(HKEY_LOCAL_MACHINE, key),
                  (std::vector<std::wstring>{L"CommandLineSafe", L"Description", L"FriendlyName",
                                             L"LoadBehavior"}));
        EXPECT_EQ(ReadNumber(HKEY_LOCAL_MACHINE, key, L"LoadBehavior"), 3u);
        EXPECT_EQ(ReadNumber(HKEY_LOCAL_MACHINE, key, L"CommandLineSafe"), 0u);
        EXPECT_EQ(ReadText(HKEY_LOCAL_MACHINE, key, L"FriendlyName"), kAddinName);
        EXPECT_EQ(ReadText(HKEY_LOCAL_MACHINE, key, L"Description"), kAddinName);
    }

    const std::wstring settings = RegistrySandbox::MachinePath();
    EXPECT_EQ(ValueNames(HKEY_LOCAL_MACHINE, settings),
              (std::vector<std::wstring>{L"Attachments", L"Dir", L"Params1", L"Params2", L"Params3",
                                         L"l"}));
    EXPECT_EQ(ReadText(HKEY_LOCAL_MACHINE, settings, L"Params1"),
              StorageTarget(L"Rechnungen", L"1", L"2"));
    EXPECT_EQ(ReadText(HKEY_LOCAL_MACHINE, settings, L"Params2"),
              StorageTarget(L"Angebote", L"3", L"4"));
    EXPECT_EQ(ReadText(HKEY_LOCAL_MACHINE, settings, L"Params3"),
              StorageTarget(L"Verträge", L"5", L"6"));
    EXPECT_EQ(ReadNumber(HKEY_LOCAL_MACHINE, settings, L"Attachments"), 1u);
    EXPECT_EQ(ReadText(HKEY_LOCAL_MACHINE, settings, L"l"), L"de");
    EXPECT_EQ(ReadText(HKEY_LOCAL_MACHINE, settings, L"Dir"), m_moduleFolder);
}

TEST_F(RegistrationTest, Regsvr32UnregisterRemovesEverythingAndMayBeRepeated) {
    WriteSetup(
        "MSWord=yes\r\nMSOutlook=yes\r\nMSExcel=yes\r\nMSPowerPoint=yes\r\nCOM=yes\r\nl=de\r\n");
    ASSERT_EQ(RunRegsvr32(L"/s"), 0u);
    ASSERT_EQ(HostsWithAddinKey().size(), 4u);
    m_registry.SetUserString(L"LastStartCenterConfig", L"Rechnungen");
    ASSERT_TRUE(KeyExists(HKEY_CURRENT_USER, RegistrySandbox::UserPath()));

    EXPECT_EQ(RunRegsvr32(L"/u /s"), 0u);

    ExpectClassAbsent(kAddinClsid, kAddinProgId);
    ExpectClassAbsent(kConnectorClsid, kConnectorProgId);
    EXPECT_TRUE(HostsWithAddinKey().empty());
    EXPECT_FALSE(KeyExists(HKEY_LOCAL_MACHINE, RegistrySandbox::MachinePath()));
    EXPECT_FALSE(KeyExists(HKEY_CURRENT_USER, RegistrySandbox::MachinePath()));

    EXPECT_EQ(RunRegsvr32(L"/u /s"), 0u);
}

TEST_F(RegistrationTest, WithoutSetupFileTheAdministratorIsToldAndNothingIsWritten) {
    WindowWatcher watcher;
    watcher.Expect(kErrorCaption).Click(IDOK);

    EXPECT_EQ(CallInProcess("DllRegisterServer"), E_UNEXPECTED);

    watcher.Verify();
    std::vector<WindowWatcher::Window> seen = watcher.Seen();
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_TRUE(seen[0].HasText(L"Datei \"setup.ini\" konnte nicht geöffnet werden!")) << seen[0];
    ExpectClassAbsent(kAddinClsid, kAddinProgId);
    ExpectClassAbsent(kConnectorClsid, kConnectorProgId);
    EXPECT_FALSE(KeyExists(HKEY_LOCAL_MACHINE, RegistrySandbox::MachinePath()));
}

TEST_F(RegistrationTest, SettingLinesAreTypedAndListLinesNumberedInFileOrder) {
    WriteSetup(
        "Params=label=\"Vertr\xC3\xA4ge\" appid=5 configid=6\r\n"
        "MSExcel=yes\r\n"
        "DeleteArcDocs=no\r\n"
        "params=label=\"B\" appid=7 configid=8\r\n"
        "MultiProcess=YES\r\n"
        "Nosettings=1\r\n"
        "Unknown=value\r\n"
        "l=en\r\n");

    ASSERT_EQ(CallInProcess("DllRegisterServer"), S_OK);

    const std::wstring settings = RegistrySandbox::MachinePath();
    EXPECT_EQ(ValueNames(HKEY_LOCAL_MACHINE, settings),
              (std::vector<std::wstring>{L"DeleteArcDocs", L"Dir", L"MultiProcess", L"Nosettings",
                                         L"Params1", L"Params2", L"l"}));
    EXPECT_EQ(ReadText(HKEY_LOCAL_MACHINE, settings, L"Params1"),
              StorageTarget(L"Verträge", L"5", L"6"));
    EXPECT_EQ(ReadText(HKEY_LOCAL_MACHINE, settings, L"Params2"), StorageTarget(L"B", L"7", L"8"));
    EXPECT_EQ(ReadNumber(HKEY_LOCAL_MACHINE, settings, L"DeleteArcDocs"), 0u);
    EXPECT_EQ(ReadNumber(HKEY_LOCAL_MACHINE, settings, L"MultiProcess"), 1u);
    // Switches take "yes" only: "1" switches nothing on.
    EXPECT_EQ(ReadNumber(HKEY_LOCAL_MACHINE, settings, L"Nosettings"), 0u);
    EXPECT_EQ(ReadText(HKEY_LOCAL_MACHINE, settings, L"l"), L"en");
}

// --- Which host lines of setup.ini register what.

struct SetupCase {
    const char* name;
    const char* lines;  // UTF-8
    bool byteOrderMark;
    std::vector<std::wstring> hosts;  // the hosts that get the add-in key, in kOfficeHosts order
    bool connector;
};

void PrintTo(const SetupCase& setup, std::ostream* out) { *out << setup.name; }

class SetupLinesTest : public RegistrationTest, public testing::WithParamInterface<SetupCase> {};

TEST_P(SetupLinesTest, RegisterExactlyTheChosenHostsAndClasses) {
    const SetupCase& setup = GetParam();
    WriteSetup(setup.lines, setup.byteOrderMark);

    ASSERT_EQ(CallInProcess("DllRegisterServer"), S_OK);

    EXPECT_EQ(HostsWithAddinKey(), setup.hosts);
    if (setup.hosts.empty()) {
        ExpectClassAbsent(kAddinClsid, kAddinProgId);
    } else {
        ExpectClass(kAddinClsid, kAddinProgId, kAddinName);
    }
    if (setup.connector) {
        ExpectClass(kConnectorClsid, kConnectorProgId, kConnectorName);
    } else {
        ExpectClassAbsent(kConnectorClsid, kConnectorProgId);
    }
    EXPECT_EQ(ReadText(HKEY_LOCAL_MACHINE, RegistrySandbox::MachinePath(), L"Dir"), m_moduleFolder);
}

INSTANTIATE_TEST_SUITE_P(
    Hosts, SetupLinesTest,
    testing::Values(
        SetupCase{"NamesAndYesInAnyCase", "MSWORD=YES\r\n", true, {L"Word"}, false},
        SetupCase{"OnlyYesSwitchesOn", "MSWord=1\r\nMSExcel=yes\r\n", true, {L"Excel"}, false},
        SetupCase{"EveryHost",
                  "MSOutlook=yes\r\nMSWord=yes\r\nMSExcel=yes\r\nmspowerpoint=Yes\r\n",
                  true,
                  {L"Excel", L"PowerPoint", L"Word", L"Outlook"},
                  false},
        SetupCase{"TheLastLineForAHostWins",
                  "MSPowerPoint=yes\r\nMSWord=no\r\nMSPowerPoint=no\r\nMSWord=yes\r\n",
                  true,
                  {L"Word"},
                  false},
        SetupCase{"ConnectorOnly", "COM=yes\r\n", true, {}, true},
        SetupCase{"HostAndConnector", "COM=YES\r\nMSOutlook=yes\r\n", true, {L"Outlook"}, true},
        SetupCase{"UnixLineEnds", "MSExcel=yes\nCOM=yes\n", true, {L"Excel"}, true},
        SetupCase{"NoByteOrderMarkNoLastLineEnd",
                  "MSOutlook=yes\r\nMSWord=yes",
                  false,
                  {L"Word", L"Outlook"},
                  false}),
    [](const testing::TestParamInfo<SetupCase>& info) { return std::string(info.param.name); });

class NothingChosenTest : public RegistrationTest, public testing::WithParamInterface<SetupCase> {};

TEST_P(NothingChosenTest, IsRefusedWithAMessageAndWritesNothing) {
    WriteSetup(GetParam().lines);
    WindowWatcher watcher;
    watcher.Expect(kErrorCaption).Click(IDOK);

    EXPECT_EQ(CallInProcess("DllRegisterServer"), E_UNEXPECTED);

    watcher.Verify();
    std::vector<WindowWatcher::Window> seen = watcher.Seen();
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_TRUE(seen[0].HasText(kNoHostText)) << seen[0];
    ExpectClassAbsent(kAddinClsid, kAddinProgId);
    ExpectClassAbsent(kConnectorClsid, kConnectorProgId);
    EXPECT_TRUE(HostsWithAddinKey().empty());
    EXPECT_FALSE(KeyExists(HKEY_LOCAL_MACHINE, RegistrySandbox::MachinePath()));
}

INSTANTIATE_TEST_SUITE_P(
    Setups, NothingChosenTest,
    testing::Values(SetupCase{"EmptyFile", "", true, {}, false},
                    SetupCase{"OneIsNotYes", "MSWord=1\r\nCOM=1\r\n", true, {}, false},
                    SetupCase{"EverythingSwitchedOff",
                              "MSOutlook=no\r\nMSWord=nein\r\nMSExcel=\r\nCOM=no\r\n",
                              true,
                              {},
                              false},
                    SetupCase{"SettingsOnly", "Attachments=yes\r\nl=de\r\n", true, {}, false}),
    [](const testing::TestParamInfo<SetupCase>& info) { return std::string(info.param.name); });

// --- What a host does with the registration: create the objects by their ProgIDs.

class ComApartment {
public:
    ComApartment() : m_hr(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED)) {}
    ~ComApartment() {
        if (SUCCEEDED(m_hr)) {
            CoUninitialize();
        }
    }
    ComApartment(const ComApartment&) = delete;
    ComApartment& operator=(const ComApartment&) = delete;
    HRESULT Result() const noexcept { return m_hr; }

private:
    HRESULT m_hr;
};

TEST_F(RegistrationTest, HostsCreateBothClassesByProgIdAfterRegistration) {
    WriteSetup("MSWord=yes\r\nCOM=yes\r\n");
    ASSERT_EQ(CallInProcess("DllRegisterServer"), S_OK);
    ComApartment apartment;
    ASSERT_EQ(apartment.Result(), S_OK);
    auto canUnloadNow = reinterpret_cast<EntryPoint>(
        reinterpret_cast<void*>(GetProcAddress(m_module.get(), "DllCanUnloadNow")));
    ASSERT_NE(canUnloadNow, nullptr);

    CLSID addinClsid{};
    ASSERT_EQ(CLSIDFromProgID(kAddinProgId.c_str(), &addinClsid), S_OK);
    ComPtr<IDTExtensibility2> addin;
    ASSERT_EQ(CoCreateInstance(addinClsid, nullptr, CLSCTX_INPROC_SERVER, IID_IDTExtensibility2,
                               addin.put_void()),
              S_OK);
    ComPtr<IRibbonExtensibility> ribbon;
    EXPECT_EQ(addin.query_to(ribbon.put()), S_OK);
    // COM loaded the registered module, the one this test holds.
    EXPECT_EQ(canUnloadNow(), S_FALSE);

    CLSID connectorClsid{};
    ASSERT_EQ(CLSIDFromProgID(kConnectorProgId.c_str(), &connectorClsid), S_OK);
    ComPtr<IDispatch> connector;
    ASSERT_EQ(CoCreateInstance(connectorClsid, nullptr, CLSCTX_INPROC_SERVER, IID_IDispatch,
                               connector.put_void()),
              S_OK);
    wchar_t name[] = L"DeleteMail";
    LPOLESTR names[] = {name};
    DISPID id = 0;
    EXPECT_EQ(connector->GetIDsOfNames(IID_NULL, names, 1, LOCALE_USER_DEFAULT, &id), S_OK);
    EXPECT_EQ(id, 4);

    ribbon.reset();
    addin.reset();
    connector.reset();
    EXPECT_EQ(canUnloadNow(), S_OK);
}

}  // namespace
