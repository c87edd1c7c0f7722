// The soak run: loads the add-in module once, the way COM loads it for a host, and runs archive
// commands in a row, Word documents and Outlook selections by turns, printing the process's
// handle count, GDI and USER objects and private bytes every so many commands.
//
// One simulated Word and one simulated Outlook, each with an add-in object connected as the host
// connects it at start-up, take the commands by turns, as long-running hosts would; after each
// command the host drops the records of the calls made on it (tools/bench/LoadedAddin.h). The
// connectors run while the next commands go on; at each sample the run waits for every one
// started so far through the connector's record and removes the staging folders it was handed,
// as the real connector does, so that a sample line also shows connector processes still running
// and staging folders left.
//
// With --check the run fails (exit 1) when a counter grows with the number of commands. The
// first commands are a warm-up (the heap, the log, COM's and Wine's caches settle): counters are
// taken after a quarter of the run (A), at three quarters (B) and at the end (C). A counter grows
// when both halves of what follows the warm-up add more than its tolerance: B - A > t and
// C - B > t. A leak adds in every half; noise (a heap that extends itself once, a cache filled
// late) adds in one. Tolerances: 4 handles, 2 GDI objects, 2 USER objects, 256 KiB of private
// bytes: a leak of one handle per command, or of 4 KiB per command, is over them after the 50
// commands of a half of a 200-command run.
//
// Usage: soak.exe [--commands 1000] [--every 100] [--only word|outlook] [--check]
//                 <add-in dll> <document> <item file>...
#include <windows.h>
#include <objbase.h>

#include <cstdio>
#include <exception>
#include <optional>
#include <string>
#include <vector>

#include "LoadedAddin.h"
#include "common/UniqueResource.h"
#include "outlooksim/ItemText.h"

