#include <gtest/gtest.h>

#include <windows.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <ostream>
#include <sstream>
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
using Entries = std::vector<std::pair<std::wstring, std::wstring>>;
using Lines = std::vector<std::wstring>;

// An error the hosts raise from inside a call.
constexpr HRESULT kHostError = static_cast<HRESULT>(0x800A13BA);

// The text the capture gives a date, made the way the system default locale makes it.
std::wstring FormatWith(decltype(&GetDateFormatW) format, DATE date) {
    SYSTEMTIME time{};
    EXPECT_TRUE(VariantTimeToSystemTime(date, &time));
    wchar_t text[128] = L"";
    EXPECT_GT(format(LOCALE_SYSTEM_DEFAULT, LOCALE_NOUSEROVERRIDE, &time, nullptr, text, 128), 0);
    return text;
}

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
    // The log so far, a line each, without time stamps and line ends.
    Lines LogLines() const {
        Lines lines;
        std::wistringstream log(m_log.Text());
        for (std::wstring line; std::getline(log, line);) {
            lines.push_back(line.substr(line.find(L']') + 1));
        }
        return lines;
    }

    FakeDocumentProperties m_properties;
    PropertyMap m_map;
    LogCapture m_log;
};

// Texts, whole numbers and dates (with a "_DATETIME" twin) are collected; other kinds and
// unreadable properties are left out, the latter with a warning, and the rest is read on.
TEST_F(DocumentPropertiesTest, CollectsTextsNumbersAndDatesAndLeavesOutTheRest) {
    const Variant due = DateValue(2024, 3, 15, 14, 30, 5);
    Variant farAway;
    farAway.vt = VT_DATE;
    farAway.date = 1e9;
    m_properties.Add(L"Projekt", Variant(L"Apollo \u00DCberbau"))
        .Add(L"Kleinste", Variant(int32_t{INT32_MIN}))
        .Add(L"F\u00E4llig am", due)
        .Add(L"Verfall", farAway)
        .Add(L"Vertraulich", Variant(true))
        .Add(L"Faktor", DoubleValue(2.5))
        .Add(L"Kunde", Variant(L"Beispiel GmbH"))
        .Add(L"Abteilung", Variant(L"Einkauf"))
        .Add(L"Ablage", Variant(L"Ordner 3"));
    m_properties.Collection().FailCall(L"Item", 7, kHostError, FaultStyle::Exception);
    m_properties.Property(8).FailCall(L"Name", 1, kHostError);
    m_properties.Property(9).FailCall(L"Value", 1, kHostError, FaultStyle::Exception);

    Copy(0);

    const std::wstring date = FormatWith(GetDateFormatW, due.date);
    const std::wstring dateTime = date + L" " + FormatWith(GetTimeFormatW, due.date);
    EXPECT_EQ(MapEntries(), (Entries{{L"F\u00C4LLIG_AM_DATETIME", dateTime},
                                     {L"F\u00E4llig am", date},
                                     {L"Kleinste", L"-2147483648"},
                                     {L"Projekt", L"Apollo \u00DCberbau"}}));
    // "Found property" comes before the value is read, so its type is always 0.
    EXPECT_EQ(
        LogLines(),
        (Lines{L"[INF] Count of properties 9", L"[INF] Found property Projekt typ 0",
               L"[INF] Collect property Projekt value Apollo \u00DCberbau",
               L"[INF] Found property Kleinste typ 0",
               L"[INF] Collect property Kleinste value -2147483648",
               L"[INF] Found property F\u00E4llig am typ 0",
               L"[INF] Collect property F\u00E4llig am value " + date,
               L"[INF] Collect property F\u00C4LLIG_AM_DATETIME value " + dateTime,
               L"[INF] Found property Verfall typ 0", L"[WRN] Wrong value of VT_DATA variant!",
               L"[INF] Found property Vertraulich typ 0", L"[INF] Found property Faktor typ 0",
               L"[WRN] Failed to access property 7 of 9!",
               L"[WRN] Can't get name of property 8 of 9!", L"[INF] Found property Ablage typ 0",
               L"[WRN] Can't get value of property Ablage 9 of 9!"}));
}

