#include "addin/ConnectorRequests.h"

#include <windows.h>
#include <objbase.h>
#include <oleauto.h>

#include "addin/AutomationArguments.h"
#include "capture/outlook/DeleteMail.h"
#include "common/BoundedFormat.h"
#include "common/ComPtr.h"
#include "common/HandOffList.h"
#include "common/HostKind.h"
#include "common/LogFile.h"
#include "handoff/ConnectorLaunch.h"
#include "handoff/HandOff.h"
#include "handoff/StagingArea.h"
#include "settings/InfoDialog.h"
#include "settings/SelectStorageTargetDialog.h"
#include "settings/SettingsDialog.h"
#include "settings/TDCSettings.h"

namespace {

// The hand-off keeps paths in buffers of this many characters.
constexpr DWORD kHandOffPathCapacity = 2048;

struct OfficeExecutable {
    const wchar_t* name;
    int32_t hostKind;
};

constexpr OfficeExecutable kOfficeExecutables[] = {
    {L"OUTLOOK.EXE", kHostOutlook},
    {L"WINWORD.EXE", kHostWord},
    {L"EXCEL.EXE", kHostExcel},
    {L"POWERPNT.EXE", kHostPowerPoint},
};

// A script names files relative to its own working folder at times; the connector, started
// elsewhere, needs them whole.
std::wstring ExistingFile(const std::wstring& given) {
    wchar_t full[kHandOffPathCapacity] = {};
    const DWORD length =
        given.empty() ? 0 : GetFullPathNameW(given.c_str(), kHandOffPathCapacity, full, nullptr);
    if (length == 0 || length >= kHandOffPathCapacity) {
        throw MethodFailure{E_INVALIDARG, L"Not a usable file path: \"" + given + L"\"."};
    }
    const DWORD attributes = GetFileAttributesW(full);
    if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_DIRECTORY)) {
        LogError(L"CTDConnectorCOM: no file %s\n", full);
        throw MethodFailure{HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND),
                            L"The file \"" + std::wstring(full) + L"\" does not exist."};
    }
    return full;
}

// The Application of the Outlook running on this desktop, as Outlook registers it.
ComPtr<IDispatch> RunningOutlook() {
    CLSID clsid{};
    HRESULT hr = CLSIDFromProgID(L"Outlook.Application", &clsid);
    ComPtr<IUnknown> running;
    if (SUCCEEDED(hr)) {
        hr = GetActiveObject(clsid, nullptr, running.put());
    }
    ComPtr<IDispatch> application;
    if (SUCCEEDED(hr)) {
        hr = running.query_to(application.put());
    }
    if (FAILED(hr)) {
        LogError(L"Can't find a running Outlook! hr = 0x%08X\n", hr);
        throw MethodFailure{hr, L"Outlook is not running: the mail cannot be deleted."};
    }
    return application;
}

}  // namespace

int32_t HostKindOfProcess(const wchar_t* executable) noexcept {
    for (const OfficeExecutable& office : kOfficeExecutables) {
        if (executable && lstrcmpiW(executable, office.name) == 0) {
            return office.hostKind;
        }
    }
    return kHostOther;
}

std::wstring CurrentProcessName() {
    wchar_t path[MAX_PATH] = {};
    const DWORD length = GetModuleFileNameW(nullptr, path, MAX_PATH);
    if (length == 0 || length >= MAX_PATH) {
        return {};
    }
    const wchar_t* name = wcsrchr(path, L'\\');
    return name ? name + 1 : path;
}

bool ArchiveFiles(const std::vector<std::wstring>& files, int32_t hostKind) {
    LogInfo(L"CTDConnectorCOM->Run invoked\n");
    if (files.empty()) {
        throw MethodFailure{E_INVALIDARG, L"Run needs the path of at least one file."};
    }
    // WriteHandOffsForFiles reads the paths one after the other, each ended by its NUL.
    std::wstring buffer;
    for (const std::wstring& file : files) {
        buffer += ExistingFile(file);
        buffer.push_back(L'\0');
    }
    HandOffList list;
    if (!WriteHandOffsForFiles(buffer.c_str(), static_cast<int>(files.size()), nullptr, list, 0)) {
        LogError(L"CTDConnectorCOM: writing the hand-off documents failed\n");
        return false;
    }
    CTDCSettings settings;
    settings.LoadSettings();
    if (settings.CountStorageTargets() > 1 && ShowSelectStorageTargetDialog(&settings) == 0) {
        ReleaseStagedFolders(list);
        return false;
    }
    return LaunchConnector(settings, list, hostKind) != 0;
}

bool EditSettings() {
    LogInfo(L"CTDConnectorCOM->DisplaySettings invoked\n");
    CTDCSettings settings;
    settings.LoadSettings();
    if (settings.IsOn(L"Nosettings")) {
        LogWarning(L"CTDConnectorCOM: settings are administratively disabled\n");
        throw MethodFailure{E_ACCESSDENIED, L"Saving Settings are administratively disabled."};
    }
    ShowSettingsDialog(settings);
    if (!settings.Changed()) {
        return false;
    }
    const HRESULT hr = settings.SaveSettings();
    if (FAILED(hr)) {
        LogError(L"CTDConnectorCOM: SaveSettings failed! hr = 0x%08X\n", hr);
        throw MethodFailure{hr, FormatString(L"The settings could not be saved (0x%08X).", hr)};
    }
    return true;
}

void ShowInfo() {
    LogInfo(L"CTDConnectorCOM->DisplayInfo invoked\n");
    ShowInfoDialog(InfoDialogHost{CurrentProcessName(), L""});
}

bool DeleteArchivedMail(const PropertyMap& properties) {
    LogInfo(L"CTDConnectorCOM->DeleteMail invoked\n");
    ComPtr<IDispatch> outlook = RunningOutlook();
    return SUCCEEDED(DeleteMailItem(outlook.get(), properties));
}
