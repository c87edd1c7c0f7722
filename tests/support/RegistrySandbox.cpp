#include "support/RegistrySandbox.h"

#include <stdexcept>

#include "common/UniqueResource.h"
#include "settings/TDCSettings.h"

namespace {

UniqueHKey CreateKey(HKEY root, const std::wstring& path) {
    UniqueHKey key;
    if (RegCreateKeyExW(root, path.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, key.put(),
                        nullptr) != ERROR_SUCCESS) {
        throw std::runtime_error("cannot create a registry key");
    }
    return key;
}

void SetString(HKEY root, const std::wstring& path, const wchar_t* name, const wchar_t* text) {
    UniqueHKey key = CreateKey(root, path);
    RegSetValueExW(key.get(), name, 0, REG_SZ, reinterpret_cast<const BYTE*>(text),
                   static_cast<DWORD>((wcslen(text) + 1) * sizeof(wchar_t)));
}

void SetNumber(HKEY root, const std::wstring& path, const wchar_t* name, DWORD number) {
    UniqueHKey key = CreateKey(root, path);
    RegSetValueExW(key.get(), name, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&number),
                   sizeof number);
}

void SetTargets(HKEY root, const std::wstring& path, const std::vector<std::wstring>& targets) {
    for (size_t i = 0; i < targets.size(); ++i) {
        SetString(root, path, (L"Params" + std::to_wstring(i + 1)).c_str(), targets[i].c_str());
    }
}

}  // namespace

std::wstring RegistrySandbox::MachinePath() { return CTDCSettings::MachineKeyPath(); }
std::wstring RegistrySandbox::UserPath() { return CTDCSettings::UserKeyPath(); }

RegistrySandbox::RegistrySandbox() { Wipe(); }
RegistrySandbox::~RegistrySandbox() { Wipe(); }

void RegistrySandbox::Wipe() {
    RegDeleteTreeW(HKEY_CURRENT_USER, MachinePath().c_str());
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, MachinePath().c_str());
}

void RegistrySandbox::SetMachineString(const wchar_t* name, const wchar_t* text) {
    SetString(HKEY_LOCAL_MACHINE, MachinePath(), name, text);
}
void RegistrySandbox::SetMachineNumber(const wchar_t* name, DWORD number) {
    SetNumber(HKEY_LOCAL_MACHINE, MachinePath(), name, number);
}
void RegistrySandbox::SetUserString(const wchar_t* name, const wchar_t* text) {
    SetString(HKEY_CURRENT_USER, UserPath(), name, text);
}
void RegistrySandbox::SetUserNumber(const wchar_t* name, DWORD number) {
    SetNumber(HKEY_CURRENT_USER, UserPath(), name, number);
}
void RegistrySandbox::SetMachineTargets(const std::vector<std::wstring>& targets) {
    CreateKey(HKEY_LOCAL_MACHINE, MachinePath());
    SetTargets(HKEY_LOCAL_MACHINE, MachinePath(), targets);
}
void RegistrySandbox::SetUserTargets(const std::vector<std::wstring>& targets) {
    CreateKey(HKEY_CURRENT_USER, UserPath());
    SetTargets(HKEY_CURRENT_USER, UserPath(), targets);
}

std::wstring RegistrySandbox::UserString(const wchar_t* name, bool* found) const {
    wchar_t text[2048] = L"";
    DWORD size = sizeof text - sizeof(wchar_t);
    DWORD type = 0;
    bool ok = RegGetValueW(HKEY_CURRENT_USER, UserPath().c_str(), name, RRF_RT_ANY, &type, text,
                           &size) == ERROR_SUCCESS &&
              type == REG_SZ;
    if (found) {
        *found = ok;
    }
    return ok ? std::wstring(text) : std::wstring();
}

DWORD RegistrySandbox::UserNumber(const wchar_t* name, bool* found) const {
    DWORD number = 0;
    DWORD size = sizeof number;
    bool ok = RegGetValueW(HKEY_CURRENT_USER, UserPath().c_str(), name, RRF_RT_REG_DWORD, nullptr,
                           &number, &size) == ERROR_SUCCESS;
    if (found) {
        *found = ok;
    }
    return number;
}

std::vector<std::wstring> RegistrySandbox::UserValueNames() const {
    std::vector<std::wstring> names;
    UniqueHKey key;
    if (RegOpenKeyExW(HKEY_CURRENT_USER, UserPath().c_str(), 0, KEY_READ, key.put()) !=
        ERROR_SUCCESS) {
        return names;
    }
    for (DWORD index = 0;; ++index) {
        wchar_t name[256];
        DWORD length = 256;
        if (RegEnumValueW(key.get(), index, name, &length, nullptr, nullptr, nullptr, nullptr) !=
            ERROR_SUCCESS) {
            break;
        }
        names.emplace_back(name, length);
    }
    return names;
}

std::wstring StorageTarget(const std::wstring& label, const std::wstring& appid,
                           const std::wstring& configid) {
    return L"label=\"" + label + L"\" appid=" + appid + L" configid=" + configid;
}
