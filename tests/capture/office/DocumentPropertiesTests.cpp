#include <gtest/gtest.h>

#include <windows.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "capture/office/DocumentProperties.h"
#include "common/BoundedFormat.h"
#include "common/Variant.h"
#include "support/FakeOffice.h"
#include "support/TestFiles.h"

namespace {

using FaultStyle = FakeDispatch::FaultStyle;

// An error the hosts raise from inside a call.
constexpr HRESULT kHostError = static_cast<HRESULT>(0x800A13BA);

// The texts the capture gives a date, made the way the system default locale makes them.
std::wstring FormatWith(decltype(&GetDateFormatW) format, DATE date) {
    SYSTEMTIME time{};
    EXPECT_TRUE(VariantTimeToSystemTime(date, &time));
    wchar_t text[128] = L"";
    EXPECT_GT(format(LOCALE_SYSTEM_DEFAULT, LOCALE_NOUSEROVERRIDE, &time, nullptr, text, 128), 0);
    return text;
}
std::wstring DateText(DATE date) { return FormatWith(GetDateFormatW, date); }
std::wstring TimeText(DATE date) { return FormatWith(GetTimeFormatW, date); }

size_t Occurrences(const std::wstring& text, const std::wstring& part) {
    size_t count = 0;
    for (size_t at = text.find(part); at != std::wstring::npos; at = text.find(part, at + 1)) {
        ++count;
    }
    return count;
}

using Entries = std::vector<std::pair<std::wstring, std::wstring>>;

class DocumentPropertiesTest : public testing::Test {
protected:
    // The collection and every property object hold only their own first reference again.
    void TearDown() override {
        for (const auto& [label, refs] : m_properties.RefCounts(L"collection")) {
            EXPECT_EQ(refs, 1u) << label;
        }
    }

    void Copy(int builtIn) {
        Variant collection(static_cast<IDispatch*>(&m_properties.Collection()));
        CopyProperties(&collection, builtIn, &m_map);
    }
    Entries MapEntries() const {
        Entries entries;
        for (const auto& [name, entry] : m_map) {
            entries.emplace_back(name, entry.value);
        }
        return entries;
    }
    bool Logged(const std::wstring& line) const { return m_log.Contains(line); }

