#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "common/UniqueResource.h"
#include "support/BuiltModule.h"
#include "support/RegistrySandbox.h"
#include "support/TestFiles.h"
#include "support/WindowWatcher.h"

namespace {

using Texts = std::vector<std::wstring>;

const std::wstring kAddinClsid = L"{9BEC1BC7-AFD5-4B83-B6FF-1AB8711015D9}";
const std::wstring kAddinProgId = L"Talvorn.DorvaneAddin";
const std::wstring kAddinName = L"Talvorn dorvane addin";
const std::wstring kConnectorClsid = L"{6BD2E17D-9699-4A1A-B817-5D42E0FF39E5}";
const std::wstring kConnectorProgId = L"Talvorn.DorvaneConnectorDX2COM";
const std::wstring kConnectorName = L"Talvorn dorvane ConnectorDX2COM";
constexpr const wchar_t* kOfficeHosts[] = {L"Excel", L"PowerPoint", L"Word", L"Outlook"};

std::wstring OfficeKeyPath(const std::wstring& host) {
    return L"Software\\Microsoft\\Office\\" + host;
}
std::wstring AddinKeyPath(const std::wstring& host) {
    return OfficeKeyPath(host) + L"\\Addins\\" + kAddinProgId;
}

// A key's values as "name=text" (REG_SZ) or "name=#number", sorted by name.
Texts Values(HKEY root, const std::wstring& path) {
    Texts values;
    for (const std::wstring& name : ValueNames(root, path)) {
        bool text = false;
        const std::wstring value = ReadText(root, path, name.c_str(), &text);
        values.push_back(
            name + L"=" +
            (text ? value : L"#" + std::to_wstring(ReadNumber(root, path, name.c_str()))));
    }
    return values;
}

// The built module, loaded for the registrations made in-process on the test process's private
// roots (classes included), and an installation folder for "setup.ini". The child-process path
// (the installer's custom actions, a real prefix registry) is the package test's.
class RegistrationTest : public testing::Test {
protected:
    RegistrationTest() { Clear(); }
    ~RegistrationTest() override { Clear(); }
    // What a test made outside the keys the members clear, volatile keys among them.
    static void Clear() {
        RegDeleteTreeW(HKEY_LOCAL_MACHINE, L"Software\\Microsoft\\Office");
        RegDeleteTreeW(HKEY_LOCAL_MACHINE, L"Software\\talvorn");
    }
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
    // Calls DllRegisterServer or DllUnregisterServer in the installation folder, where regsvr32
    // runs them and they find "setup.ini".
    HRESULT CallExport(const char* name) {
        auto function = reinterpret_cast<HRESULT(STDAPICALLTYPE*)()>(
            reinterpret_cast<void*>(GetProcAddress(m_module.get(), name)));
        wchar_t old[MAX_PATH];
        GetCurrentDirectoryW(MAX_PATH, old);
        SetCurrentDirectoryW(m_installation.Path().c_str());
        const HRESULT hr = function();
        SetCurrentDirectoryW(old);
        return hr;
    }
    // What the registration wrote: the add-in key for exactly `hosts` (in kOfficeHosts order,
    // separated by blanks); the five keys of the add-in class when any host has it, of the
    // connector class when asked, or none of them. No ThreadingModel: the host's main apartment.
    void ExpectRegistered(const std::wstring& hosts, bool connector) {
        std::wstring found;
        for (const wchar_t* host : kOfficeHosts) {
            if (KeyExists(HKEY_LOCAL_MACHINE, AddinKeyPath(host))) {
                found += (found.empty() ? L"" : L" ") + std::wstring(host);
            }
        }
        EXPECT_EQ(found, hosts);
        for (const auto& [clsid, progId, name, registered] :
             {std::tuple{kAddinClsid, kAddinProgId, kAddinName, !hosts.empty()},
              std::tuple{kConnectorClsid, kConnectorProgId, kConnectorName, connector}}) {
            const std::wstring key = L"CLSID\\" + clsid;
            for (const auto& [path, text] : {std::pair{key, name},
                                             {key + L"\\InprocServer32", m_modulePath},
                                             {key + L"\\ProgID", progId},
                                             {progId, name},
                                             {progId + L"\\CLSID", clsid}}) {
                if (registered) {
                    EXPECT_EQ(Values(HKEY_CLASSES_ROOT, path), Texts{L"=" + text}) << ToUtf8(path);
                } else {
                    EXPECT_FALSE(KeyExists(HKEY_CLASSES_ROOT, path)) << ToUtf8(path);
                }
            }
        }
    }

