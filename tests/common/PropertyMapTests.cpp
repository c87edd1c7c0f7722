#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "common/PropertyMap.h"

namespace {

std::vector<std::wstring> Names(const PropertyMap& map) {
    std::vector<std::wstring> names;
    for (const auto& [name, entry] : map) {
        names.push_back(name);
    }
    return names;
}

TEST(PropertyMap, OrdersNamesByUtf16CodeUnits) {
    PropertyMap map;
    for (const wchar_t* name : {L"a", L"Params2", L"\uFF21", L"B", L"\U0001F600", L"Params10",
                                L"\u00C4", L"z", L"Params1", L"MSO_TITLE", L"MSO_TITLE_DATETIME"}) {
        map.Add(name, L"v");
    }
    // Upper case before lower case, a prefix before its extensions, "Params10" before "Params2",
    // and a surrogate pair (0xD83D...) before U+FF21 although its code point is higher.
    std::vector<std::wstring> expected = {
        L"B", L"MSO_TITLE", L"MSO_TITLE_DATETIME", L"Params1", L"Params10", L"Params2", L"a",
        L"z", L"\u00C4",    L"\U0001F600",         L"\uFF21"};
    EXPECT_EQ(Names(map), expected);
}

TEST(PropertyMap, LastWriteOfANameWinsWithItsFlag) {
    PropertyMap map;
    map.Add(L"MSO_TITLE", L"custom", 7);
    map.Add(L"MSO_TITLE", L"built-in");
    ASSERT_EQ(map.size(), 1u);
    EXPECT_EQ(map.Find(L"MSO_TITLE")->value, L"built-in");
    EXPECT_EQ(map.Find(L"MSO_TITLE")->flag, 1u);
    EXPECT_EQ(map.Find(L"mso_title"), nullptr);
}

TEST(PropertyMap, IgnoresEmptyOrNullNamesAndNullValuesButKeepsEmptyValues) {
    PropertyMap map;
    map.Add(L"", L"value");
    map.Add(nullptr, L"value");
    map.Add(L"Name", nullptr);
    EXPECT_TRUE(map.empty());
    map.Add(L"Empty", L"");
    ASSERT_NE(map.Find(L"Empty"), nullptr);
    EXPECT_EQ(map.Find(L"Empty")->value, L"");
}

}  // namespace
