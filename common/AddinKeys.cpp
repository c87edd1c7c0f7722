#include "common/AddinKeys.h"

#include <windows.h>

namespace {
constexpr DWORD kUserNameCapacity = 2048;
}

std::wstring AddinMachineKeyPath() {
    return std::wstring(L"Software\\talvorn\\") + L"Talvorn.DorvaneAddin";
}

std::wstring AddinUserKeyPath() {
    wchar_t user[kUserNameCapacity];
    DWORD size = kUserNameCapacity;
    if (!GetUserNameW(user, &size)) {
        return std::wstring();
    }
    return AddinMachineKeyPath() + L"\\" + user;
}
