// The test programs' entry point. Each test process gets a temporary directory and registry roots
// of its own, so the staging area, the log and the settings of parallel test processes never
// meet, and a watchdog that ends a hung test (a dialog nobody answers, a wait under Wine) with a
// message instead of a stuck run.
#include <gtest/gtest.h>
#include <windows.h>

#include <atomic>
#include <cstdio>
#include <string>

#include "common/LogFile.h"
#include "officesim/FakeDispatch.h"
#include "support/RegistrySandbox.h"
#include "support/TestFiles.h"

namespace {

constexpr DWORD kTestTimeLimitMs = 120000;

std::atomic<DWORD> g_testStartTick{0};
std::atomic<bool> g_testRunning{false};
std::string g_testName;

class WatchdogListener : public testing::EmptyTestEventListener {
    void OnTestStart(const testing::TestInfo& info) override {
        g_testName = std::string(info.test_suite_name()) + "." + info.name();
        g_testStartTick = GetTickCount();
        g_testRunning = true;
    }
    void OnTestEnd(const testing::TestInfo&) override { g_testRunning = false; }
};

}  // namespace

void TestMakesProgress() { g_testStartTick = GetTickCount(); }

namespace {

DWORD WINAPI Watchdog(void*) {
    for (;;) {
        Sleep(500);
        if (g_testRunning && GetTickCount() - g_testStartTick > kTestTimeLimitMs) {
            fprintf(stderr, "\nwatchdog: %s hung for more than %lu s; ending the test program\n",
                    g_testName.c_str(), kTestTimeLimitMs / 1000);
            fflush(stderr);
            TerminateProcess(GetCurrentProcess(), 3);
        }
    }
}

// Points TMP and TEMP at a fresh folder below the prefix's temporary directory and moves the
// process-wide log there, as it would be for a user whose TEMP is that folder.
std::wstring UsePrivateTempDirectory() {
    std::wstring base = TempDirectory() + L"talvorn-tests\\";
    CreateDirectoryW(base.c_str(), nullptr);
    std::wstring mine = base + std::to_wstring(GetCurrentProcessId()) + L"-" +
                        std::to_wstring(GetTickCount()) + L"\\";
    DeleteTree(mine);
    CreateDirectoryW(mine.c_str(), nullptr);
    SetEnvironmentVariableW(L"TMP", mine.c_str());
    SetEnvironmentVariableW(L"TEMP", mine.c_str());
    TheLog().SetPath(nullptr);
    return mine;
}

}  // namespace

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    FakeDispatch::ReportMisuseTo([](const std::string& message) { ADD_FAILURE() << message; });
    std::wstring temp = UsePrivateTempDirectory();
    UsePrivateRegistry();
    testing::UnitTest::GetInstance()->listeners().Append(new WatchdogListener);
    CloseHandle(CreateThread(nullptr, 0, Watchdog, nullptr, 0, nullptr));
    int result = RUN_ALL_TESTS();
    TheLog().Close();
    DropPrivateRegistry();
    // A failed run keeps its folder (log, staging area) for a look afterwards.
    if (result == 0) {
        DeleteTree(temp);
    } else {
        fprintf(stderr, "test files kept in %s\n", ToUtf8(temp).c_str());
    }
    return result;
}
