#include "server/Registration.h"

#include <cstdio>
#include <cwchar>

#include "addin/TDConnectorCOM.h"
#include "addin/TalvornAddin.h"
#include "common/BoundedFormat.h"
#include "common/ComError.h"
#include "common/LogFile.h"
#include "common/Messages.h"
#include "common/Module.h"
#include "common/Registry.h"
#include "resources/resource.h"
#include "settings/TDCSettings.h"

namespace {

constexpr int kLineCapacity = 4096;
constexpr int kNameCapacity = 64;

struct ClassTexts {
    std::wstring progId;
    std::wstring name;
    std::wstring clsid;
};

// The hosts in the order their add-in keys are written and removed.
struct HostKey {
    const wchar_t* office;
    bool SetupChoices::*enabled;
};
constexpr HostKey kHostKeys[] = {
    {L"Excel", &SetupChoices::excel},
    {L"PowerPoint", &SetupChoices::powerPoint},
    {L"Word", &SetupChoices::word},
    {L"Outlook", &SetupChoices::outlook},
};

std::wstring AddinKeyPath(const wchar_t* office, const std::wstring& progId) {
    return FormatString(L"Software\\Microsoft\\Office\\%s\\Addins\\%s", office, progId.c_str());
}

bool IsYes(const wchar_t* value) { return lstrcmpiW(value, L"yes") == 0; }

void TakeSetting(const wchar_t* key, const wchar_t* value, int& listNumber,
                 CTDCSettings& settings) {
    for (const SettingDescriptor& setting : SettingsTable()) {
        if (lstrcmpiW(key, setting.name) != 0) {
            continue;
        }
        switch (setting.type) {
        case SettingType::StorageTargetList: {
            // One running number for every list line of the file.
            std::wstring name = FormatString(L"%s%d", setting.name, listNumber++);
            settings.SetSetting(name.c_str(), SettingValue::StorageTarget(value));
            break;
        }
        case SettingType::Bool:
            settings.SetSetting(setting.name, SettingValue::Bool(IsYes(value) ? 1 : 0));
            break;
        case SettingType::Dword:
            settings.SetSetting(setting.name,
                                SettingValue::Dword(static_cast<uint32_t>(_wtoi(value))));
            break;
        case SettingType::String:
            settings.SetSetting(setting.name, SettingValue::String(value));
            break;
        }
        return;
    }
}

bool LoadClassTexts(UINT progIdText, UINT nameText, REFCLSID clsid, ClassTexts& texts) {
    wchar_t progId[kNameCapacity];
    wchar_t name[kNameCapacity];
    wchar_t clsidText[40];
    // Registered names are never translated: straight from the string table, past any language
    // file.
    if (LoadStringW(ModuleInstance(), progIdText, progId, kNameCapacity) == 0 ||
        (nameText && LoadStringW(ModuleInstance(), nameText, name, kNameCapacity) == 0) ||
        StringFromGUID2(clsid, clsidText, 40) == 0) {
        return false;
    }
    texts.progId = progId;
    texts.name = nameText ? name : L"";
    texts.clsid = clsidText;
    return true;
}

bool SetDefaultValue(const std::wstring& path, const std::wstring& text) {
    UniqueHKey key;
    return CreateRegKey(HKEY_CLASSES_ROOT, path.c_str(), key) == ERROR_SUCCESS &&
           WriteRegText(key.get(), nullptr /* default value */, text.c_str()) == ERROR_SUCCESS;
}

// The five class entries, in this order; false at the first that cannot be written.
bool WriteClassEntries(const ClassTexts& texts, const wchar_t* modulePath) {
    const std::wstring clsidKey = FormatString(L"CLSID\\%ls", texts.clsid.c_str());
    return SetDefaultValue(clsidKey, texts.name) &&
           SetDefaultValue(clsidKey + L"\\InprocServer32", modulePath) &&
           SetDefaultValue(clsidKey + L"\\ProgID", texts.progId) &&
           SetDefaultValue(texts.progId, texts.name) &&
           SetDefaultValue(texts.progId + L"\\CLSID", texts.clsid);
}

void ReportAddinKeyFailure(CheckedFormat<unsigned> format, LSTATUS error) {
    std::wstring text = FormatString(format, static_cast<unsigned>(error));
    MessageBoxW(nullptr /* no owner */, text.c_str(), L"RegisterCOMAddin", MB_SETFOREGROUND);
}

// A host whose key cannot be written is reported and skipped; the registration goes on.
void WriteAddinKey(const wchar_t* office, const ClassTexts& texts) {
    const std::wstring path = AddinKeyPath(office, texts.progId);
    UniqueHKey key;
    LSTATUS status = CreateRegKey(HKEY_LOCAL_MACHINE, path.c_str(), key);
    if (status != ERROR_SUCCESS) {
        ReportAddinKeyFailure(L"Failed to create registry key error %08X\n", status);
        return;
    }
    const DWORD loadAtStartup = 3;
    const DWORD notCommandLineSafe = 0;
    const wchar_t* name = texts.name.c_str();
    if ((status = WriteRegNumber(key.get(), L"LoadBehavior", loadAtStartup)) != ERROR_SUCCESS) {
        ReportAddinKeyFailure(L"Failed to set LoadBehavior error %08X\n", status);
    } else if ((status = WriteRegNumber(key.get(), L"CommandLineSafe", notCommandLineSafe)) !=
               ERROR_SUCCESS) {
        ReportAddinKeyFailure(L"Failed to set CommandLineSafe error %08X\n", status);
    } else if ((status = WriteRegText(key.get(), L"FriendlyName", name)) != ERROR_SUCCESS) {
        ReportAddinKeyFailure(L"Failed to set FriendlyName error %08X\n", status);
    } else if ((status = WriteRegText(key.get(), L"Description", name)) != ERROR_SUCCESS) {
        ReportAddinKeyFailure(L"Failed to set Description error %08X\n", status);
    }
}

bool GetModulePath(wchar_t (&path)[MAX_PATH]) {
    DWORD length = GetModuleFileNameW(ModuleInstance(), path, MAX_PATH);
    return length != 0 && length < MAX_PATH;
}

HRESULT RegisterFromSetupFile() {
    SetupChoices choices;
    CTDCSettings settings;
    if (!ReadSetupFile(choices, settings)) {
        ShowErrorMessage(IDS_SETUP_FILE_NOT_OPENED, L"setup.ini");
        return E_UNEXPECTED;
    }
    const bool anyHost = choices.outlook || choices.word || choices.excel || choices.powerPoint;
    wchar_t modulePath[MAX_PATH];
    if (anyHost) {
        ClassTexts addin;
        if (!GetModulePath(modulePath) ||
            !LoadClassTexts(IDS_ADDIN_PROGID, IDS_ADDIN_NAME, CLSID_TalvornAddin, addin)) {
            return E_UNEXPECTED;
        }
        if (!WriteClassEntries(addin, modulePath)) {
            ShowErrorMessage(IDS_INSTALL_REGISTRY_ERROR);
            return E_UNEXPECTED;
        }
        for (const HostKey& host : kHostKeys) {
            if (choices.*host.enabled) {
                WriteAddinKey(host.office, addin);
            }
        }
        if (!choices.connectorCom) {
            return settings.InitializeSettings();
        }
    } else if (!choices.connectorCom) {
        ShowErrorMessage(IDS_INSTALL_NO_HOST);
        return E_UNEXPECTED;
    }
    ClassTexts connector;
    if (!GetModulePath(modulePath) || !LoadClassTexts(IDS_CONNECTOR_PROGID, IDS_CONNECTOR_NAME,
                                                      CLSID_TDConnectorCOM, connector)) {
        return E_UNEXPECTED;
    }
    if (!WriteClassEntries(connector, modulePath)) {
        ShowErrorMessage(IDS_INSTALL_REGISTRY_ERROR);
        return E_UNEXPECTED;
    }
    return settings.InitializeSettings();
}

void DeleteClass(const ClassTexts& texts) {
    DeleteRegTree(HKEY_CLASSES_ROOT, FormatString(L"CLSID\\%ls", texts.clsid.c_str()).c_str());
    DeleteRegTree(HKEY_CLASSES_ROOT, texts.progId.c_str());
}

HRESULT UnregisterAll() {
    ClassTexts addin;
    if (!LoadClassTexts(IDS_ADDIN_PROGID, 0, CLSID_TalvornAddin, addin)) {
        return E_FAIL;
    }
    DeleteClass(addin);
    for (const HostKey& host : kHostKeys) {
        DeleteRegTree(HKEY_LOCAL_MACHINE, AddinKeyPath(host.office, addin.progId).c_str());
    }
    // The stored settings go too, the users' and the machine's.
    const std::wstring settingsKey = CTDCSettings::MachineKeyPath();
    DeleteRegTree(HKEY_CURRENT_USER, settingsKey.c_str());
    DeleteRegTree(HKEY_LOCAL_MACHINE, settingsKey.c_str());

    ClassTexts connector;
    if (!LoadClassTexts(IDS_CONNECTOR_PROGID, 0, CLSID_TDConnectorCOM, connector)) {
        return E_FAIL;
    }
    DeleteClass(connector);
    return S_OK;
}

}  // namespace

