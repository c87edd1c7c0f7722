// Registration of the module by regsvr32 from an installation folder holding "setup.ini": the COM
// classes, the Office hosts' add-in keys and the initial settings; and the removal of all of it.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

// What "setup.ini" asks for: which hosts get the add-in, whether the connector automation class is
// registered, and the initial settings.
struct SetupChoices {
    bool outlook = false;
    bool word = false;
    bool excel = false;
    bool powerPoint = false;
    bool connectorCom = false;
};

class CTDCSettings;

// Reads ".\setup.ini" of the current directory into `choices` and `settings`; false when the file
// cannot be opened.
bool ReadSetupFile(SetupChoices& choices, CTDCSettings& settings);

HRESULT RegisterServer() noexcept;
HRESULT UnregisterServer() noexcept;
