#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <vector>

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
constexpr const wchar_t* kOfficeHosts[] = {L"Excel", L"PowerPoint", L"Word", L"Outlook"};

std::wstring OfficeKeyPath(const std::wstring& host) {
    return L"Software\\Microsoft\\Office\\" + host;
}
std::wstring AddinKeyPath(const std::wstring& host) {
    return OfficeKeyPath(host) + L"\\Addins\\" + kAddinProgId;
}

// The built module, loaded for the registrations made in-process, and an installation folder for
// "setup.ini".
class RegistrationTest : public testing::Test {
protected:
    void SetUp() override {
        m_module.reset(LoadLibraryW(BuiltAddinPath().c_str()));
        ASSERT_TRUE(m_module) << "cannot load " << ToUtf8(BuiltAddinPath());
        wchar_t path[MAX_PATH];
        m_modulePath.assign(path, GetModuleFileNameW(m_module.get(), path, MAX_PATH));
        m_moduleFolder = m_modulePath.substr(0, m_modulePath.find_last_of(L'\\'));
    }

    void WriteSetup(const std::string& bytes) {
        WriteFileBytes(m_installation / L"setup.ini", bytes);
    }

    // DllRegisterServer of the loaded module, called from the installation folder.
    HRESULT RegisterInProcess() {
        auto registerServer = reinterpret_cast<HRESULT(STDAPICALLTYPE*)()>(
            reinterpret_cast<void*>(GetProcAddress(m_module.get(), "DllRegisterServer")));
        wchar_t old[MAX_PATH];
        GetCurrentDirectoryW(MAX_PATH, old);
        SetCurrentDirectoryW(m_installation.Path().c_str());
        HRESULT hr = registerServer();
        SetCurrentDirectoryW(old);
        return hr;
    }

    // The entries of a class as the registration writes them, or none of them.
    void ExpectClass(bool registered, const std::wstring& clsid, const std::wstring& progId,
                     const std::wstring& name) {
        const std::wstring key = L"CLSID\\" + clsid;
        if (!registered) {
            EXPECT_FALSE(KeyExists(HKEY_CLASSES_ROOT, key)) << ToUtf8(clsid);
            EXPECT_FALSE(KeyExists(HKEY_CLASSES_ROOT, progId)) << ToUtf8(progId);
            return;
        }
        EXPECT_EQ(ReadText(HKEY_CLASSES_ROOT, key, nullptr), name);
        EXPECT_EQ(ReadText(HKEY_CLASSES_ROOT, key + L"\\InprocServer32", nullptr), m_modulePath);
        // No ThreadingModel: the host's main apartment.
        EXPECT_EQ(ValueNames(HKEY_CLASSES_ROOT, key + L"\\InprocServer32"),
                  std::vector<std::wstring>{L""});
        EXPECT_EQ(ReadText(HKEY_CLASSES_ROOT, key + L"\\ProgID", nullptr), progId);
        EXPECT_EQ(ReadText(HKEY_CLASSES_ROOT, progId, nullptr), name);
        EXPECT_EQ(ReadText(HKEY_CLASSES_ROOT, progId + L"\\CLSID", nullptr), clsid);
    }
    void ExpectClasses(bool addin, bool connector) {
        ExpectClass(addin, kAddinClsid, kAddinProgId, kAddinName);
        ExpectClass(connector, kConnectorClsid, kConnectorProgId, kConnectorName);
    }

    // The hosts that have the add-in key, in kOfficeHosts order and separated by blanks.
    static std::wstring HostsWithAddinKey() {
        std::wstring hosts;
        for (const wchar_t* host : kOfficeHosts) {
            if (KeyExists(HKEY_LOCAL_MACHINE, AddinKeyPath(host))) {
                hosts += (hosts.empty() ? L"" : L" ") + std::wstring(host);
            }
        }
        return hosts;
    }

    ScratchFolder m_installation;
    UniqueHModule m_module;
    std::wstring m_modulePath;    // as GetModuleFileNameW gives it
    std::wstring m_moduleFolder;  // the same without the file name
};

// --- regsvr32, in a child process, on the prefix's registry.

// A key that holds neither values nor subkeys was made by the registration, not by the prefix.
void DeleteIfEmpty(const std::wstring& path) {
    UniqueHKey key;
    DWORD subkeys = 1;
    DWORD values = 1;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, KEY_READ, key.put()) == ERROR_SUCCESS) {
        RegQueryInfoKeyW(key.get(), nullptr, nullptr, nullptr, &subkeys, nullptr, nullptr, &values,
                         nullptr, nullptr, nullptr, nullptr);
    }
    if (subkeys == 0 && values == 0) {
        key.reset();
        RegDeleteKeyW(HKEY_LOCAL_MACHINE, path.c_str());
    }
}

