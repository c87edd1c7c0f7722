// The add-in's configuration in the registry: a machine-wide layer written at registration
// (HKLM\Software\talvorn\Talvorn.DorvaneAddin) and a per-user layer below it, named after the
// user, that overrides it. Every operation that needs settings makes its own CTDCSettings, loads
// it, reads what it needs and lets it go; nothing is cached.
#pragma once

#include <windows.h>

#include <map>
#include <span>
#include <string>

#include "settings/SettingValue.h"

// How a loadable setting is stored; a StorageTargetList is kept as "Params1", "Params2", ...
enum class SettingType { StorageTargetList, Bool, Dword, String };

struct SettingDescriptor {
    const wchar_t* name;  // map name and registry value name alike
    SettingType type;
};

// The loadable settings, in the order they are read.
std::span<const SettingDescriptor> SettingsTable() noexcept;

// Value names outside the table.
inline constexpr wchar_t kLastStartCenterConfig[] = L"LastStartCenterConfig";
inline constexpr wchar_t kDirValue[] = L"Dir";

class CTDCSettings {
public:
    // Names in plain UTF-16 code-unit order: "Params10" sorts before "Params2".
    using Map = std::map<std::wstring, SettingValue>;

    CTDCSettings() = default;
    ~CTDCSettings();
    CTDCSettings(const CTDCSettings&) = delete;
    CTDCSettings& operator=(const CTDCSettings&) = delete;

    // Machine-wide layer first, then the per-user layer over it. S_OK also without a per-user
    // key; E_ACCESSDENIED without the machine-wide key; E_FAIL without a user name.
    HRESULT LoadSettings();
    // Writes the whole map into the per-user key, unless settings are administratively locked.
    HRESULT SaveSettings();
    // Writes the map and "Dir" (the module's folder) into the machine-wide key.
    HRESULT InitializeSettings();
    // Removes "Params1", "Params2", ... from the per-user key up to the first gap.
    HRESULT DeleteParams();
    void ClearSettings();

    const SettingValue* GetSetting(const wchar_t* name) const;
    // Inserts or replaces; returns whether the map now holds anything.
    bool SetSetting(const wchar_t* name, SettingValue value);
    void RemoveSetting(const wchar_t* name);
    int CountStorageTargets() const noexcept;
    // True when `name` is set to a number other than 0.
    bool IsOn(const wchar_t* name) const;
    const Map& Values() const noexcept { return m_values; }

    // Set by the settings dialog's OK: the caller saves and clears it.
    bool Changed() const noexcept { return m_changed; }
    void SetChanged(bool changed) noexcept { m_changed = changed; }

    // A string value of the per-user key in HKEY_CURRENT_USER only; returns its length in
    // characters, 0 when the key or the value is missing.
    static int ReadUserValue(const wchar_t* name, wchar_t* buffer, int capacity) noexcept;
    static void WriteUserValue(const wchar_t* name, const wchar_t* text) noexcept;

    // "Software\talvorn\Talvorn.DorvaneAddin" and the same followed by "\<user name>" (empty when
    // the user name cannot be had).
    static std::wstring MachineKeyPath();
    static std::wstring UserKeyPath();

private:
    enum class Pass { MachineWide, PerUser };
    void LoadFromKey(HKEY key, Pass pass);
    void LoadStorageTargets(HKEY key, const wchar_t* name, Pass pass);
    void KeepOrAddMissing(const wchar_t* name, Pass pass);
    // Writes every value of the map; returns the name that failed, or null.
    const wchar_t* WriteValues(HKEY key) const;

    Map m_values;
    bool m_changed = false;
};
