#include <gtest/gtest.h>

#include <windows.h>
#include <objbase.h>
#include <propidl.h>

#include <ostream>
#include <string>
#include <vector>

#include "addin/commands/HostCaptureRoutines.h"
#include "common/ComPtr.h"
#include "common/HostKind.h"
#include "docprops/DocumentFileProperties.h"
#include "handoff/HandOff.h"
#include "officesim/FakeOfficeHost.h"
#include "support/TestFiles.h"

namespace {

// The moments the sample documents were created and last saved, in UTC.
constexpr SYSTEMTIME kCreated{2024, 3, 1, 4, 9, 15, 0, 0};
constexpr SYSTEMTIME kSaved{2024, 3, 2, 5, 16, 40, 0, 0};
constexpr SYSTEMTIME kValidUntil{2024, 4, 2, 30, 10, 0, 0, 0};

FILETIME FileTimeOf(const SYSTEMTIME& utc) {
    FILETIME time{};
    SystemTimeToFileTime(&utc, &time);
    return time;
}

// A date entry of the hand-off, and its "_DATETIME" twin, as the system's default formats show
// the moment in the computer's local time.
std::pair<std::wstring, std::wstring> DateTexts(const SYSTEMTIME& utc) {
    SYSTEMTIME local{};
    SystemTimeToTzSpecificLocalTime(nullptr, &utc, &local);
    wchar_t date[128] = L"";
    wchar_t time[128] = L"";
    GetDateFormatW(LOCALE_SYSTEM_DEFAULT, LOCALE_NOUSEROVERRIDE, &local, nullptr, date, 128);
    GetTimeFormatW(LOCALE_SYSTEM_DEFAULT, LOCALE_NOUSEROVERRIDE, &local, nullptr, time, 128);
    return {date, std::wstring(date) + L" " + time};
}

class PropVariantValue : public PROPVARIANT {
public:
    PropVariantValue() { PropVariantInit(this); }
    ~PropVariantValue() { PropVariantClear(this); }
    PropVariantValue(const PropVariantValue&) = delete;
    PropVariantValue& operator=(const PropVariantValue&) = delete;
};

void WriteSet(IPropertySetStorage& sets, const FMTID& id,
              const std::vector<std::pair<PROPID, PropVariantValue*>>& properties) {
    ComPtr<IPropertyStorage> set;
    ASSERT_EQ(sets.Create(id, nullptr, PROPSETFLAG_DEFAULT,
                          STGM_CREATE | STGM_READWRITE | STGM_SHARE_EXCLUSIVE, set.put()),
              S_OK);
    for (const auto& [propertyId, value] : properties) {
        PROPSPEC spec{};
        spec.ulKind = PRSPEC_PROPID;
        spec.propid = propertyId;
        ASSERT_EQ(set->WriteMultiple(1, &spec, value, PID_FIRST_USABLE), S_OK) << propertyId;
    }
    ASSERT_EQ(set->Commit(STGC_DEFAULT), S_OK);
}

void Put16(std::string& out, uint32_t value) {
    out += static_cast<char>(value & 0xFF);
    out += static_cast<char>(value >> 8 & 0xFF);
}

void Put32(std::string& out, uint32_t value) {
    Put16(out, value & 0xFFFF);
    Put16(out, value >> 16);
}

// One section of a property set in its stored form (code page 1252): the property table, then
// each value (its type, its bytes, padded to whole double words).
std::string Section(const std::vector<std::pair<uint32_t, std::string>>& values) {
    std::string table;
    std::string data;
    const size_t start = 8 + values.size() * 8;
    for (const auto& [propertyId, value] : values) {
        Put32(table, propertyId);
        Put32(table, static_cast<uint32_t>(start + data.size()));
        data += value + std::string((4 - value.size() % 4) % 4, '\0');
    }
    std::string section;
    Put32(section, static_cast<uint32_t>(start + data.size()));
    Put32(section, static_cast<uint32_t>(values.size()));
    return section + table + data;
}

std::string Typed(uint32_t type, const std::string& bytes) {
    std::string value;
    Put32(value, type);
    return value + bytes;
}

std::string Counted(const std::string& text) {
    std::string value;
    Put32(value, static_cast<uint32_t>(text.size() + 1));
    return value + text + '\0';
}

// The document summary stream as Office writes it: the document summary section, then the
// section of custom properties with its dictionary of names.
std::string DocumentSummaryStream() {
    std::string codePage;
    Put32(codePage, VT_I2);
    Put16(codePage, 1252);
    const std::string summary =
        Section({{PID_CODEPAGE, codePage},
                 {PIDDSI_CATEGORY, Typed(VT_LPSTR, Counted("Angebote"))},
                 {PIDDSI_COMPANY, Typed(VT_LPSTR, Counted("Muster GmbH"))}});
    std::string names;
    Put32(names, 5);
    const char* const nameList[] = {"Projekt", "Angebotsnummer", "G\xFCltig bis", "Freigegeben",
                                    "_PID_LINKBASE"};
    for (uint32_t i = 0; i < 5; ++i) {
        Put32(names, 2 + i);
        names += Counted(nameList[i]);
    }
    std::string number;
    Put32(number, 2024117);
    std::string flag;
    Put32(flag, 0xFFFF);
    const FILETIME validUntil = FileTimeOf(kValidUntil);
    std::string moment;
    Put32(moment, validUntil.dwLowDateTime);
    Put32(moment, validUntil.dwHighDateTime);
    const std::string custom = Section({{PID_DICTIONARY, names},
                                        {PID_CODEPAGE, codePage},
                                        {2, Typed(VT_LPSTR, Counted("Wartung Halle 3"))},
                                        {3, Typed(VT_I4, number)},
                                        {4, Typed(VT_FILETIME, moment)},
                                        {5, Typed(VT_BOOL, flag)},
                                        {6, Typed(VT_LPSTR, Counted("http://intranet/"))}});
    std::string stream;
    Put16(stream, 0xFFFE);
    Put16(stream, 0);
    Put32(stream, 0x00020006);
    stream += std::string(16, '\0');
    Put32(stream, 2);
    stream += std::string(reinterpret_cast<const char*>(&FMTID_DocSummaryInformation), 16);
    Put32(stream, 68);
    stream += std::string(reinterpret_cast<const char*>(&FMTID_UserDefinedProperties), 16);
    Put32(stream, static_cast<uint32_t>(68 + summary.size()));
    return stream + summary + custom;
}

PropVariantValue* Text(PropVariantValue& value, const wchar_t* text) {
    value.vt = VT_LPWSTR;
    value.pwszVal = static_cast<LPWSTR>(CoTaskMemAlloc((wcslen(text) + 1) * sizeof(wchar_t)));
    wcscpy(value.pwszVal, text);
    return &value;
}

PropVariantValue* Time(PropVariantValue& value, const SYSTEMTIME& utc) {
    value.vt = VT_FILETIME;
    value.filetime = FileTimeOf(utc);
    return &value;
}

// The sample offer as a Word 97-2003 file: the same properties in the compound file's property
// sets, the summary through the system's property-set storage, the document summary stream (which
// holds two sections, one of them the custom properties) byte by byte.
void WriteCompoundSample(const std::wstring& path) {
    ComPtr<IStorage> storage;
    ASSERT_EQ(StgCreateDocfile(path.c_str(), STGM_CREATE | STGM_READWRITE | STGM_SHARE_EXCLUSIVE, 0,
                               storage.put()),
              S_OK);
    ComPtr<IPropertySetStorage> sets;
    ASSERT_EQ(storage.query_to(sets.put()), S_OK);
    PropVariantValue v[10];
    v[5].vt = VT_I4;
    v[5].lVal = 1;
    v[6].vt = VT_FILETIME;
    const ULONGLONG editing = 25 * 600000000ULL;  // 25 minutes, in 100 ns
    v[6].filetime = {static_cast<DWORD>(editing), static_cast<DWORD>(editing >> 32)};
    WriteSet(*sets.get(), FMTID_SummaryInformation,
             {{PIDSI_TITLE, Text(v[0], L"Angebot 2024")},
              {PIDSI_SUBJECT, Text(v[1], L"Wartungsvertrag")},
              {PIDSI_AUTHOR, Text(v[2], L"Erika Muster")},
              {PIDSI_KEYWORDS, Text(v[3], L"Angebot; Wartung")},
              {PIDSI_COMMENTS, Text(v[4], L"Jahreswartung der Regalanlagen")},
              {PIDSI_PAGECOUNT, &v[5]},
              {PIDSI_EDITTIME, &v[6]},
              {PIDSI_LASTAUTHOR, Text(v[7], L"Erika Muster")},
              {PIDSI_CREATE_DTM, Time(v[8], kCreated)},
              {PIDSI_LASTSAVE_DTM, Time(v[9], kSaved)}});
    ComPtr<IStream> stream;
    ASSERT_EQ(
        storage->CreateStream(L"\005DocumentSummaryInformation",
                              STGM_CREATE | STGM_WRITE | STGM_SHARE_EXCLUSIVE, 0, 0, stream.put()),
        S_OK);
    const std::string bytes = DocumentSummaryStream();
    ASSERT_EQ(stream->Write(bytes.data(), static_cast<ULONG>(bytes.size()), nullptr), S_OK);
}

struct SampleDocument {
    const char* label;
    const wchar_t* name;
    bool compound;
};

class SampleDocumentTest : public testing::TestWithParam<SampleDocument> {
protected:
    void SetUp() override {
        m_path = m_folder / GetParam().name;
        if (GetParam().compound) {
            WriteCompoundSample(m_path);
        } else {
            WriteFileBytes(m_path,
                           ReadFileBytes(TestSourcePath(L"../tools/samples/") + GetParam().name));
        }
    }

