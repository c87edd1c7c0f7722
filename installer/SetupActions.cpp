// The package's custom actions (TalvornSetupActions.dll, carried in the package's Binary table).
// Registration is the add-in's own DllRegisterServer, called with the install folder as the
// current directory so that it reads the installed .\setup.ini, exactly as an administrator's
// "regsvr32 TalvornAddin.dll" in that folder would; unregistration is its DllUnregisterServer.
// No C++ exception leaves an entry point: the installer sees ERROR_INSTALL_FAILURE instead.
#include <windows.h>

#include <msi.h>
#include <msiquery.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

#include "common/UniqueResource.h"
#include "installer/SetupProperties.h"

namespace {

constexpr const wchar_t* kAddinModule = L"TalvornAddin.dll";

// Keys above the add-in's own that its registration creates when they are missing; the
// unregistration leaves them, so they go here when nothing else lives in them, deepest first.
constexpr const wchar_t* kMachineParentKeys[] = {
    L"Software\\Microsoft\\Office\\Excel\\Addins",
    L"Software\\Microsoft\\Office\\Excel",
    L"Software\\Microsoft\\Office\\PowerPoint\\Addins",
    L"Software\\Microsoft\\Office\\PowerPoint",
    L"Software\\Microsoft\\Office\\Word\\Addins",
    L"Software\\Microsoft\\Office\\Word",
    L"Software\\Microsoft\\Office\\Outlook\\Addins",
    L"Software\\Microsoft\\Office\\Outlook",
    L"Software\\Microsoft\\Office",
    L"Software\\talvorn",
};
constexpr const wchar_t* kUserParentKey = L"Software\\talvorn";

struct MsiHandleTraits {
    using Type = MSIHANDLE;
    static Type Invalid() noexcept { return 0; }
    static void Close(Type h) noexcept { ::MsiCloseHandle(h); }
};
using MsiHandle = UniqueResource<MsiHandleTraits>;

std::wstring Property(MSIHANDLE install, const std::wstring& name) {
    DWORD size = 0;
    wchar_t empty[1] = {};
    if (MsiGetPropertyW(install, name.c_str(), empty, &size) != ERROR_MORE_DATA) {
        return {};
    }
    std::wstring value(++size, L'\0');
    if (MsiGetPropertyW(install, name.c_str(), value.data(), &size) != ERROR_SUCCESS) {
        return {};
    }
    value.resize(size);
    return value;
}

// A line in the installation's log (msiexec /l*v), for the administrator reading it.
void Log(MSIHANDLE install, const std::wstring& text) {
    MsiHandle record(MsiCreateRecord(0));
    if (record) {
        MsiRecordSetStringW(record.get(), 0, text.c_str());
        MsiProcessMessage(install, INSTALLMESSAGE_INFO, record.get());
    }
}

std::wstring Hex(HRESULT hr) {
    wchar_t text[16];
    wsprintfW(text, L"0x%08X", static_cast<unsigned>(hr));
    return text;
}

void RemoveKeyIfEmpty(HKEY root, const wchar_t* path) {
    UniqueResource<RegKeyTraits> key;
    if (RegOpenKeyExW(root, path, 0, KEY_READ, key.put()) != ERROR_SUCCESS) {
        return;
    }
    DWORD subkeys = 0;
    DWORD values = 0;
    if (RegQueryInfoKeyW(key.get(), nullptr, nullptr, nullptr, &subkeys, nullptr, nullptr, &values,
                         nullptr, nullptr, nullptr, nullptr) == ERROR_SUCCESS &&
        subkeys == 0 && values == 0) {
        key.reset();
        RegDeleteKeyW(root, path);
    }
}

std::string FileText(const std::filesystem::path& file) {
    std::string text;
    if (std::ifstream in{file, std::ios::binary}) {
        text.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }
    return text;
}

void OverrideSetupFile(const std::filesystem::path& file, const SetupLines& lines) {
    const std::string text = FileText(file);
    std::ofstream out{file, std::ios::binary | std::ios::trunc};
    out << OverrideSetupLines(text, lines);
    out.close();
    if (!out) {
        throw std::runtime_error("setup.ini cannot be written");
    }
}

// Calls one of the add-in's registration exports with `folder` as the current directory.
HRESULT CallAddinExport(MSIHANDLE install, const std::wstring& folder, const char* name) {
    wchar_t previous[MAX_PATH];
    const DWORD previousLength = GetCurrentDirectoryW(MAX_PATH, previous);
    if (!SetCurrentDirectoryW(folder.c_str())) {
        Log(install, L"TalvornSetupActions: cannot enter " + folder);
        return HRESULT_FROM_WIN32(GetLastError());
    }
    HRESULT hr = E_FAIL;
    {
        const std::wstring path = (std::filesystem::path(folder) / kAddinModule).wstring();
        UniqueResource<ModuleTraits> module(LoadLibraryW(path.c_str()));
        using Export = HRESULT(STDAPICALLTYPE*)();
        const auto call = module ? reinterpret_cast<Export>(
                                       reinterpret_cast<void*>(GetProcAddress(module.get(), name)))
                                 : nullptr;
        if (call) {
            hr = call();
        }
        Log(install, L"TalvornSetupActions: " + path + L" " +
                         std::wstring(name, name + strlen(name)) + L" " + Hex(hr));
    }
    if (previousLength > 0 && previousLength < MAX_PATH) {
        SetCurrentDirectoryW(previous);
    }
    return hr;
}

}  // namespace

