#include <gtest/gtest.h>

#include <regex>
#include <string>

#include "common/LogFile.h"
#include "support/TestFiles.h"

namespace {

class LogFileTest : public testing::Test {
protected:
    static void Write(LogFile& log, int32_t severity, const wchar_t* format, ...) {
        va_list args;
        va_start(args, format);
        log.Write(severity, format, args);
        va_end(args);
    }

    ScratchFolder m_folder;
    std::wstring m_path = m_folder / L"HOST.log";
};

TEST_F(LogFileTest, AppendsBracketedLocalTimeThenTagThenMessageAsUtf8) {
    WriteFileBytes(m_path, "earlier session\n");
    LogFile log(m_path.c_str());
    Write(log, kLogFatal, L"fatal %d\n", 1);
    Write(log, kLogError, L"Can't get active document! hr = 0x%08X\n", 0x80004005u);
    Write(log, kLogWarning, L"%s\n", L"Gr\u00FC\u00DFe \u20AC \U0001F600");
    Write(log, kLogInfo, L"info\n");
    Write(log, 0, L"severity 0 is written as information\n");

    // Shared for reading while open.
    std::string text = ReadFileBytes(m_path);
    const std::string stamp =
        R"(\[(Mon|Tue|Wed|Thu|Fri|Sat|Sun) [A-Z][a-z]{2} [ \d]\d \d\d:\d\d:\d\d \d{4}\])";
    std::regex expected("earlier session\n" + stamp + R"(\[FTL\] fatal 1\n)" + stamp +
                        R"(\[ERR\] Can't get active document! hr = 0x80004005\n)" + stamp +
                        "\\[WRN\\] Gr\xC3\xBC\xC3\x9F"
                        "e \xE2\x82\xAC \xF0\x9F\x98\x80\n" +
                        stamp + R"(\[INF\] info\n)" + stamp +
                        R"(\[INF\] severity 0 is written as information\n)");
    EXPECT_TRUE(std::regex_match(text, expected)) << text;
}

TEST_F(LogFileTest, LevelFiltersAndZeroSwitchesTheFileOff) {
    LogFile log(m_path.c_str());
    log.SetLevel(kLogError);
    Write(log, kLogWarning, L"dropped warning\n");
    Write(log, kLogError, L"kept error\n");
    log.SetLevel(kLogOff);
    EXPECT_FALSE(log.IsOpen());
    Write(log, kLogFatal, L"dropped while off\n");
    log.SetLevel(kLogInfo);
    EXPECT_TRUE(log.IsOpen());
    Write(log, kLogInfo, L"appended after reopening\n");
    log.Close();

    std::string text = ReadFileBytes(m_path);
    EXPECT_EQ(text.find("dropped"), std::string::npos) << text;
    EXPECT_NE(text.find("[ERR] kept error\n"), std::string::npos) << text;
    EXPECT_NE(text.find("[INF] appended after reopening\n"), std::string::npos) << text;
}

TEST_F(LogFileTest, RotatesAtExactlyTheThresholdAndReplacesTheOldGeneration) {
    const std::wstring old = m_path + L".old";
    WriteFileBytes(m_path, std::string(LogFile::kRotationThreshold - 1, 'x'));
    {
        LogFile log(m_path.c_str());
        Write(log, kLogInfo, L"below the threshold\n");
    }
    EXPECT_FALSE(FileExists(old));
    EXPECT_GT(FileSize(m_path), LogFile::kRotationThreshold - 1);

    WriteFileBytes(m_path, std::string(LogFile::kRotationThreshold, 'y'));
    WriteFileBytes(old, "previous generation");
    {
        LogFile log(m_path.c_str());
        Write(log, kLogInfo, L"fresh log\n");
    }
    EXPECT_EQ(FileSize(old), static_cast<LONGLONG>(LogFile::kRotationThreshold));
    EXPECT_EQ(ReadFileBytes(old).substr(0, 3), "yyy");
    std::string fresh = ReadFileBytes(m_path);
    EXPECT_EQ(fresh[0], '[');
    EXPECT_NE(fresh.find("[INF] fresh log\n"), std::string::npos);
    EXPECT_LT(fresh.size(), 100u);
}

TEST_F(LogFileTest, CutsMessagesAtTheFormattingBufferAndLeavesLineEndsToTheCaller) {
    std::wstring longText(70000, L'a');
    {
        LogFile log(m_path.c_str());
        Write(log, kLogInfo, L"%s\n", longText.c_str());
        Write(log, kLogInfo, L"next\n");
    }
    std::string text = ReadFileBytes(m_path);
    size_t first = text.find('a');
    size_t last = text.find_last_of('a');
    ASSERT_NE(first, std::string::npos);
    EXPECT_EQ(last - first + 1, LogFile::kMessageCapacity - 1);
    // The cut took the line end with it: the next entry runs on in the same line.
    EXPECT_EQ(text[last + 1], '[');
    EXPECT_EQ(text.find('\n'), text.size() - 1);
}

// LogError, LogWarning and LogInfo lines are pinned by the tests of the code that logs them, a log
// that cannot be opened by the hostile-environment cases.
TEST(ProcessWideLog, IsTheProgramNameInTheTemporaryDirectory) {
    // The temporary path's backslash and the base name's own one are both kept.
    EXPECT_EQ(LogFile::DefaultPath(), TempDirectory() + L"\\common_tests.log");
    EXPECT_EQ(TheLog().Path(), LogFile::DefaultPath());
    LogCapture capture;
    LogFatal(L"Fatal %s\n", L"eins");
    EXPECT_TRUE(capture.Contains(L"][FTL] Fatal eins\n")) << ToUtf8(capture.Text());
}

}  // namespace
