#include <gtest/gtest.h>

#include <windows.h>

#include <algorithm>
#include <ctime>
#include <ostream>
#include <string>
#include <vector>

#include "addin/commands/ArchiveCommands.h"
#include "addin/commands/HostCaptureRoutines.h"
#include "capture/office/OfficeDocumentCapture.h"
#include "common/BoundedFormat.h"
#include "common/HostKind.h"
#include "common/UniqueResource.h"
#include "support/ConnectorRecord.h"
#include "support/FakeOffice.h"
#include "support/RegistrySandbox.h"
#include "support/TestFiles.h"
#include "support/WindowWatcher.h"

namespace {

using FaultStyle = FakeDispatch::FaultStyle;
using CallKind = FakeDispatch::CallKind;

// An error the hosts raise from inside a call.
constexpr HRESULT kHostError = static_cast<HRESULT>(0x800A13BA);

const char* HostLabel(int32_t host) {
    return host == kHostWord ? "Word" : host == kHostExcel ? "Excel" : "PowerPoint";
}

std::string HostName(const testing::TestParamInfo<int32_t>& info) { return HostLabel(info.param); }

const wchar_t* EntryLine(int32_t host) {
    // PowerPoint's entry line is spelled this way on purpose.
    return host == kHostWord    ? L"[INF] Entering SaveWordDocument\n"
           : host == kHostExcel ? L"[INF] Entering SaveExcelDocument\n"
                                : L"[INF] Entering SavePoerPointDocument\n";
}

const wchar_t* ExitLine(int32_t host) {
    return host == kHostWord    ? L"[INF] Leave SaveWordDocument\n"
           : host == kHostExcel ? L"[INF] Leave SaveExcelDocument\n"
                                : L"[INF] Leave SavePowerPointDocument\n";
}

unsigned Now() { return static_cast<unsigned>(_time64(nullptr)); }

// The value of `text` read as upper-case hexadecimal digits (at most eight), or nothing.
bool ParseUpperHex(const std::wstring& text, unsigned& value) {
    if (text.empty() || text.size() > 8) {
        return false;
    }
    value = 0;
    for (wchar_t c : text) {
        if (c >= L'0' && c <= L'9') {
            value = value * 16 + static_cast<unsigned>(c - L'0');
        } else if (c >= L'A' && c <= L'F') {
            value = value * 16 + static_cast<unsigned>(c - L'A' + 10);
        } else {
            return false;
        }
    }
    return true;
}

// Compares file contents without printing kilobytes of package bytes on a mismatch.
testing::AssertionResult SameBytes(const std::string& actual, const std::string& expected) {
    if (actual == expected) {
        return testing::AssertionSuccess();
    }
    return testing::AssertionFailure() << "the contents differ: " << actual.size()
                                       << " bytes where " << expected.size() << " were expected";
}

std::wstring FolderOf(const std::wstring& path) { return path.substr(0, path.rfind(L'\\') + 1); }
std::wstring NameOf(const std::wstring& path) { return path.substr(path.rfind(L'\\') + 1); }

std::wstring TextOf(const VARIANT& value) {
    return value.vt == VT_BSTR && value.bstrVal ? value.bstrVal : L"<not a text>";
}

// The entries of `folder` (with trailing backslash), in the file system's order.
std::vector<std::wstring> Listing(const std::wstring& folder) {
    std::vector<std::wstring> names;
    WIN32_FIND_DATAW found;
    UniqueFindHandle find(FindFirstFileW((folder + L"*").c_str(), &found));
    if (!find) {
        return names;
    }
    do {
        std::wstring name = found.cFileName;
        if (name != L"." && name != L"..") {
            names.push_back(name);
        }
    } while (FindNextFileW(find.get(), &found));
    std::sort(names.begin(), names.end());
    return names;
}

// The arguments of the `nth` call (from 1) of `member`, as recorded.
const FakeDispatch::Args& ArgumentsOf(const FakeDispatch& object, const std::wstring& member,
                                      size_t nth) {
    static const FakeDispatch::Args none;
    size_t seen = 0;
    for (const FakeDispatch::CallRecord& call : object.Calls()) {
        if (call.member == member && ++seen == nth) {
            return call.args;
        }
    }
    ADD_FAILURE() << "no call " << nth << " of " << ToUtf8(member);
    return none;
}

struct Capture {
    HRESULT hr = E_UNEXPECTED;
    std::wstring path;
    PropertyMap map;
};

class OfficeCaptureTest : public testing::Test {
protected:
    static Capture Run(FakeOffice& office, int32_t majorVersion = 16) {
        auto save = office.HostKind() == kHostWord    ? SaveWordDocument
                    : office.HostKind() == kHostExcel ? SaveExcelDocument
                                                      : SavePowerPointDocument;
        PathBuffer path{};
        Capture capture;
        capture.hr = save(&office.Application(), path, capture.map, majorVersion);
        capture.path = path.data();
        return capture;
    }
    // The one staging folder made so far, with its trailing backslash.
    std::wstring OnlyStagingFolder() const {
        std::vector<std::wstring> folders = Listing(m_temp.Inbox());
        EXPECT_EQ(folders.size(), 1u);
        return folders.empty() ? std::wstring() : m_temp.Inbox() + folders[0] + L"\\";
    }
    std::wstring Document(const FakeOffice& office, const std::wstring& base = L"Angebot 2024") {
        return m_documents / (base + L"." + office.Extension());
    }
    std::wstring Value(const Capture& capture, const wchar_t* name) const {
        const PropertyEntry* entry = capture.map.Find(name);
        return entry ? entry->value : L"<missing>";
    }

