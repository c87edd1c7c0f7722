#include <gtest/gtest.h>

#include <windows.h>

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

std::string HostName(const testing::TestParamInfo<int32_t>& info) {
    return info.param == kHostWord ? "Word" : info.param == kHostExcel ? "Excel" : "PowerPoint";
}

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

// Whether `name` is `prefix`, then a time from `from` to `to` in upper-case hex, then `suffix`.
testing::AssertionResult TimeNamed(const std::wstring& name, const std::wstring& prefix,
                                   const std::wstring& suffix, unsigned from, unsigned to) {
    for (unsigned time = from; time <= to; ++time) {
        if (name == prefix + FormatString(L"%08X", time) + suffix) {
            return testing::AssertionSuccess();
        }
    }
    return testing::AssertionFailure()
           << ToUtf8(name) << " is not " << ToUtf8(prefix) << "<time>" << ToUtf8(suffix);
}

std::wstring FolderOf(const std::wstring& path) { return path.substr(0, path.rfind(L'\\') + 1); }
std::wstring NameOf(const std::wstring& path) { return path.substr(path.rfind(L'\\') + 1); }

std::wstring TextOf(const VARIANT& value) {
    return value.vt == VT_BSTR && value.bstrVal ? value.bstrVal : L"<not a text>";
}

// The entries of `folder` (with trailing backslash).
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

std::string SampleBytes(const std::wstring& sample) {
    return ReadFileBytes(FakeOffice::SamplePath(sample));
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
    std::wstring Document(const FakeOffice& office) {
        return m_documents / (std::wstring(L"Angebot 2024.") + office.Extension());
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
    const std::wstring original = m_documents / row.name;
    if (row.start == Start::Unsaved) {
        office.StartUnsaved(row.name);
    } else {
        office.OpenFrom(original, true);
    }
    office.Edit(office.RevisedSample());

    const unsigned before = Now();
    Capture capture = Run(office, row.version);
    const unsigned after = Now();

    ASSERT_EQ(capture.hr, S_OK) << m_log.Text();
    const std::wstring folder = OnlyStagingFolder();
    const FakeDispatch::Args& first = ArgumentsOf(office.Document(), L"SaveAs", 1);
    // Word's first save is given the same five arguments as its copy: out of the recent files.
    ASSERT_EQ(first.size(), row.host == kHostWord ? 5u : 1u);
    const std::wstring temporary = TextOf(first[0]);
    EXPECT_TRUE(TimeNamed(temporary, folder + L"dorvane_", std::wstring(L".") + row.extension,
                          before, after));
    EXPECT_TRUE(m_log.Contains(L"[INF] Temporary file to save initially created document is " +
                               temporary + L"\n"))
        << m_log.Text();
    // The document now lives in that file, so its copy is "<time in hex>_" + the same name.
    EXPECT_TRUE(TimeNamed(capture.path, folder, L"_" + NameOf(temporary), before, after));
    EXPECT_TRUE(ReadFileBytes(capture.path) == office.Content());
    // Never saved in place: a read-only file keeps what it held.
    EXPECT_EQ(office.Document().CallCount(L"Save"), 0u);
    if (row.start == Start::ReadOnly) {
        EXPECT_TRUE(ReadFileBytes(original) == SampleBytes(office.Sample()));
    }
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
        // Word knows four extensions, in all lower or all upper case, whatever the version; the
        // rest is "doc".
        FirstSaveRow{"WordUpperCase", kHostWord, Start::ReadOnly, L"Report.DOCX", 11, L"docx"},
        FirstSaveRow{"WordMixedCase", kHostWord, Start::ReadOnly, L"Report.Docx", 16, L"doc"},
        // Excel and PowerPoint take whatever follows the last dot, as it is.
        FirstSaveRow{"ExcelLastDot", kHostExcel, Start::ReadOnly, L"Umsatz.2024.XLSX", 11,
                     L"XLSX"}),
    [](const testing::TestParamInfo<FirstSaveRow>& info) { return info.param.label; });

