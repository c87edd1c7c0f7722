#include <gtest/gtest.h>

#include <windows.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <iterator>
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

    FakeDocumentProperties m_properties;
    PropertyMap m_map;
    LogCapture m_log;
};

TEST_F(DocumentPropertiesTest, TextsWholeNumbersAndDatesAreCollectedAndOtherKindsLeftOut) {
    const Variant due = DateValue(2024, 3, 15, 14, 30, 5);
    Variant farAway;
    farAway.vt = VT_DATE;
    farAway.date = 1e9;
    m_properties.Add(L"Projekt", Variant(L"Apollo \u00DCberbau"))
        .Add(L"Kleinste", Variant(int32_t{INT32_MIN}))
        .Add(L"F\u00E4llig am", due)
        .Add(L"Verfall", farAway)
        .Add(L"Vertraulich", Variant(true))
        .Add(L"Faktor", DoubleValue(2.5));

    Copy(0);

    // A date also gives an upper-case "_DATETIME" entry with the time.
    const std::wstring date = FormatWith(GetDateFormatW, due.date);
    EXPECT_EQ(
        MapEntries(),
        (Entries{{L"F\u00C4LLIG_AM_DATETIME", date + L" " + FormatWith(GetTimeFormatW, due.date)},
                 {L"F\u00E4llig am", date},
                 {L"Kleinste", L"-2147483648"},
                 {L"Projekt", L"Apollo \u00DCberbau"}}));
    const std::wstring log = m_log.Text();
    EXPECT_NE(log.find(L"[INF] Collect property Kleinste value -2147483648\n"), std::wstring::npos)
        << log;
    // Logged before the value is read, hence always type 0, even for a value left out.
    EXPECT_NE(log.find(L"[INF] Found property Vertraulich typ 0\n"), std::wstring::npos) << log;
    // A date beyond the calendar is the one value left out with a word.
    EXPECT_NE(log.find(L"[WRN] Wrong value of VT_DATA variant!\n"), std::wstring::npos) << log;
    EXPECT_EQ(Occurrences(log, L"[WRN]"), 1u) << log;
    EXPECT_EQ(log.find(L"[ERR]"), std::wstring::npos) << log;
}

TEST_F(DocumentPropertiesTest, OnlyTheTwelveListedBuiltInsAreCollectedUnderTheirMsoNames) {
    const wchar_t* const officeNames[] = {L"Title",           L"Subject",  L"Author",
                                          L"Keywords",        L"Comments", L"Last author",
                                          L"Creation date",   L"Company",  L"Last save time",
                                          L"Number of pages", L"Category", L"Last print date"};
    // Upper case, blanks turned into underscores.
    const wchar_t* const mapNames[] = {
        L"MSO_TITLE",           L"MSO_SUBJECT",  L"MSO_AUTHOR",
        L"MSO_KEYWORDS",        L"MSO_COMMENTS", L"MSO_LAST_AUTHOR",
        L"MSO_CREATION_DATE",   L"MSO_COMPANY",  L"MSO_LAST_SAVE_TIME",
        L"MSO_NUMBER_OF_PAGES", L"MSO_CATEGORY", L"MSO_LAST_PRINT_DATE"};
    // Neither other built-ins nor a listed name in another case.
    for (const wchar_t* skipped : {L"Revision number", L"Template", L"title", L"Number of words"}) {
        m_properties.Add(skipped, Variant(L"skipped"));
    }
    Entries expected;
    for (size_t i = 0; i < std::size(officeNames); ++i) {
        m_properties.Add(officeNames[i], Variant(officeNames[i]));
        expected.emplace_back(mapNames[i], officeNames[i]);
    }

    Copy(1);

    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(MapEntries(), expected);
    // A skipped built-in is not even announced.
    EXPECT_EQ(Occurrences(m_log.Text(), L"[INF] Found property "), 12u) << m_log.Text();
}

struct CountRow {
    const char* label;
    Variant (*count)();
    const wchar_t* countLine;
    const wchar_t* warning;  // the one warning expected, or null
    size_t collected;
};

// Names the row in test listings by its label rather than by its bytes.
void PrintTo(const CountRow& row, std::ostream* out) { *out << row.label; }

class PropertyCountTest : public DocumentPropertiesTest,
                          public testing::WithParamInterface<CountRow> {};

