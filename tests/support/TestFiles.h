// File helpers for tests: reading whole files as bytes, making files of a given size, a fresh
// temporary folder per test, and the path of a file in the source tree.
#pragma once

#include <oaidl.h>
#include <windows.h>

#include <string>

std::string ReadFileBytes(const std::wstring& path);
void WriteFileBytes(const std::wstring& path, const std::string& bytes);
bool FileExists(const std::wstring& path);
bool DirectoryExists(const std::wstring& path);
LONGLONG FileSize(const std::wstring& path);
void DeleteTree(const std::wstring& path);

// UTF-16 to UTF-8 and back, for comparing what the product wrote with what a test expects.
std::string ToUtf8(const std::wstring& text);
std::wstring FromUtf8(const std::string& text);

inline bool Contains(const std::string& text, const std::string& piece) {
    return text.find(piece) != std::string::npos;
}
// A recorded argument or result as text, or a marker when it is no text.
inline std::wstring TextOf(const VARIANT& value) {
    return value.vt == VT_BSTR && value.bstrVal ? value.bstrVal : L"<not a text>";
}

// The Windows path of `relative` (with forward slashes) below the tests folder of the source tree.
std::wstring TestSourcePath(const std::wstring& relative);

// The process's temporary directory as the product sees it (GetTempPathW, trailing backslash).
std::wstring TempDirectory();

// A folder made fresh for one test and removed with everything in it afterwards.
class ScratchFolder {
public:
    ScratchFolder();
    ~ScratchFolder();
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;

    // The folder's path with a trailing backslash.
    const std::wstring& Path() const { return m_path; }
    std::wstring operator/(const std::wstring& name) const { return m_path + name; }

private:
    std::wstring m_path;
};

// Points TMP and TEMP at a fresh folder for the life of the object, so the staging area of the
// code under test starts empty; restores the previous values afterwards.
class TempDirectoryOverride {
public:
    TempDirectoryOverride();
    ~TempDirectoryOverride();
    TempDirectoryOverride(const TempDirectoryOverride&) = delete;
    TempDirectoryOverride& operator=(const TempDirectoryOverride&) = delete;

    // The new temporary directory, with a trailing backslash.
    const std::wstring& Path() const { return m_folder.Path(); }
    // "<temp>td_temp_inbox\", the staging area below it.
    std::wstring Inbox() const { return Path() + L"td_temp_inbox\\"; }

private:
    std::wstring m_oldTmp;
    std::wstring m_oldTemp;
    ScratchFolder m_folder;
};

// Everything the process-wide log gained since this object was made, as UTF-16 text.
class LogCapture {
public:
    LogCapture();
    std::wstring Text() const;
    bool Contains(const std::wstring& line) const {
        return Text().find(line) != std::wstring::npos;
    }

private:
    std::wstring m_path;
    LONGLONG m_start;
};

// A long test (a sweep of many runs) tells the test main's watchdog that it is not hung: the time
// limit counts from the last call.
void TestMakesProgress();
