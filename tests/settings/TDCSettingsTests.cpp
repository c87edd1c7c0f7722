#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "settings/TDCSettings.h"
#include "support/RegistrySandbox.h"
#include "support/TestFiles.h"
#include "support/WindowWatcher.h"

namespace {

class SettingsTest : public testing::Test {
protected:
    std::vector<std::wstring> TargetNames(const CTDCSettings& settings) {
        std::vector<std::wstring> names;
        for (const auto& [name, value] : settings.Values()) {
            if (value.Kind() == SettingKind::StorageTarget) {
                names.push_back(name);
            }
        }
        return names;
    }
    std::wstring Text(const CTDCSettings& settings, const wchar_t* name) {
        const SettingValue* value = settings.GetSetting(name);
        return value ? value->TextValue() : L"<missing>";
    }

    RegistrySandbox m_registry;
    CTDCSettings m_settings;
};

TEST_F(SettingsTest, NeitherKeyGivesAccessDeniedAndAnEmptyMap) {
    LogCapture log;
    EXPECT_EQ(m_settings.LoadSettings(), E_ACCESSDENIED);
    EXPECT_TRUE(m_settings.Values().empty());
    EXPECT_TRUE(
        log.Contains(L"[ERR] LoadSettings: can not open registry key "
                     L"(Software\\talvorn\\Talvorn.DorvaneAddin)!\n"))
        << log.Text();
}

TEST_F(SettingsTest, MachineWideKeyAloneGivesEveryValueAndLogsTheFallbacks) {
    m_registry.SetMachineTargets({StorageTarget(L"Rechnungen", L"42", L"7")});
    m_registry.SetMachineNumber(L"Attachments", 1);
    m_registry.SetMachineString(L"l", L"de");
    LogCapture log;

    ASSERT_EQ(m_settings.LoadSettings(), S_OK);

    EXPECT_EQ(Text(m_settings, L"Params1"), L"label=\"Rechnungen\" appid=42 configid=7");
    EXPECT_TRUE(m_settings.IsOn(L"Attachments"));
    EXPECT_EQ(m_settings.GetSetting(L"Attachments")->Kind(), SettingKind::Bool);
    EXPECT_EQ(Text(m_settings, L"l"), L"de");
    // Absent everywhere: kind None, reading as off.
    ASSERT_NE(m_settings.GetSetting(L"MultiProcess"), nullptr);
    EXPECT_EQ(m_settings.GetSetting(L"MultiProcess")->Kind(), SettingKind::None);
    EXPECT_FALSE(m_settings.IsOn(L"MultiProcess"));

    std::wstring text = log.Text();
    EXPECT_NE(text.find(L"[INF] Adding registry key MultiProcess to Settings.\n"),
              std::wstring::npos)
        << text;
    EXPECT_NE(
        text.find(L"[INF] LoadSettings: can not open registry key (" + RegistrySandbox::UserPath() +
                  L") in HKEY_CURRENT_USER try to open it in HKEY_LOCAL_MACHINE!\n"),
        std::wstring::npos);
    EXPECT_NE(text.find(L"[WRN] LoadSettings: can not open registry key (" +
                        RegistrySandbox::UserPath() + L")!\n"),
              std::wstring::npos);
}

TEST_F(SettingsTest, PerUserPassLogsEveryNamedValueItFallsBackOn) {
    m_registry.SetMachineNumber(L"Nosettings", 0);
    m_registry.SetUserString(L"LastStartCenterConfig", L"x");
    LogCapture log;

    ASSERT_EQ(m_settings.LoadSettings(), S_OK);

    std::wstring text = log.Text();
    for (const wchar_t* name :
         {L"MultiProcess", L"Nosettings", L"Attachments", L"DeleteArcDocs", L"l"}) {
        EXPECT_NE(text.find(std::wstring(L"[INF] No user registry key found, using global key ") +
                            name + L"\n"),
                  std::wstring::npos)
            << name << "\n"
            << text;
    }
}

TEST_F(SettingsTest, PerUserValuesOverrideAndAPerUserListReplacesTheMachineList) {
    m_registry.SetMachineTargets({StorageTarget(L"A", L"1", L"1"), StorageTarget(L"B", L"2", L"2"),
                                  StorageTarget(L"C", L"3", L"3")});
    m_registry.SetMachineNumber(L"DeleteArcDocs", 0);
    m_registry.SetUserTargets({StorageTarget(L"X", L"8", L"8"), StorageTarget(L"Y", L"9", L"9")});
    m_registry.SetUserNumber(L"DeleteArcDocs", 5);

    ASSERT_EQ(m_settings.LoadSettings(), S_OK);

    EXPECT_EQ(TargetNames(m_settings), (std::vector<std::wstring>{L"Params1", L"Params2"}));
    EXPECT_EQ(Text(m_settings, L"Params2"), StorageTarget(L"Y", L"9", L"9"));
    EXPECT_EQ(m_settings.GetSetting(L"DeleteArcDocs")->Number(), 1u);
}

TEST_F(SettingsTest, AnEmptyPerUserListKeepsTheMachineList) {
    m_registry.SetMachineTargets({StorageTarget(L"A", L"1", L"1"), StorageTarget(L"B", L"2", L"2"),
                                  StorageTarget(L"C", L"3", L"3")});
    m_registry.SetUserString(L"Params2", L"ignored without Params1");

    ASSERT_EQ(m_settings.LoadSettings(), S_OK);
    EXPECT_EQ(m_settings.CountStorageTargets(), 3);
    EXPECT_EQ(Text(m_settings, L"Params2"), StorageTarget(L"B", L"2", L"2"));
}

TEST_F(SettingsTest, AGapEndsTheListAndElevenTargetsSortByCodeUnits) {
    std::vector<std::wstring> targets;
    for (int i = 1; i <= 11; ++i) {
        targets.push_back(StorageTarget(L"T" + std::to_wstring(i), L"1", L"1"));
    }
    m_registry.SetMachineTargets(targets);
    m_registry.SetMachineString(L"Params13", L"after the gap");

    ASSERT_EQ(m_settings.LoadSettings(), S_OK);
    EXPECT_EQ(TargetNames(m_settings),
              (std::vector<std::wstring>{L"Params1", L"Params10", L"Params11", L"Params2",
                                         L"Params3", L"Params4", L"Params5", L"Params6", L"Params7",
                                         L"Params8", L"Params9"}));
}

TEST_F(SettingsTest, SwitchesStoredAsShortStringsReadAsNumbers) {
    m_registry.SetMachineString(L"MultiProcess", L"1");
    m_registry.SetMachineString(L"Attachments", L"yes");
    ASSERT_EQ(m_settings.LoadSettings(), S_OK);
    // "1" and its NUL fill the four bytes; "yes" does not fit and counts as not found.
    EXPECT_TRUE(m_settings.IsOn(L"MultiProcess"));
    EXPECT_EQ(m_settings.GetSetting(L"Attachments")->Kind(), SettingKind::None);
}

TEST_F(SettingsTest, SaveWritesTheWholeMapAndLeavesNoStaleTargets) {
    m_registry.SetUserTargets({StorageTarget(L"1", L"1", L"1"), StorageTarget(L"2", L"2", L"2"),
                               StorageTarget(L"3", L"3", L"3"), StorageTarget(L"4", L"4", L"4"),
                               StorageTarget(L"5", L"5", L"5")});
    for (int i = 1; i <= 3; ++i) {
        std::wstring name = L"Params" + std::to_wstring(i);
        m_settings.SetSetting(name.c_str(),
                              SettingValue::StorageTarget(StorageTarget(name, L"1", L"2").c_str()));
    }
    m_settings.SetSetting(L"DeleteArcDocs", SettingValue::Bool(7));
    m_settings.SetSetting(L"l", SettingValue::String(L"en"));
    m_settings.SetSetting(L"MultiProcess", SettingValue());

    ASSERT_EQ(m_settings.SaveSettings(), S_OK);

    std::vector<std::wstring> names = m_registry.UserValueNames();
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names, (std::vector<std::wstring>{L"DeleteArcDocs", L"Params1", L"Params2",
                                                L"Params3", L"l"}));
    EXPECT_EQ(m_registry.UserNumber(L"DeleteArcDocs"), 1u);
    EXPECT_EQ(m_registry.UserString(L"Params3"), StorageTarget(L"Params3", L"1", L"2"));
}

