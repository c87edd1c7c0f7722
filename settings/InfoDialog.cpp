#include "settings/InfoDialog.h"

#include <string>
#include <vector>

#include "common/BoundedFormat.h"
#include "common/LanguageFile.h"
#include "common/LogFile.h"
#include "common/Messages.h"
#include "common/Module.h"
#include "resources/resource.h"
#include "settings/DialogText.h"
#include "settings/StorageTargetText.h"
#include "settings/TDCSettings.h"

namespace {

constexpr int kTextCapacity = 1024;
constexpr DWORD kModulePathCapacity = 32768;

std::wstring UiText(UINT id) {
    wchar_t text[kTextCapacity] = L"";
    LoadUiString(id, text, kTextCapacity);
    return text;
}

// A value of the module's version resource, of the first language it lists; empty when missing.
std::wstring VersionValue(const std::vector<uint8_t>& block, const wchar_t* name) {
    struct Translation {
        WORD language;
        WORD codePage;
    };
    if (block.empty()) {
        return std::wstring();
    }
    void* value = nullptr;
    UINT size = 0;
    if (!VerQueryValueW(block.data(), L"\\VarFileInfo\\Translation", &value, &size) ||
        size < sizeof(Translation)) {
        return std::wstring();
    }
    const Translation& first = *static_cast<const Translation*>(value);
    std::wstring path =
        FormatString(L"\\StringFileInfo\\%04X%04X\\%s", first.language, first.codePage, name);
    if (!VerQueryValueW(block.data(), path.c_str(), &value, &size) || size == 0) {
        return std::wstring();
    }
    return static_cast<const wchar_t*>(value);
}

// A writable copy of the module's version resource, as VerQueryValueW wants it.
std::vector<uint8_t> VersionBlock() {
    HMODULE module = ModuleInstance();
    HRSRC found = FindResourceW(module, MAKEINTRESOURCEW(VS_VERSION_INFO), RT_VERSION);
    HGLOBAL loaded = found ? LoadResource(module, found) : nullptr;
    const void* data = loaded ? LockResource(loaded) : nullptr;
    if (!data) {
        return {};
    }
    const uint8_t* bytes = static_cast<const uint8_t*>(data);
    return std::vector<uint8_t>(bytes, bytes + SizeofResource(module, found));
}

std::wstring ModulePath() {
    std::wstring path(kModulePathCapacity, L'\0');
    DWORD length = GetModuleFileNameW(ModuleInstance(), path.data(), kModulePathCapacity);
    path.resize(length < kModulePathCapacity ? length : 0);
    return path;
}

std::wstring Line(UINT label, const std::wstring& value) {
    return UiText(label) + L": " + value + L"\r\n";
}

std::wstring Details(const InfoDialogHost& host) {
    CTDCSettings settings;
    settings.LoadSettings();
    std::wstring hostText = host.name;
    if (!host.version.empty()) {
        hostText += L" " + host.version;
    }
    std::wstring languageFile = LanguageFilePath();
    std::wstring text =
        Line(IDS_INFO_MODULE, ModulePath()) + Line(IDS_INFO_HOST, hostText) +
        Line(IDS_INFO_LOG_FILE, TheLog().Path()) +
        Line(IDS_INFO_LANGUAGE_FILE, languageFile.empty() ? UiText(IDS_INFO_NONE) : languageFile) +
        Line(IDS_INFO_LOCKED, UiText(settings.IsOn(L"Nosettings") ? IDS_INFO_YES : IDS_INFO_NO));
    std::wstring targets;
    for (const auto& [name, value] : settings.Values()) {
        if (value.Kind() != SettingKind::StorageTarget) {
            continue;
        }
        wchar_t label[kStorageTargetTextCapacity];
        wchar_t part[kStorageTargetTextCapacity];
        ExtractLabel(value.TextValue().c_str(), label);
        ExtractTargetPart(value.TextValue().c_str(), part);
        targets += L"    " + std::wstring(label) + L" (" + part + L")\r\n";
    }
    if (targets.empty()) {
        return text + Line(IDS_INFO_TARGETS, UiText(IDS_INFO_NONE));
    }
    return text + UiText(IDS_INFO_TARGETS) + L":\r\n" + targets;
}

void Initialize(HWND dialog, const InfoDialogHost& host) {
    SetDialogText(dialog, 0, IDS_INFO_CAPTION);
    SetDialogText(dialog, IDOK, IDS_BUTTON_OK);
    std::vector<uint8_t> version = VersionBlock();
    std::wstring product = VersionValue(version, L"ProductName") + L"\r\n" +
                           UiText(IDS_INFO_VERSION) + L" " + VersionValue(version, L"FileVersion");
    SetDlgItemTextW(dialog, IDC_INFO_PRODUCT, product.c_str());
    SetDlgItemTextW(dialog, IDC_INFO_DETAILS, Details(host).c_str());
    CenterOverDesktop(dialog);
}

// Out of memory while composing the texts ends the dialog: there is nothing to show.
INT_PTR InfoDialogProc(HWND dialog, UINT message, WPARAM wParam, LPARAM lParam) {
    switch (message) {
    case WM_INITDIALOG:
        Initialize(dialog, *reinterpret_cast<const InfoDialogHost*>(lParam));
        // The OK button, not the text, has the focus.
        SetFocus(GetDlgItem(dialog, IDOK));
        return FALSE;
    case WM_COMMAND:
        switch (LOWORD(wParam)) {
        case IDOK:
        case IDCANCEL:
            EndDialog(dialog, 1);
            return TRUE;
        }
        break;
    }
    return FALSE;
}

}  // namespace

void ShowInfoDialog(const InfoDialogHost& host) noexcept {
    DialogBoxParamW(ModuleInstance(), MAKEINTRESOURCEW(IDD_INFO), nullptr /* no owner */,
                    GuardedDialogProc<InfoDialogProc>, reinterpret_cast<LPARAM>(&host));
}
