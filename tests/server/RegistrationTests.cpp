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

    // What `run` returns, run in the installation folder, where registrations find "setup.ini".
    template <class Run>
    auto InInstallation(Run run) {
        wchar_t old[MAX_PATH];
        GetCurrentDirectoryW(MAX_PATH, old);
        SetCurrentDirectoryW(m_installation.Path().c_str());
        auto result = run();
        SetCurrentDirectoryW(old);
        return result;
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

    ScratchFolder m_installation;
    UniqueHModule m_module;
    std::wstring m_modulePath;    // as GetModuleFileNameW gives it
    std::wstring m_moduleFolder;  // the same without the file name
};

// --- regsvr32, in a child process, on the prefix's registry.

// The prefix's own keys for the life of the test, cleared of the add-in before and after. The
// prefix has no Office keys of its own: RegDeleteKeyW removes those the registration made once
// they have no subkeys left.
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
            for (const std::wstring& key :
                 {AddinKeyPath(host), OfficeKeyPath(host) + L"\\Addins", OfficeKeyPath(host)}) {
                RegDeleteKeyW(HKEY_LOCAL_MACHINE, key.c_str());
            }
        }
        RegDeleteKeyW(HKEY_LOCAL_MACHINE, L"Software\\Microsoft\\Office");
        m_settings.Wipe();
    }

    PrefixRegistry m_prefix;
    RegistrySandbox m_settings;
};

// regsvr32 loads the module in a process of its own, which does not share the test process's
// private registry roots: this one test reads and writes the prefix's keys of the add-in, which
// no other test touches.
TEST_F(RegistrationTest, Regsvr32RegistersEverythingAndUnregisterRemovesIt) {
    PrefixRegistration prefix;
    // With a byte order mark; setting names in any case; list lines numbered across their
    // spellings; switches take "yes" only: "1" switches nothing on.
    WriteSetup(
        "\xEF\xBB\xBF[talvorn dorvane]\r\nMSWord=yes\r\nMSOutlook=YES\r\nMSExcel=yes\r\n"
        "mspowerpoint=Yes\r\nCOM=yes\r\nParams=label=\"Rechnungen\" appid=1 configid=2\r\n"
        "DeleteArcDocs=no\r\nparams=label=\"Angebote\" appid=3 configid=4\r\n"
        "Params=label=\"Vertr\xC3\xA4ge\" appid=5 configid=6\r\nAttachments=yes\r\n"
        "Nosettings=1\r\nUnknown=value\r\nl=de\r\n");
    // A regsvr32 that never ends is reported by the watchdog of the test program.
    auto regsvr32 = [this](const std::wstring& options) {
        const std::wstring command = L"regsvr32.exe " + options + L" \"" + BuiltAddinPath() + L"\"";
        return InInstallation([&] { return _wsystem(command.c_str()); });
    };

    ASSERT_EQ(regsvr32(L"/s"), 0);

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

    SetText(HKEY_CURRENT_USER, RegistrySandbox::UserPath(), L"LastStartCenterConfig",
            L"Rechnungen");
    EXPECT_EQ(regsvr32(L"/u /s"), 0);

    ExpectRegistered(L"", false);
    EXPECT_FALSE(KeyExists(HKEY_LOCAL_MACHINE, settings));
    EXPECT_FALSE(KeyExists(HKEY_CURRENT_USER, settings));
    EXPECT_EQ(regsvr32(L"/u /s"), 0) << "a repeated unregistration fails";
}

// --- DllRegisterServer in-process, on the test process's private roots.

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

class SetupTest : public RegistrationTest, public testing::WithParamInterface<SetupCase> {
protected:
    SetupTest() { Clear(); }
    ~SetupTest() override { Clear(); }
    // What a test made outside the keys the members clear, volatile keys among them.
    static void Clear() {
        RegDeleteTreeW(HKEY_LOCAL_MACHINE, L"Software\\Microsoft\\Office");
        RegDeleteTreeW(HKEY_LOCAL_MACHINE, L"Software\\talvorn");
    }

    PrivateClassesRoot m_classes;
    RegistrySandbox m_registry;
};

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

    auto registerServer = reinterpret_cast<HRESULT(STDAPICALLTYPE*)()>(
        reinterpret_cast<void*>(GetProcAddress(m_module.get(), "DllRegisterServer")));
    EXPECT_EQ(InInstallation(registerServer), setup.result);

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
