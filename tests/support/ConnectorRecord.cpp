#include "support/ConnectorRecord.h"

#include <stdexcept>

#include "common/UniqueResource.h"
#include "support/TestFiles.h"

namespace {

std::string ReadRecord(const std::wstring& path) {
    return FileExists(path) ? ReadFileBytes(path) : std::string();
}

std::vector<std::wstring> SplitLines(const std::string& bytes) {
    std::vector<std::wstring> lines;
    size_t start = 0;
    for (size_t end = bytes.find('\n'); end != std::string::npos; end = bytes.find('\n', start)) {
        lines.push_back(FromUtf8(bytes.substr(start, end - start)));
        start = end + 1;
    }
    return lines;
}

void SetDefault(HKEY root, const wchar_t* path, const std::wstring& text) {
    UniqueHKey key;
    if (RegCreateKeyExW(root, path, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, key.put(), nullptr) ==
        ERROR_SUCCESS) {
        RegSetValueExW(key.get(), nullptr, 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()),
                       static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t)));
    }
}

}  // namespace

ConnectorRecord::ConnectorRecord()
    : m_path(TempDirectory() + L"connector_urls.txt"), m_start(ReadRecord(m_path).size()) {}

std::vector<std::wstring> ConnectorRecord::Urls() const {
    std::string bytes = ReadRecord(m_path);
    return SplitLines(bytes.size() > m_start ? bytes.substr(m_start) : std::string());
}

std::vector<std::wstring> ConnectorRecord::WaitForUrls(size_t count, DWORD timeoutMs) const {
    const DWORD start = GetTickCount();
    std::vector<std::wstring> urls = Urls();
    while (urls.size() < count && GetTickCount() - start < timeoutMs) {
        Sleep(20);
        urls = Urls();
    }
    return urls;
}

UrlHandlerRemoval::UrlHandlerRemoval() {
    wchar_t command[1024] = L"";
    DWORD size = sizeof command - sizeof(wchar_t);
    if (RegGetValueW(HKEY_CLASSES_ROOT, L"talvorn\\shell\\open\\command", nullptr, RRF_RT_REG_SZ,
                     nullptr, command, &size) != ERROR_SUCCESS) {
        throw std::runtime_error("the stub connector is not registered in this prefix");
    }
    m_command = command;
    RegDeleteTreeW(HKEY_CLASSES_ROOT, L"talvorn");
}

UrlHandlerRemoval::~UrlHandlerRemoval() {
    SetDefault(HKEY_CLASSES_ROOT, L"talvorn", L"URL:talvorn Desktop Connector");
    UniqueHKey key;
    if (RegOpenKeyExW(HKEY_CLASSES_ROOT, L"talvorn", 0, KEY_ALL_ACCESS, key.put()) ==
        ERROR_SUCCESS) {
        RegSetValueExW(key.get(), L"URL Protocol", 0, REG_SZ, reinterpret_cast<const BYTE*>(L""),
                       sizeof(wchar_t));
    }
    SetDefault(HKEY_CLASSES_ROOT, L"talvorn\\shell\\open\\command", m_command);
}
