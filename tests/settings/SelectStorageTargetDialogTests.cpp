#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "resources/resource.h"
#include "settings/SelectStorageTargetDialog.h"
#include "settings/TDCSettings.h"
#include "support/RegistrySandbox.h"
#include "support/TestFiles.h"
#include "support/WindowWatcher.h"

namespace {

struct DialogCase {
    const char* name;
    std::vector<std::wstring> labels;  // of the targets "Params1", "Params2", ...
    const wchar_t* remembered;         // "LastStartCenterConfig" before, or none
    const wchar_t* pick;               // the entry the user picks, or none
    std::vector<int> clicks;
    const wchar_t* preselected;
    INT_PTR result;
    const wchar_t* rememberedAfter;  // or none
};

void PrintTo(const DialogCase& row, std::ostream* out) { *out << row.name; }

class SelectDialogTest : public testing::TestWithParam<DialogCase> {};

TEST_P(SelectDialogTest, ListsTheTargetsPreselectsTheRememberedOneAndRemembersThePick) {
    const DialogCase& row = GetParam();
    RegistrySandbox registry;
    std::vector<std::wstring> targets;
    for (const std::wstring& label : row.labels) {
        targets.push_back(StorageTarget(label, L"1", L"1"));
    }
    registry.SetMachineTargets(targets);
    if (row.remembered) {
        registry.SetUserString(kLastStartCenterConfig, row.remembered);
    }
    CTDCSettings settings;
    ASSERT_EQ(settings.LoadSettings(), S_OK);
    WindowWatcher watcher;
    WindowWatcher::Expectation answer = watcher.Expect(L"Dokument ablegen");
    if (row.pick) {
        answer.SelectInCombo(IDC_STORAGE_TARGETS, row.pick);
    }
    for (int click : row.clicks) {
        answer.Click(click);
    }

    EXPECT_EQ(ShowSelectStorageTargetDialog(&settings), row.result);

    watcher.Verify();
    std::vector<WindowWatcher::Window> seen = watcher.Seen();
    ASSERT_EQ(seen.size(), 1u);
    const WindowWatcher::Window& dialog = seen[0];
    EXPECT_EQ(dialog.FindControl(IDOK)->text, L"Ok");
    EXPECT_EQ(dialog.FindControl(IDCANCEL)->text, L"Abbrechen");
    EXPECT_EQ(dialog.FindControl(IDC_SELECT_LABEL)->text, L"W\u00E4hlen Sie einen Ablageort:");
    // Unsorted: the order of the targets' value names.
    EXPECT_EQ(dialog.FindControl(IDC_STORAGE_TARGETS)->items, row.labels);
    EXPECT_EQ(dialog.FindControl(IDC_STORAGE_TARGETS)->text, row.preselected);
    bool found = false;
    std::wstring remembered = registry.UserString(kLastStartCenterConfig, &found);
    EXPECT_EQ(found, row.rememberedAfter != nullptr);
    EXPECT_EQ(remembered, row.rememberedAfter ? row.rememberedAfter : L"");
}

INSTANTIATE_TEST_SUITE_P(
    Choices, SelectDialogTest,
    testing::Values(
        DialogCase{"RememberedLabelIgnoringCase",
                   {L"Rechnungen", L"Archiv", L"Angebote"},
                   L"archiv",
                   nullptr,
                   {IDOK},
                   L"Archiv",
                   1,
                   L"Archiv"},
        DialogCase{"LastOfSeveralMatches",
                   {L"Archiv", L"Angebote", L"ARCHIV"},
                   L"archiv",
                   nullptr,
                   {IDCANCEL},
                   L"ARCHIV",
                   0,
                   L"archiv"},
        DialogCase{"ForgottenLabelGivesTheFirst",
                   {L"Angebote", L"Rechnungen"},
                   L"Vertr\u00E4ge",
                   L"Rechnungen",
                   {IDOK},
                   L"Angebote",
                   1,
                   L"Rechnungen"},
        // Without targets nothing is selected: OK does nothing, only Cancel ends the dialog.
        DialogCase{"NoTargets", {}, nullptr, nullptr, {IDOK, IDCANCEL}, L"", 0, nullptr}),
    [](const testing::TestParamInfo<DialogCase>& info) { return std::string(info.param.name); });

TEST(SelectDialog, WithoutSettingsItEndsAtOnceAndLogs) {
    WindowWatcher watcher;
    LogCapture log;
    EXPECT_EQ(ShowSelectStorageTargetDialog(nullptr), 0);
    EXPECT_TRUE(log.Contains(L"[ERR] Fatal error in select dialog! Settings not initialized!\n"));
    watcher.Verify();
}

}  // namespace
