// The benchmark behind `make bench`. Measures, side by side in one run, the add-in against what
// it cannot be faster than, and prints medians with their minimum and maximum:
//   - start-up (loading the module to GetCustomUI returning) and shutdown (the disconnection, then
//     unloading the module) in a simulated Outlook, each run in a fresh process of this program,
//     against the empty add-in of EmptyAddin.cpp; the private bytes the module adds to its host;
//   - archiving a Word document of 1, 10 and 100 MB: the add-in's time beyond the host's own
//     saves (a stand-in between the add-in and the document times those), against what any
//     archive costs: CopyFileW of the same file and the shell asked to open the same URL;
//   - archiving 100 selected mails up to the add-in's call to the shell, against the floor of the
//     staging folders' names: one folder per tick count, a later tick waited for in 10 ms steps
//     (measured here with no work between); the message files need no wait of their own, each
//     lands in a folder of its own. The launch that follows is timed by itself: Wine's shell
//     cannot launch the URL of 100 hand-offs (see RecordingShellExecuteExW), so it is given the
//     URL's first hand-offs, as many as it takes;
//   - the size of both modules.
// Nothing here is a pass or fail: the numbers are for the README and for finding slowness.
//
// Usage: bench.exe [--runs 20] <add-in dll> <empty add-in dll> <item file>
//        bench.exe --startup <dll> product|empty <item file>   (one fresh-process measurement)
//        bench.exe --profile <samples file> <dll> <item file> [mails]   (see ProfileMails)
#include <windows.h>
#include <objbase.h>
#include <shellapi.h>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "LoadedAddin.h"
#include "Sampler.h"
#include "common/ComObject.h"
#include "common/UniqueResource.h"
#include "officesim/ImportPatch.h"
#include "outlooksim/ItemText.h"

namespace {

struct Stats {
    double median = 0;
    double min = 0;
    double max = 0;
};

Stats Summarise(std::vector<double> values) {
    Stats stats;
    if (values.empty()) {
        return stats;
    }
    std::sort(values.begin(), values.end());
    const size_t n = values.size();
    stats.median = n % 2 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2;
    stats.min = values.front();
    stats.max = values.back();
    return stats;
}

std::wstring Format(const wchar_t* format, double a, double b = 0, double c = 0, double d = 0) {
    wchar_t text[256];
    _snwprintf(text, 256, format, a, b, c, d);
    text[255] = L'\0';
    return text;
}

std::wstring Cell(const Stats& stats) {
    return Format(L"%8.1f %8.1f %8.1f", stats.median, stats.min, stats.max);
}

// One row: what, the add-in's median/min/max, the floor's, and the ratio of the medians.
void Row(const wchar_t* what, const Stats& addin, const Stats& floor, const wchar_t* unit) {
    wchar_t label[64];
    _snwprintf(label, 64, L"%-34ls", what);
    label[63] = L'\0';
    Print(std::wstring(label) + Cell(addin) + L"  |" + Cell(floor) + L"  " +
          Format(L"%6.1fx", floor.median > 0 ? addin.median / floor.median : 0) + L" " + unit +
          L"\n");
}

std::wstring WineVersion() {
    using Version = const char*(CDECL*)();
    auto version = reinterpret_cast<Version>(reinterpret_cast<void*>(
        GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "wine_get_version")));
    if (!version) {
        return std::wstring();
    }
    const std::string text = version();
    return std::wstring(text.begin(), text.end());
}

// --- Start-up and shutdown, in a fresh process each.