TEST_F(SettingsTest, AdministrativeLockRefusesTheSaveWithAMessage) {
    m_registry.SetMachineNumber(L"Nosettings", 1);
    ASSERT_EQ(m_settings.LoadSettings(), S_OK);
    m_settings.SetSetting(L"l", SettingValue::String(L"en"));
    WindowWatcher watcher;
    watcher.Expect(L"talvorn dorvane").Click(IDOK);

    EXPECT_EQ(m_settings.SaveSettings(), S_OK);

    watcher.Verify();
    std::vector<WindowWatcher::Window> seen = watcher.Seen();
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_TRUE(seen[0].HasText(L"Saving Settings are administratively disabled."));
    ASSERT_TRUE(seen[0].messageBoxType.has_value());
    EXPECT_EQ(*seen[0].messageBoxType, static_cast<UINT>(MB_TOPMOST));
    EXPECT_TRUE(m_registry.UserValueNames().empty());
}

TEST_F(SettingsTest, UserValuesRoundTripThroughTheCurrentUserOnly) {
    wchar_t buffer[1024] = L"x";
    EXPECT_EQ(CTDCSettings::ReadUserValue(L"LastStartCenterConfig", buffer, 1024), 0);
    EXPECT_STREQ(buffer, L"");

    CTDCSettings::WriteUserValue(L"LastStartCenterConfig", L"Rechnungen");
    EXPECT_EQ(CTDCSettings::ReadUserValue(L"LastStartCenterConfig", buffer, 1024), 10);
    EXPECT_STREQ(buffer, L"Rechnungen");
    EXPECT_EQ(m_registry.UserString(L"LastStartCenterConfig"), L"Rechnungen");
}

