// The published dispatch interfaces of the host events the add-in sinks, and the DISPIDs of the
// events it handles. Each value is written beside the name it is published under.
#pragma once

#include <oaidl.h>

// _CommandBarButtonEvents {000C0351-0000-0000-C000-000000000046}: a command-bar button's events.
inline constexpr IID DIID_CommandBarButtonEvents = {
    0x000C0351, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};
// _CommandBarButtonEvents.Click(Ctrl As CommandBarButton, CancelDefault As Boolean)
inline constexpr DISPID DISPID_CommandBarButtonClick = 1;