namespace {

struct Options {
    int commands = 1000;
    int every = 100;
    bool check = false;
    // Which hosts take turns: both, or Word or Outlook alone (to tell whose commands a growth
    // comes with).
    bool word = true;
    bool outlook = true;
    std::wstring addin;
    std::wstring document;
    std::vector<std::wstring> items;
};

bool ParseOptions(int argc, wchar_t** argv, Options& options) {
    std::vector<std::wstring> files;
    for (int i = 1; i < argc; ++i) {
        const std::wstring arg = argv[i];
        if (arg == L"--commands" && i + 1 < argc) {
            options.commands = _wtoi(argv[++i]);
        } else if (arg == L"--every" && i + 1 < argc) {
            options.every = _wtoi(argv[++i]);
        } else if (arg == L"--only" && i + 1 < argc) {
            const std::wstring host = argv[++i];
            options.word = host == L"word";
            options.outlook = host == L"outlook";
        } else if (arg == L"--check") {
            options.check = true;
        } else if (arg.rfind(L"--", 0) == 0) {
            return false;
        } else {
            wchar_t full[MAX_PATH];
            if (!GetFullPathNameW(argv[i], MAX_PATH, full, nullptr)) {
                return false;
            }
            files.push_back(full);
        }
    }
    if (files.size() < 3 || options.commands < 4 || options.every < 1 ||
        !(options.word || options.outlook)) {
        return false;
    }
    options.addin = files[0];
    options.document = files[1];
    options.items.assign(files.begin() + 2, files.end());
    return true;
}

int CountStagingFolders() {
    WIN32_FIND_DATAW found;
    UniqueFindHandle search(
        FindFirstFileW((TempPath() + L"td_temp_inbox\\td_data_*").c_str(), &found));
    int count = 0;
    if (search) {
        do {
            ++count;
        } while (FindNextFileW(search.get(), &found));
    }
    return count;
}

// The staging folders no connector was handed, with what each holds: a folder the add-in marked
// free to delete when it gave up a capture holds "__freetodelete__.bin".
void PrintStagingFoldersLeft() {
    const std::wstring inbox = TempPath() + L"td_temp_inbox\\";
    WIN32_FIND_DATAW found;
    UniqueFindHandle search(FindFirstFileW((inbox + L"td_data_*").c_str(), &found));
    for (BOOL more = search ? TRUE : FALSE; more; more = FindNextFileW(search.get(), &found)) {
        std::wstring line = L"  left: " + std::wstring(found.cFileName) + L":";
        WIN32_FIND_DATAW file;
        UniqueFindHandle files(FindFirstFileW((inbox + found.cFileName + L"\\*").c_str(), &file));
        for (BOOL next = files ? TRUE : FALSE; next; next = FindNextFileW(files.get(), &file)) {
            if (file.cFileName[0] != L'.') {
                line += L" " + std::wstring(file.cFileName);
            }
        }
        Print(line + L"\n");
    }
}

void PrintSample(int commands, double seconds, const ProcessCounters& counters) {
    wchar_t line[256];
    _snwprintf(
        line, 256,
        L"%5d commands, %6.1f s: handles %4lu, GDI objects %3lu, USER objects %3lu, private bytes "
        L"%7lu KiB; connectors running %d, staging folders left %d\n",
        commands, seconds, counters.handles, counters.gdiObjects, counters.userObjects,
        static_cast<unsigned long>(counters.privateBytes / 1024),
        CountProcesses(L"stubconnector.exe"), CountStagingFolders());
    line[255] = L'\0';
    Print(line);
}

// The end of the add-in's log, which says why a command failed.
void PrintLogTail() {
    const std::string log = ReadBytes(TempPath() + L"soak.log");
    size_t start = log.size();
    for (int lines = 0; start > 0 && lines < 4; lines += log[--start] == '\n' ? 1 : 0) {
    }
    fwrite(log.data() + start, 1, log.size() - start, stdout);
    fflush(stdout);
}

// The growth rule of the file comment, for one counter.
bool Grows(const wchar_t* name, double a, double b, double c, double tolerance) {
    const bool grows = b - a > tolerance && c - b > tolerance;
    wchar_t line[160];
    _snwprintf(line, 160, L"  %-14ls %12.0f -> %12.0f -> %12.0f  (tolerance %.0f a half): %s\n",
               name, a, b, c, tolerance, grows ? L"GROWS" : L"steady");
    line[159] = L'\0';
    Print(line);
    return grows;
}

int Run(const Options& options) {
    const PrivateTemp temp(L"soak");
    const PrivateSettings settings;
    std::vector<std::wstring> itemTexts;
    for (const std::wstring& item : options.items) {
        itemTexts.push_back(outlooksim::ReadItemTextFile(item));
    }
    // The user's document lives in a folder of its own; the add-in saves it there each time.
    const std::wstring folder = TempPath() + L"soak_documents";
    CreateDirectoryW(folder.c_str(), nullptr);
    const std::wstring document = folder + options.document.substr(options.document.rfind(L'\\'));
    CopyFileW(options.document.c_str(), document.c_str(), FALSE);

    LoadedModule module(options.addin, kAddinClass);
    ConnectorRecord record;
    int received = 0;
    // Takes the URLs the connectors have recorded so far and removes their staging folders;
    // waits up to `timeoutMs` for all `expected` of them.
    auto collect = [&](int expected, DWORD timeoutMs) {
        for (std::string url; received < expected && !(url = record.NextUrl(timeoutMs)).empty();) {
            ++received;
            RemoveStagedFolders(url);
        }
    };
    std::vector<ProcessCounters> samples;
    const int quarter = options.commands / 4;
    const int threeQuarters = options.commands - quarter;
    int failures = 0;
    // A launch of the connector that stalls shows as one slow command.
    double slowestMs = 0;
    int slowest = 0;
    const LARGE_INTEGER start = Now();
    PrintSample(0, 0, ReadProcessCounters());
    std::unique_ptr<SimulatedHost> wordHost = SimulatedHost::Word(document);
    std::unique_ptr<SimulatedHost> outlookHost = SimulatedHost::Outlook(itemTexts);
    std::optional<ConnectedAddin> inWord;
    std::optional<ConnectedAddin> inOutlook;
    if (options.word) {
        inWord.emplace(module, *wordHost);
    }
    if (options.outlook) {
        inOutlook.emplace(module, *outlookHost);
    }
    for (int command = 1; command <= options.commands; ++command) {
        const bool word = options.word && (!options.outlook || command % 2 == 1);
        const LARGE_INTEGER clicked = Now();
        const HRESULT hr = (word ? *inWord : *inOutlook).ClickArchive();
        const double ms = ElapsedMs(clicked, Now());
        if (ms > slowestMs) {
            slowestMs = ms;
            slowest = command;
        }
        (word ? wordHost : outlookHost)->ForgetCalls();
        if (FAILED(hr)) {
            ++failures;
            wchar_t line[96];
            _snwprintf(line, 96, L"command %d (%ls): click 0x%08lX\n", command,
                       word ? L"Word" : L"Outlook", static_cast<unsigned long>(hr));
            line[95] = L'\0';
            Print(line);
        }
        // The connectors run meanwhile; the next commands do not wait for them.
        collect(command, 0);
        const bool checkpoint =
            command == quarter || command == threeQuarters || command == options.commands;
        if (!checkpoint && command % options.every != 0) {
            continue;
        }
        // Counted with every connector of the commands so far finished and its folders gone.
        collect(command, 30000);
        if (received < command) {
            failures += command - received;
            wchar_t line[96];
            _snwprintf(line, 96, L"%d commands started no connector; the log ends:\n",
                       command - received);
            line[95] = L'\0';
            Print(line);
            PrintLogTail();
            received = command;
        }
        const ProcessCounters counters = ReadProcessCounters();
        if (checkpoint) {
            samples.push_back(counters);
        }
        if (command % options.every == 0) {
            PrintSample(command, ElapsedMs(start, Now()) / 1000.0, counters);
        }
    }
    PrintStagingFoldersLeft();
    wchar_t line[128];
    _snwprintf(line, 128, L"%d commands, %d failed; the slowest, command %d, took %.0f ms\n",
               options.commands, failures, slowest, slowestMs);
    line[127] = L'\0';
    Print(line);
    if (!options.check) {
        return failures == 0 ? 0 : 1;
    }
    wchar_t heading[96];
    _snwprintf(heading, 96, L"growth after the warm-up, at commands %d -> %d -> %d:\n", quarter,
               threeQuarters, options.commands);
    heading[95] = L'\0';
    Print(heading);
    const ProcessCounters& a = samples[0];
    const ProcessCounters& b = samples[1];
    const ProcessCounters& c = samples[2];
    bool grows = Grows(L"handles", a.handles, b.handles, c.handles, 4);
    grows |= Grows(L"GDI objects", a.gdiObjects, b.gdiObjects, c.gdiObjects, 2);
    grows |= Grows(L"USER objects", a.userObjects, b.userObjects, c.userObjects, 2);
    grows |=
        Grows(L"private bytes", static_cast<double>(a.privateBytes),
              static_cast<double>(b.privateBytes), static_cast<double>(c.privateBytes), 256 * 1024);
    return failures == 0 && !grows ? 0 : 1;
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
    Options options;
    if (!ParseOptions(argc, argv, options)) {
        Print(
            L"usage: soak.exe [--commands 1000] [--every 100] [--only word|outlook] [--check]\n"
            L"                <add-in dll> <document> <item file>...\n");
        return 2;
    }
    if (FAILED(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED))) {
        return 1;
    }
    int result = 1;
    try {
        result = Run(options);
    } catch (const std::exception& error) {
        std::printf("soak: %s\n", error.what());
    }
    CoUninitialize();
    return result;
}