// The prefix's own keys for the life of the test, cleared of the add-in before and after.
class PrefixRegistration {
public:
    PrefixRegistration() { Remove(); }
    ~PrefixRegistration() { Remove(); }

private:
    void Remove() {
        for (const std::wstring& key : {L"CLSID\\" + kAddinClsid, L"CLSID\\" + kConnectorClsid,
                                        kAddinProgId, kConnectorProgId}) {
            RegDeleteTreeW(HKEY_CLASSES_ROOT, key.c_str());
        }
        for (const wchar_t* host : kOfficeHosts) {
            RegDeleteTreeW(HKEY_LOCAL_MACHINE, AddinKeyPath(host).c_str());
            DeleteIfEmpty(OfficeKeyPath(host) + L"\\Addins");
            DeleteIfEmpty(OfficeKeyPath(host));
        }
        DeleteIfEmpty(L"Software\\Microsoft\\Office");
        m_settings.Wipe();
    }

    PrefixRegistry m_prefix;
    RegistrySandbox m_settings;
};

// With a byte order mark; setting names in any case; list lines numbered across their spellings.
constexpr char kFullSetup[] =
    "\xEF\xBB\xBF[talvorn dorvane]\r\n"
    "MSWord=yes\r\n"
    "MSOutlook=YES\r\n"
    "MSExcel=yes\r\n"
    "mspowerpoint=Yes\r\n"
    "COM=yes\r\n"
    "Params=label=\"Rechnungen\" appid=1 configid=2\r\n"
    "DeleteArcDocs=no\r\n"
    "params=label=\"Angebote\" appid=3 configid=4\r\n"
    "Params=label=\"Vertr\xC3\xA4ge\" appid=5 configid=6\r\n"
    "Attachments=yes\r\n"
    "Nosettings=1\r\n"
    "Unknown=value\r\n"
    "l=de\r\n";

// regsvr32 loads the module in a process of its own, which does not share the test process's
// private registry roots: this one test reads and writes the prefix's keys of the add-in, which
// no other test touches.
TEST_F(RegistrationTest, Regsvr32RegistersEverythingAndUnregisterRemovesIt) {
    PrefixRegistration prefix;
    WriteSetup(kFullSetup);
    auto regsvr32 = [this](const std::wstring& options) {
        std::wstring command = L"regsvr32.exe " + options + L" \"" + BuiltAddinPath() + L"\"";
        STARTUPINFOW startup{};
        startup.cb = sizeof startup;
        PROCESS_INFORMATION started{};
        if (!CreateProcessW(nullptr /* application: from the command line */, command.data(),
                            nullptr, nullptr, FALSE /* inherit handles */, 0, nullptr,
                            m_installation.Path().c_str(), &startup, &started)) {
            return ~0ul;
        }
        UniqueHandle process(started.hProcess);
        CloseHandle(started.hThread);
        // A regsvr32 that never ends is reported by the watchdog of the test program.
        WaitForSingleObject(process.get(), INFINITE);
        DWORD exitCode = ~0u;
        GetExitCodeProcess(process.get(), &exitCode);
        return exitCode;
    };

    ASSERT_EQ(regsvr32(L"/s"), 0u);

    ExpectClasses(true, true);
    EXPECT_EQ(HostsWithAddinKey(), L"Excel PowerPoint Word Outlook");
    for (const wchar_t* host : kOfficeHosts) {
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
              (std::vector<std::wstring>{L"Attachments", L"DeleteArcDocs", L"Dir", L"Nosettings",
                                         L"Params1", L"Params2", L"Params3", L"l"}));
    EXPECT_EQ(ReadText(HKEY_LOCAL_MACHINE, settings, L"Params1"),
              StorageTarget(L"Rechnungen", L"1", L"2"));
    EXPECT_EQ(ReadText(HKEY_LOCAL_MACHINE, settings, L"Params2"),
              StorageTarget(L"Angebote", L"3", L"4"));
    EXPECT_EQ(ReadText(HKEY_LOCAL_MACHINE, settings, L"Params3"),
              StorageTarget(L"Vertr\u00E4ge", L"5", L"6"));
    EXPECT_EQ(ReadNumber(HKEY_LOCAL_MACHINE, settings, L"Attachments"), 1u);
    EXPECT_EQ(ReadNumber(HKEY_LOCAL_MACHINE, settings, L"DeleteArcDocs"), 0u);
    // Switches take "yes" only: "1" switches nothing on.
    EXPECT_EQ(ReadNumber(HKEY_LOCAL_MACHINE, settings, L"Nosettings"), 0u);
    EXPECT_EQ(ReadText(HKEY_LOCAL_MACHINE, settings, L"l"), L"de");
    EXPECT_EQ(ReadText(HKEY_LOCAL_MACHINE, settings, L"Dir"), m_moduleFolder);

    SetText(HKEY_CURRENT_USER, RegistrySandbox::UserPath(), L"LastStartCenterConfig",
            L"Rechnungen");
    EXPECT_EQ(regsvr32(L"/u /s"), 0u);

    ExpectClasses(false, false);
    EXPECT_EQ(HostsWithAddinKey(), L"");
    EXPECT_FALSE(KeyExists(HKEY_LOCAL_MACHINE, settings));
    EXPECT_FALSE(KeyExists(HKEY_CURRENT_USER, settings));
    EXPECT_EQ(regsvr32(L"/u /s"), 0u) << "a repeated unregistration fails";
}