bool ReadSetupFile(SetupChoices& choices, CTDCSettings& settings) {
    UniqueStdioFile file;
    // Relative on purpose: regsvr32 is run from the installation folder that holds the file.
    if (_wfopen_s(file.put(), L".\\setup.ini", L"rt, ccs=UTF-8") != 0 || !file) {
        return false;
    }
    int listNumber = 1;
    wchar_t line[kLineCapacity];
    while (fgetws(line, kLineCapacity, file.get())) {
        if (wchar_t* end = wcschr(line, L'\n')) {
            *end = L'\0';
        }
        wchar_t* equals = wcschr(line, L'=');
        if (line[0] == L'\0' || !equals) {
            continue;
        }
        *equals = L'\0';
        const wchar_t* key = line;
        const wchar_t* value = equals + 1;
        if (lstrcmpiW(key, L"MSOutlook") == 0) {
            choices.outlook = IsYes(value);
        } else if (lstrcmpiW(key, L"MSWord") == 0) {
            choices.word = IsYes(value);
        } else if (lstrcmpiW(key, L"MSExcel") == 0) {
            choices.excel = IsYes(value);
        } else if (lstrcmpiW(key, L"MSPowerPoint") == 0) {
            choices.powerPoint = IsYes(value);
        } else if (lstrcmpiW(key, L"COM") == 0) {
            choices.connectorCom = IsYes(value);
        } else {
            TakeSetting(key, value, listNumber, settings);
        }
    }
    return true;
}

HRESULT RegisterServer() noexcept {
    try {
        return RegisterFromSetupFile();
    } catch (...) {
        return HResultFromCaughtException();
    }
}

HRESULT UnregisterServer() noexcept {
    try {
        return UnregisterAll();
    } catch (...) {
        return HResultFromCaughtException();
    }
}
