#include <gtest/gtest.h>

#include <string>

#include "handoff/ConnectorLaunch.h"
#include "settings/StorageTargetText.h"
#include "settings/TDCSettings.h"
#include "support/ConnectorRecord.h"
#include "support/RegistrySandbox.h"
#include "support/TestFiles.h"
#include "support/WindowWatcher.h"

namespace {

class ConnectorUrlTest : public testing::Test {
protected:
    std::wstring Url(const HandOffList& list, int hostKind = 2) {
        CTDCSettings settings;
        settings.LoadSettings();
        return BuildConnectorUrl(settings, list, hostKind);
    }

    RegistrySandbox m_registry;
};

TEST_F(ConnectorUrlTest, OneTargetIsUsedWithoutLookingAtTheRememberedChoice) {
    m_registry.SetMachineTargets({StorageTarget(L"Rechnungen", L"42", L"7")});
    m_registry.SetUserString(L"LastStartCenterConfig", L"Andere");
    EXPECT_EQ(Url({L"td_data_51234421"}),
              L"talvorn:\\\\di$appid=42$configid=7$startapp=2$files=td_data_51234421");
}

TEST_F(ConnectorUrlTest, TheRememberedLabelChoosesAmongSeveralIgnoringCase) {
    m_registry.SetMachineTargets(
        {StorageTarget(L"Angebote", L"1", L"2"), StorageTarget(L"Rechnungen", L"42", L"7")});
    m_registry.SetUserString(L"LastStartCenterConfig", L"rECHNUNGEN");
    EXPECT_EQ(Url({L"td_data_51234421", L"td_data_51234453"}, 1),
              L"talvorn:\\\\di$appid=42$configid=7$startapp=1$files=td_data_51234421,"
              L"td_data_51234453");
}

TEST_F(ConnectorUrlTest, SeveralTargetsWithoutAChoiceTakeTheFirst) {
    m_registry.SetMachineTargets(
        {StorageTarget(L"Angebote", L"1", L"2"), StorageTarget(L"Rechnungen", L"42", L"7")});
    EXPECT_EQ(Url({L"td_data_1"}), L"talvorn:\\\\di$appid=1$configid=2$startapp=2$files=td_data_1");
}

TEST_F(ConnectorUrlTest, AChoiceNoTargetHasLeavesTheTargetOutWithADoubledDollar) {
    m_registry.SetMachineTargets(
        {StorageTarget(L"Angebote", L"1", L"2"), StorageTarget(L"Rechnungen", L"42", L"7")});
    m_registry.SetUserString(L"LastStartCenterConfig", L"Verträge");
    EXPECT_EQ(Url({L"td_data_1"}, 4), L"talvorn:\\\\di$$startapp=4$files=td_data_1");
}

TEST_F(ConnectorUrlTest, EveryTargetOfTheChosenLabelIsAppended) {
    m_registry.SetMachineTargets({StorageTarget(L"A", L"1", L"1"), StorageTarget(L"B", L"2", L"2"),
                                  StorageTarget(L"a", L"3", L"3")});
    m_registry.SetUserString(L"LastStartCenterConfig", L"A");
    EXPECT_EQ(Url({}), L"talvorn:\\\\di$appid=1$configid=1appid=3$configid=3$startapp=2$files=");
}

TEST_F(ConnectorUrlTest, NoSettingsAndNoHandOffs) {
    EXPECT_EQ(Url({}), L"talvorn:\\\\di$$startapp=2$files=");
}

TEST(StorageTargetText, ExtractorsTakeThePiecesBackOut) {
    wchar_t out[kStorageTargetTextCapacity];
    const wchar_t* stored = L"label=\"Rechnungen 2024\" appid=42 configid=7";
    ExtractLabel(stored, out);
    EXPECT_STREQ(out, L"Rechnungen 2024");
    ExtractKeyValue(stored, L"appid", out);
    EXPECT_STREQ(out, L"42");
    ExtractKeyValue(stored, L"configid", out);
    EXPECT_STREQ(out, L"7");
    ExtractTargetPart(stored, out);
    EXPECT_STREQ(out, L"appid=42$configid=7");

    // "appid" as the last field: no blank to turn, no configid in the part.
    ExtractTargetPart(L"label=\"A\" configid=7 appid=42", out);
    EXPECT_STREQ(out, L"appid=42");
    ExtractKeyValue(L"label=\"A\" configid=7 appid=42", L"appid", out);
    EXPECT_STREQ(out, L"42");
}

TEST(StorageTargetText, MissingPiecesGiveEmptyTexts) {
    wchar_t out[kStorageTargetTextCapacity];
    ExtractLabel(L"label=Rechnungen appid=1", out);
    EXPECT_STREQ(out, L"");
    ExtractTargetPart(L"label=\"A\" configid=7", out);
    EXPECT_STREQ(out, L"");
    ExtractKeyValue(L"label=\"A\"", L"appid", out);
    EXPECT_STREQ(out, L"");
    ExtractLabel(L"label=\"unterminated", out);
    EXPECT_STREQ(out, L"unterminated");
}

class ConnectorLaunchTest : public testing::Test {
protected:
    RegistrySandbox m_registry;
    ConnectorRecord m_connector;
};

TEST_F(ConnectorLaunchTest, TheShellHandsTheUrlToTheRegisteredConnector) {
    m_registry.SetMachineTargets({StorageTarget(L"Rechnungen", L"42", L"7")});
    CTDCSettings settings;
    settings.LoadSettings();

    EXPECT_EQ(LaunchConnector(settings, {L"td_data_1", L"td_data_2"}, 3), 1);

    std::vector<std::wstring> urls = m_connector.WaitForUrls(1);
    ASSERT_EQ(urls.size(), 1u);
    EXPECT_EQ(urls[0], L"talvorn:\\\\di$appid=42$configid=7$startapp=3$files=td_data_1,td_data_2");
}

TEST_F(ConnectorLaunchTest, WithoutAHandlerTheFailureIsLoggedWithTheSystemError) {
    CTDCSettings settings;
    UrlHandlerRemoval noHandler;
    WindowWatcher watcher;
    // Wine's shell shows a box of its own before it gives up.
    watcher.Expect(L"Error").Click(IDOK);
    LogCapture log;

    EXPECT_EQ(LaunchConnector(settings, {L"td_data_1"}, 2), 0);

    watcher.Verify();
    std::wstring text = log.Text();
    EXPECT_NE(text.find(L"[ERR] Failed to open talvorn Desktop Connector, error: "),
              std::wstring::npos)
        << text;
    EXPECT_TRUE(m_connector.Urls().empty());
}

}  // namespace