// --- DllRegisterServer in-process, on the test process's private roots.

class InProcessRegistrationTest : public RegistrationTest {
protected:
    InProcessRegistrationTest() { Clear(); }
    ~InProcessRegistrationTest() override { Clear(); }
    // What a test made outside the keys the members clear, volatile keys among them.
    static void Clear() {
        RegDeleteTreeW(HKEY_LOCAL_MACHINE, L"Software\\Microsoft\\Office");
        RegDeleteTreeW(HKEY_LOCAL_MACHINE, L"Software\\talvorn");
    }

    PrivateClassesRoot m_classes;
    RegistrySandbox m_registry;
};

struct SetupCase {
    const char* name;
    const char* lines;     // UTF-8 without a byte order mark; null: no setup.ini at all
    const wchar_t* hosts;  // the hosts that get the add-in key
    bool connector;
    const wchar_t* refusal;  // the message of a refused registration, which writes nothing
};

void PrintTo(const SetupCase& setup, std::ostream* out) { *out << setup.name; }

class SetupTest : public InProcessRegistrationTest,
                  public testing::WithParamInterface<SetupCase> {};

TEST_P(SetupTest, RegistersExactlyTheChosenHostsAndClasses) {
    const SetupCase& setup = GetParam();
    if (setup.lines) {
        WriteSetup(setup.lines);
    }
    WindowWatcher watcher;
    if (setup.refusal) {
        watcher.Expect(kErrorCaption).Click(IDOK);
    }

    EXPECT_EQ(RegisterInProcess(), setup.refusal ? E_UNEXPECTED : S_OK);

    watcher.Verify();
    if (setup.refusal) {
        std::vector<WindowWatcher::Window> seen = watcher.Seen();
        ASSERT_EQ(seen.size(), 1u);
        EXPECT_TRUE(seen[0].HasText(setup.refusal)) << seen[0];
        EXPECT_FALSE(KeyExists(HKEY_LOCAL_MACHINE, RegistrySandbox::MachinePath()));
    } else {
        EXPECT_EQ(ReadText(HKEY_LOCAL_MACHINE, RegistrySandbox::MachinePath(), L"Dir"),
                  m_moduleFolder);
    }
    EXPECT_EQ(HostsWithAddinKey(), setup.hosts);
    ExpectClasses(*setup.hosts != L'\0', setup.connector);
}

// "1" is not "yes", and the last line for a host wins.
INSTANTIATE_TEST_SUITE_P(
    Setups, SetupTest,
    testing::Values(SetupCase{"NamesAndYesInAnyCase", "MSWORD=YES\r\n", L"Word", false, nullptr},
                    SetupCase{"OnlyTheLastYesSwitchesOn", "MSWord=yes\r\nMSWord=1\nMSExcel=yes\n",
                              L"Excel", false, nullptr},
                    SetupCase{"ConnectorOnlyWithoutLastLineEnd", "COM=yes", L"", true, nullptr},
                    SetupCase{"NoSetupFile", nullptr, L"", false,
                              L"Datei \"setup.ini\" konnte nicht geöffnet werden!"},
                    SetupCase{
                        "NothingChosen", "MSOutlook=no\r\nMSWord=1\r\nCOM=1\r\nAttachments=yes\r\n",
                        L"", false,
                        L"Failed to install the Office Addin or COM interface.\r\nPlease check "
                        L"parameters in file setup.ini"}),
    [](const testing::TestParamInfo<SetupCase>& info) { return std::string(info.param.name); });

// A stable key cannot be made below a volatile one (ERROR_CHILD_MUST_BE_VOLATILE, also under
// Wine): a volatile "Addins" key makes its host's add-in key unwritable, a volatile "talvorn" key
// the settings key.
TEST_F(InProcessRegistrationTest, AnUnwritableHostKeyIsReportedAndTheRegistrationGoesOn) {
    CreateKey(HKEY_LOCAL_MACHINE, OfficeKeyPath(L"Excel"));
    CreateKey(HKEY_LOCAL_MACHINE, OfficeKeyPath(L"Excel") + L"\\Addins", REG_OPTION_VOLATILE);
    CreateKey(HKEY_LOCAL_MACHINE, L"Software\\talvorn", REG_OPTION_VOLATILE);
    WriteSetup("MSExcel=yes\r\nMSWord=yes\r\n");
    WindowWatcher watcher;
    watcher.Expect(L"RegisterCOMAddin").Click(IDOK);

    // The settings' result: the unwritable host changes nothing in it.
    EXPECT_EQ(RegisterInProcess(), E_ACCESSDENIED);

    watcher.Verify();
    std::vector<WindowWatcher::Window> seen = watcher.Seen();
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_TRUE(seen[0].HasText(L"Failed to create registry key error 000003FD\n")) << seen[0];
    EXPECT_EQ(HostsWithAddinKey(), L"Word");
    ExpectClasses(true, false);
}

}  // namespace
