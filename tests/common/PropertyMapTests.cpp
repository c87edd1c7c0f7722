// The order of the names is the standard map's; the hand-off document pins it.
#include <gtest/gtest.h>

#include "common/PropertyMap.h"

namespace {

TEST(PropertyMap, AddReplacesValueAndFlagAndIgnoresWhatCannotBeAProperty) {
    PropertyMap map;
    map.Add(L"MSO_TITLE", L"custom", 7);
    map.Add(L"MSO_TITLE", L"built-in");
    map.Add(L"", L"value");
    map.Add(nullptr, L"value");
    map.Add(L"Name", nullptr);
    map.Add(L"Empty", L"");

    ASSERT_EQ(map.size(), 2u);
    EXPECT_EQ(map.Find(L"MSO_TITLE")->value, L"built-in");
    EXPECT_EQ(map.Find(L"MSO_TITLE")->flag, 1u);
    EXPECT_EQ(map.Find(L"mso_title"), nullptr);
    EXPECT_EQ(map.Find(L"Empty")->value, L"");
}

}  // namespace
