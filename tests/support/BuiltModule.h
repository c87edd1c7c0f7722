// Where the test programs find the add-in module of the same build: "<build>\addin", beside the
// "<build>\tests" folder that holds the test programs, with the ribbon images next to the DLL.
#pragma once

#include <windows.h>

#include <string>

// The folder of the built add-in, fully qualified, without a trailing backslash.
inline std::wstring BuiltAddinFolder() {
    wchar_t program[MAX_PATH];
    DWORD length = GetModuleFileNameW(nullptr /* this program */, program, MAX_PATH);
    std::wstring relative(program, length);
    relative.erase(relative.find_last_of(L'\\') + 1);
    relative += L"..\\addin";
    wchar_t folder[MAX_PATH];
    DWORD folderLength = GetFullPathNameW(relative.c_str(), MAX_PATH, folder, nullptr);
    return std::wstring(folder, folderLength);
}

inline std::wstring BuiltAddinPath() { return BuiltAddinFolder() + L"\\TalvornAddin.dll"; }
