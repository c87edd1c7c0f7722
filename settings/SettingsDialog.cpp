#include "settings/SettingsDialog.h"

#include <commctrl.h>
#include <windowsx.h>

#include <algorithm>
#include <string>
#include <vector>

#include "common/BoundedFormat.h"
#include "common/LanguageFile.h"
#include "common/Messages.h"
#include "common/Module.h"
#include "resources/resource.h"
#include "settings/DialogText.h"
#include "settings/StorageTargetText.h"
#include "settings/TDCSettings.h"

namespace {

constexpr int kTextCapacity = 1024;
constexpr int kNameColumnWidth = 250;
constexpr int kIdColumnWidth = 110;
// The settings read a target back into 2048 bytes; a longer one would come back cut.
constexpr size_t kMaxTargetLength = 1023;
constexpr wchar_t kBuiltInLanguage[] = L"de";
constexpr wchar_t kLanguage[] = L"l";
constexpr wchar_t kDeleteArcDocs[] = L"DeleteArcDocs";

struct Target {
    std::wstring label;
    std::wstring appId;
    std::wstring configId;
};

// What the dialog edits until OK hands it to the settings object.
struct DialogState {
    CTDCSettings& settings;
    std::vector<Target> targets;
    std::vector<std::wstring> languages;  // the combo box's codes, in its order
    std::wstring language;                // "l" as it was loaded
};

DialogState& StateOf(HWND dialog) {
    return *reinterpret_cast<DialogState*>(GetWindowLongPtrW(dialog, DWLP_USER));
}

std::wstring Compose(const Target& target) {
    return FormatString(L"label=\"%s\" appid=%s configid=%s", target.label.c_str(),
                        target.appId.c_str(), target.configId.c_str());
}

Target Parse(const wchar_t* text) {
    wchar_t label[kStorageTargetTextCapacity];
    wchar_t appId[kStorageTargetTextCapacity];
    wchar_t configId[kStorageTargetTextCapacity];
    ExtractLabel(text, label);
    ExtractKeyValue(text, L"appid", appId);
    ExtractKeyValue(text, L"configid", configId);
    return Target{label, appId, configId};
}

// True when the hand-off and the target selection read exactly this target back out of its text;
// a label holding a quote or "appid=", say, would come back as something else.
bool ReadsBack(const Target& target) {
    std::wstring text = Compose(target);
    if (text.size() > kMaxTargetLength) {
        return false;
    }
    Target back = Parse(text.c_str());
    wchar_t part[kStorageTargetTextCapacity];
    ExtractTargetPart(text.c_str(), part);
    return back.label == target.label && back.appId == target.appId &&
           back.configId == target.configId &&
           part == L"appid=" + target.appId + L"$configid=" + target.configId;
}

bool IsIdentifier(const std::wstring& id) {
    return !id.empty() && id.find_first_of(L" \t") == std::wstring::npos;
}

std::wstring ControlText(HWND dialog, int control) {
    wchar_t text[kTextCapacity] = L"";
    GetDlgItemTextW(dialog, control, text, kTextCapacity);
    return text;
}

void AddColumn(HWND list, int index, UINT textId, int width) {
    wchar_t text[kTextCapacity] = L"";
    LoadUiString(textId, text, kTextCapacity);
    LVCOLUMNW column{};
    column.mask = LVCF_TEXT | LVCF_WIDTH | LVCF_SUBITEM;
    column.cx = width;
    column.pszText = text;
    column.iSubItem = index;
    ListView_InsertColumn(list, index, &column);
}

void AddRow(HWND list, const Target& target) {
    LVITEMW item{};
    item.mask = LVIF_TEXT;
    item.iItem = ListView_GetItemCount(list);
    std::wstring label = target.label;
    item.pszText = label.data();
    int row = ListView_InsertItem(list, &item);
    if (row < 0) {
        return;
    }
    std::wstring appId = target.appId;
    std::wstring configId = target.configId;
    ListView_SetItemText(list, row, 1, appId.data());
    ListView_SetItemText(list, row, 2, configId.data());
}

void FillLanguages(HWND dialog, DialogState& state) {
    if (const SettingValue* value = state.settings.GetSetting(kLanguage)) {
        state.language = value->TextValue();
    }
    // The built-in German first, then every language file found beside the module, and a
    // configured language whose file is missing, so that OK does not change it unasked.
    state.languages.push_back(kBuiltInLanguage);
    for (std::wstring& code : AvailableLanguages()) {
        if (lstrcmpiW(code.c_str(), kBuiltInLanguage) != 0) {
            state.languages.push_back(std::move(code));
        }
    }
    bool listed = state.language.empty();
    for (const std::wstring& code : state.languages) {
        listed = listed || lstrcmpiW(code.c_str(), state.language.c_str()) == 0;
    }
    if (!listed) {
        state.languages.push_back(state.language);
    }
    HWND combo = GetDlgItem(dialog, IDC_SETTINGS_LANGUAGE);
    int selected = 0;
    for (size_t i = 0; i < state.languages.size(); ++i) {
        if (i == 0) {
            wchar_t german[kTextCapacity] = L"";
            LoadUiString(IDS_LANGUAGE_BUILT_IN, german, kTextCapacity);
            ComboBox_AddString(combo, german);
        } else {
            ComboBox_AddString(combo, state.languages[i].c_str());
            if (lstrcmpiW(state.languages[i].c_str(), state.language.c_str()) == 0) {
                selected = static_cast<int>(i);
            }
        }
    }
    ComboBox_SetCurSel(combo, selected);
}

void Initialize(HWND dialog, DialogState& state) {
    SetDialogText(dialog, 0, IDS_SETTINGS_CAPTION);
    SetDialogText(dialog, IDOK, IDS_BUTTON_OK);
    SetDialogText(dialog, IDCANCEL, IDS_BUTTON_CANCEL);
    SetDialogText(dialog, IDC_SETTINGS_LANGUAGE_LABEL, IDS_SETTINGS_LANGUAGE);
    SetDialogText(dialog, IDC_SETTINGS_TARGETS_LABEL, IDS_SETTINGS_TARGETS);
    SetDialogText(dialog, IDC_SETTINGS_NAME_LABEL, IDS_SETTINGS_NAME_COLUMN);
    SetDialogText(dialog, IDC_SETTINGS_APPID_LABEL, IDS_SETTINGS_APPID_COLUMN);
    SetDialogText(dialog, IDC_SETTINGS_CONFIGID_LABEL, IDS_SETTINGS_CONFIGID_COLUMN);
    SetDialogText(dialog, IDC_SETTINGS_ADD, IDS_SETTINGS_ADD);
    SetDialogText(dialog, IDC_SETTINGS_REMOVE, IDS_SETTINGS_REMOVE);
    SetDialogText(dialog, IDC_SETTINGS_DELETE_MAILS, IDS_SETTINGS_DELETE_MAILS);
    CenterOverDesktop(dialog);
    FillLanguages(dialog, state);

    HWND list = GetDlgItem(dialog, IDC_SETTINGS_TARGETS);
    ListView_SetExtendedListViewStyle(list, LVS_EX_FULLROWSELECT);
    AddColumn(list, 0, IDS_SETTINGS_NAME_COLUMN, kNameColumnWidth);
    AddColumn(list, 1, IDS_SETTINGS_APPID_COLUMN, kIdColumnWidth);
    AddColumn(list, 2, IDS_SETTINGS_CONFIGID_COLUMN, kIdColumnWidth);
    // In the map's order, as the target selection lists them.
    for (const auto& [name, value] : state.settings.Values()) {
        if (value.Kind() == SettingKind::StorageTarget) {
            state.targets.push_back(Parse(value.TextValue().c_str()));
            AddRow(list, state.targets.back());
        }
    }
    Button_SetCheck(GetDlgItem(dialog, IDC_SETTINGS_DELETE_MAILS),
                    state.settings.IsOn(kDeleteArcDocs) ? BST_CHECKED : BST_UNCHECKED);
}

void AddTarget(HWND dialog, DialogState& state) {
    Target target{ControlText(dialog, IDC_SETTINGS_NAME), ControlText(dialog, IDC_SETTINGS_APPID),
                  ControlText(dialog, IDC_SETTINGS_CONFIGID)};
    if (target.label.empty()) {
        ShowErrorMessage(IDS_SETTINGS_LABEL_MISSING);
        return;
    }
    if (!IsIdentifier(target.appId) || !IsIdentifier(target.configId)) {
        ShowErrorMessage(IDS_SETTINGS_ID_INVALID);
        return;
    }
    if (!ReadsBack(target)) {
        ShowErrorMessage(IDS_SETTINGS_TARGET_UNREADABLE);
        return;
    }
    state.targets.push_back(target);
    AddRow(GetDlgItem(dialog, IDC_SETTINGS_TARGETS), target);
    SetDlgItemTextW(dialog, IDC_SETTINGS_NAME, L"");
    SetDlgItemTextW(dialog, IDC_SETTINGS_APPID, L"");
    SetDlgItemTextW(dialog, IDC_SETTINGS_CONFIGID, L"");
}

void RemoveTarget(HWND dialog, DialogState& state) {
    HWND list = GetDlgItem(dialog, IDC_SETTINGS_TARGETS);
    int row = ListView_GetNextItem(list, -1, LVNI_SELECTED);
    if (row < 0 || static_cast<size_t>(row) >= state.targets.size()) {
        return;
    }
    state.targets.erase(state.targets.begin() + row);
    ListView_DeleteItem(list, row);
}

void Confirm(HWND dialog, DialogState& state) {
    CTDCSettings& settings = state.settings;
    // The list is written anew as "Params1", "Params2", ... in the list's order.
    std::vector<std::wstring> oldTargets;
    for (const auto& [name, value] : settings.Values()) {
        if (value.Kind() == SettingKind::StorageTarget) {
            oldTargets.push_back(name);
        }
    }
    for (const std::wstring& name : oldTargets) {
        settings.RemoveSetting(name.c_str());
    }
    // Numbered from 1 without gaps. The lists show targets in the order of their names, where
    // "Params10" comes before "Params2": the k-th row takes the k-th name in that order, so that
    // the list reads the same the next time it is loaded.
    std::vector<std::wstring> names;
    for (size_t i = 0; i < state.targets.size(); ++i) {
        names.push_back(FormatString(L"Params%d", static_cast<int>(i + 1)));
    }
    std::sort(names.begin(), names.end());
    for (size_t i = 0; i < state.targets.size(); ++i) {
        settings.SetSetting(names[i].c_str(),
                            SettingValue::StorageTarget(Compose(state.targets[i]).c_str()));
    }
    bool deleteMails =
        Button_GetCheck(GetDlgItem(dialog, IDC_SETTINGS_DELETE_MAILS)) == BST_CHECKED;
    settings.SetSetting(kDeleteArcDocs, SettingValue::Bool(deleteMails ? 1 : 0));
    int chosen = ComboBox_GetCurSel(GetDlgItem(dialog, IDC_SETTINGS_LANGUAGE));
    if (chosen >= 0 && static_cast<size_t>(chosen) < state.languages.size()) {
        const std::wstring& code = state.languages[static_cast<size_t>(chosen)];
        // An unset language stays unset while the built-in German is kept.
        bool unchanged = lstrcmpiW(code.c_str(), state.language.c_str()) == 0 ||
                         (state.language.empty() && chosen == 0);
        if (!unchanged) {
            settings.SetSetting(kLanguage, SettingValue::String(code.c_str()));
        }
    }
    settings.SetChanged(true);
    EndDialog(dialog, 1);
}

// Out of memory ends the dialog as if cancelled; what OK had stored stays unsaved because the
// settings are not marked changed.
INT_PTR SettingsDialogProc(HWND dialog, UINT message, WPARAM wParam, LPARAM lParam) {
    switch (message) {
    case WM_INITDIALOG:
        // Kept with the window, not in the module: every open dialog has its own.
        SetWindowLongPtrW(dialog, DWLP_USER, lParam);
        Initialize(dialog, StateOf(dialog));
        return TRUE;
    case WM_COMMAND:
        switch (LOWORD(wParam)) {
        case IDC_SETTINGS_ADD:
            AddTarget(dialog, StateOf(dialog));
            return TRUE;
        case IDC_SETTINGS_REMOVE:
            RemoveTarget(dialog, StateOf(dialog));
            return TRUE;
        case IDOK:
            Confirm(dialog, StateOf(dialog));
            return TRUE;
        case IDCANCEL:
            EndDialog(dialog, 0);
            return TRUE;
        }
        break;
    }
    return FALSE;
}

}  // namespace

INT_PTR ShowSettingsDialog(CTDCSettings& settings) noexcept {
    try {
        INITCOMMONCONTROLSEX controls{sizeof controls, ICC_LISTVIEW_CLASSES};
        InitCommonControlsEx(&controls);
        DialogState state{settings, {}, {}, {}};
        INT_PTR result = DialogBoxParamW(
            ModuleInstance(), MAKEINTRESOURCEW(IDD_SETTINGS), nullptr /* no owner */,
            GuardedDialogProc<SettingsDialogProc>, reinterpret_cast<LPARAM>(&state));
        return result == 1 ? 1 : 0;
    } catch (...) {
        return 0;
    }
}
