#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "common/LanguageFile.h"
#include "common/Messages.h"
#include "resources/resource.h"
#include "support/LanguageFiles.h"
#include "support/RegistrySandbox.h"
#include "support/TestFiles.h"
#include "support/WindowWatcher.h"

namespace {

const std::map<unsigned, std::wstring> kEnglish = {
    {IDS_ERROR_CAPTION, L"Error while archiving the document"},
    {IDS_NOTHING_SELECTED, L"No document is selected!"},
    {IDS_SETUP_FILE_NOT_OPENED, L"File \"%s\" could not be opened!"},
};

std::wstring UiString(UINT id) {
    wchar_t text[260] = L"";
    LoadUiString(id, text, 260);
    return text;
}

// --- The file format: every rule broken alone makes the whole file refused.

struct BrokenCase {
    const char* name;
    std::function<void(std::vector<uint8_t>&)> breakIt;
    const wchar_t* problem;
};

void PrintTo(const BrokenCase& row, std::ostream* out) { *out << row.name; }

class BrokenLanguageFileTest : public testing::TestWithParam<BrokenCase> {};

TEST_P(BrokenLanguageFileTest, IsRefusedWithItsReason) {
    std::vector<uint8_t> bytes = LanguageFileBytes(kEnglish);
    std::wstring problem;
    ASSERT_TRUE(LanguageTable::Parse(bytes, problem).has_value());
    GetParam().breakIt(bytes);
    EXPECT_FALSE(LanguageTable::Parse(bytes, problem).has_value());
    EXPECT_EQ(problem, GetParam().problem);
}

// Entry i starts at 16 + 12 * i: id, text offset, text length.
INSTANTIATE_TEST_SUITE_P(
    Rules, BrokenLanguageFileTest,
    testing::Values(
        BrokenCase{"Empty", [](auto& b) { b.clear(); }, L"not a language file"},
        BrokenCase{"OtherMagic", [](auto& b) { b[0] = 'X'; }, L"not a language file"},
        BrokenCase{"NewerVersion", [](auto& b) { b[4] = 2; }, L"unknown format version"},
        BrokenCase{"Truncated", [](auto& b) { b.pop_back(); }, L"truncated or wrong size"},
        BrokenCase{"TooManyEntries", [](auto& b) { b[9] = 0x10; }, L"entries beyond the end"},
        BrokenCase{"TextPastTheEnd", [](auto& b) { b[16 + 24 + 8] = 0xFF; },
                   L"text beyond the end"},
        BrokenCase{"OddTextOffset", [](auto& b) { b[16 + 4] += 1; }, L"text beyond the end"},
        BrokenCase{"IdsOutOfOrder", [](auto& b) { b[16 + 12] = b[16]; }, L"ids out of order"}),
    [](const testing::TestParamInfo<BrokenCase>& info) { return std::string(info.param.name); });

// --- The look-up through LoadUiString, with the language from the registry.

class LanguageLookupTest : public testing::Test {
protected:
    RegistrySandbox registry;
    LanguageFolder folder{registry};
};

TEST_F(LanguageLookupTest, AnEnglishFileChangesAMessageBoxAndLacksFallBackToGerman) {
    folder.Write(L"en", LanguageFileBytes(kEnglish));
    WindowWatcher watcher;
    watcher.Expect(L"Error while archiving the document").Click(IDOK);
    watcher.Expect(L"Error while archiving the document").Click(IDOK);

    ShowErrorMessage(IDS_SETUP_FILE_NOT_OPENED, L"setup.ini");
    // Not in the file: the German text under the English caption.
    ShowErrorMessage(IDS_CAPTURE_FAILED);

    watcher.Verify();
    ASSERT_EQ(watcher.Seen().size(), 2u);
    EXPECT_TRUE(watcher.Seen()[0].HasText(L"File \"setup.ini\" could not be opened!"))
        << watcher.Seen()[0];
    EXPECT_TRUE(watcher.Seen()[1].HasText(L"Das Dokument konnte nicht zwischengespeichert werden!"))
        << watcher.Seen()[1];
}

TEST_F(LanguageLookupTest, ThePerUserLanguageOverridesTheMachinesAndGermanNeedsNoFile) {
    folder.Write(L"en", LanguageFileBytes(kEnglish));
    folder.Write(L"fr", LanguageFileBytes({{IDS_NOTHING_SELECTED, L"Aucun document!"}}));
    EXPECT_EQ(UiString(IDS_NOTHING_SELECTED), L"No document is selected!");
    registry.SetUserString(L"l", L"fr", HKEY_LOCAL_MACHINE);
    EXPECT_EQ(UiString(IDS_NOTHING_SELECTED), L"Aucun document!");
    registry.SetUserString(L"l", L"DE");
    EXPECT_EQ(LanguageFilePath(), L"");
    EXPECT_EQ(UiString(IDS_NOTHING_SELECTED), L"Es wurde kein Dokument selektiert!");
    // A code that would lead out of the folder names no file.
    registry.SetUserString(L"l", L"..\\en");
    EXPECT_EQ(LanguageFilePath(), L"");
}

// A missing or broken file: German texts, and one log line however many texts are asked for;
// mended, the file is read again. The log line names the reason the parser gives (see above).
struct BadFileCase {
    const char* name;
    std::vector<uint8_t> bytes;  // none: no file at all
    const wchar_t* logLine;
};

void PrintTo(const BadFileCase& row, std::ostream* out) { *out << row.name; }

class BadLanguageFileTest : public LanguageLookupTest,
                            public testing::WithParamInterface<BadFileCase> {};

TEST_P(BadLanguageFileTest, IsIgnoredWithOneLogLine) {
    const BadFileCase& row = GetParam();
    if (!row.bytes.empty()) {
        folder.Write(L"en", row.bytes);
    }
    LogCapture log;
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(UiString(IDS_NOTHING_SELECTED), L"Es wurde kein Dokument selektiert!");
    }
    std::wstring path = folder.Path() + L"\\lang_en.bin";
    std::wstring line = L"[WRN] Language file " + path + row.logLine;
    std::wstring text = log.Text();
    size_t first = text.find(line);
    EXPECT_NE(first, std::wstring::npos) << ToUtf8(text);
    EXPECT_EQ(text.find(L"Language file", first + line.size()), std::wstring::npos) << ToUtf8(text);

    folder.Write(L"en", LanguageFileBytes(kEnglish));
    EXPECT_EQ(UiString(IDS_NOTHING_SELECTED), L"No document is selected!");
}

INSTANTIATE_TEST_SUITE_P(
    Files, BadLanguageFileTest,
    testing::Values(BadFileCase{"Missing", {}, L" not found, using the built-in texts\n"},
                    BadFileCase{"Text",
                                {'8', '0', '0', '8', '=', 'x'},
                                L" ignored (not a language file), using the built-in texts\n"}),
    [](const testing::TestParamInfo<BadFileCase>& info) { return std::string(info.param.name); });

}  // namespace
