#include <gtest/gtest.h>

#include <windows.h>

#include <commctrl.h>

#include <string>
#include <vector>

#include "addin/commands/DialogCommands.h"
#include "common/Messages.h"
#include "resources/resource.h"
#include "settings/SettingsDialog.h"
#include "settings/TDCSettings.h"
#include "support/LanguageFiles.h"
#include "support/RegistrySandbox.h"
#include "support/TestFiles.h"
#include "support/WindowWatcher.h"

namespace {

const std::wstring kCaption = L"Einstellungen";
const std::wstring kErrorCaption = L"Fehler bei der Dokumentablage";

// What the user does in the dialog before OK or Cancel: add a target from the three fields, or
// select a row and remove it.
struct Step {
    enum { Add, Remove, ToggleDeleteMails } kind;
    std::wstring label;  // Add: the three fields
    std::wstring appId;
    std::wstring configId;
    int row = 0;  // Remove
};

Step Add(std::wstring label, std::wstring appId, std::wstring configId) {
    return Step{Step::Add, std::move(label), std::move(appId), std::move(configId)};
}
Step Remove(int row) { return Step{Step::Remove, L"", L"", L"", row}; }
Step ToggleDeleteMails() { return Step{Step::ToggleDeleteMails, L"", L"", L""}; }

void Press(HWND dialog, int button) {
    SendMessageW(dialog, WM_COMMAND, MAKEWPARAM(button, BN_CLICKED),
                 reinterpret_cast<LPARAM>(GetDlgItem(dialog, button)));
}

// Runs the steps in the open dialog and ends it with `button`. All of it runs from inside the
// dialog's loop, so that a refusal's message box comes in between.
void Perform(const WindowWatcher& watcher, const std::vector<Step>& steps, int button) {
    HWND dialog = watcher.Open(kCaption);
    ASSERT_NE(dialog, nullptr);
    HWND list = GetDlgItem(dialog, IDC_SETTINGS_TARGETS);
    for (const Step& step : steps) {
        switch (step.kind) {
        case Step::Add:
            SetDlgItemTextW(dialog, IDC_SETTINGS_NAME, step.label.c_str());
            SetDlgItemTextW(dialog, IDC_SETTINGS_APPID, step.appId.c_str());
            SetDlgItemTextW(dialog, IDC_SETTINGS_CONFIGID, step.configId.c_str());
            Press(dialog, IDC_SETTINGS_ADD);
            break;
        case Step::Remove:
            ListView_SetItemState(list, step.row, LVIS_SELECTED, LVIS_SELECTED);
            Press(dialog, IDC_SETTINGS_REMOVE);
            break;
        case Step::ToggleDeleteMails:
            SendDlgItemMessageW(dialog, IDC_SETTINGS_DELETE_MAILS, BM_CLICK, 0, 0);
            break;
        }
    }
    Press(dialog, button);
}

struct EditCase {
    const char* name;
    std::vector<std::wstring> labels;  // machine-wide targets, appid and configid their positions
    std::vector<Step> steps;
    std::vector<UINT> refusals;  // the message boxes the steps bring up, in order
    int button;
    // The per-user key afterwards: the targets in the order of their value names.
    std::vector<std::wstring> saved;
    DWORD deleteMails;
};

void PrintTo(const EditCase& row, std::ostream* out) { *out << row.name; }

// A target whose identifiers are both `id`.
std::wstring Target(const std::wstring& label, int id) {
    return StorageTarget(label, std::to_wstring(id), std::to_wstring(id));
}

class SettingsDialogEditTest : public testing::TestWithParam<EditCase> {};

TEST_P(SettingsDialogEditTest, SavesTheEditedListOnOkOnly) {
    const EditCase& row = GetParam();
    RegistrySandbox registry;
    std::vector<std::wstring> targets;
    for (size_t i = 0; i < row.labels.size(); ++i) {
        targets.push_back(Target(row.labels[i], static_cast<int>(i + 1)));
    }
    registry.SetMachineTargets(targets);
    WindowWatcher watcher;
    watcher.Expect(kCaption).Call([&] { Perform(watcher, row.steps, row.button); });
    for (size_t i = 0; i < row.refusals.size(); ++i) {
        watcher.Expect(kErrorCaption).Click(IDOK);
    }
    LogCapture log;

    OnSettings();

    watcher.Verify();
    EXPECT_TRUE(log.Contains(L"[INF] Outlook CTalvornAddin->OnSettings invoked\n"));
    ASSERT_EQ(watcher.Seen().size(), row.refusals.size() + 1);
    for (size_t i = 0; i < row.refusals.size(); ++i) {
        wchar_t text[260] = L"";
        LoadUiString(row.refusals[i], text, 260);
        EXPECT_TRUE(watcher.Seen()[i + 1].HasText(text)) << watcher.Seen()[i + 1];
    }
    std::vector<std::wstring> saved;
    for (const std::wstring& name : ValueNames(HKEY_CURRENT_USER, RegistrySandbox::UserPath())) {
        if (name.starts_with(L"Params")) {
            saved.push_back(registry.UserString(name.c_str()));
        }
    }
    EXPECT_EQ(saved, row.saved);
    EXPECT_EQ(ReadNumber(HKEY_CURRENT_USER, RegistrySandbox::UserPath(), L"DeleteArcDocs"),
              row.deleteMails);
}

INSTANTIATE_TEST_SUITE_P(
    Edits, SettingsDialogEditTest,
    testing::Values(
        EditCase{"AddAndRemoveRenumber",
                 {L"Archiv", L"Rechnungen"},
                 {Add(L"Vertr\u00E4ge 2024", L"42", L"7"), Remove(0)},
                 {},
                 IDOK,
                 {Target(L"Rechnungen", 2), StorageTarget(L"Vertr\u00E4ge 2024", L"42", L"7")},
                 0},
        EditCase{"CancelSavesNothing",
                 {L"Archiv"},
                 {Add(L"Neu", L"1", L"2"), ToggleDeleteMails()},
                 {},
                 IDCANCEL,
                 {},
                 0},
        EditCase{"OkWithoutChangeSavesTheSwitch",
                 {L"Archiv"},
                 {ToggleDeleteMails()},
                 {},
                 IDOK,
                 {Target(L"Archiv", 1)},
                 1},
        EditCase{"InvalidInputIsRefused",
                 {L"Archiv"},
                 {Add(L"", L"1", L"2"), Add(L"Neu", L"1 2", L"3"), Add(L"Neu", L"1", L""),
                  Add(L"Sag \"Hallo\"", L"1", L"2"), Add(L"appid=5", L"1", L"2")},
                 {IDS_SETTINGS_LABEL_MISSING, IDS_SETTINGS_ID_INVALID, IDS_SETTINGS_ID_INVALID,
                  IDS_SETTINGS_TARGET_UNREADABLE, IDS_SETTINGS_TARGET_UNREADABLE},
                 IDOK,
                 {Target(L"Archiv", 1)},
                 0},
        // Listed in value-name order ("Params10" second), the second row removed; the rows keep
        // their places: the k-th row takes the k-th value name in that order.
        EditCase{
            "ElevenTargetsKeepTheirOrder",
            {L"A", L"B", L"C", L"D", L"E", L"F", L"G", L"H", L"I", L"J", L"K"},
            {Remove(1)},
            {},
            IDOK,
            {Target(L"A", 1), Target(L"K", 11), Target(L"B", 2), Target(L"C", 3), Target(L"D", 4),
             Target(L"E", 5), Target(L"F", 6), Target(L"G", 7), Target(L"H", 8), Target(L"I", 9)},
            0}),
    [](const testing::TestParamInfo<EditCase>& info) { return std::string(info.param.name); });

TEST(SettingsDialog, OffersTheLanguageFilesAndStoresTheChoice) {
    RegistrySandbox registry;
    LanguageFolder folder(registry, L"");
    folder.Write(L"en", LanguageFileBytes({}));
    folder.Write(L"fr", LanguageFileBytes({}));
    CTDCSettings settings;
    ASSERT_EQ(settings.LoadSettings(), S_OK);
    WindowWatcher watcher;
    watcher.Expect(kCaption).SelectInCombo(IDC_SETTINGS_LANGUAGE, L"fr").Click(IDOK);

    EXPECT_EQ(ShowSettingsDialog(settings), 1);

    watcher.Verify();
    ASSERT_EQ(watcher.Seen().size(), 1u);
    const WindowWatcher::Control* combo = watcher.Seen()[0].FindControl(IDC_SETTINGS_LANGUAGE);
    ASSERT_NE(combo, nullptr);
    EXPECT_EQ(combo->items, (std::vector<std::wstring>{L"Deutsch", L"en", L"fr"}));
    EXPECT_EQ(combo->text, L"Deutsch");
    EXPECT_TRUE(settings.Changed());
    ASSERT_NE(settings.GetSetting(L"l"), nullptr);
    EXPECT_EQ(settings.GetSetting(L"l")->TextValue(), L"fr");
}

// The refusal comes from the settings store, whose every save it guards.
TEST(SettingsDialog, LockedSettingsShowTheRefusalInsteadOfTheDialog) {
    RegistrySandbox registry;
    registry.SetMachineNumber(L"Nosettings", 1);
    WindowWatcher watcher;
    watcher.Expect(L"talvorn dorvane").Click(IDOK);

    OnSettings();

    watcher.Verify();
    ASSERT_EQ(watcher.Seen().size(), 1u);
    EXPECT_TRUE(watcher.Seen()[0].HasText(L"Saving Settings are administratively disabled."));
    EXPECT_EQ(watcher.Seen()[0].messageBoxType, static_cast<UINT>(MB_TOPMOST));
    EXPECT_FALSE(KeyExists(HKEY_CURRENT_USER, RegistrySandbox::UserPath()));
}

}  // namespace
