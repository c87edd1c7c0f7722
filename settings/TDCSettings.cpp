#include "settings/TDCSettings.h"

#include <cwchar>

#include "common/BoundedFormat.h"
#include "common/LogFile.h"
#include "common/Module.h"
#include "common/UniqueResource.h"

namespace {

constexpr SettingDescriptor kSettingsTable[] = {
    {L"Params", SettingType::StorageTargetList},
    {L"MultiProcess", SettingType::Bool},
    {L"Nosettings", SettingType::Bool},
    {L"Attachments", SettingType::Bool},
    {L"DeleteArcDocs", SettingType::Bool},
    // The one-letter name of the language setting is what installations have always written.
    {L"l", SettingType::String},
};

constexpr DWORD kTextBytes = 2048;
constexpr DWORD kUserNameCapacity = 2048;

// Reads a string value into a buffer of kTextBytes bytes; the text is terminated even when the
// registry holds it without its NUL.
bool QueryText(HKEY key, const wchar_t* name, wchar_t (&text)[kTextBytes / sizeof(wchar_t) + 1]) {
    DWORD size = kTextBytes;
    if (RegQueryValueExW(key, name, nullptr, nullptr, reinterpret_cast<BYTE*>(text), &size) !=
        ERROR_SUCCESS) {
        return false;
    }
    text[size / sizeof(wchar_t)] = L'\0';
    return true;
}

// Reads four bytes whatever the value's registry type: a one-character REG_SZ "1" reads as a
// number that is not 0, which installations rely on.
bool QueryNumber(HKEY key, const wchar_t* name, DWORD& number) {
    DWORD size = sizeof number;
    number = 0;
    return RegQueryValueExW(key, name, nullptr, nullptr, reinterpret_cast<BYTE*>(&number), &size) ==
           ERROR_SUCCESS;
}

LSTATUS WriteValue(HKEY key, const std::wstring& name, const SettingValue& value) {
    switch (value.Kind()) {
    case SettingKind::Dword:
    case SettingKind::Bool: {
        DWORD number = value.Number();
        return RegSetValueExW(key, name.c_str(), 0, REG_DWORD,
                              reinterpret_cast<const BYTE*>(&number), sizeof number);
    }
    case SettingKind::String:
    case SettingKind::StorageTarget: {
        const std::wstring& text = value.TextValue();
        return RegSetValueExW(key, name.c_str(), 0, REG_SZ,
                              reinterpret_cast<const BYTE*>(text.c_str()),
                              static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t)));
    }
    case SettingKind::None:
        break;
    }
    return ERROR_SUCCESS;
}

std::wstring NumberedName(const wchar_t* name, int number) {
    return FormatString(L"%s%d", name, number);
}

}  // namespace

std::span<const SettingDescriptor> SettingsTable() noexcept { return kSettingsTable; }

std::wstring CTDCSettings::MachineKeyPath() {
    return std::wstring(L"Software\\talvorn\\") + L"Talvorn.DorvaneAddin";
}

std::wstring CTDCSettings::UserKeyPath() {
    wchar_t user[kUserNameCapacity];
    DWORD size = kUserNameCapacity;
    if (!GetUserNameW(user, &size)) {
        return std::wstring();
    }
    return MachineKeyPath() + L"\\" + user;
}

CTDCSettings::~CTDCSettings() {
    if (!m_values.empty()) {
        ClearSettings();
    }
}

void CTDCSettings::ClearSettings() {
    LogInfo(L"CTDCSettings::ClearSettings()\n");
    m_values.clear();
}

const SettingValue* CTDCSettings::GetSetting(const wchar_t* name) const {
    auto it = name ? m_values.find(name) : m_values.end();
    return it == m_values.end() ? nullptr : &it->second;
}

bool CTDCSettings::SetSetting(const wchar_t* name, SettingValue value) {
    if (name) {
        m_values[name] = std::move(value);
    }
    return !m_values.empty();
}

void CTDCSettings::RemoveSetting(const wchar_t* name) {
    if (name) {
        m_values.erase(name);
    }
}

int CTDCSettings::CountStorageTargets() const noexcept {
    int count = 0;
    for (const auto& [name, value] : m_values) {
        if (value.Kind() == SettingKind::StorageTarget) {
            ++count;
        }
    }
    return count;
}

bool CTDCSettings::IsOn(const wchar_t* name) const {
    const SettingValue* value = GetSetting(name);
    return value && value->Number() != 0;
}