extern "C" {

// Immediate, before an older version is removed: the command-line properties, read while they can
// be, and on an upgrade the setup.ini installed so far, for the deferred registration.
UINT __stdcall PrepareRegistration(MSIHANDLE install) try {
    const std::wstring folder = Property(install, L"INSTALLDIR");
    SetupLines installed;
    if (!Property(install, L"WIX_UPGRADE_DETECTED").empty()) {
        installed = ParseSetupLines(FileText(std::filesystem::path(folder) / L"setup.ini"));
    }
    const SetupLines lines = CombineSetupLines(
        std::move(installed), CollectSetupProperties([install](const std::wstring& name) {
            return Property(install, name);
        }));
    Log(install, L"TalvornSetupActions: " + std::to_wstring(lines.size()) +
                     L" setup.ini lines for " + folder);
    if (MsiSetPropertyW(install, L"RegisterAddin", EncodeRegistrationData(folder, lines).c_str()) !=
            ERROR_SUCCESS ||
        MsiSetPropertyW(install, L"UndoRegisterAddin", folder.c_str()) != ERROR_SUCCESS) {
        return ERROR_INSTALL_FAILURE;
    }
    return ERROR_SUCCESS;
} catch (...) {
    return ERROR_INSTALL_FAILURE;
}

// Deferred (and as the rollback of an uninstall): the properties go into the installed setup.ini,
// then the add-in registers itself from it.
UINT __stdcall RegisterAddin(MSIHANDLE install) try {
    std::wstring folder;
    SetupLines lines;
    DecodeRegistrationData(Property(install, L"CustomActionData"), folder, lines);
    if (!lines.empty()) {
        OverrideSetupFile(std::filesystem::path(folder) / L"setup.ini", lines);
    }
    return SUCCEEDED(CallAddinExport(install, folder, "DllRegisterServer")) ? ERROR_SUCCESS
                                                                            : ERROR_INSTALL_FAILURE;
} catch (...) {
    return ERROR_INSTALL_FAILURE;
}

// Deferred (uninstall) and rollback (of an install): the add-in removes what it registered.
UINT __stdcall UnregisterAddin(MSIHANDLE install) try {
    const std::wstring folder = Property(install, L"CustomActionData");
    const HRESULT hr = CallAddinExport(install, folder, "DllUnregisterServer");
    for (const wchar_t* path : kMachineParentKeys) {
        RemoveKeyIfEmpty(HKEY_LOCAL_MACHINE, path);
    }
    RemoveKeyIfEmpty(HKEY_CURRENT_USER, kUserParentKey);
    return SUCCEEDED(hr) ? ERROR_SUCCESS : ERROR_INSTALL_FAILURE;
} catch (...) {
    return ERROR_INSTALL_FAILURE;
}

}  // extern "C"
