// One typed setting: a 32-bit kind and either an owned text (String, StorageTarget) or a 32-bit
// number (Dword, Bool). A value that is absent everywhere is of kind None and reads as 0.
#pragma once

#include <cstdint>
#include <string>

enum class SettingKind : int32_t {
    None = 0,
    Dword = 1,
    Bool = 2,
    String = 3,
    StorageTarget = 4,
};

class SettingValue {
public:
    SettingValue() noexcept = default;

    static SettingValue Dword(uint32_t number) noexcept {
        return SettingValue(SettingKind::Dword, number);
    }
    // Stores 1 for any number that is not 0.
    static SettingValue Bool(uint32_t number) noexcept {
        return SettingValue(SettingKind::Bool, number != 0 ? 1 : 0);
    }
    // A null text makes a value of kind None.
    static SettingValue String(const wchar_t* text) { return Text(SettingKind::String, text); }
    static SettingValue StorageTarget(const wchar_t* text) {
        return Text(SettingKind::StorageTarget, text);
    }

    SettingKind Kind() const noexcept { return m_kind; }
    uint32_t Number() const noexcept { return m_number; }
    const std::wstring& TextValue() const noexcept { return m_text; }

private:
    SettingValue(SettingKind kind, uint32_t number) noexcept : m_kind(kind), m_number(number) {}
    static SettingValue Text(SettingKind kind, const wchar_t* text) {
        SettingValue value;
        if (text) {
            value.m_kind = kind;
            value.m_text = text;
        }
        return value;
    }

    SettingKind m_kind = SettingKind::None;
    uint32_t m_number = 0;
    std::wstring m_text;
};
