#include "settings/AttachmentChoiceDialog.h"

#include <commctrl.h>

#include <cwchar>

#include "common/AttachmentRecord.h"
#include "common/BoundedFormat.h"
#include "common/Messages.h"
#include "settings/DialogText.h"
#include "common/Module.h"
#include "resources/resource.h"

namespace {

constexpr int kTextCapacity = 1024;
constexpr int kNameColumnWidth = 300;
constexpr int kSizeColumnWidth = 110;

void AddColumn(HWND list, int index, UINT textId, int width, int format) {
    wchar_t text[kTextCapacity] = L"";
    LoadUiString(textId, text, kTextCapacity);
    LVCOLUMNW column{};
    column.mask = LVCF_TEXT | LVCF_WIDTH | LVCF_FMT | LVCF_SUBITEM;
    column.fmt = format;
    column.cx = width;
    column.pszText = text;
    column.iSubItem = index;
    ListView_InsertColumn(list, index, &column);
}

std::wstring TextOf(const PropertyMap& record, const wchar_t* name) {
    const PropertyEntry* entry = record.Find(name);
    return entry ? entry->value : std::wstring();
}

std::vector<PropertyMap>& AttachmentsOf(HWND dialog) {
    return *reinterpret_cast<std::vector<PropertyMap>*>(GetWindowLongPtrW(dialog, DWLP_USER));
}

void FillList(HWND dialog, const std::vector<PropertyMap>& attachments) {
    HWND list = GetDlgItem(dialog, IDC_ATTACHMENTS);
    ListView_SetExtendedListViewStyle(list, LVS_EX_CHECKBOXES | LVS_EX_FULLROWSELECT);
    AddColumn(list, 0, IDS_ATTACHMENT_NAME_COLUMN, kNameColumnWidth, LVCFMT_LEFT);
    AddColumn(list, 1, IDS_ATTACHMENT_SIZE_COLUMN, kSizeColumnWidth, LVCFMT_RIGHT);
    for (size_t i = 0; i < attachments.size(); ++i) {
        std::wstring name = TextOf(attachments[i], kAttachmentName);
        std::wstring size = FormatAttachmentSize(
            _wcstoi64(TextOf(attachments[i], kAttachmentSize).c_str(), nullptr /* end */, 10));
        LVITEMW item{};
        item.mask = LVIF_TEXT | LVIF_PARAM;
        item.iItem = static_cast<int>(i);
        item.pszText = name.data();
        // The record's position, so that the rows may be shown in any order.
        item.lParam = static_cast<LPARAM>(i);
        int row = ListView_InsertItem(list, &item);
        if (row < 0) {
            continue;
        }
        ListView_SetItemText(list, row, 1, size.data());
        ListView_SetCheckState(list, row, TRUE);
    }
}

void Confirm(HWND dialog) {
    HWND list = GetDlgItem(dialog, IDC_ATTACHMENTS);
    std::vector<size_t> chosen;
    int rows = ListView_GetItemCount(list);
    for (int row = 0; row < rows; ++row) {
        LVITEMW item{};
        item.mask = LVIF_PARAM;
        item.iItem = row;
        if (ListView_GetCheckState(list, row) && ListView_GetItem(list, &item)) {
            chosen.push_back(static_cast<size_t>(item.lParam));
        }
    }
    // Nothing checked: OK has nothing to archive, so the dialog stays for a choice or Cancel.
    if (chosen.empty()) {
        return;
    }
    std::vector<PropertyMap>& attachments = AttachmentsOf(dialog);
    for (size_t index : chosen) {
        if (index < attachments.size()) {
            attachments[index].Add(kAttachmentSelected, L"1", 0);
        }
    }
    EndDialog(dialog, 1);
}

// Out of memory while filling the list or marking the records ends the dialog as if cancelled.
INT_PTR ChoiceDialogProc(HWND dialog, UINT message, WPARAM wParam, LPARAM lParam) {
    switch (message) {
    case WM_INITDIALOG:
        // Kept with the window, not in the module: every open dialog has its own.
        SetWindowLongPtrW(dialog, DWLP_USER, lParam);
        SetDialogText(dialog, 0, IDS_ATTACHMENTS_CAPTION);
        SetDialogText(dialog, IDOK, IDS_BUTTON_OK);
        SetDialogText(dialog, IDCANCEL, IDS_BUTTON_CANCEL);
        CenterOverDesktop(dialog);
        FillList(dialog, AttachmentsOf(dialog));
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

std::wstring FormatAttachmentSize(int64_t bytes) {
    if (bytes < 1024) {
        return FormatString(L"%d bytes", static_cast<int>(bytes));
    }
    constexpr int kTerabytes = 3;
    double value = static_cast<double>(bytes) / 1024.0;
    int unit = 0;
    // Below 1023.995 the number still reads below 1024 once rounded to two places.
    while (unit < kTerabytes && value >= 1023.995) {
        value /= 1024.0;
        ++unit;
    }
    switch (unit) {
    case 0:
        return FormatString(L"%.2lf KB", value);
    case 1:
        return FormatString(L"%.2lf MB", value);
    case 2:
        return FormatString(L"%.2lf GB", value);
    default:
        return FormatString(L"%.2lf TB", value);
    }
}

INT_PTR ShowAttachmentChoiceDialog(std::vector<PropertyMap>& attachments) noexcept {
    INITCOMMONCONTROLSEX controls{sizeof controls, ICC_LISTVIEW_CLASSES};
    InitCommonControlsEx(&controls);
    INT_PTR result = DialogBoxParamW(ModuleInstance(), MAKEINTRESOURCEW(IDD_ATTACHMENT_CHOICE),
                                     nullptr /* no owner */, GuardedDialogProc<ChoiceDialogProc>,
                                     reinterpret_cast<LPARAM>(&attachments));
    return result == 1 ? 1 : 0;
}
