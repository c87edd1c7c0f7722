// A sampling profiler of the benchmark's own main thread, for finding where a command spends its
// time: another thread stops the measured one about every millisecond, copies its instruction
// pointer and the top of its stack, and lets it go on. Each sample keeps the return addresses on
// that stack that lie in the modules of interest (innermost first) and is written as one line,
// "<module stopped in> <module>!<rva> ...", for scripts/profile-report.py to turn into function
// names with the build's debug information.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

class Sampler {
public:
    // Starts sampling the calling thread; `modules` are those whose return addresses are kept.
    explicit Sampler(std::vector<HMODULE> modules);
    ~Sampler();
    Sampler(const Sampler&) = delete;
    Sampler& operator=(const Sampler&) = delete;

    // Stops sampling and appends the samples to `path`.
    void WriteSamples(const std::wstring& path);

private:
    static constexpr size_t kFrames = 24;
    struct Sample {
        DWORD64 rip = 0;
        size_t frames = 0;
        DWORD64 frame[kFrames] = {};
    };
    struct Range {
        ULONG_PTR begin = 0;
        ULONG_PTR end = 0;
    };

    static DWORD WINAPI Run(void* self);
    void TakeSamples();
    void Stop();
    int ModuleOf(ULONG_PTR address) const;

    std::vector<HMODULE> m_modules;
    std::vector<Range> m_ranges;
    HANDLE m_target = nullptr;
    ULONG_PTR m_stackBase = 0;
    std::vector<Sample> m_samples;
    std::vector<BYTE> m_stack;
    size_t m_taken = 0;
    volatile LONG m_stop = 0;
    HANDLE m_thread = nullptr;
};