int MeasureStartup(const std::wstring& dll, bool product, const std::wstring& itemFile) {
    const PrivateSettings settings;
    std::unique_ptr<SimulatedHost> host =
        SimulatedHost::Outlook({outlooksim::ReadItemTextFile(itemFile)});
    // Outlook has the system's common controls, GDI+ and the shell loaded long before it loads an
    // add-in: their first load is not the add-in's start-up.
    std::vector<UniqueHModule> hostModules;
    for (const wchar_t* system :
         {L"comctl32.dll", L"gdiplus.dll", L"shell32.dll", L"version.dll"}) {
        hostModules.emplace_back(LoadLibraryW(system));
    }
    const SIZE_T before = ReadProcessCounters().privateBytes;
    const LARGE_INTEGER start = Now();
    auto module = std::make_unique<LoadedModule>(dll, product ? kAddinClass : kEmptyAddinClass);
    auto addin = std::make_unique<ConnectedAddin>(*module, *host);
    const LARGE_INTEGER started = Now();
    const SIZE_T after = ReadProcessCounters().privateBytes;
    const LARGE_INTEGER stopping = Now();
    addin->Disconnect();
    addin.reset();
    const LARGE_INTEGER disconnected = Now();
    module.reset();
    const LARGE_INTEGER unloaded = Now();
    std::printf("%.3f %.3f %.3f %.1f\n", ElapsedMs(start, started),
                ElapsedMs(stopping, disconnected), ElapsedMs(disconnected, unloaded),
                (static_cast<double>(after) - static_cast<double>(before)) / 1024.0);
    return 0;
}

struct StartupSample {
    double startup = 0;
    double disconnect = 0;
    double unload = 0;
    double addedKiB = 0;
};

bool RunStartupProcess(const std::wstring& dll, const wchar_t* kind, const std::wstring& itemFile,
                       StartupSample& sample) {
    wchar_t program[MAX_PATH];
    GetModuleFileNameW(nullptr, program, MAX_PATH);
    std::wstring commandLine = L"\"" + std::wstring(program) + L"\" --startup \"" + dll + L"\" " +
                               kind + L" \"" + itemFile + L"\"";
    SECURITY_ATTRIBUTES inherit{sizeof inherit, nullptr, TRUE};
    HANDLE readRaw = nullptr;
    HANDLE writeRaw = nullptr;
    if (!CreatePipe(&readRaw, &writeRaw, &inherit, 0)) {
        return false;
    }
    UniqueHandle readEnd(readRaw);
    UniqueHandle writeEnd(writeRaw);
    SetHandleInformation(readEnd.get(), HANDLE_FLAG_INHERIT, 0);
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = writeEnd.get();
    startup.hStdError = GetStdHandle(STD_ERROR_HANDLE);
    startup.hStdInput = GetStdHandle(STD_INPUT_HANDLE);
    PROCESS_INFORMATION process{};
    if (!CreateProcessW(program, commandLine.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr,
                        &startup, &process)) {
        return false;
    }
    UniqueHandle processHandle(process.hProcess);
    UniqueHandle threadHandle(process.hThread);
    writeEnd.reset();
    std::string output;
    char chunk[256];
    DWORD read = 0;
    while (ReadFile(readEnd.get(), chunk, sizeof chunk, &read, nullptr) && read > 0) {
        output.append(chunk, read);
    }
    WaitForSingleObject(processHandle.get(), INFINITE);
    return std::sscanf(output.c_str(), "%lf %lf %lf %lf", &sample.startup, &sample.disconnect,
                       &sample.unload, &sample.addedKiB) == 4;
}

// --- Word documents.

// Stands between the add-in and the document and times the document's own saves.
class TimingDocument final : public ComObject<TimingDocument, LiveCount::NotCounted,
                                              Implements<IDispatch, IID_IDispatch>> {
public:
    explicit TimingDocument(IDispatch* inner) : m_inner(inner) {}

    double SavingMs() const { return m_savingMs; }
    void Reset() { m_savingMs = 0; }

    HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID riid, LPOLESTR* names, UINT count, LCID lcid,
                                            DISPID* ids) noexcept override {
        const HRESULT hr = m_inner->GetIDsOfNames(riid, names, count, lcid, ids);
        if (SUCCEEDED(hr) && count > 0 &&
            (lstrcmpiW(names[0], L"Save") == 0 || lstrcmpiW(names[0], L"SaveAs") == 0 ||
             lstrcmpiW(names[0], L"SaveCopyAs") == 0)) {
            m_saves.insert(ids[0]);
        }
        return hr;
    }
    HRESULT STDMETHODCALLTYPE Invoke(DISPID id, REFIID riid, LCID lcid, WORD flags,
                                     DISPPARAMS* params, VARIANT* result, EXCEPINFO* excep,
                                     UINT* argError) noexcept override {
        const LARGE_INTEGER start = Now();
        const HRESULT hr = m_inner->Invoke(id, riid, lcid, flags, params, result, excep, argError);
        if (m_saves.count(id)) {
            m_savingMs += ElapsedMs(start, Now());
        }
        return hr;
    }