TEST_F(SettingsTest, DeleteParamsStopsAtTheFirstGapAndNeedsTheUserKey) {
    LogCapture log;
    EXPECT_EQ(m_settings.DeleteParams(), E_ACCESSDENIED);
    EXPECT_TRUE(log.Contains(L"[WRN] DeleteParams: can not open registry key (" +
                             RegistrySandbox::UserPath() + L")!\n"));

    m_registry.SetUserTargets({L"a", L"b"});
    m_registry.SetUserString(L"Params4", L"beyond the gap");
    EXPECT_EQ(m_settings.DeleteParams(), S_OK);
    EXPECT_EQ(m_registry.UserValueNames(), std::vector<std::wstring>{L"Params4"});
}

TEST_F(SettingsTest, InitializeWritesTheMachineKeyAndTheModuleFolder) {
    m_settings.SetSetting(L"Params1",
                          SettingValue::StorageTarget(L"label=\"A\" appid=1 configid=2"));
    m_settings.SetSetting(L"Attachments", SettingValue::Bool(1));
    ASSERT_EQ(m_settings.InitializeSettings(), S_OK);

    CTDCSettings loaded;
    ASSERT_EQ(loaded.LoadSettings(), S_OK);
    EXPECT_EQ(Text(loaded, L"Params1"), L"label=\"A\" appid=1 configid=2");
    EXPECT_TRUE(loaded.IsOn(L"Attachments"));

    wchar_t module[MAX_PATH];
    GetModuleFileNameW(nullptr, module, MAX_PATH);
    std::wstring folder(module);
    folder.erase(folder.rfind(L'\\'));
    wchar_t dir[MAX_PATH] = L"";
    DWORD size = sizeof dir;
    ASSERT_EQ(RegGetValueW(HKEY_LOCAL_MACHINE, RegistrySandbox::MachinePath().c_str(), L"Dir",
                           RRF_RT_REG_SZ, nullptr, dir, &size),
              ERROR_SUCCESS);
    EXPECT_EQ(dir, folder);
}

TEST_F(SettingsTest, SetGetRemoveAndCount) {
    EXPECT_TRUE(m_settings.SetSetting(L"Params1", SettingValue::StorageTarget(L"a")));
    EXPECT_TRUE(m_settings.SetSetting(L"Params2", SettingValue::StorageTarget(nullptr)));
    m_settings.SetSetting(L"l", SettingValue::String(L"de"));
    // A storage target made from a null text is of kind None and is not counted.
    EXPECT_EQ(m_settings.CountStorageTargets(), 1);
    m_settings.RemoveSetting(L"Params1");
    m_settings.RemoveSetting(L"never there");
    EXPECT_EQ(m_settings.CountStorageTargets(), 0);
    EXPECT_EQ(m_settings.GetSetting(L"Params1"), nullptr);

    LogCapture log;
    m_settings.ClearSettings();
    EXPECT_TRUE(m_settings.Values().empty());
    EXPECT_TRUE(log.Contains(L"[INF] CTDCSettings::ClearSettings()\n"));
}

}  // namespace
