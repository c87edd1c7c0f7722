#include "support/ConnectorRecord.h"

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