    TempDirectoryOverride m_temp;
    ScratchFolder m_documents;
    LogCapture m_log;
};

// --- Where the staged copy comes from and what it is called.

enum class Start { Saved, ReadOnly, Unsaved };

struct FirstSaveRow {
    const char* label;
    int32_t host;
    Start start;
    const wchar_t* name;
    int32_t version;
    const wchar_t* extension;
};

// Names the row in test listings by its label rather than by its bytes.
void PrintTo(const FirstSaveRow& row, std::ostream* out) { *out << row.label; }

class FirstSaveTest : public OfficeCaptureTest, public testing::WithParamInterface<FirstSaveRow> {};

TEST_P(FirstSaveTest, GoesToATimeNamedFileInTheStagingFolderAndTheCopyGetsADistinctName) {
    const FirstSaveRow& row = GetParam();
    FakeOffice office(row.host);
    if (row.start == Start::Unsaved) {
        office.StartUnsaved(row.name);
    } else {
        office.OpenFrom(m_documents / row.name, true);
    }

    const unsigned before = Now();
    Capture capture = Run(office, row.version);
    const unsigned after = Now();

    ASSERT_EQ(capture.hr, S_OK) << m_log.Text();
    const std::wstring folder = OnlyStagingFolder();
    const FakeDispatch::Args& first = ArgumentsOf(office.Document(), L"SaveAs", 1);
    // Word's first save is given the same five arguments as its copy: out of the recent files.
    ASSERT_EQ(first.size(), row.host == kHostWord ? 5u : 1u);
    const std::wstring temporary = TextOf(first[0]);
    // "dorvane_" + eight upper-case hex digits of the time + "." + the extension.
    ASSERT_EQ(FolderOf(temporary), folder);
    const std::wstring temporaryName = NameOf(temporary);
    const std::wstring suffix = std::wstring(L".") + row.extension;
    ASSERT_EQ(temporaryName.size(), 16 + suffix.size()) << temporaryName;
    EXPECT_EQ(temporaryName.substr(0, 8), L"dorvane_");
    EXPECT_EQ(temporaryName.substr(16), suffix);
    unsigned time = 0;
    ASSERT_TRUE(ParseUpperHex(temporaryName.substr(8, 8), time)) << temporaryName;
    EXPECT_GE(time, before);
    EXPECT_LE(time, after);
    EXPECT_TRUE(m_log.Contains(L"[INF] Temporary file to save initially created document is " +
                               temporary + L"\n"))
        << m_log.Text();

    // The document now lives in that file, so its copy is "<time in hex>_" + the same name.
    ASSERT_EQ(FolderOf(capture.path), folder);
    const std::wstring stagedName = NameOf(capture.path);
    const size_t underscore = stagedName.find(L'_');
    ASSERT_NE(underscore, std::wstring::npos) << stagedName;
    EXPECT_EQ(stagedName.substr(underscore + 1), temporaryName);
    ASSERT_TRUE(ParseUpperHex(stagedName.substr(0, underscore), time)) << stagedName;
    EXPECT_GE(time, before);
    EXPECT_LE(time, after);

    EXPECT_TRUE(SameBytes(ReadFileBytes(capture.path), office.Content()));
    EXPECT_TRUE(SameBytes(ReadFileBytes(temporary), office.Content()));
    EXPECT_EQ(office.Document().CallCount(L"Save"), 0u);
}

INSTANTIATE_TEST_SUITE_P(
    Names, FirstSaveTest,
    testing::Values(
        FirstSaveRow{"WordNewFrom12", kHostWord, Start::Unsaved, L"Dokument1", 12, L"docx"},
        FirstSaveRow{"WordNewBefore12", kHostWord, Start::Unsaved, L"Dokument1", 11, L"doc"},
        FirstSaveRow{"ExcelNewFrom12", kHostExcel, Start::Unsaved, L"Mappe1", 12, L"xlsx"},
        FirstSaveRow{"ExcelNewBefore12", kHostExcel, Start::Unsaved, L"Mappe1", 11, L"xls"},
        FirstSaveRow{"PowerPointNewFrom12", kHostPowerPoint, Start::Unsaved, L"Pr\u00E4sentation1",
                     12, L"pptx"},
        FirstSaveRow{"PowerPointNewBefore12", kHostPowerPoint, Start::Unsaved,
                     L"Pr\u00E4sentation1", 11, L"ppt"},
        // Word knows four extensions, in all lower or all upper case; the rest is "doc".
        FirstSaveRow{"WordUpperCase", kHostWord, Start::ReadOnly, L"Report.DOCX", 16, L"docx"},
        FirstSaveRow{"WordMixedCase", kHostWord, Start::ReadOnly, L"Report.Docx", 16, L"doc"},
        FirstSaveRow{"WordTemplate", kHostWord, Start::ReadOnly, L"Vorlage.dotm", 11, L"dotm"},
        FirstSaveRow{"WordOtherFormat", kHostWord, Start::ReadOnly, L"Report.rtf", 16, L"doc"},
        FirstSaveRow{"WordLastDotOnly", kHostWord, Start::ReadOnly, L"Report.docx.bak", 16, L"doc"},
        // Excel and PowerPoint take whatever follows the last dot, as it is.
        FirstSaveRow{"ExcelMacros", kHostExcel, Start::ReadOnly, L"Umsatz.xlsm", 11, L"xlsm"},
        FirstSaveRow{"ExcelLastDot", kHostExcel, Start::ReadOnly, L"Umsatz.2024.XLSX", 16, L"XLSX"},
        FirstSaveRow{"PowerPointShow", kHostPowerPoint, Start::ReadOnly, L"Folien.ppsx", 16,
                     L"ppsx"}),
    [](const testing::TestParamInfo<FirstSaveRow>& info) { return info.param.label; });

class HostTest : public OfficeCaptureTest, public testing::WithParamInterface<int32_t> {};

using SavedDocumentTest = HostTest;

TEST_P(SavedDocumentTest, IsSavedInPlaceThenStagedUnderItsOwnNameInAFreshFolder) {
    const int32_t host = GetParam();
    FakeOffice office(host);
    const std::wstring original = Document(office);
    office.OpenFrom(original);
    office.Edit(office.RevisedSample());

    Capture capture = Run(office);

    ASSERT_EQ(capture.hr, S_OK) << m_log.Text();
    const std::wstring folder = OnlyStagingFolder();
    EXPECT_EQ(capture.path, folder + NameOf(original));
    EXPECT_EQ(Listing(folder), std::vector<std::wstring>{NameOf(original)});
    // The edits went into the document's own file first, and the copy is that file.
    EXPECT_EQ(office.Document().CallCount(L"Save"), 1u);
    EXPECT_TRUE(SameBytes(ReadFileBytes(original),
                          ReadFileBytes(FakeOffice::SamplePath(office.RevisedSample()))));
    EXPECT_TRUE(SameBytes(ReadFileBytes(capture.path), ReadFileBytes(original)));
    EXPECT_FALSE(m_log.Contains(L"Temporary file")) << m_log.Text();

    const std::wstring log = m_log.Text();
    const size_t entry = log.find(EntryLine(host));
    ASSERT_NE(entry, std::wstring::npos) << log;
    EXPECT_NE(log.find(ExitLine(host), entry), std::wstring::npos) << log;
    EXPECT_EQ(log.find(L"[ERR]"), std::wstring::npos) << log;
}

TEST_P(SavedDocumentTest, ACopyMadeWithItsHostsOwnMethod) {
    const int32_t host = GetParam();
    FakeOffice office(host);
    office.OpenFrom(Document(office));

    Capture capture = Run(office);

    ASSERT_EQ(capture.hr, S_OK) << m_log.Text();
    FakeDispatch& document = office.Document();
    if (host == kHostWord) {
        // File, format omitted (the document keeps its own), LockComments, Password,
        // AddToRecentFiles: staging folders stay out of the recent files.
        const FakeDispatch::Args& args = ArgumentsOf(document, L"SaveAs", 1);
        ASSERT_EQ(args.size(), 5u);
        EXPECT_EQ(TextOf(args[0]), capture.path);
        EXPECT_EQ(args[1].vt, VT_ERROR);
        EXPECT_EQ(args[1].scode, DISP_E_PARAMNOTFOUND);
        EXPECT_EQ(args[2].vt, VT_BOOL);
        EXPECT_EQ(args[2].boolVal, VARIANT_FALSE);
        EXPECT_EQ(TextOf(args[3]), L"");
        EXPECT_EQ(args[4].vt, VT_BOOL);
        EXPECT_EQ(args[4].boolVal, VARIANT_FALSE);
        EXPECT_TRUE(office.RecentFiles().empty());
        const FakeDispatch::Args& saved = ArgumentsOf(document, L"Saved", 1);
        ASSERT_EQ(saved.size(), 1u);
        EXPECT_EQ(document.CallCount(L"Saved", CallKind::Put), 1u);
        EXPECT_EQ(saved[0].vt, VT_BOOL);
        EXPECT_EQ(saved[0].boolVal, VARIANT_TRUE);
        return;
    }
    const FakeDispatch::Args& args = ArgumentsOf(document, L"SaveCopyAs", 1);
    ASSERT_EQ(args.size(), 1u);
    EXPECT_EQ(TextOf(args[0]), capture.path);
    EXPECT_EQ(document.CallCount(L"SaveAs"), 0u);
    EXPECT_EQ(document.CallCount(L"Saved"), 0u);
    // A copy leaves the document where it was.
    EXPECT_EQ(office.FullName(), Document(office));
}

INSTANTIATE_TEST_SUITE_P(Hosts, SavedDocumentTest,
                         testing::Values(kHostWord, kHostExcel, kHostPowerPoint), HostName);

using ReadOnlyDocumentTest = HostTest;

TEST_P(ReadOnlyDocumentTest, IsNeverSavedInPlace) {
    FakeOffice office(GetParam());
    const std::wstring original = Document(office);
    office.OpenFrom(original, true);
    const std::string onDisk = ReadFileBytes(original);
    office.Edit(office.RevisedSample());

    Capture capture = Run(office);

    ASSERT_EQ(capture.hr, S_OK) << m_log.Text();
    EXPECT_EQ(office.Document().CallCount(L"Save"), 0u);
    EXPECT_TRUE(SameBytes(ReadFileBytes(original), onDisk));
    for (const FakeOffice::Write& write : office.Writes()) {
        EXPECT_NE(write.file, original) << ToUtf8(write.method);
    }
    // The edited document went into the staging folder under a name of its own.
    EXPECT_EQ(FolderOf(capture.path), OnlyStagingFolder());
    EXPECT_NE(NameOf(capture.path), NameOf(original));
    EXPECT_TRUE(SameBytes(ReadFileBytes(capture.path), office.Content()));
}

INSTANTIATE_TEST_SUITE_P(Hosts, ReadOnlyDocumentTest,
                         testing::Values(kHostWord, kHostExcel, kHostPowerPoint), HostName);

using SaveCopyAsFallbackTest = HostTest;

TEST_P(SaveCopyAsFallbackTest, AFailedSaveCopyAsFallsBackToSaveAs) {
    const int32_t host = GetParam();
    FakeOffice office(host);
    office.OpenFrom(Document(office));
    office.Document().FailCall(L"SaveCopyAs", 1, kHostError, FaultStyle::Exception);

    Capture capture = Run(office);

    ASSERT_EQ(capture.hr, S_OK) << m_log.Text();
    const FakeDispatch::Args& args = ArgumentsOf(office.Document(), L"SaveAs", 1);
    ASSERT_EQ(args.size(), 1u);
    EXPECT_EQ(TextOf(args[0]), capture.path);
    EXPECT_TRUE(SameBytes(ReadFileBytes(capture.path), office.Content()));
    // SaveAs takes the document along into the staging folder.
    EXPECT_EQ(office.FullName(), capture.path);
    const std::wstring log = m_log.Text();
    if (host == kHostExcel) {
        EXPECT_NE(log.find(L"[ERR] Can not SaveCopyAs active document! hr = 0x800A13BA\n"),
                  std::wstring::npos)
            << log;
    } else {
        // PowerPoint falls back without a word.
        EXPECT_EQ(log.find(L"[ERR]"), std::wstring::npos) << log;
    }
    EXPECT_NE(log.find(ExitLine(host)), std::wstring::npos) << log;
}

INSTANTIATE_TEST_SUITE_P(Hosts, SaveCopyAsFallbackTest,
                         testing::Values(kHostExcel, kHostPowerPoint), HostName);

using TwoArchivesTest = HostTest;

TEST_P(TwoArchivesTest, LandInDifferentFoldersAndEachKeepsItsOwnCopy) {
    const int32_t host = GetParam();
    FakeOffice office(host);
    office.OpenFrom(Document(office));

    Capture first = Run(office);
    office.Edit(office.RevisedSample());
    Capture second = Run(office);

    ASSERT_EQ(first.hr, S_OK);
    ASSERT_EQ(second.hr, S_OK);
    EXPECT_NE(FolderOf(first.path), FolderOf(second.path));
    EXPECT_EQ(NameOf(first.path), NameOf(second.path));
    EXPECT_EQ(Listing(m_temp.Inbox()).size(), 2u);
    EXPECT_TRUE(SameBytes(ReadFileBytes(first.path),
                          ReadFileBytes(FakeOffice::SamplePath(office.Sample()))));
    EXPECT_TRUE(SameBytes(ReadFileBytes(second.path),
                          ReadFileBytes(FakeOffice::SamplePath(office.RevisedSample()))));
}

INSTANTIATE_TEST_SUITE_P(Hosts, TwoArchivesTest, testing::Values(kHostExcel, kHostPowerPoint),
                         HostName);

// Word writes its copy with SaveAs, which takes the document along into the staging folder; the
// next archive's Save in place therefore writes into the first staged copy.
TEST_F(OfficeCaptureTest, WordReturnsToItsOwnFileSoASecondArchiveLeavesTheFirstCopyAlone) {
    FakeOffice office(kHostWord);
    const std::wstring original = Document(office);
    office.OpenFrom(original);
    const std::string sample = ReadFileBytes(FakeOffice::SamplePath(office.Sample()));
    const std::string revised = ReadFileBytes(FakeOffice::SamplePath(office.RevisedSample()));

    Capture first = Run(office);
    // The copy's SaveAs moved the document into the staging folder; it was saved back home.
    EXPECT_EQ(office.FullName(), original);
    office.Edit(office.RevisedSample());
    Capture second = Run(office);

    ASSERT_EQ(first.hr, S_OK);
    ASSERT_EQ(second.hr, S_OK);
    EXPECT_NE(FolderOf(first.path), FolderOf(second.path));
    EXPECT_TRUE(SameBytes(ReadFileBytes(first.path), sample));
    EXPECT_TRUE(SameBytes(ReadFileBytes(second.path), revised));
    EXPECT_TRUE(SameBytes(ReadFileBytes(original), revised));
    EXPECT_EQ(office.FullName(), original);
    ASSERT_EQ(office.Writes().size(), 6u);
    EXPECT_EQ(office.Writes()[3].method, L"Save");
    EXPECT_EQ(office.Writes()[3].file, original);
}

TEST_F(OfficeCaptureTest, ADocumentLivingInTheStagingAreaIsSavedAnewNotInPlace) {
    FakeOffice office(kHostExcel);
    office.StartUnsaved(L"Mappe1");
    Capture first = Run(office);
    ASSERT_EQ(first.hr, S_OK);
    // The never-saved workbook now lives in the first staging folder.
    ASSERT_EQ(FolderOf(office.FullName()), FolderOf(first.path));
    const std::string firstCopy = ReadFileBytes(first.path);
    office.Edit(office.RevisedSample());

    Capture second = Run(office);

    ASSERT_EQ(second.hr, S_OK);
    EXPECT_NE(FolderOf(first.path), FolderOf(second.path));
    EXPECT_EQ(ReadFileBytes(first.path), firstCopy);
    EXPECT_EQ(office.Document().CallCount(L"Save"), 0u);
}

// --- Properties collected with the document.

TEST_F(OfficeCaptureTest, CustomPropertiesComeFirstSoTheBuiltInTitleWins) {
    FakeOffice office(kHostExcel);
    office.OpenFrom(Document(office));
    const Variant due = DateValue(2024, 6, 28, 12, 0, 0);
    office.CustomProperties()
        .Add(L"MSO_TITLE", Variant(L"vom Nutzer"))
        .Add(L"Due date", due)
        .Add(L"Vertraulich", Variant(true));
    office.BuiltInProperties()
        .Add(L"Title", Variant(L"Umsatz 2024"))
        .Add(L"Number of pages", Variant(int32_t{12}))
        .Add(L"Last print date", Variant());

    Capture capture = Run(office);

    ASSERT_EQ(capture.hr, S_OK);
    EXPECT_EQ(Value(capture, L"MSO_TITLE"), L"Umsatz 2024");
    EXPECT_EQ(Value(capture, L"MSO_NUMBER_OF_PAGES"), L"12");
    EXPECT_NE(capture.map.Find(L"Due date"), nullptr);
    EXPECT_NE(capture.map.Find(L"DUE_DATE_DATETIME"), nullptr);
    EXPECT_EQ(capture.map.Find(L"Vertraulich"), nullptr);
    EXPECT_EQ(capture.map.Find(L"MSO_LAST_PRINT_DATE"), nullptr);
    EXPECT_EQ(capture.map.size(), 4u);
    const std::wstring log = m_log.Text();
    const size_t custom = log.find(L"[INF] Collect property MSO_TITLE value vom Nutzer\n");
    const size_t builtIn = log.find(L"[INF] Collect property MSO_TITLE value Umsatz 2024\n");
    ASSERT_NE(custom, std::wstring::npos) << log;
    ASSERT_NE(builtIn, std::wstring::npos) << log;
    EXPECT_LT(custom, builtIn);
    // An empty print date is announced, then left out without a word.
    EXPECT_NE(log.find(L"[INF] Found property MSO_LAST_PRINT_DATE typ 0\n"), std::wstring::npos);
    EXPECT_EQ(log.find(L"Collect property MSO_LAST_PRINT_DATE"), std::wstring::npos) << log;
    EXPECT_EQ(log.find(L"Collect property Vertraulich"), std::wstring::npos) << log;
}

TEST_F(OfficeCaptureTest, ADocumentWithoutCustomPropertiesStillGivesItsBuiltIns) {
    FakeOffice office(kHostPowerPoint);
    office.OpenFrom(Document(office));
    office.BuiltInProperties()
        .Add(L"Title", Variant(L"Quartalsbericht"))
        .Add(L"Author", Variant(L"Erika Beispiel"));

    Capture capture = Run(office);

    ASSERT_EQ(capture.hr, S_OK);
    EXPECT_EQ(Value(capture, L"MSO_TITLE"), L"Quartalsbericht");
    EXPECT_EQ(Value(capture, L"MSO_AUTHOR"), L"Erika Beispiel");
    // The custom collection is read first and found empty.
    const std::wstring log = m_log.Text();
    const size_t none = log.find(L"[INF] Count of properties 0\n");
    const size_t warning = log.find(L"[WRN] Properties are not defined!\n");
    const size_t builtIns = log.find(L"[INF] Count of properties 2\n");
    ASSERT_NE(none, std::wstring::npos) << log;
    ASSERT_NE(warning, std::wstring::npos) << log;
    ASSERT_NE(builtIns, std::wstring::npos) << log;
    EXPECT_LT(none, warning);
    EXPECT_LT(warning, builtIns);
}

// --- The whole archive command, from the ribbon button to the connector.

class NoAttachmentChoice : public AttachmentChooser {
public:
    int ChooseAttachments(AttachmentList&) override {
        ADD_FAILURE() << "an Office document has no attachments to choose";
        return 0;
    }
};

class OfficeArchiveTest : public OfficeCaptureTest {
protected:
    void SetUp() override {
        m_registry.SetMachineTargets({StorageTarget(L"Rechnungen", L"42", L"7")});
    }
    void Archive(FakeOffice& office, int32_t majorVersion = 16) {
        CommandContext context{office.HostKind(), majorVersion, &office.Application(), m_captures,
                               m_chooser};
        OnArchive(context);
    }
    std::wstring Url(int32_t host, const std::wstring& folder) const {
        return L"talvorn:\\\\di$appid=42$configid=7$startapp=" + std::to_wstring(host) +
               L"$files=" + folder;
    }

