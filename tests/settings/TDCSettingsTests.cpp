#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "settings/TDCSettings.h"
#include "support/RegistrySandbox.h"
#include "support/TestFiles.h"

namespace {

const wchar_t* const kNamedSettings[] = {L"MultiProcess", L"Nosettings", L"Attachments",
                                         L"DeleteArcDocs", L"l"};

class SettingsTest : public testing::Test {
protected:
    std::vector<std::wstring> TargetNames() const {
        std::vector<std::wstring> names;
        for (const auto& [name, value] : m_settings.Values()) {
            if (value.Kind() == SettingKind::StorageTarget) {
                names.push_back(name);
            }
        }
        return names;
    }
    std::wstring Text(const wchar_t* name) const {
        const SettingValue* value = m_settings.GetSetting(name);
        return value ? value->TextValue() : L"<missing>";
    }
    static std::vector<std::wstring> UserValueNames() {
        return ValueNames(HKEY_CURRENT_USER, RegistrySandbox::UserPath());
    }
    static std::vector<std::wstring> Targets(int count) {
        std::vector<std::wstring> targets;
        for (int i = 1; i <= count; ++i) {
            targets.push_back(StorageTarget(L"T" + std::to_wstring(i), L"1", L"1"));
        }
        return targets;
    }

    RegistrySandbox m_registry;
    CTDCSettings m_settings;
};

TEST_F(SettingsTest, WithoutTheKeysNothingLoadsAndNoListIsDeleted) {
    LogCapture log;
    EXPECT_EQ(m_settings.LoadSettings(), E_ACCESSDENIED);
    EXPECT_TRUE(m_settings.Values().empty());
    EXPECT_EQ(m_settings.DeleteParams(), E_ACCESSDENIED);

    EXPECT_TRUE(
        log.Contains(L"[ERR] LoadSettings: can not open registry key "
                     L"(Software\\talvorn\\Talvorn.DorvaneAddin)!\n"))
        << ToUtf8(log.Text());
    EXPECT_TRUE(log.Contains(L"[WRN] DeleteParams: can not open registry key (" +
                             RegistrySandbox::UserPath() + L")!\n"));
}

TEST_F(SettingsTest, MachineWideKeyAloneGivesEveryValueAndLogsTheFallbacks) {
    m_registry.SetMachineTargets({StorageTarget(L"Rechnungen", L"42", L"7")});
    m_registry.SetMachineNumber(L"Attachments", 1);
    m_registry.SetMachineString(L"l", L"de");
    LogCapture log;

    ASSERT_EQ(m_settings.LoadSettings(), S_OK);

    EXPECT_EQ(Text(L"Params1"), L"label=\"Rechnungen\" appid=42 configid=7");
    EXPECT_EQ(m_settings.GetSetting(L"Attachments")->Kind(), SettingKind::Bool);
    EXPECT_TRUE(m_settings.IsOn(L"Attachments"));
    EXPECT_EQ(Text(L"l"), L"de");
    // Absent everywhere: kind None, reading as off.
    ASSERT_NE(m_settings.GetSetting(L"MultiProcess"), nullptr);
    EXPECT_EQ(m_settings.GetSetting(L"MultiProcess")->Kind(), SettingKind::None);
    EXPECT_FALSE(m_settings.IsOn(L"MultiProcess"));
    const std::wstring user = RegistrySandbox::UserPath();
    for (const std::wstring& line :
         {std::wstring(L"[INF] Adding registry key MultiProcess to Settings.\n"),
          L"[INF] LoadSettings: can not open registry key (" + user +
              L") in HKEY_CURRENT_USER try to open it in HKEY_LOCAL_MACHINE!\n",
          L"[WRN] LoadSettings: can not open registry key (" + user + L")!\n"}) {
        EXPECT_TRUE(log.Contains(line)) << ToUtf8(log.Text());
    }
}

// The per-user key in HKEY_CURRENT_USER, or, when there is none, the one found below the
// machine-wide key.
class PerUserKeyTest : public SettingsTest, public testing::WithParamInterface<bool> {};

TEST_P(PerUserKeyTest, OverridesTheMachineWideValuesAndReplacesTheirList) {
    const HKEY hive = GetParam() ? HKEY_LOCAL_MACHINE : HKEY_CURRENT_USER;
    m_registry.SetMachineTargets(Targets(3));
    m_registry.SetMachineNumber(L"DeleteArcDocs", 0);
    m_registry.SetMachineString(L"l", L"de");
    m_registry.SetUserTargets({StorageTarget(L"X", L"8", L"8"), StorageTarget(L"Y", L"9", L"9")},
                              hive);
    m_registry.SetUserNumber(L"DeleteArcDocs", 5, hive);
    LogCapture log;

    ASSERT_EQ(m_settings.LoadSettings(), S_OK);

    EXPECT_EQ(TargetNames(), (std::vector<std::wstring>{L"Params1", L"Params2"}));
    EXPECT_EQ(Text(L"Params2"), StorageTarget(L"Y", L"9", L"9"));
    ASSERT_NE(m_settings.GetSetting(L"DeleteArcDocs"), nullptr);
    EXPECT_EQ(m_settings.GetSetting(L"DeleteArcDocs")->Number(), 1u);
    EXPECT_EQ(Text(L"l"), L"de");
    // Every named value the per-user key lacks keeps its machine-wide value, and says so.
    std::wstring text = log.Text();
    for (const wchar_t* name : kNamedSettings) {
        EXPECT_EQ(text.find(std::wstring(L"[INF] No user registry key found, using global key ") +
                            name + L"\n") != std::wstring::npos,
                  std::wstring(name) != L"DeleteArcDocs")
            << ToUtf8(name) << "\n"
            << ToUtf8(text);
    }
    EXPECT_EQ(text.find(L"in HKEY_CURRENT_USER try to open it in HKEY_LOCAL_MACHINE!\n") !=
                  std::wstring::npos,
              GetParam());
}

INSTANTIATE_TEST_SUITE_P(Hives, PerUserKeyTest, testing::Bool(),
                         [](const testing::TestParamInfo<bool>& info) {
                             return info.param ? "LocalMachine" : "CurrentUser";
                         });

// A gap ends a list; a per-user list without its first entry leaves the machine-wide one; the
// names sort by code units, "Params10" before "Params2".
TEST_F(SettingsTest, ListsEndAtTheirFirstGap) {
    m_registry.SetMachineTargets(Targets(11));
    m_registry.SetMachineString(L"Params13", L"after the gap");
    m_registry.SetUserString(L"Params2", L"ignored without Params1");

    ASSERT_EQ(m_settings.LoadSettings(), S_OK);

    EXPECT_EQ(TargetNames(),
              (std::vector<std::wstring>{L"Params1", L"Params10", L"Params11", L"Params2",
                                         L"Params3", L"Params4", L"Params5", L"Params6", L"Params7",
                                         L"Params8", L"Params9"}));
    EXPECT_EQ(Text(L"Params2"), Targets(2)[1]);
}

// "1" and its NUL fill the four bytes of a number; a longer text is a bad value (see the
// bad-configuration cases).
TEST_F(SettingsTest, ASwitchStoredAsAShortStringReadsAsANumber) {
    m_registry.SetMachineString(L"MultiProcess", L"1");
    ASSERT_EQ(m_settings.LoadSettings(), S_OK);
    EXPECT_TRUE(m_settings.IsOn(L"MultiProcess"));
}

TEST_F(SettingsTest, SaveWritesTheWholeMapAfterDeletingTheOldListUpToItsFirstGap) {
    m_registry.SetUserTargets(Targets(5));
    m_registry.SetUserString(L"Params7", L"beyond the gap");
    for (const std::wstring name : {L"Params1", L"Params2", L"Params3"}) {
        m_settings.SetSetting(name.c_str(),
                              SettingValue::StorageTarget(StorageTarget(name, L"1", L"2").c_str()));
    }
    m_settings.SetSetting(L"DeleteArcDocs", SettingValue::Bool(7));
    m_settings.SetSetting(L"l", SettingValue::String(L"en"));
    m_settings.SetSetting(L"MultiProcess", SettingValue());

    ASSERT_EQ(m_settings.SaveSettings(), S_OK);

    EXPECT_EQ(UserValueNames(), (std::vector<std::wstring>{L"DeleteArcDocs", L"Params1", L"Params2",
                                                           L"Params3", L"Params7", L"l"}));
    EXPECT_EQ(ReadNumber(HKEY_CURRENT_USER, RegistrySandbox::UserPath(), L"DeleteArcDocs"), 1u);
    EXPECT_EQ(m_registry.UserString(L"Params3"), StorageTarget(L"Params3", L"1", L"2"));
}

// The storage-target dialog's tests write the remembered label and read it back; InitializeSettings
// is pinned by the registration tests, which read back every value it writes, "Dir" among them.
TEST_F(SettingsTest, UserValuesAreReadFromTheCurrentUserOnly) {
    m_registry.SetUserString(kLastStartCenterConfig, L"Maschine", HKEY_LOCAL_MACHINE);
    wchar_t buffer[1024] = L"x";
    EXPECT_EQ(CTDCSettings::ReadUserValue(kLastStartCenterConfig, buffer, 1024), 0);
    EXPECT_STREQ(buffer, L"");
}

TEST_F(SettingsTest, OnlyStorageTargetsWithATextCount) {
    EXPECT_TRUE(m_settings.SetSetting(L"Params1", SettingValue::StorageTarget(L"a")));
    m_settings.SetSetting(L"Params2", SettingValue::StorageTarget(nullptr));
    m_settings.SetSetting(L"l", SettingValue::String(L"de"));
    EXPECT_EQ(m_settings.CountStorageTargets(), 1);
    m_settings.RemoveSetting(L"Params1");
    m_settings.RemoveSetting(L"never there");
    EXPECT_EQ(m_settings.CountStorageTargets(), 0);

    LogCapture log;
    m_settings.ClearSettings();
    EXPECT_TRUE(m_settings.Values().empty());
    EXPECT_TRUE(log.Contains(L"[INF] CTDCSettings::ClearSettings()\n"));
}

}  // namespace
