#include <gtest/gtest.h>

#include <string>

#include "common/LogFile.h"
#include "resources/resource.h"
#include "settings/InfoDialog.h"
#include "support/BuiltModule.h"
#include "support/LanguageFiles.h"
#include "support/RegistrySandbox.h"
#include "support/TestFiles.h"
#include "support/WindowWatcher.h"

namespace {

std::wstring ThisProgram() {
    wchar_t path[MAX_PATH];
    return std::wstring(path, GetModuleFileNameW(nullptr, path, MAX_PATH));
}

struct InfoCase {
    const char* name;
    const wchar_t* language;  // "l", the shipped files beside the built module
    const wchar_t* caption;
    std::wstring product;
    std::wstring details;  // "%p" the module, "%l" the log file, "%f" the language file
};

void PrintTo(const InfoCase& row, std::ostream* out) { *out << row.name; }

std::wstring Expand(std::wstring text, const std::wstring& languageFile) {
    for (auto [mark, value] : {std::pair<std::wstring, std::wstring>{L"%p", ThisProgram()},
                               {L"%l", TheLog().Path()},
                               {L"%f", languageFile}}) {
        if (size_t at = text.find(mark); at != std::wstring::npos) {
            text.replace(at, mark.size(), value);
        }
    }
    return text;
}

class InfoDialogTest : public testing::TestWithParam<InfoCase> {};

TEST_P(InfoDialogTest, ShowsWhatIsInstalledAndInEffect) {
    const InfoCase& row = GetParam();
    RegistrySandbox registry;
    LanguageFolder folder(registry, row.language, BuiltAddinFolder());
    registry.SetMachineTargets(
        {StorageTarget(L"Archiv", L"42", L"7"), StorageTarget(L"Rechnungen", L"43", L"8")});
    registry.SetMachineNumber(L"Nosettings", 1);
    registry.SetUserTargets({StorageTarget(L"Vertr\u00E4ge", L"5", L"6")});
    WindowWatcher watcher;
    watcher.Expect(row.caption).Click(IDOK);

    ShowInfoDialog(InfoDialogHost{L"Microsoft Word", L"16.0.4266.1001"});

    watcher.Verify();
    ASSERT_EQ(watcher.Seen().size(), 1u);
    const WindowWatcher::Window& dialog = watcher.Seen()[0];
    EXPECT_EQ(dialog.FindControl(IDC_INFO_PRODUCT)->text, row.product);
    EXPECT_EQ(dialog.FindControl(IDC_INFO_DETAILS)->text,
              Expand(row.details, folder.Path() + L"\\lang_en.bin"));
}

INSTANTIATE_TEST_SUITE_P(
    Languages, InfoDialogTest,
    testing::Values(
        // The per-user list is the one in effect.
        InfoCase{"German", L"de", L"Info", L"talvorn dorvane\r\nVersion 1.0.0.0",
                 L"Programmdatei: %p\r\n"
                 L"Anwendung: Microsoft Word 16.0.4266.1001\r\n"
                 L"Protokolldatei: %l\r\n"
                 L"Sprachdatei: keine\r\n"
                 L"Einstellungen gesperrt: Ja\r\n"
                 L"Ablageorte:\r\n"
                 L"    Vertr\u00E4ge (appid=5$configid=6)\r\n"},
        InfoCase{"English", L"en", L"Info", L"talvorn dorvane\r\nVersion 1.0.0.0",
                 L"Program file: %p\r\n"
                 L"Application: Microsoft Word 16.0.4266.1001\r\n"
                 L"Log file: %l\r\n"
                 L"Language file: %f\r\n"
                 L"Settings locked: Yes\r\n"
                 L"Storage targets:\r\n"
                 L"    Vertr\u00E4ge (appid=5$configid=6)\r\n"}),
    [](const testing::TestParamInfo<InfoCase>& info) { return std::string(info.param.name); });

}  // namespace