    RegistrySandbox m_registry;
    // Made after the temporary directory moved: the connector writes into the new one.
    ConnectorRecord m_connector;
    CHostCaptureRoutines m_captures;
    NoAttachmentChoice m_chooser;
};

// The names of the properties of a hand-off document, in the order they stand.
std::vector<std::wstring> PropertyNames(const std::wstring& xml) {
    std::vector<std::wstring> names;
    const std::wstring open = L"<property name=\"";
    for (size_t at = xml.find(open); at != std::wstring::npos; at = xml.find(open, at)) {
        at += open.size();
        names.push_back(xml.substr(at, xml.find(L'"', at) - at));
    }
    return names;
}

class HostArchiveTest : public OfficeArchiveTest, public testing::WithParamInterface<int32_t> {};

TEST_P(HostArchiveTest, HandsTheStagedCopyWithItsPropertiesToTheConnector) {
    const int32_t host = GetParam();
    FakeOffice office(host);
    const std::wstring original = Document(office);
    office.OpenFrom(original);
    office.CustomProperties()
        .Add(L"Projekt", Variant(L"Apollo"))
        .Add(L"abteilung", Variant(L"Vertrieb"))
        .Add(L"\u00C4nderung", Variant(L"Erika"))
        .Add(L"Due date", DateValue(2024, 6, 28, 9, 0, 0))
        .Add(L"Vertraulich", Variant(true));
    office.BuiltInProperties()
        .Add(L"Title", Variant(L"Angebot 2024"))
        .Add(L"Author", Variant(L"Erika Beispiel"))
        .Add(L"Creation date", DateValue(2024, 3, 1, 9, 30, 0))
        .Add(L"Number of pages", Variant(int32_t{12}))
        .Add(L"Last print date", Variant())
        .Add(L"Template", Variant(L"Normal.dotm"));
    const RefCountList before = office.RefCounts();
    WindowWatcher watcher;

    Archive(office);

    watcher.Verify();
    const std::wstring folder = OnlyStagingFolder();
    ASSERT_FALSE(folder.empty());
    const std::wstring id = NameOf(folder.substr(0, folder.size() - 1));
    const std::wstring staged = folder + NameOf(original);
    EXPECT_EQ(m_connector.WaitForUrls(1), std::vector<std::wstring>{Url(host, id)});
    EXPECT_TRUE(SameBytes(ReadFileBytes(staged), ReadFileBytes(original)));

    const std::wstring xml = FromUtf8(ReadFileBytes(folder + id + L".xml"));
    // Plain UTF-16 code-unit order: upper case before lower case, "Ä" after both, a name before
    // the longer names it begins.
    EXPECT_EQ(PropertyNames(xml),
              (std::vector<std::wstring>{L"DUE_DATE_DATETIME", L"Due date", L"MSO_AUTHOR",
                                         L"MSO_CREATION_DATE", L"MSO_CREATION_DATE_DATETIME",
                                         L"MSO_NUMBER_OF_PAGES", L"MSO_TITLE", L"Projekt",
                                         L"abteilung", L"\u00C4nderung"}));
    EXPECT_NE(xml.find(L"<property name=\"MSO_NUMBER_OF_PAGES\"><![CDATA[12]]></property>"),
              std::wstring::npos)
        << xml;
    EXPECT_NE(xml.find(L"<path>" + staged + L"</path>"), std::wstring::npos) << xml;
    EXPECT_EQ(office.RefCounts(), before);
}

INSTANTIATE_TEST_SUITE_P(Hosts, HostArchiveTest,
                         testing::Values(kHostWord, kHostExcel, kHostPowerPoint), HostName);

// --- A failing object-model call, alone and through the archive command.

struct FailureRow {
    const char* label;
    int32_t host;
    Start start;
    bool onApplication;  // else on the document
    const wchar_t* member;
    int nth;
    const wchar_t* alsoFailing;  // a second document member failing on every call, or null
    const wchar_t* line;         // the error line, "%08X" standing for the status
    bool fatal;
};

void PrintTo(const FailureRow& row, std::ostream* out) { *out << row.label; }

class CaptureFailureTest : public OfficeArchiveTest,
                           public testing::WithParamInterface<FailureRow> {
protected:
    void Prepare(FakeOffice& office) {
        const FailureRow& row = GetParam();
        if (row.start == Start::Saved) {
            office.OpenFrom(Document(office));
        } else {
            office.StartUnsaved(L"Neu");
        }
        office.CustomProperties().Add(L"Projekt", Variant(L"Apollo"));
        office.BuiltInProperties().Add(L"Title", Variant(L"Angebot"));
        FakeDispatch& target = row.onApplication ? office.Application() : office.Document();
        target.FailCall(row.member, row.nth, kHostError, FaultStyle::Exception);
        if (row.alsoFailing) {
            office.Document().FailCallsFrom(row.alsoFailing, 1, kHostError, FaultStyle::Exception);
        }
    }
};

TEST_P(CaptureFailureTest, IsLoggedWithItsStatusAndReportedToTheUser) {
    const FailureRow& row = GetParam();
    const std::wstring line = L"[ERR] " + FormatString(row.line, kHostError);
    {
        FakeOffice office(row.host);
        Prepare(office);
        const RefCountList before = office.RefCounts();
        LogCapture log;

        Capture capture = Run(office);

        EXPECT_EQ(capture.hr, row.fatal ? kHostError : S_OK);
        EXPECT_TRUE(log.Contains(line)) << log.Text();
        EXPECT_EQ(log.Contains(ExitLine(row.host)), !row.fatal) << log.Text();
        EXPECT_EQ(FileExists(capture.path), !row.fatal);
        if (!row.fatal) {
            // The other collection is still read.
            const std::wstring member = row.member;
            EXPECT_EQ(capture.map.Find(L"Projekt") != nullptr,
                      member != L"CustomDocumentProperties");
            EXPECT_EQ(capture.map.Find(L"MSO_TITLE") != nullptr,
                      member != L"BuiltInDocumentProperties");
        }
        EXPECT_EQ(office.RefCounts(), before);
    }
    {
        FakeOffice office(row.host);
        Prepare(office);
        const RefCountList before = office.RefCounts();
        WindowWatcher watcher;
        if (row.fatal) {
            watcher.Expect(L"Fehler bei der Dokumentablage").Click(IDOK);
        }

        Archive(office);

        watcher.Verify();
        if (row.fatal) {
            std::vector<WindowWatcher::Window> seen = watcher.Seen();
            ASSERT_EQ(seen.size(), 1u);
            EXPECT_TRUE(seen[0].HasText(L"Das Dokument konnte nicht zwischengespeichert werden!"))
                << seen[0];
            EXPECT_TRUE(m_connector.Urls().empty());
        } else {
            EXPECT_EQ(m_connector.WaitForUrls(1).size(), 1u);
        }
        EXPECT_EQ(office.RefCounts(), before);
    }
}

constexpr bool kFatal = true;
constexpr bool kLogged = false;

INSTANTIATE_TEST_SUITE_P(
    Calls, CaptureFailureTest,
    testing::Values(
        FailureRow{"WordActiveDocument", kHostWord, Start::Saved, true, L"ActiveDocument", 1,
                   nullptr, L"Can't get active document! hr = 0x%08X\n", kFatal},
        FailureRow{"WordPath", kHostWord, Start::Saved, false, L"Path", 1, nullptr,
                   L"Can't get path of active document! hr = 0x%08X\n", kFatal},
        FailureRow{"WordReadOnly", kHostWord, Start::Saved, false, L"ReadOnly", 1, nullptr,
                   L"Can't get ReadOnly flag of active document! hr = 0x%08X\n", kFatal},
        FailureRow{"WordSave", kHostWord, Start::Saved, false, L"Save", 1, nullptr,
                   L"Can't save active document! hr = 0x%08X\n", kFatal},
        FailureRow{"WordNameOfNewDocument", kHostWord, Start::Unsaved, false, L"Name", 1, nullptr,
                   L"Can't get name of active document! hr = 0x%08X\n", kFatal},
        FailureRow{"WordFirstSaveAs", kHostWord, Start::Unsaved, false, L"SaveAs", 1, nullptr,
                   L"Can't save initially created document! hr = 0x%08X\n", kFatal},
        FailureRow{"WordName", kHostWord, Start::Saved, false, L"Name", 1, nullptr,
                   L"Can't get name of active document! hr = 0x%08X\n", kFatal},
        FailureRow{"WordFullName", kHostWord, Start::Saved, false, L"FullName", 1, nullptr,
                   L"Can't get name of active document! hr = 0x%08X\n", kFatal},
        FailureRow{"WordCopy", kHostWord, Start::Saved, false, L"SaveAs", 1, nullptr,
                   L"Can't save initially created document! hr = 0x%08X\n", kFatal},
        FailureRow{"WordCopyOfNewDocument", kHostWord, Start::Unsaved, false, L"SaveAs", 2, nullptr,
                   L"Can't save initially created document! hr = 0x%08X\n", kFatal},
        FailureRow{"WordCustomProperties", kHostWord, Start::Saved, false,
                   L"CustomDocumentProperties", 1, nullptr,
                   L"Can't get custom document properties! hr = 0x%08X\n", kLogged},
        FailureRow{"WordBuiltInProperties", kHostWord, Start::Saved, false,
                   L"BuiltInDocumentProperties", 1, nullptr,
                   L"Can't get built-in document properties! hr = 0x%08X\n", kLogged},
        FailureRow{"WordSavedFlag", kHostWord, Start::Saved, false, L"Saved", 1, nullptr,
                   L"Failed to set saved flag of the current word document! hr = 0x%08X\n",
                   kLogged},

        FailureRow{"ExcelActiveWorkbook", kHostExcel, Start::Saved, true, L"ActiveWorkbook", 1,
                   nullptr, L"Can't get active work book! hr = 0x%08X\n", kFatal},
        FailureRow{"ExcelPath", kHostExcel, Start::Saved, false, L"Path", 1, nullptr,
                   L"Can't get path of active document! hr = 0x%08X\n", kFatal},
        FailureRow{"ExcelReadOnly", kHostExcel, Start::Saved, false, L"ReadOnly", 1, nullptr,
                   L"Can't get ReadOnly flag of active document! hr = 0x%08X\n", kFatal},
        FailureRow{"ExcelSave", kHostExcel, Start::Saved, false, L"Save", 1, nullptr,
                   L"Can't save workbook! hr = 0x%08X\n", kFatal},
        FailureRow{"ExcelNameOfNewWorkbook", kHostExcel, Start::Unsaved, false, L"Name", 1, nullptr,
                   L"Can't get name of active workbook! hr = 0x%08X\n", kFatal},
        FailureRow{"ExcelFirstSaveAs", kHostExcel, Start::Unsaved, false, L"SaveAs", 1, nullptr,
                   L"Can't save initially created workbook! hr = 0x%08X\n", kFatal},
        FailureRow{"ExcelName", kHostExcel, Start::Saved, false, L"Name", 1, nullptr,
                   L"Can't get name of active workbook! hr = 0x%08X\n", kFatal},
        FailureRow{"ExcelCopy", kHostExcel, Start::Saved, false, L"SaveCopyAs", 1, L"SaveAs",
                   L"Failed to save active document! hr = 0x%08X\n", kFatal},
        FailureRow{"ExcelCustomProperties", kHostExcel, Start::Saved, false,
                   L"CustomDocumentProperties", 1, nullptr,
                   L"Can't get custom document properties! hr = 0x%08X\n", kLogged},
        FailureRow{"ExcelBuiltInProperties", kHostExcel, Start::Saved, false,
                   L"BuiltInDocumentProperties", 1, nullptr,
                   L"Can't get built-in document properties! hr = 0x%08X\n", kLogged},

        FailureRow{"PowerPointActivePresentation", kHostPowerPoint, Start::Saved, true,
                   L"ActivePresentation", 1, nullptr,
                   L"Can't get active presentation! hr = 0x%08X\n", kFatal},
        FailureRow{"PowerPointPath", kHostPowerPoint, Start::Saved, false, L"Path", 1, nullptr,
                   L"Can't get path of active document! hr = 0x%08X\n", kFatal},
        FailureRow{"PowerPointReadOnly", kHostPowerPoint, Start::Saved, false, L"ReadOnly", 1,
                   nullptr, L"Can't get ReadOnly flag of active document! hr = 0x%08X\n", kFatal},
        FailureRow{"PowerPointSave", kHostPowerPoint, Start::Saved, false, L"Save", 1, nullptr,
                   L"Can't save active presentation! hr = 0x%08X\n", kFatal},
        FailureRow{"PowerPointNameOfNewPresentation", kHostPowerPoint, Start::Unsaved, false,
                   L"Name", 1, nullptr, L"Can't get name of active presentation! hr = 0x%08X\n",
                   kFatal},
        FailureRow{"PowerPointFirstSaveAs", kHostPowerPoint, Start::Unsaved, false, L"SaveAs", 1,
                   nullptr, L"Can't save initially created presentation! hr = 0x%08X\n", kFatal},
        FailureRow{"PowerPointName", kHostPowerPoint, Start::Saved, false, L"Name", 1, nullptr,
                   L"Can't get name of active presentation! hr = 0x%08X\n", kFatal},
        FailureRow{"PowerPointCopy", kHostPowerPoint, Start::Saved, false, L"SaveCopyAs", 1,
                   L"SaveAs", L"Failed to save active presentation! hr = 0x%08X\n", kFatal},
        FailureRow{"PowerPointCustomProperties", kHostPowerPoint, Start::Saved, false,
                   L"CustomDocumentProperties", 1, nullptr,
                   L"Can't get custom document properties! hr = 0x%08X\n", kLogged},
        // PowerPoint reports its built-in collection with the custom collection's text.
        FailureRow{"PowerPointBuiltInProperties", kHostPowerPoint, Start::Saved, false,
                   L"BuiltInDocumentProperties", 1, nullptr,
                   L"Can't get custom document properties! hr = 0x%08X\n", kLogged}),
    [](const testing::TestParamInfo<FailureRow>& info) { return info.param.label; });

}  // namespace
