#include "addin/commands/DialogCommands.h"

#include "common/Automation.h"
#include "common/BStr.h"
#include "common/LogFile.h"
#include "settings/InfoDialog.h"
#include "settings/SettingsDialog.h"
#include "settings/TDCSettings.h"

void OnAbout(const CommandContext& context) {
    LogInfo(L"Outlook CTalvornAddin->OnAbout invoked\n");
    InfoDialogHost host;
    if (context.application) {
        BStr name;
        BStr version;
        // A host that cannot say leaves its line short; the dialog is shown all the same.
        GetTextPropertyNoThrow(context.application, L"Name", &name);
        GetTextPropertyNoThrow(context.application, L"Version", &version);
        host.name = name.c_str();
        host.version = version.c_str();
    }
    ShowInfoDialog(host);
}

void OnSettings() {
    LogInfo(L"Outlook CTalvornAddin->OnSettings invoked\n");
    CTDCSettings settings;
    settings.LoadSettings();
    // Locked settings have no button; called all the same (an old command bar, a script), the
    // dialog is not shown and the user reads the one refusal the settings store gives.
    if (settings.IsOn(L"Nosettings")) {
        settings.SaveSettings();
        return;
    }
    ShowSettingsDialog(settings);
    if (settings.Changed()) {
        HRESULT hr = settings.SaveSettings();
        if (FAILED(hr)) {
            LogError(L"OnSettings: saving the settings failed! hr = 0x%08X\n", hr);
        }
        settings.SetChanged(false);
    }
}