// Word copies with SaveAs, which takes the document along into the staging folder: were it left
// there, the next archive's Save in place would write into the first staged copy.
TEST_F(OfficeCaptureTest, WordCopiesWithSaveAsThenReturnsSoASecondArchiveLeavesTheFirstAlone) {
    FakeOffice office(kHostWord);
    const std::wstring original = Document(office);
    office.OpenFrom(original);

    Capture first = Run(office);

    ASSERT_EQ(first.hr, S_OK) << m_log.Text();
    FakeDispatch& document = office.Document();
    // File, format omitted (the document keeps its own), LockComments, Password,
    // AddToRecentFiles: staging folders stay out of the recent files.
    const FakeDispatch::Args& copy = ArgumentsOf(document, L"SaveAs", 1);
    ASSERT_EQ(copy.size(), 5u);
    EXPECT_EQ(TextOf(copy[0]), first.path);
    // The fake refuses a format and arguments of other types, so the values are what is left.
    EXPECT_EQ(copy[2].boolVal, VARIANT_FALSE);
    EXPECT_EQ(TextOf(copy[3]), L"");
    EXPECT_EQ(copy[4].boolVal, VARIANT_FALSE);
    EXPECT_EQ(office.FullName(), original);
    const FakeDispatch::Args& saved = ArgumentsOf(document, L"Saved", 1);
    EXPECT_TRUE(saved.size() == 1 && saved[0].vt == VT_BOOL && saved[0].boolVal == VARIANT_TRUE);

    office.Edit(office.RevisedSample());
    Capture second = Run(office);

    ASSERT_EQ(second.hr, S_OK) << m_log.Text();
    EXPECT_TRUE(ReadFileBytes(first.path) == SampleBytes(office.Sample()));
    EXPECT_TRUE(ReadFileBytes(second.path) == SampleBytes(office.RevisedSample()));
    EXPECT_TRUE(ReadFileBytes(original) == SampleBytes(office.RevisedSample()));
}

TEST_F(OfficeCaptureTest, ADocumentLivingInTheStagingAreaIsSavedAnewNotInPlace) {
    FakeOffice office(kHostExcel);
    Capture first = Run(office);
    ASSERT_EQ(first.hr, S_OK) << m_log.Text();
    // The never-saved workbook now lives in the first staging folder.
    ASSERT_EQ(FolderOf(office.FullName()), FolderOf(first.path));

    Capture second = Run(office);

    ASSERT_EQ(second.hr, S_OK) << m_log.Text();
    EXPECT_EQ(office.Document().CallCount(L"Save"), 0u);
    EXPECT_EQ(office.Document().CallCount(L"SaveAs"), 2u);
}