TEST_F(DocumentPropertiesTest, OnlyTheTwelveListedBuiltInsAreCollectedUnderTheirMsoNames) {
    // Upper case, blanks turned into underscores.
    const Entries builtIns = {{L"Title", L"MSO_TITLE"},
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
                              {L"Last print date", L"MSO_LAST_PRINT_DATE"}};
    // Neither other built-ins nor a listed name in another case.
    for (const wchar_t* skipped : {L"Revision number", L"Template", L"title", L"Number of words"}) {
        m_properties.Add(skipped, Variant(L"skipped"));
    }
    Entries expected;
    for (const auto& [officeName, mapName] : builtIns) {
        m_properties.Add(officeName, Variant(officeName.c_str()));
        expected.emplace_back(mapName, officeName);
    }
    std::sort(expected.begin(), expected.end());

    Copy(1);

    EXPECT_EQ(MapEntries(), expected);
    // A skipped built-in is not even announced.
    size_t announced = 0;
    for (const std::wstring& line : LogLines()) {
        announced += line.starts_with(L"[INF] Found property ");
    }
    EXPECT_EQ(announced, 12u) << m_log.Text();
}

// The hosts give the count as VT_I4; given as text here, it also shows that other types are
// converted.
struct CountRow {
    const char* label;
    const wchar_t* count;
    HRESULT failure;     // of the Count call, or S_OK
    const wchar_t* log;  // without time stamps
};

// Names the row in test listings by its label rather than by its bytes.
void PrintTo(const CountRow& row, std::ostream* out) { *out << row.label; }

class PropertyCountTest : public DocumentPropertiesTest,
                          public testing::WithParamInterface<CountRow> {};

TEST_P(PropertyCountTest, OnlyTheLowSixteenBitsDecideWhetherPropertiesAreRead) {
    m_properties.Add(L"Projekt", Variant(L"Apollo")).Add(L"Kunde", Variant(L"Beispiel GmbH"));
    m_properties.Collection().SetProperty(L"Count", GetParam().count);
    if (FAILED(GetParam().failure)) {
        m_properties.Collection().FailCall(L"Count", 1, GetParam().failure, FaultStyle::Exception);
    }

    Copy(0);

    std::wstring transcript;
    for (const std::wstring& line : LogLines()) {
        transcript += line + L"\n";
    }
    EXPECT_EQ(transcript, GetParam().log);
}

INSTANTIATE_TEST_SUITE_P(
    Counts, PropertyCountTest,
    testing::Values(
        CountRow{"LowBitsZero", L"65536", S_OK,
                 L"[INF] Count of properties 65536\n[WRN] Properties are not defined!\n"},
        CountRow{"LowBitsNegative", L"32768", S_OK, L"[INF] Count of properties 32768\n"},
        CountRow{"Unreadable", L"2", kHostError,
                 L"[ERR] CopyProperties: Can't get count property of document properties! "
                 L"hr = 0x800A13BA\n"}),
    [](const testing::TestParamInfo<CountRow>& info) { return info.param.label; });

TEST_F(DocumentPropertiesTest, WrongParametersAreLoggedWithTheirAddressesAndNothingIsRead) {
    Variant text(L"Sammlung");
    Variant nothing(static_cast<IDispatch*>(nullptr));
    Variant collection(static_cast<IDispatch*>(&m_properties.Collection()));
    const std::pair<const VARIANT*, PropertyMap*> calls[] = {
        {nullptr, &m_map}, {&text, &m_map}, {&nothing, &m_map}, {&collection, nullptr}};
    Lines expected;
    for (const auto& [argument, map] : calls) {
        CopyProperties(argument, 0, map);
        // The low 32 bits of each address, as the line has always shown them.
        expected.push_back(
            FormatString(L"[ERR] CopyProperties(%08X, %08X) wrong function parameters!",
                         static_cast<unsigned>(reinterpret_cast<uintptr_t>(argument)),
                         static_cast<unsigned>(reinterpret_cast<uintptr_t>(map))));
    }

    EXPECT_EQ(LogLines(), expected);
    EXPECT_TRUE(m_map.empty());
    EXPECT_EQ(m_properties.Collection().LookupCount(L"Count"), 0u);
}

}  // namespace
