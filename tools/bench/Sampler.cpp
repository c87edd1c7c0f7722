#include "Sampler.h"

#include <psapi.h>

#include <cstdio>
#include <cstring>

namespace {

constexpr size_t kStackCopy = 1024 * 1024;
constexpr size_t kMaxSamples = 100000;

std::string ModuleName(ULONG_PTR address) {
    HMODULE module = nullptr;
    char name[MAX_PATH] = "?";
    if (GetModuleHandleExW(
            GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
            reinterpret_cast<LPCWSTR>(address), &module)) {
        GetModuleBaseNameA(GetCurrentProcess(), module, name, MAX_PATH);
    }
    return name;
}

}  // namespace

Sampler::Sampler(std::vector<HMODULE> modules)
    : m_modules(std::move(modules)), m_samples(kMaxSamples), m_stack(kStackCopy) {
    for (HMODULE module : m_modules) {
        MODULEINFO info{};
        GetModuleInformation(GetCurrentProcess(), module, &info, sizeof info);
        const auto begin = reinterpret_cast<ULONG_PTR>(info.lpBaseOfDll);
        m_ranges.push_back({begin, begin + info.SizeOfImage});
    }
    DuplicateHandle(GetCurrentProcess(), GetCurrentThread(), GetCurrentProcess(), &m_target, 0,
                    FALSE, DUPLICATE_SAME_ACCESS);
    // The committed part of the stack runs from below this frame up to its base.
    MEMORY_BASIC_INFORMATION stack{};
    VirtualQuery(&stack, &stack, sizeof stack);
    m_stackBase = reinterpret_cast<ULONG_PTR>(stack.BaseAddress) + stack.RegionSize;
    m_thread = CreateThread(nullptr, 0, &Sampler::Run, this, 0, nullptr);
    SetThreadPriority(m_thread, THREAD_PRIORITY_HIGHEST);
}

Sampler::~Sampler() {
    Stop();
    CloseHandle(m_target);
}

void Sampler::Stop() {
    if (!m_thread) {
        return;
    }
    InterlockedExchange(&m_stop, 1);
    WaitForSingleObject(m_thread, INFINITE);
    CloseHandle(m_thread);
    m_thread = nullptr;
}

DWORD WINAPI Sampler::Run(void* self) {
    static_cast<Sampler*>(self)->TakeSamples();
    return 0;
}

int Sampler::ModuleOf(ULONG_PTR address) const {
    for (size_t i = 0; i < m_ranges.size(); ++i) {
        if (address >= m_ranges[i].begin + 8 && address < m_ranges[i].end) {
            return static_cast<int>(i);
        }
    }
    return -1;
}

// Nothing that may take a lock the stopped thread holds (the heap's, the loader's) runs while it
// is stopped: only the copy of its registers and stack. The copy is unwound afterwards with the
// modules' unwind tables, its frame registers moved to the copy.
void Sampler::TakeSamples() {
    while (!m_stop && m_taken < m_samples.size()) {
        Sleep(1);
        CONTEXT context{};
        context.ContextFlags = CONTEXT_FULL;
        if (SuspendThread(m_target) == static_cast<DWORD>(-1)) {
            continue;
        }
        size_t copied = 0;
        if (GetThreadContext(m_target, &context) && context.Rsp < m_stackBase) {
            copied = m_stackBase - context.Rsp < m_stack.size() ? m_stackBase - context.Rsp
                                                                : m_stack.size();
            std::memcpy(m_stack.data(), reinterpret_cast<const void*>(context.Rsp), copied);
        }
        ResumeThread(m_target);
        if (copied == 0) {
            continue;
        }
        Sample& sample = m_samples[m_taken++];
        sample.rip = context.Rip;
        sample.frames = 0;
        const ULONG_PTR realBegin = context.Rsp;
        const ULONG_PTR copyBegin = reinterpret_cast<ULONG_PTR>(m_stack.data());
        const auto toCopy = [&](DWORD64& reg) {
            if (reg >= realBegin && reg < realBegin + copied) {
                reg = reg - realBegin + copyBegin;
            }
        };
        toCopy(context.Rsp);
        toCopy(context.Rbp);
        for (int depth = 0; depth < 128 && sample.frames < kFrames; ++depth) {
            if (ModuleOf(context.Rip) >= 0) {
                sample.frame[sample.frames++] = context.Rip;
            }
            DWORD64 imageBase = 0;
            PRUNTIME_FUNCTION function = RtlLookupFunctionEntry(context.Rip, &imageBase, nullptr);
            if (!function) {
                if (context.Rsp < copyBegin || context.Rsp + 8 > copyBegin + copied) {
                    break;
                }
                std::memcpy(&context.Rip, reinterpret_cast<const void*>(context.Rsp), 8);
                context.Rsp += 8;
            } else {
                void* handlerData = nullptr;
                DWORD64 establisher = 0;
                RtlVirtualUnwind(UNW_FLAG_NHANDLER, imageBase, context.Rip, function, &context,
                                 &handlerData, &establisher, nullptr);
                toCopy(context.Rbp);
            }
            if (context.Rip == 0 || context.Rsp < copyBegin || context.Rsp >= copyBegin + copied) {
                break;
            }
        }
    }
}

void Sampler::WriteSamples(const std::wstring& path) {
    Stop();
    FILE* file = _wfopen(path.c_str(), L"a");
    if (!file) {
        return;
    }
    for (size_t i = 0; i < m_taken; ++i) {
        const Sample& sample = m_samples[i];
        std::fprintf(file, "%s", ModuleName(sample.rip).c_str());
        for (size_t f = 0; f < sample.frames; ++f) {
            const int module = ModuleOf(sample.frame[f]);
            std::fprintf(file, " %d!%llx", module,
                         static_cast<unsigned long long>(sample.frame[f] - m_ranges[module].begin));
        }
        std::fprintf(file, "\n");
    }
    std::fclose(file);
}