private:
    friend ComObject;
    ~TimingDocument() override = default;

    ComPtr<IDispatch> m_inner;
    std::set<DISPID> m_saves;
    double m_savingMs = 0;
};

// What starting the connector costs by itself: the shell asked to open the same URL, as the
// add-in asks it (nothing waited for).
double LaunchMs(const std::string& url) {
    const std::wstring wide(url.begin(), url.end());
    SHELLEXECUTEINFOW info{};
    info.cbSize = sizeof info;
    info.lpVerb = L"open";
    info.lpFile = wide.c_str();
    info.nShow = SW_SHOW;
    const LARGE_INTEGER start = Now();
    ShellExecuteExW(&info);
    return ElapsedMs(start, Now());
}

void WriteDocument(const std::wstring& path, size_t megabytes) {
    std::string content(megabytes << 20, '\0');
    // Not all zeros, so that nothing on the way can treat the file as sparse.
    for (size_t i = 0; i < content.size(); i += 4096) {
        content[i] = static_cast<char>(i >> 12);
    }
    UniqueFileHandle file(CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                      FILE_ATTRIBUTE_NORMAL, nullptr));
    DWORD written = 0;
    for (size_t done = 0; file && done < content.size(); done += written) {
        if (!WriteFile(file.get(), content.data() + done,
                       static_cast<DWORD>(std::min<size_t>(content.size() - done, 1 << 24)),
                       &written, nullptr)) {
            break;
        }
    }
}

void BenchWord(const LoadedModule& module, size_t megabytes, int runs, ConnectorRecord& record) {
    const std::wstring folder = TempPath() + L"bench_documents";
    CreateDirectoryW(folder.c_str(), nullptr);
    const std::wstring document = folder + L"\\Bericht.docx";
    WriteDocument(document, megabytes);
    std::unique_ptr<SimulatedHost> host = SimulatedHost::Word(document);
    ComPtr<TimingDocument> timing = MakeComObject<TimingDocument>(&host->Office()->Document());
    host->Application().SetProperty(host->Office()->ActiveMember(),
                                    static_cast<IDispatch*>(timing.get()));
    std::vector<double> beyond;
    std::vector<double> saving;
    std::vector<double> copies;
    std::vector<double> launches;
    int failures = 0;
    {
        ConnectedAddin addin(module, *host);
        const std::wstring copy = folder + L"\\Kopie.docx";
        for (int run = 0; run < runs; ++run) {
            timing->Reset();
            const LARGE_INTEGER start = Now();
            const HRESULT hr = addin.ClickArchive();
            const double total = ElapsedMs(start, Now());
            const std::string url = record.NextUrl();
            failures += FAILED(hr) || url.empty() ? 1 : 0;
            RemoveStagedFolders(url);
            beyond.push_back(total - timing->SavingMs());
            saving.push_back(timing->SavingMs());

            const LARGE_INTEGER copyStart = Now();
            CopyFileW(document.c_str(), copy.c_str(), FALSE);
            copies.push_back(ElapsedMs(copyStart, Now()));
            DeleteFileW(copy.c_str());
            launches.push_back(LaunchMs(url));
            record.NextUrl();
        }
    }
    host->Application().SetProperty(host->Office()->ActiveMember(),
                                    static_cast<IDispatch*>(&host->Office()->Document()));
    timing.reset();
    host.reset();
    DeleteFileW(document.c_str());
    RemoveDirectoryW(folder.c_str());
    wchar_t what[64];
    _snwprintf(what, 64, L"Word %3zu MB: beyond the host's save", megabytes);
    what[63] = L'\0';
    std::vector<double> floors;
    for (size_t i = 0; i < copies.size(); ++i) {
        floors.push_back(copies[i] + launches[i]);
    }
    Row(what, Summarise(beyond), Summarise(floors), L"ms (floor: CopyFileW + launch)");
    const Stats saves = Summarise(saving);
    Print(
        Format(
            L"    medians: the host's own saves %.1f (not counted), CopyFileW %.1f, launching the "
            L"connector %.1f ms",
            saves.median, Summarise(copies).median, Summarise(launches).median) +
        (failures ? L"; " + std::to_wstring(failures) + L" archives failed\n" : L"\n"));
}

