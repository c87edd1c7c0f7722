#include "settings/SelectStorageTargetDialog.h"

#include <windowsx.h>

#include "common/LogFile.h"
#include "settings/DialogText.h"
#include "common/Module.h"
#include "settings/StorageTargetText.h"
#include "resources/resource.h"
#include "settings/TDCSettings.h"

namespace {

constexpr int kTextCapacity = 1024;

const CTDCSettings* SettingsOf(HWND dialog) {
    return reinterpret_cast<const CTDCSettings*>(GetWindowLongPtrW(dialog, DWLP_USER));
}

void FillTargets(HWND dialog, const CTDCSettings& settings) {
    wchar_t remembered[kTextCapacity];
    CTDCSettings::ReadUserValue(kLastStartCenterConfig, remembered, kTextCapacity);
    HWND combo = GetDlgItem(dialog, IDC_STORAGE_TARGETS);
    int position = 0;
    int selected = 0;
    for (const auto& [name, value] : settings.Values()) {
        if (value.Kind() != SettingKind::StorageTarget) {
            continue;
        }
        wchar_t label[kStorageTargetTextCapacity];
        ExtractLabel(value.TextValue().c_str(), label);
        ComboBox_AddString(combo, label);
        // With several targets of the remembered label, the last one is preselected.
        if (lstrcmpiW(label, remembered) == 0) {
            selected = position;
        }
        ++position;
    }
    ComboBox_SetCurSel(combo, selected);
}

void Confirm(HWND dialog) {
    if (ComboBox_GetCurSel(GetDlgItem(dialog, IDC_STORAGE_TARGETS)) < 0) {
        return;
    }
    wchar_t label[kTextCapacity] = L"";
    GetDlgItemTextW(dialog, IDC_STORAGE_TARGETS, label, kTextCapacity);
    if (label[0]) {
        CTDCSettings::WriteUserValue(kLastStartCenterConfig, label);
    }
    EndDialog(dialog, 1);
}

// Out of memory while filling the list ends the dialog as if cancelled.
INT_PTR SelectDialogProc(HWND dialog, UINT message, WPARAM wParam, LPARAM lParam) {
    switch (message) {
    case WM_INITDIALOG:
        SetDialogText(dialog, 0, IDS_SELECT_CAPTION);
        SetDialogText(dialog, IDOK, IDS_BUTTON_OK);
        SetDialogText(dialog, IDCANCEL, IDS_BUTTON_CANCEL);
        SetDialogText(dialog, IDC_SELECT_LABEL, IDS_SELECT_LABEL);
        CenterOverDesktop(dialog);
        // Kept with the window, not in the module: every open dialog has its own.
        SetWindowLongPtrW(dialog, DWLP_USER, lParam);
        if (const CTDCSettings* settings = SettingsOf(dialog)) {
            FillTargets(dialog, *settings);
        } else {
            LogError(L"Fatal error in select dialog! Settings not initialized!\n");
            EndDialog(dialog, 0);
        }
        return TRUE;
    case WM_COMMAND:
        switch (LOWORD(wParam)) {
        case IDOK:
            Confirm(dialog);
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

INT_PTR ShowSelectStorageTargetDialog(const CTDCSettings* settings) noexcept {
    INT_PTR result = DialogBoxParamW(ModuleInstance(), MAKEINTRESOURCEW(IDD_SELECT_STORAGE_TARGET),
                                     nullptr /* no owner */, GuardedDialogProc<SelectDialogProc>,
                                     reinterpret_cast<LPARAM>(settings));
    return result == 1 ? 1 : 0;
}