void CTDCSettings::KeepOrAddMissing(const wchar_t* name, Pass pass) {
    if (m_values.count(name)) {
        LogInfo(L"No user registry key found, using global key %s\n", name);
        return;
    }
    if (pass == Pass::PerUser) {
        LogWarning(L"Failed to access to registry key %s last error %08X!\n", name, GetLastError());
    } else {
        LogInfo(L"Adding registry key %s to Settings.\n", name);
    }
    m_values[name] = SettingValue();
}

void CTDCSettings::LoadStorageTargets(HKEY key, const wchar_t* name, Pass pass) {
    for (int number = 1;; ++number) {
        wchar_t text[kTextBytes / sizeof(wchar_t) + 1];
        std::wstring valueName = NumberedName(name, number);
        if (!QueryText(key, valueName.c_str(), text)) {
            return;
        }
        // A per-user list that has at least its first entry replaces the machine-wide list.
        if (pass == Pass::PerUser && number == 1) {
            for (int old = CountStorageTargets(); old >= 1; --old) {
                m_values.erase(NumberedName(name, old));
            }
        }
        m_values[valueName] = SettingValue::StorageTarget(text);
    }
}

void CTDCSettings::LoadFromKey(HKEY key, Pass pass) {
    for (const SettingDescriptor& setting : kSettingsTable) {
        switch (setting.type) {
        case SettingType::StorageTargetList:
            LoadStorageTargets(key, setting.name, pass);
            break;
        case SettingType::String: {
            wchar_t text[kTextBytes / sizeof(wchar_t) + 1];
            if (QueryText(key, setting.name, text)) {
                m_values[setting.name] = SettingValue::String(text);
            } else {
                KeepOrAddMissing(setting.name, pass);
            }
            break;
        }
        case SettingType::Bool:
        case SettingType::Dword: {
            DWORD number = 0;
            if (QueryNumber(key, setting.name, number)) {
                m_values[setting.name] = setting.type == SettingType::Bool
                                             ? SettingValue::Bool(number)
                                             : SettingValue::Dword(number);
            } else {
                KeepOrAddMissing(setting.name, pass);
            }
            break;
        }
        }
    }
}

HRESULT CTDCSettings::LoadSettings() {
    const std::wstring machinePath = MachineKeyPath();
    UniqueHKey machine;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, machinePath.c_str(), 0, KEY_READ, machine.put()) !=
        ERROR_SUCCESS) {
        LogError(L"LoadSettings: can not open registry key (%s)!\n", machinePath.c_str());
        return E_ACCESSDENIED;
    }
    LoadFromKey(machine.get(), Pass::MachineWide);
    machine.reset();

    const std::wstring userPath = UserKeyPath();
    if (userPath.empty()) {
        return E_FAIL;
    }
    UniqueHKey user;
    if (RegOpenKeyExW(HKEY_CURRENT_USER, userPath.c_str(), 0, KEY_READ, user.put()) !=
        ERROR_SUCCESS) {
        LogInfo(
            L"LoadSettings: can not open registry key (%s) in HKEY_CURRENT_USER try to open it "
            L"in HKEY_LOCAL_MACHINE!\n",
            userPath.c_str());
        if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, userPath.c_str(), 0, KEY_READ, user.put()) !=
            ERROR_SUCCESS) {
            LogWarning(L"LoadSettings: can not open registry key (%s)!\n", userPath.c_str());
            return S_OK;
        }
    }
    LoadFromKey(user.get(), Pass::PerUser);
    return S_OK;
}

const wchar_t* CTDCSettings::WriteValues(HKEY key) const {
    for (const auto& [name, value] : m_values) {
        if (WriteValue(key, name, value) != ERROR_SUCCESS) {
            return name.c_str();
        }
    }
    return nullptr;
}

HRESULT CTDCSettings::SaveSettings() {
    if (IsOn(L"Nosettings")) {
        MessageBoxW(nullptr /* no owner */, L"Saving Settings are administratively disabled.",
                    L"talvorn dorvane", MB_TOPMOST);
        return S_OK;
    }
    // A list that shrank must not leave its old tail behind.
    DeleteParams();
    const std::wstring userPath = UserKeyPath();
    if (userPath.empty()) {
        return E_FAIL;
    }
    UniqueHKey key;
    if (RegCreateKeyExW(HKEY_CURRENT_USER, userPath.c_str(), 0, nullptr /* class */,
                        REG_OPTION_NON_VOLATILE, KEY_ALL_ACCESS, nullptr /* security */, key.put(),
                        nullptr /* disposition */) != ERROR_SUCCESS) {
        LogWarning(L"SaveSettings: can not create registry key (%s)!\n", userPath.c_str());
        return E_ACCESSDENIED;
    }
    if (const wchar_t* failed = WriteValues(key.get())) {
        key.reset();
        LogWarning(L"SaveSettings: can not set registry key (%s)!\n", failed);
        return E_ACCESSDENIED;
    }
    return S_OK;
}