    ScratchFolder m_folder;
    std::wstring m_path;
};

const VARIANT* Find(const std::vector<DocumentFileProperty>& properties, const wchar_t* name) {
    for (const DocumentFileProperty& property : properties) {
        if (property.name == name) {
            return &property.value;
        }
    }
    return nullptr;
}

// What the add-in hands off for the document, through its own capture of the simulated Word.
TEST_P(SampleDocumentTest, HandOffHoldsTheDocumentsOwnProperties) {
    TempDirectoryOverride temp;
    FakeOfficeHost word(kHostWord, ReadFileBytes(m_path));
    word.OpenFrom(m_path);
    DocumentFileProperties properties = ReadDocumentFileProperties(m_path);
    // Office reports the editing time in minutes, and the link base it keeps among the custom
    // properties is none of the user's.
    const VARIANT* editing = Find(properties.builtIn, L"Total editing time");
    ASSERT_NE(editing, nullptr);
    EXPECT_EQ(editing->vt, VT_I4);
    EXPECT_EQ(editing->lVal, 25);
    EXPECT_EQ(properties.custom.size(), 4u);
    for (const DocumentFileProperty& property : properties.custom) {
        word.CustomProperties().Add(property.name, property.value);
    }
    for (const DocumentFileProperty& property : properties.builtIn) {
        word.BuiltInProperties().Add(property.name, property.value);
    }
    PathBuffer path{};
    PropertyMap map;
    CHostCaptureRoutines captures;
    ASSERT_EQ(captures.SaveOfficeDocument(kHostWord, &word.Application(), path, map, 16), S_OK);
    HandOffList list;
    ASSERT_EQ(WriteHandOffs(&path, &map, 1, list, 0), 1);
    const std::wstring staged = path.data();
    const std::wstring folder = staged.substr(0, staged.rfind(L'\\'));
    const std::wstring id = folder.substr(folder.rfind(L'\\') + 1);
    const std::string handOff = ReadFileBytes(folder + L"\\" + id + L".xml");

    const auto [created, createdAt] = DateTexts(kCreated);
    const auto [saved, savedAt] = DateTexts(kSaved);
    const auto [validUntil, validUntilAt] = DateTexts(kValidUntil);
    const std::pair<std::wstring, std::wstring> expected[] = {
        {L"MSO_TITLE", L"Angebot 2024"},
        {L"MSO_AUTHOR", L"Erika Muster"},
        {L"MSO_SUBJECT", L"Wartungsvertrag"},
        {L"MSO_KEYWORDS", L"Angebot; Wartung"},
        {L"MSO_COMMENTS", L"Jahreswartung der Regalanlagen"},
        {L"MSO_LAST_AUTHOR", L"Erika Muster"},
        {L"MSO_COMPANY", L"Muster GmbH"},
        {L"MSO_CATEGORY", L"Angebote"},
        {L"MSO_NUMBER_OF_PAGES", L"1"},
        {L"MSO_CREATION_DATE", created},
        {L"MSO_CREATION_DATE_DATETIME", createdAt},
        {L"MSO_LAST_SAVE_TIME", saved},
        {L"MSO_LAST_SAVE_TIME_DATETIME", savedAt},
        {L"Projekt", L"Wartung Halle 3"},
        {L"Angebotsnummer", L"2024117"},
        {L"G\u00fcltig bis", validUntil},
        {L"G\u00dcLTIG_BIS_DATETIME", validUntilAt},
    };
    for (const auto& [name, value] : expected) {
        EXPECT_TRUE(Contains(handOff, ToUtf8(L"<property name=\"" + name + L"\"><![CDATA[" + value +
                                             L"]]></property>")))
            << ToUtf8(name) << " = " << ToUtf8(value) << " not in\n"
            << handOff;
    }
    // The yes/no property stays a flag and the never-printed date stays empty, as Office reports
    // them: neither is archived.
    EXPECT_FALSE(Contains(handOff, "Freigegeben")) << handOff;
    EXPECT_FALSE(Contains(handOff, "MSO_LAST_PRINT_DATE")) << handOff;
}

INSTANTIATE_TEST_SUITE_P(Samples, SampleDocumentTest,
                         testing::Values(SampleDocument{"Package", L"Angebot 2024.docx", false},
                                         SampleDocument{"CompoundFile", L"Angebot 2024.doc", true}),
                         [](const auto& info) { return std::string(info.param.label); });

struct DamagedFile {
    const char* label;
    std::string (*bytes)();
    const char* message;  // a piece of the reason given, or null: read, but holding nothing
};

std::string Sample() {
    return ReadFileBytes(TestSourcePath(L"../tools/samples/Angebot 2024.docx"));
}

// The sample with every part name holding `from` renamed (names are stored uncompressed).
std::string Renamed(const std::string& from, const std::string& to) {
    std::string bytes = Sample();
    for (size_t at = 0; (at = bytes.find(from, at)) != std::string::npos; at += to.size()) {
        bytes.replace(at, from.size(), to);
    }
    return bytes;
}

const DamagedFile kDamagedFiles[] = {
    {"Empty", [] { return std::string(); }, "it is empty"},
    {"Text", [] { return std::string("Angebot 2024\r\n"); }, "neither an Office package"},
    {"CutShort", [] { return Sample().substr(0, Sample().size() / 2); }, "no zip directory"},
    {"FlippedByte",
     [] {
         // The last part's data ends where the zip directory begins.
         std::string bytes = Sample();
         const size_t end = bytes.size() - 22;
         const size_t directory =
             static_cast<uint8_t>(bytes[end + 16]) | static_cast<uint8_t>(bytes[end + 17]) << 8;
         bytes[directory - 10] = static_cast<char>(bytes[directory - 10] ^ 0x55);
         return bytes;
     },
     "docProps/custom.xml cannot be read"},
    {"ZipWithoutRelationships", [] { return Renamed("_rels/.rels", "_rels/.relx"); },
     "no Office package"},
    // The relationships name property parts the package does not hold.
    {"NoPropertyParts", [] { return Renamed("docProps/", "docprops_"); }, nullptr},
    {"DamagedCompoundFile",
     [] { return std::string("\xD0\xCF\x11\xE0\xA1\xB1\x1A\xE1", 8) + std::string(600, 'x'); },
     "damaged compound file"},
};

void PrintTo(const DamagedFile& file, std::ostream* out) { *out << file.label; }
void PrintTo(const SampleDocument& document, std::ostream* out) { *out << document.label; }

class DamagedFileTest : public testing::TestWithParam<DamagedFile> {};

TEST_P(DamagedFileTest, SaysWhatIsWrongInsteadOfReading) {
    ScratchFolder folder;
    const std::wstring path = folder / L"Angebot 2024.docx";
    WriteFileBytes(path, GetParam().bytes());
    if (!GetParam().message) {
        EXPECT_TRUE(ReadDocumentFileProperties(path).Empty());
        return;
    }
    try {
        ReadDocumentFileProperties(path);
        ADD_FAILURE() << "read without complaint";
    } catch (const DocumentFileError& error) {
        EXPECT_TRUE(Contains(error.what(), GetParam().message)) << error.what();
    }
}

INSTANTIATE_TEST_SUITE_P(Files, DamagedFileTest, testing::ValuesIn(kDamagedFiles),
                         [](const auto& info) { return std::string(info.param.label); });

}  // namespace
