#include "support/TestFiles.h"

#include <filesystem>
#include <stdexcept>

#include "common/LogFile.h"
#include "common/UniqueResource.h"

std::string ReadFileBytes(const std::wstring& path) {
    UniqueFileHandle file(CreateFileW(path.c_str(), GENERIC_READ,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                      nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) {
        throw std::runtime_error("cannot open " + ToUtf8(path));
    }
    std::string bytes;
    char chunk[65536];
    DWORD read = 0;
    while (ReadFile(file.get(), chunk, sizeof chunk, &read, nullptr) && read > 0) {
        bytes.append(chunk, read);
    }
    return bytes;
}

void WriteFileBytes(const std::wstring& path, const std::string& bytes) {
    UniqueFileHandle file(CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                      FILE_ATTRIBUTE_NORMAL, nullptr));
    DWORD written = 0;
    if (!file ||
        !WriteFile(file.get(), bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr) ||
        written != bytes.size()) {
        throw std::runtime_error("cannot write " + ToUtf8(path));
    }
}

bool FileExists(const std::wstring& path) {
    DWORD attributes = GetFileAttributesW(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && !(attributes & FILE_ATTRIBUTE_DIRECTORY);
}

bool DirectoryExists(const std::wstring& path) {
    DWORD attributes = GetFileAttributesW(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY);
}

LONGLONG FileSize(const std::wstring& path) {
    WIN32_FILE_ATTRIBUTE_DATA data{};
    if (!GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &data)) {
        return -1;
    }
    return (static_cast<LONGLONG>(data.nFileSizeHigh) << 32) | data.nFileSizeLow;
}

void DeleteTree(const std::wstring& path) {
    std::error_code ignored;  // what cannot be removed stays behind, no reason to stop a test
    std::filesystem::remove_all(path.ends_with(L'\\') ? path.substr(0, path.size() - 1) : path,
                                ignored);
}

std::string ToUtf8(const std::wstring& text) {
    int bytes = WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr,
                                    0, nullptr, nullptr);
    std::string utf8(static_cast<size_t>(bytes > 0 ? bytes : 0), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), utf8.data(), bytes,
                        nullptr, nullptr);
    return utf8;
}

std::wstring FromUtf8(const std::string& text) {
    int chars =
        MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr, 0);
    std::wstring wide(static_cast<size_t>(chars > 0 ? chars : 0), L'\0');
    MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), wide.data(), chars);
    return wide;
}

std::wstring TestSourcePath(const std::wstring& relative) {
    // The tests run under Wine, where drive Z: is the Unix root.
    std::wstring path = L"Z:" + FromUtf8(TEST_SOURCE_DIR) + L"/" + relative;
    for (wchar_t& c : path) {
        if (c == L'/') {
            c = L'\\';
        }
    }
    return path;
}

std::wstring TempDirectory() {
    wchar_t temp[MAX_PATH];
    DWORD length = GetTempPathW(MAX_PATH, temp);
    return std::wstring(temp, length);
}

ScratchFolder::ScratchFolder() {
    static unsigned counter = 0;
    m_path = TempDirectory() + L"scratch" + std::to_wstring(++counter) + L"\\";
    DeleteTree(m_path);
    if (!CreateDirectoryW(m_path.c_str(), nullptr)) {
        throw std::runtime_error("cannot create " + ToUtf8(m_path));
    }
}

ScratchFolder::~ScratchFolder() { DeleteTree(m_path); }

LogCapture::LogCapture() : m_path(TheLog().Path()), m_start(FileSize(m_path)) {
    if (m_start < 0) {
        m_start = 0;
    }
}

std::wstring LogCapture::Text() const {
    std::string bytes = ReadFileBytes(m_path);
    if (static_cast<LONGLONG>(bytes.size()) <= m_start) {
        return std::wstring();
    }
    return FromUtf8(bytes.substr(static_cast<size_t>(m_start)));
}

namespace {
std::wstring GetVariable(const wchar_t* name) {
    wchar_t value[MAX_PATH] = L"";
    DWORD length = GetEnvironmentVariableW(name, value, MAX_PATH);
    return length < MAX_PATH ? std::wstring(value, length) : std::wstring();
}
}  // namespace

TempDirectoryOverride::TempDirectoryOverride()
    : m_oldTmp(GetVariable(L"TMP")), m_oldTemp(GetVariable(L"TEMP")) {
    SetEnvironmentVariableW(L"TMP", m_folder.Path().c_str());
    SetEnvironmentVariableW(L"TEMP", m_folder.Path().c_str());
}

TempDirectoryOverride::~TempDirectoryOverride() {
    SetEnvironmentVariableW(L"TMP", m_oldTmp.c_str());
    SetEnvironmentVariableW(L"TEMP", m_oldTemp.c_str());
}
