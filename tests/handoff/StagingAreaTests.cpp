#include <gtest/gtest.h>

#include <string>

#include "handoff/StagingArea.h"
#include "support/TestFiles.h"

namespace {

class StagingAreaTest : public testing::Test {
protected:
    std::wstring Create() {
        wchar_t buffer[MAX_PATH];
        EXPECT_EQ(CreateStagingFolder(buffer, MAX_PATH), 1);
        return buffer;
    }
    // The tick count a staging folder was named after.
    static unsigned long IdOf(const std::wstring& folder) {
        size_t start = folder.rfind(L"td_data_") + 8;
        return std::stoul(folder.substr(start, folder.size() - 1 - start));
    }

    TempDirectoryOverride m_temp;
};

TEST_F(StagingAreaTest, FolderIsNamedAfterTheTickCountBelowTheInbox) {
    DWORD before = GetTickCount();
    std::wstring folder = Create();
    DWORD after = GetTickCount();

    const std::wstring prefix = m_temp.Inbox() + L"td_data_";
    ASSERT_EQ(folder.compare(0, prefix.size(), prefix), 0) << ToUtf8(folder);
    ASSERT_EQ(folder.back(), L'\\');
    // Plain decimal digits, no leading zero.
    EXPECT_EQ(folder, prefix + std::to_wstring(IdOf(folder)) + L"\\");
    EXPECT_GE(IdOf(folder), before);
    EXPECT_LE(IdOf(folder), after);
    EXPECT_TRUE(DirectoryExists(folder));
}

// Two folders asked for within one tick: the second waits for a tick that names no folder yet.
TEST_F(StagingAreaTest, WaitsUntilTheTickNamesAFolderThatDoesNotExistYet) {
    std::wstring first = Create();
    DWORD now = GetTickCount();
    const DWORD taken = 120;
    for (DWORD tick = now; tick <= now + taken; ++tick) {
        CreateDirectoryW((m_temp.Inbox() + L"td_data_" + std::to_wstring(tick)).c_str(), nullptr);
    }
    std::wstring second = Create();
    EXPECT_GT(IdOf(second), now + taken);
    EXPECT_TRUE(DirectoryExists(first));
}

TEST_F(StagingAreaTest, ABufferTooSmallForThePathFailsInsteadOfTruncating) {
    wchar_t small[20] = L"unchanged";
    EXPECT_EQ(CreateStagingFolder(small, 20), 0);
    EXPECT_STREQ(small, L"");
}

TEST_F(StagingAreaTest, OnlyPathsBelowTheDataPrefixAreInTheStagingArea) {
    std::wstring folder = Create();
    EXPECT_TRUE(IsInStagingArea(folder.c_str()));
    EXPECT_TRUE(IsInStagingArea((folder + L"Bericht.docx").c_str()));
    for (const std::wstring& outside :
         {m_temp.Inbox() + L"other\\Bericht.docx", m_temp.Inbox() + L"TD_DATA_1\\Bericht.docx",
          m_temp.Path() + L"td_data_1\\Bericht.docx", std::wstring(L"C:\\Dokumente\\a.docx")}) {
        EXPECT_FALSE(IsInStagingArea(outside.c_str())) << ToUtf8(outside);
    }
    EXPECT_FALSE(IsInStagingArea(nullptr));
}

TEST_F(StagingAreaTest, ReleaseMarksEveryListedFolderAndSkipsVanishedOnes) {
    std::wstring first = Create();
    std::wstring second = Create();
    auto name = [](const std::wstring& folder) {
        std::wstring path = folder.substr(0, folder.size() - 1);
        return path.substr(path.rfind(L'\\') + 1);
    };
    WriteFileBytes(second + L"__freetodelete__.bin", "");

    ReleaseStagedFolders({name(first), L"td_data_1", name(second)});

    EXPECT_EQ(FileSize(first + L"__freetodelete__.bin"), 0);
    EXPECT_EQ(FileSize(second + L"__freetodelete__.bin"), 0);
    EXPECT_FALSE(DirectoryExists(m_temp.Inbox() + L"td_data_1"));
}

TEST(SanitizeFileName, DropsTheNineReservedCharacters) {
    const struct {
        const wchar_t* name;
        const wchar_t* cleaned;
    } cases[] = {
        {L"Angebot: 12/2024?", L"Angebot 122024"},
        {L"???", L""},
        {L"a\\b/c:d*e?f\"g<h>i|j", L"abcdefghij"},
        {L"Re: Gr\u00FC\u00DFe \u20AC", L"Re Gr\u00FC\u00DFe \u20AC"},
        // The copy back treats the name as a format: "%%" becomes "%".
        {L"100%% sicher", L"100% sicher"},
    };
    for (const auto& row : cases) {
        wchar_t buffer[MAX_PATH];
        wcscpy(buffer, row.name);
        SanitizeFileName(buffer);
        EXPECT_STREQ(buffer, row.cleaned);
    }

    // Stray format sequences neither crash nor overflow the buffer.
    std::wstring name;
    while (name.size() < MAX_PATH - 2) {
        name += L"%s";
    }
    wchar_t buffer[MAX_PATH];
    wcscpy(buffer, name.c_str());
    SanitizeFileName(buffer);
    EXPECT_LT(wcslen(buffer), static_cast<size_t>(MAX_PATH));
}

}  // namespace
