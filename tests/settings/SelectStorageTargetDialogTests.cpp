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

const std::wstring kCaption = L"Dokument ablegen";

class SelectDialogTest : public testing::Test {
protected:
    void UseTargets(const std::vector<std::wstring>& labels) {
        std::vector<std::wstring> targets;
        for (size_t i = 0; i < labels.size(); ++i) {
            targets.push_back(StorageTarget(labels[i], std::to_wstring(i + 1), L"1"));
        }
        m_registry.SetMachineTargets(targets);
        m_settings.LoadSettings();
    }
    // The dialog as the watcher saw it: its one window and its combo box.
    WindowWatcher::Window Shown() {
        std::vector<WindowWatcher::Window> seen = m_watcher.Seen();
        EXPECT_EQ(seen.size(), 1u);
        return seen.empty() ? WindowWatcher::Window{} : seen[0];
    }
    std::wstring Remembered() { return m_registry.UserString(kLastStartCenterConfig); }

    RegistrySandbox m_registry;
    CTDCSettings m_settings;
    WindowWatcher m_watcher;
};

TEST_F(SelectDialogTest, ShowsGermanTextsAndPreselectsTheRememberedLabelIgnoringCase) {
    UseTargets({L"Angebote", L"Archiv", L"Rechnungen"});
    m_registry.SetUserString(kLastStartCenterConfig, L"archiv");
    m_watcher.Expect(kCaption).Click(IDOK);

    EXPECT_EQ(ShowSelectStorageTargetDialog(&m_settings), 1);

    m_watcher.Verify();
    WindowWatcher::Window dialog = Shown();
    EXPECT_EQ(dialog.FindControl(IDOK)->text, L"Ok");
    EXPECT_EQ(dialog.FindControl(IDCANCEL)->text, L"Abbrechen");
    EXPECT_EQ(dialog.FindControl(IDC_SELECT_LABEL)->text, L"W\u00E4hlen Sie einen Ablageort:");
    const WindowWatcher::Control* combo = dialog.FindControl(IDC_STORAGE_TARGETS);
    ASSERT_NE(combo, nullptr);
    EXPECT_EQ(combo->items, (std::vector<std::wstring>{L"Angebote", L"Archiv", L"Rechnungen"}));
    EXPECT_EQ(combo->text, L"Archiv");
    EXPECT_EQ(Remembered(), L"Archiv");
}

TEST_F(SelectDialogTest, TheLastOfSeveralMatchingLabelsIsPreselected) {
    UseTargets({L"Archiv", L"Angebote", L"ARCHIV"});
    m_registry.SetUserString(kLastStartCenterConfig, L"archiv");
    m_watcher.Expect(kCaption).Click(IDCANCEL);

    EXPECT_EQ(ShowSelectStorageTargetDialog(&m_settings), 0);

    EXPECT_EQ(Shown().FindControl(IDC_STORAGE_TARGETS)->text, L"ARCHIV");
    EXPECT_EQ(Remembered(), L"archiv");
}

TEST_F(SelectDialogTest, AForgottenLabelPreselectsTheFirstAndAPickIsRemembered) {
    UseTargets({L"Angebote", L"Rechnungen"});
    m_registry.SetUserString(kLastStartCenterConfig, L"Vertr\u00E4ge");
    m_watcher.Expect(kCaption).SelectInCombo(IDC_STORAGE_TARGETS, L"Rechnungen").Click(IDOK);

    EXPECT_EQ(ShowSelectStorageTargetDialog(&m_settings), 1);

    m_watcher.Verify();
    EXPECT_EQ(Shown().FindControl(IDC_STORAGE_TARGETS)->text, L"Angebote");
    EXPECT_EQ(Remembered(), L"Rechnungen");
}

TEST_F(SelectDialogTest, ElevenTargetsAreListedInTheOrderOfTheirValueNames) {
    std::vector<std::wstring> labels;
    for (int i = 1; i <= 11; ++i) {
        labels.push_back(L"Ziel " + std::to_wstring(i));
    }
    UseTargets(labels);
    m_watcher.Expect(kCaption).Click(IDCANCEL);

    ShowSelectStorageTargetDialog(&m_settings);

    EXPECT_EQ(Shown().FindControl(IDC_STORAGE_TARGETS)->items,
              (std::vector<std::wstring>{L"Ziel 1", L"Ziel 10", L"Ziel 11", L"Ziel 2", L"Ziel 3",
                                         L"Ziel 4", L"Ziel 5", L"Ziel 6", L"Ziel 7", L"Ziel 8",
                                         L"Ziel 9"}));
}

TEST_F(SelectDialogTest, WithoutTargetsOkDoesNothingAndOnlyCancelEnds) {
    m_registry.SetMachineNumber(L"Attachments", 1);
    m_settings.LoadSettings();
    m_watcher.Expect(kCaption).Click(IDOK).Click(IDCANCEL);

    EXPECT_EQ(ShowSelectStorageTargetDialog(&m_settings), 0);

    m_watcher.Verify();
    bool found = true;
    m_registry.UserString(kLastStartCenterConfig, &found);
    EXPECT_FALSE(found);
}

TEST_F(SelectDialogTest, WithoutSettingsItEndsAtOnceAndLogs) {
    LogCapture log;
    EXPECT_EQ(ShowSelectStorageTargetDialog(nullptr), 0);
    EXPECT_TRUE(log.Contains(L"[ERR] Fatal error in select dialog! Settings not initialized!\n"));
    m_watcher.ExpectNoUnexpected();
}

}  // namespace
