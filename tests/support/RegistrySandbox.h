// The add-in's registry keys in the test prefix, wiped before and after each test that uses
// them: the machine-wide settings key, the per-user key below it (under both hives) and the
// per-user key of HKEY_CURRENT_USER. Tests that use it share the prefix's registry with other test
// processes, so their ctest entries carry the resource lock "talvorn_registry".
#pragma once

#include <windows.h>

#include <string>
#include <vector>

class RegistrySandbox {
public:
    RegistrySandbox();
    ~RegistrySandbox();
    RegistrySandbox(const RegistrySandbox&) = delete;
    RegistrySandbox& operator=(const RegistrySandbox&) = delete;

    void Wipe();

    // Values of HKLM\Software\talvorn\Talvorn.DorvaneAddin.
    void SetMachineString(const wchar_t* name, const wchar_t* text);
    void SetMachineNumber(const wchar_t* name, DWORD number);
    // Values of the per-user key in HKEY_CURRENT_USER.
    void SetUserString(const wchar_t* name, const wchar_t* text);
    void SetUserNumber(const wchar_t* name, DWORD number);
    // Storage targets "Params1".. of the machine-wide or the per-user key.
    void SetMachineTargets(const std::vector<std::wstring>& targets);
    void SetUserTargets(const std::vector<std::wstring>& targets);

    // A string value of the per-user key, or nullopt-like empty with `found` false.
    std::wstring UserString(const wchar_t* name, bool* found = nullptr) const;
    DWORD UserNumber(const wchar_t* name, bool* found = nullptr) const;
    // The names of all values of the per-user key, in the registry's order.
    std::vector<std::wstring> UserValueNames() const;

    static std::wstring MachinePath();
    static std::wstring UserPath();
};

// "label=\"<label>\" appid=<appid> configid=<configid>"
std::wstring StorageTarget(const std::wstring& label, const std::wstring& appid,
                           const std::wstring& configid);