// --- Outlook mails.

// Wine 8's shell puts the URL behind "Software\Microsoft\Windows\CurrentVersion\App Paths\" (52
// characters) into a buffer of 1024 characters, to look for an application of that name, before
// it looks for the scheme's handler; a longer URL overruns the buffer and takes the process down,
// whatever the scheme's registration. It then writes the registered command with the URL in place
// of "%1" into another buffer of 1024 characters and, when the whole does not fit, leaves the URL
// out. The URL of 100 mails is about 1,750 characters.
size_t LongestUrlWineLaunches() {
    size_t longest = 1024 - 52 - 1;
    wchar_t command[1024];
    LONG size = sizeof command;
    if (RegQueryValueW(HKEY_CLASSES_ROOT, L"talvorn\\shell\\open\\command", command, &size) ==
            ERROR_SUCCESS &&
        wcslen(command) > 2) {
        longest = std::min(longest, 1024 - 1 - (wcslen(command) - 2));
    }
    return longest;
}

// The add-in's call to the shell, as the benchmark's stand-in for ShellExecuteExW saw it.
struct ShellCall {
    LARGE_INTEGER at{};
    std::wstring url;
    size_t handOffs = 0;
    size_t handOffsLaunched = 0;
    double launchMs = 0;
};
ShellCall g_shellCall;

size_t CountHandOffs(const std::wstring& url) {
    const size_t files = url.find(L"$files=");
    if (files == std::wstring::npos || files + 7 == url.size()) {
        return 0;
    }
    return 1 + static_cast<size_t>(std::count(url.begin() + files, url.end(), L','));
}

// Stands in for the shell in the add-in's import table: notes the time and the whole URL, then
// has the real shell launch the connector with as many of the URL's hand-offs, from the first, as
// Wine's shell can take, and times that launch.
BOOL WINAPI RecordingShellExecuteExW(SHELLEXECUTEINFOW* info) noexcept {
    g_shellCall.at = Now();
    if (!info) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    try {
        g_shellCall.url = info->lpFile ? info->lpFile : L"";
        std::wstring launched = g_shellCall.url;
        static const size_t longest = LongestUrlWineLaunches();
        if (launched.size() > longest) {
            launched.resize(launched.rfind(L',', longest));
        }
        g_shellCall.handOffs = CountHandOffs(g_shellCall.url);
        g_shellCall.handOffsLaunched = CountHandOffs(launched);
        SHELLEXECUTEINFOW shortened = *info;
        shortened.lpFile = launched.c_str();
        const LARGE_INTEGER start = Now();
        const BOOL launchedOk = ShellExecuteExW(&shortened);
        g_shellCall.launchMs = ElapsedMs(start, Now());
        info->hInstApp = shortened.hInstApp;
        return launchedOk;
    } catch (...) {
        SetLastError(ERROR_OUTOFMEMORY);
        return FALSE;
    }
}

// Puts RecordingShellExecuteExW in place of the shell's function for the add-in's calls.
ImportPatch RecordShellCalls(const LoadedModule& module) {
    return ImportPatch(module.Handle(),
                       reinterpret_cast<void*>(
                           GetProcAddress(GetModuleHandleW(L"shell32.dll"), "ShellExecuteExW")),
                       reinterpret_cast<void*>(&RecordingShellExecuteExW));
}

// The wait the staging folders' names impose on `count` folders with no work between them: each
// needs a tick count of its own, and a later tick is waited for in 10 ms steps.
double StagingFloorMs(int count) {
    const LARGE_INTEGER start = Now();
    DWORD last = GetTickCount();
    for (int folder = 1; folder < count; ++folder) {
        while (GetTickCount() == last) {
            Sleep(10);
        }
        last = GetTickCount();
    }
    return ElapsedMs(start, Now());
}