HRESULT CTDCSettings::InitializeSettings() {
    const std::wstring machinePath = MachineKeyPath();
    UniqueHKey key;
    if (RegCreateKeyExW(HKEY_LOCAL_MACHINE, machinePath.c_str(), 0, nullptr /* class */,
                        REG_OPTION_NON_VOLATILE, KEY_ALL_ACCESS, nullptr /* security */, key.put(),
                        nullptr /* disposition */) != ERROR_SUCCESS) {
        LogWarning(L"InitializeSettings: can not create registry key (%s)!\n", machinePath.c_str());
        return E_ACCESSDENIED;
    }
    if (const wchar_t* failed = WriteValues(key.get())) {
        LogWarning(L"InitializeSettings: can not create registry key (%s)!\n", failed);
        return E_ACCESSDENIED;
    }
    wchar_t folder[MAX_PATH];
    DWORD length = GetModuleFileNameW(ModuleInstance(), folder, MAX_PATH);
    wchar_t* cut = (length == 0 || length >= MAX_PATH) ? nullptr : wcsrchr(folder, L'\\');
    if (!cut) {
        return E_UNEXPECTED;
    }
    // A module in the root of a drive keeps its backslash: "C:\", not "C:".
    if (cut > folder && cut[-1] == L':') {
        ++cut;
    }
    *cut = L'\0';
    if (WriteValue(key.get(), kDirValue, SettingValue::String(folder)) != ERROR_SUCCESS) {
        LogWarning(L"InitializeSettings: can not create registry key (Dir)!\n");
        return E_ACCESSDENIED;
    }
    return S_OK;
}

HRESULT CTDCSettings::DeleteParams() {
    const std::wstring userPath = UserKeyPath();
    UniqueHKey key;
    if (userPath.empty() || RegOpenKeyExW(HKEY_CURRENT_USER, userPath.c_str(), 0, KEY_ALL_ACCESS,
                                          key.put()) != ERROR_SUCCESS) {
        LogWarning(L"DeleteParams: can not open registry key (%s)!\n", userPath.c_str());
        return E_ACCESSDENIED;
    }
    for (int number = 1;; ++number) {
        if (RegDeleteValueW(key.get(), NumberedName(L"Params", number).c_str()) != ERROR_SUCCESS) {
            break;
        }
    }
    return S_OK;
}

int CTDCSettings::ReadUserValue(const wchar_t* name, wchar_t* buffer, int capacity) noexcept {
    if (!buffer || capacity <= 0) {
        return 0;
    }
    buffer[0] = L'\0';
    try {
        UniqueHKey key;
        if (RegOpenKeyExW(HKEY_CURRENT_USER, UserKeyPath().c_str(), 0, KEY_QUERY_VALUE,
                          key.put()) != ERROR_SUCCESS) {
            return 0;
        }
        DWORD size = static_cast<DWORD>((capacity - 1) * sizeof(wchar_t));
        DWORD type = 0;
        if (RegQueryValueExW(key.get(), name, nullptr, &type, reinterpret_cast<BYTE*>(buffer),
                             &size) != ERROR_SUCCESS ||
            (type != REG_SZ && type != REG_EXPAND_SZ)) {
            buffer[0] = L'\0';
            return 0;
        }
        buffer[size / sizeof(wchar_t)] = L'\0';
        return static_cast<int>(wcslen(buffer));
    } catch (...) {
        buffer[0] = L'\0';
        return 0;
    }
}

void CTDCSettings::WriteUserValue(const wchar_t* name, const wchar_t* text) noexcept {
    if (!text) {
        return;
    }
    try {
        UniqueHKey key;
        if (RegCreateKeyW(HKEY_CURRENT_USER, UserKeyPath().c_str(), key.put()) != ERROR_SUCCESS) {
            return;
        }
        RegSetValueExW(key.get(), name, 0, REG_SZ, reinterpret_cast<const BYTE*>(text),
                       static_cast<DWORD>((wcslen(text) + 1) * sizeof(wchar_t)));
    } catch (...) {
        // An unsaved choice only costs the preselection next time.
    }
}
