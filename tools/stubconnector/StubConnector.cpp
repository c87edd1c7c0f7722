// Stand-in for the Desktop Connector in the Wine prefix: registered as the handler of the
// "talvorn" URL scheme, it appends every URL it is started with, one UTF-8 line each, to
// "%TEMP%\connector_urls.txt". The simulated host and the tests read that file to see what the
// add-in asked the connector to import. It imports nothing and deletes nothing.
#include <windows.h>

#include <string>

#include "common/UniqueResource.h"

int wmain(int argc, wchar_t** argv) {
    std::wstring url;
    for (int i = 1; i < argc; ++i) {
        if (i > 1) {
            url += L" ";
        }
        url += argv[i];
    }
    url += L"\n";

    wchar_t temp[MAX_PATH];
    DWORD length = GetTempPathW(MAX_PATH, temp);
    if (length == 0 || length >= MAX_PATH) {
        return 1;
    }
    std::wstring record = std::wstring(temp) + L"connector_urls.txt";
    int bytes = WideCharToMultiByte(CP_UTF8, 0, url.data(), static_cast<int>(url.size()), nullptr,
                                    0, nullptr, nullptr);
    std::string utf8(static_cast<size_t>(bytes), '\0');
    WideCharToMultiByte(CP_UTF8, 0, url.data(), static_cast<int>(url.size()), utf8.data(), bytes,
                        nullptr, nullptr);
    // Connectors of commands in a row run at the same time, and Wine does not make appends of
    // different processes atomic (lines overwrite each other): each writer has the file to itself
    // for its one write, the others wait their turn. Readers may read meanwhile.
    UniqueFileHandle file;
    for (int tries = 0; tries < 10000; ++tries) {
        file.reset(CreateFileW(record.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, OPEN_ALWAYS,
                               FILE_ATTRIBUTE_NORMAL, nullptr));
        if (file || GetLastError() != ERROR_SHARING_VIOLATION) {
            break;
        }
        Sleep(1);
    }
    LARGE_INTEGER end{};
    DWORD written = 0;
    if (!file || !SetFilePointerEx(file.get(), end, nullptr, FILE_END) ||
        !WriteFile(file.get(), utf8.data(), static_cast<DWORD>(utf8.size()), &written, nullptr)) {
        return 1;
    }
    return 0;
}