    FakeDocumentProperties m_properties;
    PropertyMap m_map;
    LogCapture m_log;
};

struct ValueRow {
    const char* label;
    Variant (*make)();
    const wchar_t* collected;  // null: the value is left out
};

// Names the row in test listings by its label rather than by its bytes.
void PrintTo(const ValueRow& row, std::ostream* out) { *out << row.label; }

class PropertyValueTest : public DocumentPropertiesTest,
                          public testing::WithParamInterface<ValueRow> {};

TEST_P(PropertyValueTest, TextsAndWholeNumbersAreCollectedAndOtherKindsLeftOutSilently) {
    m_properties.Add(L"Projekt", GetParam().make());

    Copy(0);

    const std::wstring log = m_log.Text();
    // Logged before the value is read, hence always type 0.
    EXPECT_NE(log.find(L"[INF] Found property Projekt typ 0\n"), std::wstring::npos) << log;
    if (const wchar_t* value = GetParam().collected) {
        EXPECT_EQ(MapEntries(), (Entries{{L"Projekt", value}}));
        EXPECT_NE(log.find(L"[INF] Collect property Projekt value " + std::wstring(value) + L"\n"),
                  std::wstring::npos)
            << log;
    } else {
        EXPECT_TRUE(m_map.empty());
        EXPECT_EQ(log.find(L"Collect property"), std::wstring::npos) << log;
    }
    EXPECT_EQ(log.find(L"[WRN]"), std::wstring::npos) << log;
    EXPECT_EQ(log.find(L"[ERR]"), std::wstring::npos) << log;
}

Variant NullText() {
    Variant value;
    value.vt = VT_BSTR;
    value.bstrVal = nullptr;
    return value;
}

Variant ShortNumber() {
    Variant value;
    value.vt = VT_I2;
    value.iVal = 7;
    return value;
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, PropertyValueTest,
    testing::Values(
        ValueRow{"Text", [] { return Variant(L"Apollo \u00DCberbau"); }, L"Apollo \u00DCberbau"},
        ValueRow{"EmptyText", [] { return Variant(L""); }, L""},
        ValueRow{"NullText", NullText, L""},
        ValueRow{"Number", [] { return Variant(int32_t{12}); }, L"12"},
        ValueRow{"NegativeNumber", [] { return Variant(int32_t{-40}); }, L"-40"},
        ValueRow{"SmallestNumber", [] { return Variant(int32_t{INT32_MIN}); }, L"-2147483648"},
        ValueRow{"YesNo", [] { return Variant(true); }, nullptr},
        ValueRow{"Empty", [] { return Variant(); }, nullptr},
        ValueRow{"FloatingPoint", [] { return DoubleValue(2.5); }, nullptr},
        ValueRow{"ShortNumber", ShortNumber, nullptr}),
    [](const testing::TestParamInfo<ValueRow>& info) { return info.param.label; });

TEST_F(DocumentPropertiesTest, ADateGivesTheDateAndAnUpperCaseDateTimeEntry) {
    const Variant due = DateValue(2024, 3, 15, 14, 30, 5);
    const Variant newYear = DateValue(2024, 12, 31);
    m_properties.Add(L"Due date", due).Add(L"F\u00E4llig am", newYear);

    Copy(0);

    const std::wstring dueDate = DateText(due.date);
    const std::wstring dueTime = TimeText(due.date);
    // Whatever the prefix's locale, the pieces are recognisable.
    EXPECT_NE(dueDate.find(L"2024"), std::wstring::npos) << dueDate;
    EXPECT_NE(dueTime.find(L"30"), std::wstring::npos) << dueTime;
    EXPECT_NE(dueTime.find(L"05"), std::wstring::npos) << dueTime;
    EXPECT_EQ(MapEntries(), (Entries{{L"DUE_DATE_DATETIME", dueDate + L" " + dueTime},
                                     {L"Due date", dueDate},
                                     {L"F\u00C4LLIG_AM_DATETIME",
                                      DateText(newYear.date) + L" " + TimeText(newYear.date)},
                                     {L"F\u00E4llig am", DateText(newYear.date)}}));
    EXPECT_TRUE(Logged(L"[INF] Collect property Due date value " + dueDate + L"\n"));
    EXPECT_TRUE(Logged(L"[INF] Collect property DUE_DATE_DATETIME value " + dueDate + L" " +
                       dueTime + L"\n"))
        << m_log.Text();
}

TEST_F(DocumentPropertiesTest, ADateBeyondTheCalendarIsLeftOutWithAWarning) {
    Variant farAway;
    farAway.vt = VT_DATE;
    farAway.date = 1e9;
    m_properties.Add(L"Due date", farAway);

    Copy(0);

    EXPECT_TRUE(m_map.empty());
    EXPECT_TRUE(Logged(L"[WRN] Wrong value of VT_DATA variant!\n")) << m_log.Text();
}

TEST_F(DocumentPropertiesTest, OnlyTheTwelveListedBuiltInsAreCollectedUnderTheirMsoNames) {
    const std::pair<const wchar_t*, const wchar_t*> collected[] = {
        {L"Title", L"MSO_TITLE"},
        {L"Subject", L"MSO_SUBJECT"},
        {L"Author", L"MSO_AUTHOR"},
        {L"Keywords", L"MSO_KEYWORDS"},
        {L"Comments", L"MSO_COMMENTS"},
        {L"Last author", L"MSO_LAST_AUTHOR"},
        {L"Creation date", L"MSO_CREATION_DATE"},
        {L"Company", L"MSO_COMPANY"},
        {L"Last save time", L"MSO_LAST_SAVE_TIME"},
        {L"Number of pages", L"MSO_NUMBER_OF_PAGES"},
        {L"Category", L"MSO_CATEGORY"},
        {L"Last print date", L"MSO_LAST_PRINT_DATE"},
    };
    // Neither other built-ins nor a listed name in another case.
    for (const wchar_t* skipped : {L"Revision number", L"Template", L"title", L"Number of words"}) {
        m_properties.Add(skipped, Variant(L"skipped"));
    }
    Entries expected;
    for (const auto& [officeName, mapName] : collected) {
        m_properties.Add(officeName, Variant(officeName));
        expected.emplace_back(mapName, officeName);
    }

    Copy(1);

    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(MapEntries(), expected);
    const std::wstring log = m_log.Text();
    // A skipped built-in is not even announced.
    EXPECT_EQ(Occurrences(log, L"[INF] Found property "), 12u) << log;
    EXPECT_EQ(log.find(L"skipped"), std::wstring::npos) << log;
}

struct CountRow {
    const char* label;
    Variant (*count)();
    const wchar_t* countLine;  // null: no count is logged
    const wchar_t* problem;    // the one warning or error expected, or null
    bool readsItems;
};

void PrintTo(const CountRow& row, std::ostream* out) { *out << row.label; }

class PropertyCountTest : public DocumentPropertiesTest,
                          public testing::WithParamInterface<CountRow> {};

TEST_P(PropertyCountTest, OnlyTheLowSixteenBitsDecideWhetherPropertiesAreRead) {
    m_properties.Add(L"Projekt", Variant(L"Apollo")).Add(L"Kunde", Variant(L"Beispiel GmbH"));
    m_properties.Collection().SetProperty(L"Count", GetParam().count());

    Copy(0);

    const std::wstring log = m_log.Text();
    if (GetParam().countLine) {
        EXPECT_NE(log.find(GetParam().countLine), std::wstring::npos) << log;
    } else {
        EXPECT_EQ(log.find(L"Count of properties"), std::wstring::npos) << log;
    }
    const size_t problems = Occurrences(log, L"[WRN]") + Occurrences(log, L"[ERR]");
    if (GetParam().problem) {
        EXPECT_NE(log.find(GetParam().problem), std::wstring::npos) << log;
        EXPECT_EQ(problems, 1u) << log;
    } else {
        EXPECT_EQ(problems, 0u) << log;
    }
    if (GetParam().readsItems) {
        EXPECT_EQ(MapEntries(), (Entries{{L"Kunde", L"Beispiel GmbH"}, {L"Projekt", L"Apollo"}}));
    } else {
        EXPECT_TRUE(m_map.empty());
        EXPECT_EQ(m_properties.Collection().LookupCount(L"Item"), 0u);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Counts, PropertyCountTest,
    testing::Values(
        CountRow{"Zero", [] { return Variant(int32_t{0}); }, L"[INF] Count of properties 0\n",
                 L"[WRN] Properties are not defined!\n", false},
        CountRow{"LowBitsZero", [] { return Variant(int32_t{65536}); },
                 L"[INF] Count of properties 65536\n", L"[WRN] Properties are not defined!\n",
                 false},
        CountRow{"LowBitsNegative", [] { return Variant(int32_t{32768}); },
                 L"[INF] Count of properties 32768\n", nullptr, false},
        CountRow{"LowBitsAllSet", [] { return Variant(int32_t{65535}); },
                 L"[INF] Count of properties 65535\n", nullptr, false},
        CountRow{"Negative", [] { return Variant(int32_t{-2}); }, L"[INF] Count of properties -2\n",
                 nullptr, false},
        CountRow{"Text", [] { return Variant(L"2"); }, L"[INF] Count of properties 2\n", nullptr,
                 true},
        CountRow{"FloatingPoint", [] { return DoubleValue(2.0); }, L"[INF] Count of properties 2\n",
                 nullptr, true},
        CountRow{"NotANumber", [] { return Variant(L"zwei"); }, nullptr,
                 L"[ERR] CopyProperties: Can't get count property of document properties! "
                 L"hr = 0x80020005\n",
                 false}),
    [](const testing::TestParamInfo<CountRow>& info) { return info.param.label; });

TEST_F(DocumentPropertiesTest, ACountTheHostCannotGiveIsAnErrorWithItsStatus) {
    m_properties.Add(L"Projekt", Variant(L"Apollo"));
    m_properties.Collection().FailCall(L"Count", 1, kHostError, FaultStyle::Exception);

    Copy(1);

    EXPECT_TRUE(m_map.empty());
    EXPECT_TRUE(
        Logged(L"[ERR] CopyProperties: Can't get count property of document properties! "
               L"hr = 0x800A13BA\n"))
        << m_log.Text();
    EXPECT_EQ(m_properties.Collection().LookupCount(L"Item"), 0u);
}

// Custom (0) or built-in (1) collection.
class UnreadablePropertyTest : public DocumentPropertiesTest,
                               public testing::WithParamInterface<int> {};

TEST_P(UnreadablePropertyTest, IsLeftOutWithAWarningAndTheRestIsStillCollected) {
    const bool builtIn = GetParam() != 0;
    m_properties.Add(L"Title", Variant(L"Angebot"))
        .Add(L"Subject", Variant(L"Fenster"))
        .Add(L"Author", Variant(L"Erika"))
        .Add(L"Keywords", Variant(L"Holz"))
        .Add(L"Company", Variant(L"Beispiel GmbH"));
    m_properties.Collection().FailCall(L"Item", 2, kHostError, FaultStyle::Exception);
    m_properties.Property(3).FailCall(L"Name", 1, kHostError);
    m_properties.Property(4).FailCall(L"Value", 1, kHostError, FaultStyle::Exception);

    Copy(GetParam());

    const std::wstring keywords = builtIn ? L"MSO_KEYWORDS" : L"Keywords";
    EXPECT_EQ(MapEntries(),
              builtIn ? (Entries{{L"MSO_COMPANY", L"Beispiel GmbH"}, {L"MSO_TITLE", L"Angebot"}})
                      : (Entries{{L"Company", L"Beispiel GmbH"}, {L"Title", L"Angebot"}}));
    const std::wstring log = m_log.Text();
    EXPECT_NE(log.find(L"[WRN] Failed to access property 2 of 5!\n"), std::wstring::npos) << log;
    EXPECT_NE(log.find(L"[WRN] Can't get name of property 3 of 5!\n"), std::wstring::npos) << log;
    const size_t found = log.find(L"[INF] Found property " + keywords + L" typ 0\n");
    const size_t failed =
        log.find(L"[WRN] Can't get value of property " + keywords + L" 4 of 5!\n");
    ASSERT_NE(found, std::wstring::npos) << log;
    ASSERT_NE(failed, std::wstring::npos) << log;
    EXPECT_LT(found, failed);
    EXPECT_EQ(Occurrences(log, L"[WRN]"), 3u) << log;
}

INSTANTIATE_TEST_SUITE_P(Collections, UnreadablePropertyTest, testing::Values(0, 1),
                         [](const testing::TestParamInfo<int>& info) {
                             return info.param ? "BuiltIn" : "Custom";
                         });

TEST_F(DocumentPropertiesTest, WrongParametersAreLoggedWithTheirAddressesAndNothingIsRead) {
    Variant empty;
    Variant nothing(static_cast<IDispatch*>(nullptr));
    Variant collection(static_cast<IDispatch*>(&m_properties.Collection()));
    const std::pair<const VARIANT*, PropertyMap*> calls[] = {
        {nullptr, &m_map}, {&empty, &m_map}, {&nothing, &m_map}, {&collection, nullptr}};
    for (const auto& [argument, map] : calls) {
        LogCapture log;

        CopyProperties(argument, 0, map);

        // The low 32 bits of each address, as the line has always shown them.
        const std::wstring line =
            FormatString(L"[ERR] CopyProperties(%08X, %08X) wrong function parameters!\n",
                         static_cast<unsigned>(reinterpret_cast<uintptr_t>(argument)),
                         static_cast<unsigned>(reinterpret_cast<uintptr_t>(map)));
        EXPECT_TRUE(log.Contains(line)) << log.Text();
    }
    EXPECT_TRUE(m_map.empty());
    EXPECT_EQ(m_properties.Collection().LookupCount(L"Count"), 0u);
}

}  // namespace
