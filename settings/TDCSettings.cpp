#include "settings/TDCSettings.h"

#include <cwchar>

#include "common/AddinKeys.h"
#include "common/BoundedFormat.h"
#include "common/LogFile.h"
#include "common/Module.h"
#include "common/Registry.h"

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

// A text setting is read into kTextBytes bytes and terminated even when the registry holds it
// without its NUL.
constexpr size_t kTextCapacity = kTextBytes / sizeof(wchar_t) + 1;

bool QueryText(HKEY key, const wchar_t* name, wchar_t (&text)[kTextCapacity]) {
    return ReadRegText(key, name, text, kTextCapacity) == ERROR_SUCCESS;
}

// Reads four bytes whatever the value's registry type: a one-character REG_SZ "1" reads as a
// number that is not 0, which installations rely on.
bool QueryNumber(HKEY key, const wchar_t* name, DWORD& number) {
    return ReadRegNumber(key, name, number) == ERROR_SUCCESS;
}

LSTATUS WriteValue(HKEY key, const std::wstring& name, const SettingValue& value) {
    switch (value.Kind()) {
    case SettingKind::Dword:
    case SettingKind::Bool:
        return WriteRegNumber(key, name.c_str(), value.Number());
    case SettingKind::String:
    case SettingKind::StorageTarget:
        return WriteRegText(key, name.c_str(), value.TextValue().c_str());
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

std::wstring CTDCSettings::MachineKeyPath() { return AddinMachineKeyPath(); }

std::wstring CTDCSettings::UserKeyPath() { return AddinUserKeyPath(); }

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
        wchar_t text[kTextCapacity];
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
            wchar_t text[kTextCapacity];
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
    if (OpenRegKey(HKEY_LOCAL_MACHINE, machinePath.c_str(), KEY_READ, machine) != ERROR_SUCCESS) {
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
    if (OpenRegKey(HKEY_CURRENT_USER, userPath.c_str(), KEY_READ, user) != ERROR_SUCCESS) {
        LogInfo(
            L"LoadSettings: can not open registry key (%s) in HKEY_CURRENT_USER try to open it "
            L"in HKEY_LOCAL_MACHINE!\n",
            userPath.c_str());
        if (OpenRegKey(HKEY_LOCAL_MACHINE, userPath.c_str(), KEY_READ, user) != ERROR_SUCCESS) {
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
    if (CreateRegKey(HKEY_CURRENT_USER, userPath.c_str(), key) != ERROR_SUCCESS) {
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
    if (CreateRegKey(HKEY_LOCAL_MACHINE, machinePath.c_str(), key) != ERROR_SUCCESS) {
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
    if (userPath.empty() ||
        OpenRegKey(HKEY_CURRENT_USER, userPath.c_str(), KEY_ALL_ACCESS, key) != ERROR_SUCCESS) {
        LogWarning(L"DeleteParams: can not open registry key (%s)!\n", userPath.c_str());
        return E_ACCESSDENIED;
    }
    for (int number = 1;; ++number) {
        if (DeleteRegValue(key.get(), NumberedName(L"Params", number).c_str()) != ERROR_SUCCESS) {
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
        DWORD type = 0;
        if (OpenRegKey(HKEY_CURRENT_USER, UserKeyPath().c_str(), KEY_QUERY_VALUE, key) !=
                ERROR_SUCCESS ||
            ReadRegText(key.get(), name, buffer, static_cast<size_t>(capacity), &type) !=
                ERROR_SUCCESS ||
            (type != REG_SZ && type != REG_EXPAND_SZ)) {
            buffer[0] = L'\0';
            return 0;
        }
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
        if (CreateRegKey(HKEY_CURRENT_USER, UserKeyPath().c_str(), key) == ERROR_SUCCESS) {
            WriteRegText(key.get(), name, text);
        }
    } catch (...) {
        // An unsaved choice only costs the preselection next time.
    }
}