void BenchMails(const LoadedModule& module, const std::wstring& itemFile, int mails, int runs,
                ConnectorRecord& record) {
    const ImportPatch shell = RecordShellCalls(module);
    const std::vector<std::wstring> items(mails, outlooksim::ReadItemTextFile(itemFile));
    std::vector<double> upToShell;
    std::vector<double> launches;
    std::vector<double> floors;
    int failures = 0;
    for (int run = 0; run < runs; ++run) {
        std::unique_ptr<SimulatedHost> host = SimulatedHost::Outlook(items);
        ConnectedAddin addin(module, *host);
        g_shellCall = ShellCall();
        const LARGE_INTEGER start = Now();
        const HRESULT hr = addin.ClickArchive();
        const bool launched = !record.NextUrl().empty();
        failures += FAILED(hr) || !launched || g_shellCall.handOffs != static_cast<size_t>(mails);
        upToShell.push_back(ElapsedMs(start, g_shellCall.at));
        launches.push_back(g_shellCall.launchMs);
        RemoveStagedFolders(std::string(g_shellCall.url.begin(), g_shellCall.url.end()));
        floors.push_back(StagingFloorMs(mails));
    }
    Row((std::to_wstring(mails) + L" mails: up to the shell call").c_str(), Summarise(upToShell),
        Summarise(floors), L"ms (floor: a tick count a folder)");
    const Stats launch = Summarise(launches);
    Print(Format(L"    then the shell launching the connector: median %.1f, min %.1f, max %.1f ms",
                 launch.median, launch.min, launch.max) +
          L" (with the first " + std::to_wstring(g_shellCall.handOffsLaunched) + L" of " +
          std::to_wstring(g_shellCall.handOffs) + L" hand-offs: Wine's shell takes no longer URL)" +
          (failures ? L"; " + std::to_wstring(failures) + L" archives failed\n" : L"\n"));
}

// Archives `mails` mails a few times with the sampler on, after one run that warms up, and
// appends the samples to `samplesFile`: the add-in's module, the simulated mapi32.dll, this
// program (the simulated Outlook), and the system's ole32.dll (the message files' compound files)
// and kernelbase.dll (files, waits) are the modules whose functions the samples name.
int ProfileMails(const std::wstring& samplesFile, const std::wstring& dll,
                 const std::wstring& itemFile, int mails) {
    const PrivateTemp temp(L"profile");
    const PrivateSettings settings;
    const LoadedModule module(dll, kAddinClass);
    ConnectorRecord record;
    const ImportPatch shell = RecordShellCalls(module);
    const std::vector<std::wstring> items(mails, outlooksim::ReadItemTextFile(itemFile));
    for (int run = 0; run < 6; ++run) {
        std::unique_ptr<SimulatedHost> host = SimulatedHost::Outlook(items);
        ConnectedAddin addin(module, *host);
        std::optional<Sampler> sampler;
        if (run > 0) {
            sampler.emplace(std::vector<HMODULE>{
                module.Handle(), GetModuleHandleW(L"mapi32.dll"), GetModuleHandleW(nullptr),
                GetModuleHandleW(L"ole32.dll"), GetModuleHandleW(L"kernelbase.dll")});
        }
        const LARGE_INTEGER start = Now();
        addin.ClickArchive();
        Print(Format(L"run %.0f: %.1f ms up to the shell call\n", static_cast<double>(run),
                     ElapsedMs(start, g_shellCall.at)));
        if (sampler) {
            sampler->WriteSamples(samplesFile);
        }
        record.NextUrl();
        RemoveStagedFolders(std::string(g_shellCall.url.begin(), g_shellCall.url.end()));
    }
    // The add-in's log writes each line in three pieces to two sinks, unbuffered.
    const std::string log = ReadBytes(TempPath() + L"bench.log");
    Print(Format(L"the add-in's log: %.0f lines for %.0f mails\n",
                 static_cast<double>(std::count(log.begin(), log.end(), '\n')), 6.0 * mails));
    return 0;
}

