// The process-wide diagnostic log: one UTF-8 file in the temporary directory named after the host
// program ("OUTLOOK.log"), mirrored to the console when the host has one. Every line is
// "[<local time>][TAG] message"; the caller supplies the line end.
#pragma once

#include <windows.h>

#include <cstdarg>
#include <cstdint>
#include <string>

#include "common/CheckedFormat.h"
#include "common/UniqueResource.h"

enum LogSeverity : int32_t {
    kLogOff = 0,
    kLogFatal = 1,
    kLogError = 2,
    kLogWarning = 3,
    kLogInfo = 4,
};

class LogFile {
public:
    // A log of this size or more at opening is moved aside to "<path>.old".
    static constexpr uint32_t kRotationThreshold = 0xA00000;
    // Messages are formatted into this many characters, the terminating NUL included.
    static constexpr size_t kMessageCapacity = 65536;

    // Opens `path`, or the default path when none or an empty one is given, at level kLogInfo.
    explicit LogFile(const wchar_t* path = nullptr) noexcept;
    ~LogFile();
    LogFile(const LogFile&) = delete;
    LogFile& operator=(const LogFile&) = delete;

    // 0 closes the file and switches logging off; any other level opens it again if it was off.
    void SetLevel(int32_t level) noexcept;
    // Replaces the path (the default when `path` is null or empty) and opens it.
    void SetPath(const wchar_t* path) noexcept;
    void Close() noexcept;

    void Write(int32_t severity, const wchar_t* format, va_list args) noexcept;

    const std::wstring& Path() const noexcept { return m_path; }
    bool IsOpen() const noexcept { return m_file.is_valid(); }

    // "<temp>\<program base name>.log", or empty when a piece of it cannot be had.
    static std::wstring DefaultPath();

private:
    void Open() noexcept;
    void Emit(const wchar_t* text) noexcept;
    template <class... Args>
    void Print(int32_t severity, FormatFor<Args...> format, const Args&... args) noexcept {
        PrintUnchecked(severity, format.c_str(), args...);
    }
    void PrintUnchecked(int32_t severity, const wchar_t* format, ...) noexcept;

    UniqueFileHandle m_file;
    HANDLE m_console;
    int32_t m_level = kLogInfo;
    std::wstring m_path;
    uint32_t m_threshold = kRotationThreshold;
};

// The instance that LogFatal, LogError, LogWarning and LogInfo write to.
LogFile& TheLog() noexcept;

// The C runtime side of the four below; called only by them.
namespace unchecked {
void WriteLog(int32_t severity, const wchar_t* format, ...) noexcept;
}  // namespace unchecked

// Each format is checked against its arguments while compiling (common/CheckedFormat.h).
template <class... Args>
void LogFatal(FormatFor<Args...> format, const Args&... args) noexcept {
    unchecked::WriteLog(kLogFatal, format.c_str(), args...);
}
template <class... Args>
void LogError(FormatFor<Args...> format, const Args&... args) noexcept {
    unchecked::WriteLog(kLogError, format.c_str(), args...);
}
template <class... Args>
void LogWarning(FormatFor<Args...> format, const Args&... args) noexcept {
    unchecked::WriteLog(kLogWarning, format.c_str(), args...);
}
template <class... Args>
void LogInfo(FormatFor<Args...> format, const Args&... args) noexcept {
    unchecked::WriteLog(kLogInfo, format.c_str(), args...);
}

// A best-effort step's failure, logged as an error with `format` (whose one argument is the
// HRESULT); the HRESULT comes back for the caller that goes on differently after a failure.
inline HRESULT LogIfFailed(HRESULT hr, CheckedFormat<HRESULT> format) noexcept {
    if (FAILED(hr)) {
        LogError(format, hr);
    }
    return hr;
}
