// The add-in's buttons in hosts before the ribbon: a toolbar of its own and a popup menu on the
// host's menu bar, each button with a click sink. Controls carry tags, so a second start finds
// and reuses the controls of the first instead of adding them twice; new controls are temporary,
// so nothing stays in the user's toolbars once the host exits.
#pragma once

#include <oaidl.h>

#include <array>

#include "addin/ButtonHandler.h"
#include "common/ComPtr.h"

inline constexpr size_t kButtonHandlerCount = 6;
using ButtonHandlers = std::array<ComPtr<CButtonHandler>, kButtonHandlerCount>;

struct CommandBarOptions {
    bool attachments;  // the attachment button, where the ribbon would show it
    bool noSettings;   // the setting "Nosettings": no settings button
    // An Outlook inspector whose command bars these are, or null: in an inspector the archive
    // and attachment buttons act on its open item, as the ribbon's read window does.
    IDispatch* inspector = nullptr;
};

// Sets up the buttons on `commandBars` (a host's CommandBars collection) and fills `handlers`
// by button, leaving the slots of buttons not shown empty. A button that cannot be added is
// logged and skipped; the toolbar itself failing ends the setup with its HRESULT.
HRESULT SetUpCommandBars(IDispatch* commandBars, const CommandBarOptions& options,
                         ButtonCommandTarget& target, ButtonHandlers& handlers) noexcept;

// Disconnects and releases every handler, in slot order.
void ReleaseButtonHandlers(ButtonHandlers& handlers) noexcept;