std::wstring FileSizeKiB(const std::wstring& path) {
    WIN32_FILE_ATTRIBUTE_DATA data{};
    GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &data);
    return Format(L"%.0f KiB", static_cast<double>(data.nFileSizeLow) / 1024.0);
}

int RunBenchmark(int runs, const std::wstring& product, const std::wstring& empty,
                 const std::wstring& itemFile) {
    const PrivateTemp temp(L"bench");
    const PrivateSettings settings;
    SYSTEM_INFO system;
    GetSystemInfo(&system);
    const std::wstring wine = WineVersion();
    Print(L"add-in benchmark: " + std::to_wstring(runs) + L" runs each, " +
          std::to_wstring(system.dwNumberOfProcessors) + L" processors" +
          (wine.empty() ? std::wstring(L", Windows") : L", under Wine " + wine) +
          L" (Wine's timings are not Windows')\n\n");
    Print(
        L"                                    add-in: median      min      max  |  floor: median "
        L"     min      max   ratio\n");

    std::vector<double> startups[2];
    std::vector<double> disconnects[2];
    std::vector<double> unloads[2];
    std::vector<double> added[2];
    int failed = 0;
    for (int run = 0; run < runs; ++run) {
        for (int kind = 0; kind < 2; ++kind) {
            StartupSample sample;
            if (!RunStartupProcess(kind == 0 ? product : empty, kind == 0 ? L"product" : L"empty",
                                   itemFile, sample)) {
                ++failed;
                continue;
            }
            startups[kind].push_back(sample.startup);
            disconnects[kind].push_back(sample.disconnect);
            unloads[kind].push_back(sample.unload);
            added[kind].push_back(sample.addedKiB);
        }
    }
    const Stats startup = Summarise(startups[0]);
    Row(L"start-up (load to GetCustomUI)", startup, Summarise(startups[1]), L"ms");
    Row(L"shutdown: disconnection", Summarise(disconnects[0]), Summarise(disconnects[1]), L"ms");
    Row(L"shutdown: unloading the module", Summarise(unloads[0]), Summarise(unloads[1]), L"ms");
    Row(L"private bytes added to the host", Summarise(added[0]), Summarise(added[1]), L"KiB");

    {
        LoadedModule module(product, kAddinClass);
        ConnectorRecord record;
        for (size_t megabytes : {1, 10, 100}) {
            BenchWord(module, megabytes, runs, record);
        }
        BenchMails(module, itemFile, 100, runs, record);
    }
    Print(L"\nstart-up median " + Format(L"%.1f", startup.median) +
          L" ms against Outlook's threshold of 1000 ms for disabling a slow add-in: " +
          Format(L"%.1f%%", startup.median / 10.0) + L" of it\n");
    Print(L"module size: add-in " + FileSizeKiB(product) + L", empty add-in " + FileSizeKiB(empty) +
          L"\n");
    if (failed) {
        Print(std::to_wstring(failed) + L" start-up processes failed to report\n");
    }
    return failed ? 1 : 0;
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
    if (FAILED(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED))) {
        return 1;
    }
    int result = 2;
    try {
        if (argc == 5 && std::wstring(argv[1]) == L"--startup") {
            result = MeasureStartup(argv[2], std::wstring(argv[3]) == L"product", argv[4]);
        } else if (argc >= 5 && std::wstring(argv[1]) == L"--profile") {
            result = ProfileMails(argv[2], argv[3], argv[4], argc > 5 ? _wtoi(argv[5]) : 100);
        } else {
            int first = 1;
            int runs = 20;
            if (argc > 2 && std::wstring(argv[1]) == L"--runs") {
                runs = std::max(1, _wtoi(argv[2]));
                first = 3;
            }
            if (argc - first == 3) {
                result = RunBenchmark(runs, argv[first], argv[first + 1], argv[first + 2]);
            } else {
                Print(
                    L"usage: bench.exe [--runs 20] <add-in dll> <empty add-in dll> <item file>\n");
            }
        }
    } catch (const std::exception& error) {
        std::printf("bench: %s\n", error.what());
        result = 1;
    }
    CoUninitialize();
    return result;
}
