// What the stub connector, the prefix's handler of the "talvorn" URL scheme, received since this
// object was made. The stub appends each URL to "%TEMP%\connector_urls.txt"; it inherits the test
// process's private TEMP, so parallel test processes never read each other's URLs.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

class ConnectorRecord {
public:
    ConnectorRecord();

    // The URLs received so far; waits up to `timeoutMs` for at least `count` of them, since the
    // shell starts the connector asynchronously.
    std::vector<std::wstring> WaitForUrls(size_t count, DWORD timeoutMs = 10000) const;
    // The URLs received so far, without waiting.
    std::vector<std::wstring> Urls() const;

private:
    std::wstring m_path;
    size_t m_start;
};
