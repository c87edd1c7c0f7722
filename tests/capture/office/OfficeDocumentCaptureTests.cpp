#include <gtest/gtest.h>

#include <windows.h>

#include <ctime>
#include <ostream>
#include <string>
#include <vector>

#include "addin/commands/HostCaptureRoutines.h"
#include "capture/office/OfficeDocumentCapture.h"
#include "common/BoundedFormat.h"
#include "common/HostKind.h"
#include "support/FakeOffice.h"
#include "support/TestFiles.h"

namespace {

using FaultStyle = FakeDispatch::FaultStyle;
using CallKind = FakeDispatch::CallKind;

// An error the hosts raise from inside a call; the failure lines below show it.
constexpr HRESULT kHostError = static_cast<HRESULT>(0x800A13BA);

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

// The arguments of the first call of `member`, as recorded.
const FakeDispatch::Args& ArgumentsOf(const FakeDispatch& object, const std::wstring& member) {
    static const FakeDispatch::Args none;
    for (const FakeDispatch::CallRecord& call : object.Calls()) {
        if (call.member == member) {
            return call.args;
        }
    }
    ADD_FAILURE() << "no call of " << ToUtf8(member);
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
    // Through the routines the archive command uses, which pick the host's capture.
    Capture Run(FakeOffice& office, int32_t majorVersion = 16) {
        PathBuffer path{};
        Capture capture;
        capture.hr = m_captures.SaveOfficeDocument(office.HostKind(), &office.Application(), path,
                                                   capture.map, majorVersion);
        capture.path = path.data();
        return capture;
    }
    // The staging folder of a staged file, checked to be one in the staging area.
    std::wstring StagingFolderOf(const std::wstring& path) const {
        const std::wstring folder = FolderOf(path);
        EXPECT_EQ(FolderOf(folder.substr(0, folder.size() - 1)), m_temp.Inbox()) << ToUtf8(path);
        return folder;
    }
    std::wstring Document(const FakeOffice& office) {
        return m_documents / (std::wstring(L"Angebot 2024.") + office.Extension());
    }

    TempDirectoryOverride m_temp;
    ScratchFolder m_documents;
    LogCapture m_log;
    CHostCaptureRoutines m_captures;
};

class HostCaptureTest : public OfficeCaptureTest, public testing::WithParamInterface<int32_t> {};

TEST_P(HostCaptureTest, SavesInPlaceThenStagesACopyUnderItsOwnNameWithItsProperties) {
    const int32_t host = GetParam();
    FakeOffice office(host);
    FakeDispatch& document = office.Document();
    const std::wstring original = Document(office);
    office.OpenFrom(original);
    office.Edit(office.RevisedSample());
    // Custom properties are read first, so a custom "MSO_TITLE" gives way to the built-in title.
    office.CustomProperties().Add(L"MSO_TITLE", Variant(L"vom Nutzer"));
    office.CustomProperties().Add(L"Projekt", Variant(L"Apollo"));
    office.BuiltInProperties().Add(L"Title", Variant(L"Angebot 2024"));
    office.BuiltInProperties().Add(L"Last print date", Variant());
    const RefCountList before = office.RefCounts();

    Capture first = Run(office);

    ASSERT_EQ(first.hr, S_OK) << m_log.Text();
    EXPECT_EQ(office.RefCounts(), before);
    // The edits went into the document's own file; a new staging folder holds a copy of it.
    EXPECT_EQ(first.path, StagingFolderOf(first.path) + NameOf(original));
    EXPECT_EQ(document.CallCount(L"Save"), 1u);
    EXPECT_TRUE(ReadFileBytes(original) == SampleBytes(office.RevisedSample()));
    EXPECT_TRUE(ReadFileBytes(first.path) == ReadFileBytes(original));
    ASSERT_EQ(first.map.size(), 2u);
    EXPECT_EQ(first.map.Find(L"MSO_TITLE")->value, L"Angebot 2024");
    EXPECT_EQ(first.map.Find(L"Projekt")->value, L"Apollo");
    const wchar_t* const lines[][2] = {
        {L"[INF] Entering SaveWordDocument\n", L"[INF] Leave SaveWordDocument\n"},
        {L"[INF] Entering SaveExcelDocument\n", L"[INF] Leave SaveExcelDocument\n"},
        // PowerPoint's entry line is spelled this way on purpose.
        {L"[INF] Entering SavePoerPointDocument\n", L"[INF] Leave SavePowerPointDocument\n"}};
    const auto& [entryLine, exitLine] = lines[host - kHostWord];
    const std::wstring log = m_log.Text();
    const size_t entry = log.find(entryLine);
    ASSERT_NE(entry, std::wstring::npos) << log;
    EXPECT_NE(log.find(exitLine, entry), std::wstring::npos) << log;
    EXPECT_EQ(log.find(L"[ERR]"), std::wstring::npos) << log;
    if (host == kHostWord) {
        // File, format omitted (the document keeps its own), LockComments, Password,
        // AddToRecentFiles: staging folders stay out of the recent files. The fake refuses a
        // format and arguments of other types, so the values are what is left to check.
        const FakeDispatch::Args& copy = ArgumentsOf(document, L"SaveAs");
        ASSERT_EQ(copy.size(), 5u);
        EXPECT_EQ(TextOf(copy[0]), first.path);
        EXPECT_EQ(copy[2].boolVal, VARIANT_FALSE);
        EXPECT_EQ(TextOf(copy[3]), L"");
        EXPECT_EQ(copy[4].boolVal, VARIANT_FALSE);
        // SaveAs took the document along: it goes back to its own file, marked saved.
        EXPECT_EQ(office.FullName(), original);
        const FakeDispatch::Args& saved = ArgumentsOf(document, L"Saved");
        EXPECT_TRUE(saved.size() == 1 && saved[0].vt == VT_BOOL &&
                    saved[0].boolVal == VARIANT_TRUE);
    } else {
        // A copy that leaves the document where it is, not marked saved.
        const FakeDispatch::Args& copy = ArgumentsOf(document, L"SaveCopyAs");
        ASSERT_EQ(copy.size(), 1u);
        EXPECT_EQ(TextOf(copy[0]), first.path);
        EXPECT_EQ(document.CallCount(L"SaveAs"), 0u);
        EXPECT_EQ(document.CallCount(L"Saved", CallKind::Put), 0u);
    }

    // Edited again and archived again: the second save in place leaves the first copy alone.
    office.Edit(office.Sample());
    Capture second = Run(office);

    ASSERT_EQ(second.hr, S_OK) << m_log.Text();
    EXPECT_TRUE(ReadFileBytes(first.path) == SampleBytes(office.RevisedSample()));
    EXPECT_TRUE(ReadFileBytes(second.path) == SampleBytes(office.Sample()));
    EXPECT_TRUE(ReadFileBytes(original) == SampleBytes(office.Sample()));
}

INSTANTIATE_TEST_SUITE_P(Hosts, HostCaptureTest,
                         testing::Values(kHostWord, kHostExcel, kHostPowerPoint),
                         [](const testing::TestParamInfo<int32_t>& info) {
                             return info.param == kHostWord    ? "Word"
                                    : info.param == kHostExcel ? "Excel"
                                                               : "PowerPoint";
                         });

// --- A document without a file of its own (never saved, read-only, or in the staging area).

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
    const std::wstring folder = StagingFolderOf(capture.path);
    const FakeDispatch::Args& first = ArgumentsOf(office.Document(), L"SaveAs");
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

// --- A failing object-model call: each call failing alone is the fault sweep's.

// A presentation whose copy fails is staged through SaveAs; when that fails too, the capture ends.
TEST_F(OfficeCaptureTest, PresentationThatCanBeNeitherCopiedNorSavedIsNotStaged) {
    FakeOffice office(kHostPowerPoint);
    office.OpenFrom(Document(office));
    office.Document().FailCallsFrom(L"SaveCopyAs", 1, kHostError, FaultStyle::Exception);
    office.Document().FailCallsFrom(L"SaveAs", 1, kHostError, FaultStyle::Exception);
    const RefCountList before = office.RefCounts();

    Capture capture = Run(office);

    EXPECT_EQ(capture.hr, kHostError);
    EXPECT_TRUE(m_log.Contains(L"[ERR] Failed to save active presentation! hr = 0x800A13BA\n"))
        << m_log.Text();
    EXPECT_FALSE(FileExists(capture.path));
    EXPECT_EQ(office.RefCounts(), before);
}

}  // namespace