    PrivateClassesRoot m_classes;
    RegistrySandbox m_registry;
    ScratchFolder m_installation;
    UniqueHModule m_module;
    std::wstring m_modulePath;    // as GetModuleFileNameW gives it
    std::wstring m_moduleFolder;  // the same without the file name
};

// With a byte order mark; setting names in any case; list lines numbered across their spellings;
// switches take "yes" only: "1" switches nothing on. Unregistering takes everything away, the
// users' settings too, and may be repeated.
TEST_F(RegistrationTest, AFullSetupFileRegistersEverythingAndUnregisterRemovesIt) {
    WriteSetup(
        "\xEF\xBB\xBF[talvorn dorvane]\r\nMSWord=yes\r\nMSOutlook=YES\r\nMSExcel=yes\r\n"
        "mspowerpoint=Yes\r\nCOM=yes\r\nParams=label=\"Rechnungen\" appid=1 configid=2\r\n"
        "DeleteArcDocs=no\r\nparams=label=\"Angebote\" appid=3 configid=4\r\n"
        "Params=label=\"Vertr\xC3\xA4ge\" appid=5 configid=6\r\nAttachments=yes\r\n"
        "Nosettings=1\r\nUnknown=value\r\nl=de\r\n");

    ASSERT_EQ(CallExport("DllRegisterServer"), S_OK);

    ExpectRegistered(L"Excel PowerPoint Word Outlook", true);
    for (const wchar_t* host : kOfficeHosts) {
        EXPECT_EQ(Values(HKEY_LOCAL_MACHINE, AddinKeyPath(host)),
                  (Texts{L"CommandLineSafe=#0", L"Description=" + kAddinName,
                         L"FriendlyName=" + kAddinName, L"LoadBehavior=#3"}))
            << ToUtf8(host);
    }
    const std::wstring settings = RegistrySandbox::MachinePath();
    EXPECT_EQ(Values(HKEY_LOCAL_MACHINE, settings),
              (Texts{L"Attachments=#1", L"DeleteArcDocs=#0", L"Dir=" + m_moduleFolder,
                     L"Nosettings=#0", L"Params1=" + StorageTarget(L"Rechnungen", L"1", L"2"),
                     L"Params2=" + StorageTarget(L"Angebote", L"3", L"4"),
                     L"Params3=" + StorageTarget(L"Vertr\u00E4ge", L"5", L"6"), L"l=de"}));

    m_registry.SetUserString(L"LastStartCenterConfig", L"Rechnungen");
    EXPECT_EQ(CallExport("DllUnregisterServer"), S_OK);

    ExpectRegistered(L"", false);
    EXPECT_FALSE(KeyExists(HKEY_LOCAL_MACHINE, settings));
    EXPECT_FALSE(KeyExists(HKEY_CURRENT_USER, settings));
    EXPECT_EQ(CallExport("DllUnregisterServer"), S_OK) << "a repeated unregistration fails";
}

struct SetupCase {
    const char* name;
    const char* lines;     // UTF-8 without a byte order mark; null: no setup.ini at all
    const wchar_t* hosts;  // the hosts that get the add-in key
    bool connector;
    const wchar_t* caption;  // of the one message box the registration shows, if any
    const wchar_t* message;
    HRESULT result;
};

void PrintTo(const SetupCase& setup, std::ostream* out) { *out << setup.name; }

class SetupTest : public RegistrationTest, public testing::WithParamInterface<SetupCase> {};

// A refused registration writes nothing. A stable key cannot be made below a volatile one
// (ERROR_CHILD_MUST_BE_VOLATILE, also under Wine): in "UnwritableHostKey" a volatile "Addins" key
// makes Excel's add-in key unwritable, which is reported while the registration goes on, and a
// volatile "talvorn" key the settings key, whose failure is the result.
TEST_P(SetupTest, RegistersExactlyTheChosenHostsAndClasses) {
    const SetupCase& setup = GetParam();
    if (setup.lines) {
        WriteSetup(setup.lines);
    }
    if (setup.result == E_ACCESSDENIED) {
        CreateKey(HKEY_LOCAL_MACHINE, OfficeKeyPath(L"Excel"));
        CreateKey(HKEY_LOCAL_MACHINE, OfficeKeyPath(L"Excel") + L"\\Addins", REG_OPTION_VOLATILE);
        CreateKey(HKEY_LOCAL_MACHINE, L"Software\\talvorn", REG_OPTION_VOLATILE);
    }
    WindowWatcher watcher;
    if (setup.caption) {
        watcher.Expect(setup.caption).Click(IDOK);
    }

    EXPECT_EQ(CallExport("DllRegisterServer"), setup.result);

    watcher.Verify();
    if (setup.caption) {
        std::vector<WindowWatcher::Window> seen = watcher.Seen();
        ASSERT_EQ(seen.size(), 1u);
        EXPECT_TRUE(seen[0].HasText(setup.message)) << seen[0];
    }
    if (setup.result == S_OK) {
        EXPECT_EQ(ReadText(HKEY_LOCAL_MACHINE, RegistrySandbox::MachinePath(), L"Dir"),
                  m_moduleFolder);
    } else {
        EXPECT_FALSE(KeyExists(HKEY_LOCAL_MACHINE, RegistrySandbox::MachinePath()));
    }
    ExpectRegistered(setup.hosts, setup.connector);
}

// "1" is not "yes", and the last line for a host wins; names and "yes" in any case: see above.
constexpr wchar_t kRefused[] = L"Fehler bei der Dokumentablage";
INSTANTIATE_TEST_SUITE_P(
    Setups, SetupTest,
    testing::Values(
        SetupCase{"OnlyTheLastYesSwitchesOn", "MSWord=yes\r\nMSWord=1\nMSExcel=yes\n", L"Excel",
                  false, nullptr, nullptr, S_OK},
        SetupCase{"ConnectorOnlyWithoutLastLineEnd", "COM=yes", L"", true, nullptr, nullptr, S_OK},
        SetupCase{"NoSetupFile", nullptr, L"", false, kRefused,
                  L"Datei \"setup.ini\" konnte nicht geöffnet werden!", E_UNEXPECTED},
        SetupCase{"NothingChosen", "MSOutlook=no\r\nMSWord=1\r\nCOM=1\r\nAttachments=yes\r\n", L"",
                  false, kRefused,
                  L"Failed to install the Office Addin or COM interface.\r\nPlease check "
                  L"parameters in file setup.ini",
                  E_UNEXPECTED},
        SetupCase{"UnwritableHostKey", "MSExcel=yes\r\nMSWord=yes\r\n", L"Word", false,
                  L"RegisterCOMAddin", L"Failed to create registry key error 000003FD\n",
                  E_ACCESSDENIED}),
    [](const testing::TestParamInfo<SetupCase>& info) { return std::string(info.param.name); });

}  // namespace
