#include "common/Registry.h"

#include <cwchar>

LSTATUS OpenRegKey(HKEY root, const wchar_t* path, REGSAM access, UniqueHKey& key) noexcept {
    return RegOpenKeyExW(root, path, 0 /* options */, access, key.put());
}

LSTATUS CreateRegKey(HKEY root, const wchar_t* path, UniqueHKey& key) noexcept {
    return RegCreateKeyExW(root, path, 0 /* reserved */, nullptr /* class */,
                           REG_OPTION_NON_VOLATILE, KEY_ALL_ACCESS, nullptr /* security */,
                           key.put(), nullptr /* disposition */);
}

LSTATUS ReadRegText(HKEY key, const wchar_t* name, wchar_t* buffer, size_t capacity,
                    DWORD* type) noexcept {
    if (!buffer || capacity == 0) {
        return ERROR_INVALID_PARAMETER;
    }
    DWORD size = static_cast<DWORD>((capacity - 1) * sizeof(wchar_t));
    LSTATUS status = RegQueryValueExW(key, name, nullptr /* reserved */, type,
                                      reinterpret_cast<BYTE*>(buffer), &size);
    buffer[status == ERROR_SUCCESS ? size / sizeof(wchar_t) : 0] = L'\0';
    return status;
}

LSTATUS ReadRegNumber(HKEY key, const wchar_t* name, DWORD& number) noexcept {
    number = 0;
    DWORD size = sizeof number;
    return RegQueryValueExW(key, name, nullptr /* reserved */, nullptr /* type */,
                            reinterpret_cast<BYTE*>(&number), &size);
}

LSTATUS WriteRegText(HKEY key, const wchar_t* name, const wchar_t* text) noexcept {
    const wchar_t* value = text ? text : L"";
    return RegSetValueExW(key, name, 0 /* reserved */, REG_SZ, reinterpret_cast<const BYTE*>(value),
                          static_cast<DWORD>((wcslen(value) + 1) * sizeof(wchar_t)));
}

LSTATUS WriteRegNumber(HKEY key, const wchar_t* name, DWORD number) noexcept {
    return RegSetValueExW(key, name, 0 /* reserved */, REG_DWORD,
                          reinterpret_cast<const BYTE*>(&number), sizeof number);
}

LSTATUS DeleteRegValue(HKEY key, const wchar_t* name) noexcept {
    return RegDeleteValueW(key, name);
}

LSTATUS DeleteRegTree(HKEY root, const wchar_t* path) noexcept {
    return RegDeleteTreeW(root, path);
}