TEST_F(OfficeCaptureTest, ADocumentWithoutCustomPropertiesWarnsAndStillGivesItsBuiltIns) {
    FakeOffice office(kHostPowerPoint);
    office.OpenFrom(Document(office));
    office.BuiltInProperties().Add(L"Title", Variant(L"Quartalsbericht"));

    Capture capture = Run(office);

    ASSERT_EQ(capture.hr, S_OK) << m_log.Text();
    const PropertyEntry* title = capture.map.Find(L"MSO_TITLE");
    ASSERT_NE(title, nullptr);
    EXPECT_EQ(title->value, L"Quartalsbericht");
    EXPECT_TRUE(m_log.Contains(L"[WRN] Properties are not defined!\n")) << m_log.Text();
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
    void Archive(FakeOffice& office) {
        CommandContext context{office.HostKind(), 16, &office.Application(), m_captures, m_chooser};
        OnArchive(context);
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

TEST_P(HostArchiveTest, SavesInPlaceThenHandsACopyUnderItsOwnNameAndItsPropertiesToTheConnector) {
    const int32_t host = GetParam();
    FakeOffice office(host);
    const std::wstring original = Document(office);
    office.OpenFrom(original);
    office.Edit(office.RevisedSample());
    // Custom properties are read first, so a custom "MSO_TITLE" gives way to the built-in title.
    office.CustomProperties()
        .Add(L"MSO_TITLE", Variant(L"vom Nutzer"))
        .Add(L"Due date", DateValue(2024, 6, 28, 9, 0, 0))
        .Add(L"Vertraulich", Variant(true));
    office.BuiltInProperties()
        .Add(L"Title", Variant(L"Angebot 2024"))
        .Add(L"Number of pages", Variant(int32_t{12}))
        .Add(L"Last print date", Variant());
    const RefCountList before = office.RefCounts();
    WindowWatcher watcher;

    Archive(office);

    watcher.Verify();
    EXPECT_EQ(office.RefCounts(), before);
    const std::wstring folder = OnlyStagingFolder();
    const std::wstring id = NameOf(folder.substr(0, folder.size() - 1));
    EXPECT_EQ(m_connector.WaitForUrls(1),
              std::vector<std::wstring>{L"talvorn:\\\\di$appid=42$configid=7$startapp=" +
                                        std::to_wstring(host) + L"$files=" + id});
    // The edits went into the document's own file first; the folder holds a copy of that file and
    // the hand-off document, nothing else.
    const std::wstring staged = folder + NameOf(original);
    FakeDispatch& document = office.Document();
    EXPECT_EQ(document.CallCount(L"Save"), 1u);
    EXPECT_TRUE(ReadFileBytes(original) == SampleBytes(office.RevisedSample()));
    EXPECT_TRUE(ReadFileBytes(staged) == ReadFileBytes(original));
    EXPECT_EQ(Listing(folder).size(), 2u);
    if (host != kHostWord) {
        // A copy that leaves the document where it is, not marked saved.
        const FakeDispatch::Args& args = ArgumentsOf(document, L"SaveCopyAs", 1);
        ASSERT_EQ(args.size(), 1u);
        EXPECT_EQ(TextOf(args[0]), staged);
        EXPECT_EQ(document.CallCount(L"SaveAs"), 0u);
        EXPECT_EQ(document.CallCount(L"Saved", CallKind::Put), 0u);
    }
    const std::wstring log = m_log.Text();
    const size_t entry = log.find(EntryLine(host));
    ASSERT_NE(entry, std::wstring::npos) << log;
    EXPECT_NE(log.find(ExitLine(host), entry), std::wstring::npos) << log;
    EXPECT_EQ(log.find(L"[ERR]"), std::wstring::npos) << log;

    const std::wstring xml = FromUtf8(ReadFileBytes(folder + id + L".xml"));
    EXPECT_EQ(PropertyNames(xml),
              (std::vector<std::wstring>{L"DUE_DATE_DATETIME", L"Due date", L"MSO_NUMBER_OF_PAGES",
                                         L"MSO_TITLE"}));
    for (const std::wstring& part :
         {std::wstring(L"<property name=\"MSO_NUMBER_OF_PAGES\"><![CDATA[12]]></property>"),
          std::wstring(L"<property name=\"MSO_TITLE\"><![CDATA[Angebot 2024]]></property>"),
          L"<path>" + staged + L"</path>"}) {
        EXPECT_NE(xml.find(part), std::wstring::npos) << ToUtf8(part) << "\n" << ToUtf8(xml);
    }
}

INSTANTIATE_TEST_SUITE_P(Hosts, HostArchiveTest,
                         testing::Values(kHostWord, kHostExcel, kHostPowerPoint), HostName);

// --- A failing object-model call, alone and through the archive command.

struct FailureRow {
    const char* label;
    int32_t host;
    Start start;
    const wchar_t* member;       // of the Application for its active document, else of that
    const wchar_t* alsoFailing;  // a second document member failing on every call, or null
    const wchar_t* line;         // the error line; null: none
    bool fatal;
};

void PrintTo(const FailureRow& row, std::ostream* out) { *out << row.label; }

class CaptureFailureTest : public OfficeArchiveTest,
                           public testing::WithParamInterface<FailureRow> {};

// The capture is run alone, then through the archive command on the same document.
TEST_P(CaptureFailureTest, IsLoggedWithItsStatusAndReportedToTheUser) {
    const FailureRow& row = GetParam();
    FakeOffice office(row.host);
    if (row.start == Start::Saved) {
        office.OpenFrom(Document(office));
    }
    office.CustomProperties().Add(L"Projekt", Variant(L"Apollo"));
    office.BuiltInProperties().Add(L"Title", Variant(L"Angebot"));
    FakeDispatch& target = row.member == std::wstring(office.ActiveMember()) ? office.Application()
                                                                             : office.Document();
    target.FailCallsFrom(row.member, 1, kHostError, FaultStyle::Exception);
    if (row.alsoFailing) {
        office.Document().FailCallsFrom(row.alsoFailing, 1, kHostError, FaultStyle::Exception);
    }
    const RefCountList before = office.RefCounts();
    WindowWatcher watcher;
    if (row.fatal) {
        watcher.Expect(L"Fehler bei der Dokumentablage").Click(IDOK);
    }

    Capture capture = Run(office);
    Archive(office);

    watcher.Verify();
    EXPECT_EQ(capture.hr, row.fatal ? kHostError : S_OK);
    const std::wstring log = m_log.Text();
    if (row.line) {
        EXPECT_NE(log.find(L"[ERR] " + std::wstring(row.line)), std::wstring::npos) << log;
    } else {
        EXPECT_EQ(log.find(L"[ERR]"), std::wstring::npos) << log;
    }
    EXPECT_EQ(log.find(ExitLine(row.host)) != std::wstring::npos, !row.fatal) << log;
    EXPECT_EQ(FileExists(capture.path), !row.fatal);
    EXPECT_EQ(office.RefCounts(), before);
    if (row.fatal) {
        std::vector<WindowWatcher::Window> seen = watcher.Seen();
        ASSERT_EQ(seen.size(), 1u);
        EXPECT_TRUE(seen[0].HasText(L"Das Dokument konnte nicht zwischengespeichert werden!"))
            << seen[0];
        EXPECT_TRUE(m_connector.Urls().empty());
    } else {
        EXPECT_EQ(m_connector.WaitForUrls(1).size(), 1u);
        // The other collection is still read.
        const std::wstring member = row.member;
        EXPECT_EQ(capture.map.Find(L"Projekt") != nullptr, member != L"CustomDocumentProperties");
        EXPECT_EQ(capture.map.Find(L"MSO_TITLE") != nullptr,
                  member != L"BuiltInDocumentProperties");
    }
}

constexpr bool kFatal = true;
constexpr bool kLogged = false;

// Each call once, wherever its host's wording is the only difference.
INSTANTIATE_TEST_SUITE_P(
    Calls, CaptureFailureTest,
    testing::Values(
        FailureRow{"ActiveDocument", kHostExcel, Start::Saved, L"ActiveWorkbook", nullptr,
                   L"Can't get active work book! hr = 0x800A13BA\n", kFatal},
        FailureRow{"Path", kHostWord, Start::Saved, L"Path", nullptr,
                   L"Can't get path of active document! hr = 0x800A13BA\n", kFatal},
        FailureRow{"ReadOnly", kHostPowerPoint, Start::Saved, L"ReadOnly", nullptr,
                   L"Can't get ReadOnly flag of active document! hr = 0x800A13BA\n", kFatal},
        FailureRow{"Save", kHostExcel, Start::Saved, L"Save", nullptr,
                   L"Can't save workbook! hr = 0x800A13BA\n", kFatal},
        FailureRow{"NameOfNewDocument", kHostPowerPoint, Start::Unsaved, L"Name", nullptr,
                   L"Can't get name of active presentation! hr = 0x800A13BA\n", kFatal},
        FailureRow{"FirstSaveAs", kHostWord, Start::Unsaved, L"SaveAs", nullptr,
                   L"Can't save initially created document! hr = 0x800A13BA\n", kFatal},
        FailureRow{"Name", kHostExcel, Start::Saved, L"Name", nullptr,
                   L"Can't get name of active workbook! hr = 0x800A13BA\n", kFatal},
        FailureRow{"WordFullName", kHostWord, Start::Saved, L"FullName", nullptr,
                   L"Can't get name of active document! hr = 0x800A13BA\n", kFatal},
        FailureRow{"WordCopy", kHostWord, Start::Saved, L"SaveAs", nullptr,
                   L"Can't save initially created document! hr = 0x800A13BA\n", kFatal},
        FailureRow{"Copy", kHostPowerPoint, Start::Saved, L"SaveCopyAs", L"SaveAs",
                   L"Failed to save active presentation! hr = 0x800A13BA\n", kFatal},
        // A failed SaveCopyAs falls back to SaveAs; only Excel says so.
        FailureRow{"ExcelSaveCopyAs", kHostExcel, Start::Saved, L"SaveCopyAs", nullptr,
                   L"Can not SaveCopyAs active document! hr = 0x800A13BA\n", kLogged},
        FailureRow{"PowerPointSaveCopyAs", kHostPowerPoint, Start::Saved, L"SaveCopyAs", nullptr,
                   nullptr, kLogged},
        FailureRow{"CustomProperties", kHostWord, Start::Saved, L"CustomDocumentProperties",
                   nullptr, L"Can't get custom document properties! hr = 0x800A13BA\n", kLogged},
        FailureRow{"BuiltInProperties", kHostExcel, Start::Saved, L"BuiltInDocumentProperties",
                   nullptr, L"Can't get built-in document properties! hr = 0x800A13BA\n", kLogged},
        // PowerPoint reports its built-in collection with the custom collection's text.
        FailureRow{"PowerPointBuiltInProperties", kHostPowerPoint, Start::Saved,
                   L"BuiltInDocumentProperties", nullptr,
                   L"Can't get custom document properties! hr = 0x800A13BA\n", kLogged},
        FailureRow{"WordSavedFlag", kHostWord, Start::Saved, L"Saved", nullptr,
                   L"Failed to set saved flag of the current word document! hr = 0x800A13BA\n",
                   kLogged}),
    [](const testing::TestParamInfo<FailureRow>& info) { return info.param.label; });

}  // namespace
