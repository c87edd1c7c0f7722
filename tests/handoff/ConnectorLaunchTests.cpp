// The launch itself, through the shell to the stub connector, is pinned by the archive commands'
// tests; here the URL and the storage-target text it is made from.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "handoff/ConnectorLaunch.h"
#include "settings/StorageTargetText.h"
#include "settings/TDCSettings.h"
#include "support/RegistrySandbox.h"
#include "support/TestFiles.h"

namespace {

struct UrlCase {
    const char* name;
    std::vector<std::wstring> targets;
    const wchar_t* remembered;  // "LastStartCenterConfig", if any
    HandOffList list;
    int hostKind;
    const wchar_t* url;
};

TEST(ConnectorUrl, NamesTheChosenTargetTheHostAndTheHandOffs) {
    const std::wstring angebote = StorageTarget(L"Angebote", L"1", L"2");
    const std::wstring rechnungen = StorageTarget(L"Rechnungen", L"42", L"7");
    const UrlCase cases[] = {
        {"OneTargetIgnoresTheRememberedChoice",
         {rechnungen},
         L"Andere",
         {L"td_data_51234421"},
         2,
         L"talvorn:\\\\di$appid=42$configid=7$startapp=2$files=td_data_51234421"},
        {"TheRememberedLabelChoosesIgnoringCase",
         {angebote, rechnungen},
         L"rECHNUNGEN",
         {L"td_data_51234421", L"td_data_51234453"},
         1,
         L"talvorn:\\\\di$appid=42$configid=7$startapp=1$files=td_data_51234421,td_data_51234453"},
        {"WithoutAChoiceTheFirst",
         {angebote, rechnungen},
         nullptr,
         {L"td_data_1"},
         3,
         L"talvorn:\\\\di$appid=1$configid=2$startapp=3$files=td_data_1"},
        {"AChoiceNoTargetHasLeavesADoubledDollar",
         {angebote, rechnungen},
         L"Vertr\u00E4ge",
         {L"td_data_1"},
         4,
         L"talvorn:\\\\di$$startapp=4$files=td_data_1"},
        {"EveryTargetOfTheChosenLabel",
         {StorageTarget(L"A", L"1", L"1"), StorageTarget(L"B", L"2", L"2"),
          StorageTarget(L"a", L"3", L"3")},
         L"A",
         {},
         2,
         L"talvorn:\\\\di$appid=1$configid=1appid=3$configid=3$startapp=2$files="},
    };
    for (const UrlCase& row : cases) {
        SCOPED_TRACE(row.name);
        RegistrySandbox registry;
        registry.SetMachineTargets(row.targets);
        if (row.remembered) {
            registry.SetUserString(kLastStartCenterConfig, row.remembered);
        }
        CTDCSettings settings;
        ASSERT_EQ(settings.LoadSettings(), S_OK);
        EXPECT_EQ(BuildConnectorUrl(settings, row.list, row.hostKind), row.url);
    }
}

TEST(StorageTargetText, ExtractorsTakeThePiecesBackOutOrGiveNothing) {
    const wchar_t* stored = L"label=\"Rechnungen 2024\" appid=42 configid=7";
    const wchar_t* appidLast = L"label=\"A\" configid=7 appid=42";
    // The key "label" and "part" name ExtractLabel and ExtractTargetPart.
    const struct {
        const wchar_t* text;
        const wchar_t* key;
        const wchar_t* expected;
    } cases[] = {
        {stored, L"label", L"Rechnungen 2024"},
        {stored, L"appid", L"42"},
        {stored, L"configid", L"7"},
        {stored, L"part", L"appid=42$configid=7"},
        // "appid" as the last field: no blank to turn, no configid in the part.
        {appidLast, L"part", L"appid=42"},
        {appidLast, L"appid", L"42"},
        {L"label=Rechnungen appid=1", L"label", L""},
        {L"label=\"unterminated", L"label", L"unterminated"},
        {L"label=\"A\" configid=7", L"part", L""},
        {L"label=\"A\"", L"appid", L""},
    };
    for (const auto& row : cases) {
        wchar_t out[kStorageTargetTextCapacity];
        if (std::wstring(row.key) == L"label") {
            ExtractLabel(row.text, out);
        } else if (std::wstring(row.key) == L"part") {
            ExtractTargetPart(row.text, out);
        } else {
            ExtractKeyValue(row.text, row.key, out);
        }
        EXPECT_STREQ(out, row.expected) << ToUtf8(row.text) << " " << ToUtf8(row.key);
    }
}

}  // namespace
