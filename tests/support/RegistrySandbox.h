// The registry as the tests see it. Every test process works on registry roots of its own: the
// test main maps the process's HKEY_LOCAL_MACHINE and HKEY_CURRENT_USER to fresh keys below the
// prefix's HKCU\Software\talvorn-tests\<process id> (RegOverridePredefKey), so test programs run
// side by side without meeting in the add-in's keys, and the product code, which opens the
// predefined keys as ever, does not know. HKEY_CLASSES_ROOT stays the prefix's: the shell finds
// the stub connector there, the "talvorn" URL handler. The connector the shell starts inherits no
// mapping and sees the prefix's own registry.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

#include "common/UniqueResource.h"

// The test main's, before and after the tests; the second deletes the process's roots.
void UsePrivateRegistry();
void DropPrivateRegistry();

// Maps HKEY_CLASSES_ROOT to an empty key of its own for the life of the object: classes written
// in-process stay in the test, and the shell finds no handler for the "talvorn" URLs.
class PrivateClassesRoot {
public:
    PrivateClassesRoot();
    ~PrivateClassesRoot();
    PrivateClassesRoot(const PrivateClassesRoot&) = delete;
    PrivateClassesRoot& operator=(const PrivateClassesRoot&) = delete;

private:
    std::wstring m_path;
};

UniqueHKey CreateKey(HKEY root, const std::wstring& path, DWORD options = REG_OPTION_NON_VOLATILE);
void SetText(HKEY root, const std::wstring& path, const wchar_t* name, const std::wstring& text);
void SetNumber(HKEY root, const std::wstring& path, const wchar_t* name, DWORD number);
// A REG_SZ value, or `found` false and an empty text.
std::wstring ReadText(HKEY root, const std::wstring& path, const wchar_t* name,
                      bool* found = nullptr);
// A REG_DWORD value, or `found` false and 0.
DWORD ReadNumber(HKEY root, const std::wstring& path, const wchar_t* name, bool* found = nullptr);
// The names of a key's values, sorted; the default value is the empty name.
std::vector<std::wstring> ValueNames(HKEY root, const std::wstring& path);
bool KeyExists(HKEY root, const std::wstring& path);

// The add-in's settings keys, wiped before and after each test that uses them: the machine-wide
// key with the per-user key below it (which the settings also look for under HKEY_LOCAL_MACHINE)
// and the per-user key of HKEY_CURRENT_USER.
class RegistrySandbox {
public:
    RegistrySandbox() { Wipe(); }
    ~RegistrySandbox() { Wipe(); }
    RegistrySandbox(const RegistrySandbox&) = delete;
    RegistrySandbox& operator=(const RegistrySandbox&) = delete;

    void Wipe() {
        RegDeleteTreeW(HKEY_CURRENT_USER, MachinePath().c_str());
        RegDeleteTreeW(HKEY_LOCAL_MACHINE, MachinePath().c_str());
    }

    // Values of HKLM\Software\talvorn\Talvorn.DorvaneAddin; storage targets are "Params1", ...
    void SetMachineString(const wchar_t* name, const wchar_t* text) {
        SetText(HKEY_LOCAL_MACHINE, MachinePath(), name, text);
    }
    void SetMachineNumber(const wchar_t* name, DWORD number) {
        SetNumber(HKEY_LOCAL_MACHINE, MachinePath(), name, number);
    }
    void SetMachineTargets(const std::vector<std::wstring>& targets) {
        SetTargets(HKEY_LOCAL_MACHINE, MachinePath(), targets);
    }
    // Values of the per-user key, in HKEY_CURRENT_USER unless told otherwise.
    void SetUserString(const wchar_t* name, const wchar_t* text, HKEY hive = HKEY_CURRENT_USER) {
        SetText(hive, UserPath(), name, text);
    }
    void SetUserNumber(const wchar_t* name, DWORD number, HKEY hive = HKEY_CURRENT_USER) {
        SetNumber(hive, UserPath(), name, number);
    }
    void SetUserTargets(const std::vector<std::wstring>& targets, HKEY hive = HKEY_CURRENT_USER) {
        SetTargets(hive, UserPath(), targets);
    }
    std::wstring UserString(const wchar_t* name, bool* found = nullptr) const {
        return ReadText(HKEY_CURRENT_USER, UserPath(), name, found);
    }

    static std::wstring MachinePath();
    static std::wstring UserPath();

private:
    static void SetTargets(HKEY root, const std::wstring& path,
                           const std::vector<std::wstring>& targets);
};

// "label=\"<label>\" appid=<appid> configid=<configid>"
std::wstring StorageTarget(const std::wstring& label, const std::wstring& appid,
                           const std::wstring& configid);
