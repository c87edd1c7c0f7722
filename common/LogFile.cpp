#include "common/LogFile.h"

#include <ctime>
#include <cwchar>
#include <string>

#include "common/BoundedFormat.h"

namespace {

constexpr size_t kTimeCapacity = 128;

const wchar_t* TagOf(int32_t severity) noexcept {
    switch (severity) {
    case kLogFatal:
        return L"[FTL] ";
    case kLogError:
        return L"[ERR] ";
    case kLogWarning:
        return L"[WRN] ";
    default:
        return L"[INF] ";
    }
}

// "[Www Mmm dd hh:mm:ss yyyy]" in local time; "[]" when the conversion fails.
void FormatTimeStamp(wchar_t (&stamp)[kTimeCapacity + 2]) noexcept {
    wchar_t text[kTimeCapacity] = L"";
    __time64_t now = _time64(nullptr);
    struct tm local {};
    if (_localtime64_s(&local, &now) == 0 && _wasctime_s(text, kTimeCapacity, &local) == 0) {
        size_t length = wcslen(text);
        if (length > 0 && text[length - 1] == L'\n') {
            text[length - 1] = L'\0';
        }
    } else {
        text[0] = L'\0';
    }
    // The brackets always fit: the stamp has room for the longest time text and two more.
    FormatBounded(stamp, kTimeCapacity + 2, L"[%s]", text);
}

HANDLE CreateLogHandle(const std::wstring& path) noexcept {
    return CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr /* security */,
                       OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr /* template */);
}

}  // namespace

LogFile::LogFile(const wchar_t* path) noexcept : m_console(GetStdHandle(STD_ERROR_HANDLE)) {
    SetPath(path);
}

LogFile::~LogFile() { Close(); }

std::wstring LogFile::DefaultPath() {
    wchar_t module[MAX_PATH];
    DWORD length = GetModuleFileNameW(GetModuleHandleW(nullptr), module, MAX_PATH);
    if (length == 0 || length >= MAX_PATH) {
        return std::wstring();
    }
    wchar_t temp[MAX_PATH];
    length = GetTempPathW(MAX_PATH, temp);
    if (length == 0 || length >= MAX_PATH) {
        return std::wstring();
    }
    wchar_t* name = wcsrchr(module, L'\\');
    if (!name) {
        return std::wstring();
    }
    wchar_t* dot = wcsrchr(name, L'.');
    if (!dot) {
        return std::wstring();
    }
    *dot = L'\0';
    // The temporary path ends in a backslash and the base name keeps its own, so the log path
    // holds a doubled backslash ("Temp\\OUTLOOK.log"); the file system takes it as one.
    return std::wstring(temp) + name + L".log";
}

void LogFile::SetPath(const wchar_t* path) noexcept {
    try {
        m_path = (path && *path) ? std::wstring(path) : DefaultPath();
    } catch (...) {
        m_path.clear();
    }
    Open();
}

void LogFile::SetLevel(int32_t level) noexcept {
    if (level == kLogOff) {
        Close();
        m_level = kLogOff;
        return;
    }
    bool wasOff = m_level == kLogOff;
    m_level = level;
    if (wasOff) {
        Open();
    }
}

void LogFile::Close() noexcept { m_file.reset(); }

void LogFile::Open() noexcept {
    if (m_path.empty()) {
        return;
    }
    m_file.reset(CreateLogHandle(m_path));
    if (!m_file) {
        Print(kLogError, L"Unable to open logfile '%s'\n", m_path.c_str());
        return;
    }
    LARGE_INTEGER size{};
    if (GetFileSizeEx(m_file.get(), &size) && size.QuadPart >= m_threshold) {
        m_file.reset();
        try {
            std::wstring old = m_path + L".old";
            DeleteFileW(old.c_str());
            MoveFileW(m_path.c_str(), old.c_str());
        } catch (...) {
            // Without memory for the old name the log is simply reopened as it is.
        }
        m_file.reset(CreateLogHandle(m_path));
        if (!m_file) {
            Print(kLogError, L"Unable to open logfile '%s'\n", m_path.c_str());
            return;
        }
    }
    SetFilePointer(m_file.get(), 0, nullptr, FILE_END);
}

void LogFile::Emit(const wchar_t* text) noexcept {
    const size_t length = wcslen(text);
    if (m_console != INVALID_HANDLE_VALUE) {
        DWORD written = 0;
        // Fails when the host has no console; the file still gets the text.
        WriteConsoleW(m_console, text, static_cast<DWORD>(length), &written, nullptr);
    }
    if (!m_file || length == 0) {
        return;
    }
    int bytes = WideCharToMultiByte(CP_UTF8, 0, text, static_cast<int>(length), nullptr, 0, nullptr,
                                    nullptr);
    if (bytes <= 0) {
        return;
    }
    try {
        std::string utf8(static_cast<size_t>(bytes), '\0');
        WideCharToMultiByte(CP_UTF8, 0, text, static_cast<int>(length), utf8.data(), bytes, nullptr,
                            nullptr);
        DWORD written = 0;
        WriteFile(m_file.get(), utf8.data(), static_cast<DWORD>(bytes), &written, nullptr);
    } catch (...) {
        // A log line that cannot be converted is dropped; the log never stops the host.
    }
}

void LogFile::Write(int32_t severity, const wchar_t* format, va_list args) noexcept {
    if (severity > m_level || !format) {
        return;
    }
    wchar_t stamp[kTimeCapacity + 2];
    FormatTimeStamp(stamp);
    wchar_t message[kMessageCapacity];
    // Cut, not refused: a long message still leaves its first 65,535 characters.
    _vsnwprintf(message, kMessageCapacity - 1, format, args);
    message[kMessageCapacity - 1] = L'\0';
    Emit(stamp);
    Emit(TagOf(severity));
    Emit(message);
}

void LogFile::PrintUnchecked(int32_t severity, const wchar_t* format, ...) noexcept {
    va_list args;
    va_start(args, format);
    Write(severity, format, args);
    va_end(args);
}

// Constructed before the other globals of the module, so that their constructors may log.
LogFile g_log __attribute__((init_priority(101)));

LogFile& TheLog() noexcept { return g_log; }

void unchecked::WriteLog(int32_t severity, const wchar_t* format, ...) noexcept {
    va_list args;
    va_start(args, format);
    g_log.Write(severity, format, args);
    va_end(args);
}