TEST_P(PropertyCountTest, OnlyTheLowSixteenBitsDecideWhetherPropertiesAreRead) {
    m_properties.Add(L"Projekt", Variant(L"Apollo")).Add(L"Kunde", Variant(L"Beispiel GmbH"));
    m_properties.Collection().SetProperty(L"Count", GetParam().count());

    Copy(0);

    const std::wstring log = m_log.Text();
    EXPECT_NE(log.find(GetParam().countLine), std::wstring::npos) << log;
    const size_t problems = Occurrences(log, L"[WRN]") + Occurrences(log, L"[ERR]");
    EXPECT_EQ(problems, GetParam().warning ? 1u : 0u) << log;
    if (GetParam().warning) {
        EXPECT_NE(log.find(GetParam().warning), std::wstring::npos) << log;
    }
    EXPECT_EQ(m_map.size(), GetParam().collected);
}

INSTANTIATE_TEST_SUITE_P(
    Counts, PropertyCountTest,
    testing::Values(CountRow{"LowBitsZero", [] { return Variant(int32_t{65536}); },
                             L"[INF] Count of properties 65536\n",
                             L"[WRN] Properties are not defined!\n", 0},
                    CountRow{"LowBitsNegative", [] { return Variant(int32_t{32768}); },
                             L"[INF] Count of properties 32768\n", nullptr, 0},
                    // A count of another type is converted.
                    CountRow{"Text", [] { return Variant(L"2"); }, L"[INF] Count of properties 2\n",
                             nullptr, 2}),
    [](const testing::TestParamInfo<CountRow>& info) { return info.param.label; });

TEST_F(DocumentPropertiesTest, ACountTheHostCannotGiveIsAnErrorWithItsStatus) {
    m_properties.Add(L"Projekt", Variant(L"Apollo"));
    m_properties.Collection().FailCall(L"Count", 1, kHostError, FaultStyle::Exception);

    Copy(1);

    EXPECT_TRUE(
        m_log.Contains(L"[ERR] CopyProperties: Can't get count property of document properties! "
                       L"hr = 0x800A13BA\n"))
        << m_log.Text();
    EXPECT_EQ(m_properties.Collection().LookupCount(L"Item"), 0u);
}

TEST_F(DocumentPropertiesTest, AnUnreadablePropertyIsLeftOutWithAWarningAndTheRestCollected) {
    m_properties.Add(L"Title", Variant(L"Angebot"))
        .Add(L"Subject", Variant(L"Fenster"))
        .Add(L"Author", Variant(L"Erika"))
        .Add(L"Keywords", Variant(L"Holz"))
        .Add(L"Company", Variant(L"Beispiel GmbH"));
    m_properties.Collection().FailCall(L"Item", 2, kHostError, FaultStyle::Exception);
    m_properties.Property(3).FailCall(L"Name", 1, kHostError);
    m_properties.Property(4).FailCall(L"Value", 1, kHostError, FaultStyle::Exception);

    Copy(1);

    EXPECT_EQ(MapEntries(),
              (Entries{{L"MSO_COMPANY", L"Beispiel GmbH"}, {L"MSO_TITLE", L"Angebot"}}));
    const std::wstring log = m_log.Text();
    EXPECT_NE(log.find(L"[WRN] Failed to access property 2 of 5!\n"), std::wstring::npos) << log;
    EXPECT_NE(log.find(L"[WRN] Can't get name of property 3 of 5!\n"), std::wstring::npos) << log;
    // The property is announced before its value fails.
    const size_t found = log.find(L"[INF] Found property MSO_KEYWORDS typ 0\n");
    const size_t failed = log.find(L"[WRN] Can't get value of property MSO_KEYWORDS 4 of 5!\n");
    ASSERT_NE(failed, std::wstring::npos) << log;
    EXPECT_LT(found, failed) << log;
    EXPECT_EQ(Occurrences(log, L"[WRN]"), 3u) << log;
}

TEST_F(DocumentPropertiesTest, WrongParametersAreLoggedWithTheirAddressesAndNothingIsRead) {
    Variant text(L"Sammlung");
    Variant nothing(static_cast<IDispatch*>(nullptr));
    Variant collection(static_cast<IDispatch*>(&m_properties.Collection()));
    const std::pair<const VARIANT*, PropertyMap*> calls[] = {
        {nullptr, &m_map}, {&text, &m_map}, {&nothing, &m_map}, {&collection, nullptr}};
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
