// Simulated host: archives a real document through the add-in's own staging and hand-off code,
// the way an Office host's archive command does, and prints what the connector would be given.
// Usage: hostsim.exe <document>
#include <windows.h>

#include <cstdio>
#include <string>

#include "common/BoundedFormat.h"
#include "common/HandOffList.h"
#include "common/LogFile.h"
#include "common/PropertyMap.h"
#include "handoff/ConnectorLaunch.h"
#include "handoff/HandOff.h"
#include "handoff/StagingArea.h"
#include "settings/TDCSettings.h"

namespace {

// Writes UTF-8 to standard output whatever the console code page, so that German texts and the
// hand-off document read correctly in a Linux terminal under Wine.
void Print(const std::wstring& text) {
    int bytes = WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr,
                                    0, nullptr, nullptr);
    std::string utf8(static_cast<size_t>(bytes > 0 ? bytes : 0), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), utf8.data(), bytes,
                        nullptr, nullptr);
    fwrite(utf8.data(), 1, utf8.size(), stdout);
    fflush(stdout);
}

std::string ReadBytes(const std::wstring& path) {
    std::string bytes;
    UniqueFileHandle file(CreateFileW(path.c_str(), GENERIC_READ,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                                      FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) {
        return bytes;
    }
    char chunk[4096];
    DWORD read = 0;
    while (ReadFile(file.get(), chunk, sizeof chunk, &read, nullptr) && read > 0) {
        bytes.append(chunk, read);
    }
    return bytes;
}

std::wstring TempPath() {
    wchar_t temp[MAX_PATH];
    DWORD length = GetTempPathW(MAX_PATH, temp);
    return std::wstring(temp, length < MAX_PATH ? length : 0);
}

// The connector is started asynchronously by the shell; its record shows up shortly after.
std::string WaitForRecord(const std::wstring& record, size_t seen) {
    for (DWORD start = GetTickCount(); GetTickCount() - start < 10000; Sleep(50)) {
        std::string bytes = ReadBytes(record);
        if (bytes.size() > seen && bytes.back() == '\n') {
            return bytes.substr(seen);
        }
    }
    return std::string();
}

std::wstring FormatFileTime(const FILETIME& utc) {
    FILETIME local;
    SYSTEMTIME time;
    if (!FileTimeToLocalFileTime(&utc, &local) || !FileTimeToSystemTime(&local, &time)) {
        return std::wstring();
    }
    return FormatString(L"%04u-%02u-%02u %02u:%02u:%02u", time.wYear, time.wMonth, time.wDay,
                        time.wHour, time.wMinute, time.wSecond);
}

int Archive(const wchar_t* document) {
    WIN32_FILE_ATTRIBUTE_DATA info{};
    if (!GetFileAttributesExW(document, GetFileExInfoStandard, &info)) {
        Print(FormatString(L"cannot read %s (error %lu)\n", document, GetLastError()));
        return 2;
    }
    wchar_t folder[MAX_PATH];
    if (!CreateStagingFolder(folder, MAX_PATH)) {
        Print(L"no temporary directory\n");
        return 1;
    }
    const wchar_t* slash = wcsrchr(document, L'\\');
    wchar_t name[MAX_PATH];
    CopyBounded(name, MAX_PATH, slash ? slash + 1 : document);
    SanitizeFileName(name);
    std::wstring staged = std::wstring(folder) + name;
    if (!CopyFileW(document, staged.c_str(), FALSE)) {
        Print(FormatString(L"cannot stage %s (error %lu)\n", document, GetLastError()));
        return 1;
    }

    PropertyMap properties;
    std::wstring title(name);
    title = title.substr(0, title.rfind(L'.'));
    properties.Add(L"MSO_TITLE", title.c_str());
    properties.Add(L"MSO_LAST_SAVE_TIME", FormatFileTime(info.ftLastWriteTime).c_str());
    properties.Add(L"FILE_SIZE", std::to_wstring(info.nFileSizeLow).c_str());

    HandOffList handOffs;
    if (!WriteHandOff(staged.c_str(), nullptr, &properties, handOffs, 0)) {
        Print(L"the hand-off document could not be written\n");
        return 1;
    }
    std::wstring id = handOffs.back();
    std::wstring handOffPath = std::wstring(folder) + id + L".xml";
    Print(FormatString(L"staging folder:  %s\n", folder));
    Print(FormatString(L"staged copy:     %s\n", staged.c_str()));
    Print(FormatString(L"hand-off file:   %s\n", handOffPath.c_str()));
    Print(L"hand-off document (UTF-8 with BOM, CRLF):\n");
    std::string xml = ReadBytes(handOffPath);
    if (xml.size() >= 3 && xml.compare(0, 3, "\xEF\xBB\xBF") == 0) {
        xml.erase(0, 3);
    }
    fwrite(xml.data(), 1, xml.size(), stdout);
    Print(L"\n");

    // What the stub connector registered for the "talvorn" scheme in this prefix receives.
    std::wstring record = TempPath() + L"connector_urls.txt";
    size_t seen = ReadBytes(record).size();
    CTDCSettings settings;
    settings.LoadSettings();
    Print(FormatString(L"connector URL:   %s\n", BuildConnectorUrl(settings, handOffs, 2).c_str()));
    if (!LaunchConnector(settings, handOffs, 2)) {
        Print(L"the connector could not be started\n");
        return 1;
    }
    std::string received = WaitForRecord(record, seen);
    Print(L"connector got:   ");
    fwrite(received.data(), 1, received.size(), stdout);
    Print(received.empty() ? L"(nothing within 10 s)\n" : L"");
    Print(FormatString(L"log file:        %s\n", TheLog().Path().c_str()));
    return 0;
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
    if (argc != 2) {
        Print(L"usage: hostsim.exe <document>\n");
        return 2;
    }
    try {
        return Archive(argv[1]);
    } catch (...) {
        Print(L"out of memory\n");
        return 1;
    }
}
