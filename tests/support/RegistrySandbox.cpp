#include "support/RegistrySandbox.h"

#include <algorithm>
#include <stdexcept>

#include "settings/TDCSettings.h"

namespace {

struct PrivateRoots {
    std::wstring path;  // below the prefix's HKEY_CURRENT_USER
    UniqueHKey machine;
    UniqueHKey user;
};

PrivateRoots& Roots() {
    static PrivateRoots roots;
    return roots;
}

void MapPredefinedKeys(bool toPrivateRoots) {
    if (RegOverridePredefKey(HKEY_LOCAL_MACHINE,
                             toPrivateRoots ? Roots().machine.get() : nullptr) ||
        RegOverridePredefKey(HKEY_CURRENT_USER, toPrivateRoots ? Roots().user.get() : nullptr)) {
        // Tests on the prefix's keys would meet the tests running beside them.
        throw std::runtime_error("cannot map the registry's predefined keys");
    }
}

}  // namespace

void UsePrivateRegistry() {
    PrivateRoots& roots = Roots();
    roots.path = L"Software\\talvorn-tests\\" + std::to_wstring(GetCurrentProcessId());
    // Left behind by an earlier process of the same id that did not end normally.
    RegDeleteTreeW(HKEY_CURRENT_USER, roots.path.c_str());
    roots.machine = CreateKey(HKEY_CURRENT_USER, roots.path + L"\\HKLM");
    roots.user = CreateKey(HKEY_CURRENT_USER, roots.path + L"\\HKCU");
    MapPredefinedKeys(true);
}

void DropPrivateRegistry() {
    MapPredefinedKeys(false);
    Roots().machine.reset();
    Roots().user.reset();
    RegDeleteTreeW(HKEY_CURRENT_USER, Roots().path.c_str());
}

PrivateClassesRoot::PrivateClassesRoot() {
    static unsigned counter = 0;
    // Inside the process's own HKEY_CURRENT_USER, so nobody else meets it.
    m_path = L"PrivateClassesRoot" + std::to_wstring(++counter);
    RegOverridePredefKey(HKEY_CLASSES_ROOT, CreateKey(HKEY_CURRENT_USER, m_path).get());
}

PrivateClassesRoot::~PrivateClassesRoot() {
    RegOverridePredefKey(HKEY_CLASSES_ROOT, nullptr);
    RegDeleteTreeW(HKEY_CURRENT_USER, m_path.c_str());
}

UniqueHKey CreateKey(HKEY root, const std::wstring& path, DWORD options) {
    UniqueHKey key;
    if (RegCreateKeyExW(root, path.c_str(), 0, nullptr, options, KEY_ALL_ACCESS, nullptr, key.put(),
                        nullptr) != ERROR_SUCCESS) {
        throw std::runtime_error("cannot create a registry key");
    }
    return key;
}

void SetText(HKEY root, const std::wstring& path, const wchar_t* name, const std::wstring& text) {
    RegSetValueExW(CreateKey(root, path).get(), name, 0, REG_SZ,
                   reinterpret_cast<const BYTE*>(text.c_str()),
                   static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t)));
}

void SetNumber(HKEY root, const std::wstring& path, const wchar_t* name, DWORD number) {
    RegSetValueExW(CreateKey(root, path).get(), name, 0, REG_DWORD,
                   reinterpret_cast<const BYTE*>(&number), sizeof number);
}

std::wstring ReadText(HKEY root, const std::wstring& path, const wchar_t* name, bool* found) {
    wchar_t text[2048] = L"";
    DWORD size = sizeof text;
    bool ok = RegGetValueW(root, path.c_str(), name, RRF_RT_REG_SZ, nullptr, text, &size) ==
              ERROR_SUCCESS;
    if (found) {
        *found = ok;
    }
    return ok ? text : L"";
}

DWORD ReadNumber(HKEY root, const std::wstring& path, const wchar_t* name, bool* found) {
    DWORD number = 0;
    DWORD size = sizeof number;
    bool ok = RegGetValueW(root, path.c_str(), name, RRF_RT_REG_DWORD, nullptr, &number, &size) ==
              ERROR_SUCCESS;
    if (found) {
        *found = ok;
    }
    return ok ? number : 0;
}

std::vector<std::wstring> ValueNames(HKEY root, const std::wstring& path) {
    std::vector<std::wstring> names;
    UniqueHKey key;
    if (RegOpenKeyExW(root, path.c_str(), 0, KEY_READ, key.put()) == ERROR_SUCCESS) {
        wchar_t name[256];
        for (DWORD length = 256;
             RegEnumValueW(key.get(), static_cast<DWORD>(names.size()), name, &length, nullptr,
                           nullptr, nullptr, nullptr) == ERROR_SUCCESS;
             length = 256) {
            names.emplace_back(name, length);
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

bool KeyExists(HKEY root, const std::wstring& path) {
    UniqueHKey key;
    return RegOpenKeyExW(root, path.c_str(), 0, KEY_READ, key.put()) == ERROR_SUCCESS;
}

std::wstring RegistrySandbox::MachinePath() { return CTDCSettings::MachineKeyPath(); }
std::wstring RegistrySandbox::UserPath() { return CTDCSettings::UserKeyPath(); }

void RegistrySandbox::SetTargets(HKEY root, const std::wstring& path,
                                 const std::vector<std::wstring>& targets) {
    CreateKey(root, path);
    for (size_t i = 0; i < targets.size(); ++i) {
        SetText(root, path, (L"Params" + std::to_wstring(i + 1)).c_str(), targets[i]);
    }
}

std::wstring StorageTarget(const std::wstring& label, const std::wstring& appid,
                           const std::wstring& configid) {
    return L"label=\"" + label + L"\" appid=" + appid + L" configid=" + configid;
}
