#include "handoff/ConnectorLaunch.h"

#include <windows.h>
#include <shellapi.h>

#include "common/LogFile.h"
#include "settings/StorageTargetText.h"
#include "settings/TDCSettings.h"

std::wstring BuildConnectorUrl(const CTDCSettings& settings, const HandOffList& list,
                               int hostKind) {
    std::wstring url = L"talvorn:\\\\di$";

    wchar_t chosen[kStorageTargetTextCapacity] = L"";
    if (settings.CountStorageTargets() > 1) {
        CTDCSettings::ReadUserValue(kLastStartCenterConfig, chosen, kStorageTargetTextCapacity);
    }
    for (const auto& [name, value] : settings.Values()) {
        if (value.Kind() != SettingKind::StorageTarget) {
            continue;
        }
        wchar_t part[kStorageTargetTextCapacity];
        if (!chosen[0]) {
            ExtractTargetPart(value.TextValue().c_str(), part);
            url += part;
            break;
        }
        wchar_t label[kStorageTargetTextCapacity];
        ExtractLabel(value.TextValue().c_str(), label);
        // Every target of the chosen label goes into the URL; labels are meant to be unique.
        if (lstrcmpiW(label, chosen) == 0) {
            ExtractTargetPart(value.TextValue().c_str(), part);
            url += part;
        }
    }

    url += L"$startapp=";
    url += std::to_wstring(hostKind);
    url += L"$files=";
    for (size_t i = 0; i < list.size(); ++i) {
        if (i > 0) {
            url += L",";
        }
        url += list[i];
    }
    return url;
}

int LaunchConnector(const CTDCSettings& settings, const HandOffList& list, int hostKind) {
    std::wstring url = BuildConnectorUrl(settings, list, hostKind);
    SHELLEXECUTEINFOW execute{};
    execute.cbSize = sizeof execute;
    execute.fMask = 0;
    execute.hwnd = nullptr;
    execute.lpVerb = L"open";
    execute.lpFile = url.c_str();
    execute.lpParameters = nullptr;
    execute.lpDirectory = nullptr;
    execute.nShow = SW_SHOW;
    if (!ShellExecuteExW(&execute)) {
        LogError(L"Failed to open talvorn Desktop Connector, error: %d\n", GetLastError());
        return 0;
    }
    return 1;
}
