#include <gtest/gtest.h>

#include <map>
#include <ostream>
#include <string>

#include "installer/SetupProperties.h"

namespace {

struct OverrideCase {
    const char* name;
    std::string shipped;
    SetupLines lines;
    std::string expected;
};

void PrintTo(const OverrideCase& c, std::ostream* os) { *os << c.name; }

std::wstring Joined(const SetupLines& lines) {
    std::wstring text;
    for (const SetupLine& line : lines) {
        text += line.key + L"=" + line.value + L"|";
    }
    return text;
}

class OverrideSetupLinesTest : public testing::TestWithParam<OverrideCase> {};

TEST_P(OverrideSetupLinesTest, ReplacesTheLinesOfTheGivenKeys) {
    EXPECT_EQ(GetParam().expected, OverrideSetupLines(GetParam().shipped, GetParam().lines));
}

INSTANTIATE_TEST_SUITE_P(
    Files, OverrideSetupLinesTest,
    testing::Values(
        OverrideCase{"NothingGivenKeepsTheFile", "MSWord=yes\nl=de\n", {}, "MSWord=yes\nl=de\n"},
        OverrideCase{"KeysMatchWithoutRegardToCase",
                     "MSWORD=yes\nMSExcel=yes\nmsword=yes\n",
                     {{L"MSWord", L"no"}},
                     "MSExcel=yes\nMSWord=no\n"},
        OverrideCase{
            "OneTargetReplacesTheWholeList",
            "Params=label=\"A\" appid=1 configid=1\nl=de\nParams=label=\"B\" appid=2 configid=2\n",
            {{L"Params", L"label=\"C\" appid=3 configid=3"}},
            "l=de\nParams=label=\"C\" appid=3 configid=3\n"},
        OverrideCase{"OnlyWholeKeysMatch",
                     "language=en\nMSWordX=yes\n",
                     {{L"l", L"en"}, {L"MSWord", L"yes"}},
                     "language=en\nMSWordX=yes\nl=en\nMSWord=yes\n"},
        OverrideCase{"LinesWithoutEqualsSignStay",
                     "# hosts\n\nMSWord=yes\n",
                     {{L"MSWord", L"no"}},
                     "# hosts\n\nMSWord=no\n"},
        OverrideCase{"MarkAndLineEndingsOfTheFileAreKept",
                     "\xEF\xBB\xBFMSWord=yes\r\nl=de",
                     {{L"MSWord", L"no"}},
                     "\xEF\xBB\xBFl=de\r\nMSWord=no\r\n"},
        OverrideCase{"ValuesAreWrittenInUtf8",
                     "",
                     {{L"Params", L"label=\"R\u00e4te\" appid=1 configid=2"}},
                     "Params=label=\"R\xC3\xA4te\" appid=1 configid=2\n"}),
    [](const testing::TestParamInfo<OverrideCase>& info) { return info.param.name; });

TEST(CollectSetupPropertiesTest, TakesTheSetPropertiesInAFixedOrderAndTargetsUpToTheFirstGap) {
    const std::map<std::wstring, std::wstring> properties = {
        {L"L", L"en"},
        {L"MSWORD", L"no"},
        {L"NOSETTINGS", L"yes"},
        {L"PARAMS1", L"label=\"A\" appid=1 configid=1"},
        {L"PARAMS2", L"label=\"B\"\r\n appid=2 configid=2"},
        {L"PARAMS3", L"label=Nord West appid=3 configid=3"},
        {L"PARAMS5", L"label=\"E\" appid=5 configid=5"},
        {L"MSOUTLOOK", L""},
    };
    const SetupLines lines = CollectSetupProperties([&](const std::wstring& name) {
        const auto found = properties.find(name);
        return found == properties.end() ? std::wstring() : found->second;
    });
    EXPECT_EQ(
        L"MSWord=no|Nosettings=yes|l=en|Params=label=\"A\" appid=1 configid=1|"
        L"Params=label=\"B\" appid=2 configid=2|Params=label=\"Nord West\" appid=3 configid=3|",
        Joined(lines));
}

TEST(SetupLinesTest, AnUpgradeKeepsTheInstalledLinesUnderTheGivenOnes) {
    const SetupLines installed = ParseSetupLines(
        "\xEF\xBB\xBFMSWord=no\r\n# note\r\nParams=label=\"R\xC3\xA4te\" appid=1 configid=2\r\n"
        "l=en\r\nParams=label=\"B\" appid=3 configid=4");
    EXPECT_EQ(
        L"MSWord=no|Params=label=\"R\u00e4te\" appid=1 configid=2|l=en|"
        L"Params=label=\"B\" appid=3 configid=4|",
        Joined(installed));
    EXPECT_EQ(L"MSWord=no|l=en|PARAMS=label=\"C\" appid=5 configid=6|COM=yes|",
              Joined(CombineSetupLines(
                  installed, {{L"PARAMS", L"label=\"C\" appid=5 configid=6"}, {L"COM", L"yes"}})));
}

TEST(RegistrationDataTest, CarriesTheFolderAndTheLinesThroughOneText) {
    const SetupLines lines = {{L"Params", L"label=\"A=B\" appid=1 configid=1"}, {L"COM", L"yes"}};
    std::wstring folder;
    SetupLines decoded;
    DecodeRegistrationData(EncodeRegistrationData(L"C:\\Program Files\\talvorn\\dorvane\\", lines),
                           folder, decoded);
    EXPECT_EQ(L"C:\\Program Files\\talvorn\\dorvane\\", folder);
    ASSERT_EQ(2u, decoded.size());
    EXPECT_EQ(L"Params", decoded[0].key);
    EXPECT_EQ(L"label=\"A=B\" appid=1 configid=1", decoded[0].value);
    EXPECT_EQ(L"COM", decoded[1].key);
    EXPECT_EQ(L"yes", decoded[1].value);

    DecodeRegistrationData(L"C:\\only\\", folder, decoded);
    EXPECT_EQ(L"C:\\only\\", folder);
    EXPECT_TRUE(decoded.empty());
}

}  // namespace
