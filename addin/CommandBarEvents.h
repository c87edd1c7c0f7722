// The published dispatch interfaces of the host events the add-in sinks, and the DISPIDs of the
// events it handles. Each value is written beside the name it is published under.
#pragma once

#include <oaidl.h>

// _CommandBarButtonEvents {000C0351-0000-0000-C000-000000000046}: a command-bar button's events.
inline constexpr IID DIID_CommandBarButtonEvents = {
    0x000C0351, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};
// _CommandBarButtonEvents.Click(Ctrl As CommandBarButton, CancelDefault As Boolean): id(0x1) in
// the Office type library's listing of the interface.
inline constexpr DISPID DISPID_CommandBarButtonClick = 1;

// Outlook's window events. Outlook 2002 and later source both the first event interfaces and
// their "_10" successors from the same objects; the add-in advises the newer one where it is
// offered and the older one otherwise. The Close DISPID is the same in both.

// ExplorersEvents {00063078-0000-0000-C000-000000000046}: the Explorers collection.
inline constexpr IID DIID_ExplorersEvents = {
    0x00063078, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};
// ExplorersEvents.NewExplorer(Explorer As Explorer): 0xF001 (61441).
inline constexpr DISPID DISPID_NewExplorer = 0xF001;

// InspectorsEvents {00063079-0000-0000-C000-000000000046}: the Inspectors collection.
inline constexpr IID DIID_InspectorsEvents = {
    0x00063079, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};
// InspectorsEvents.NewInspector(Inspector As Inspector): 0xF001 (61441).
inline constexpr DISPID DISPID_NewInspector = 0xF001;

// ExplorerEvents {0006304F-0000-0000-C000-000000000046} and ExplorerEvents_10
// {0006300F-0000-0000-C000-000000000046}: one explorer window.
inline constexpr IID DIID_ExplorerEvents = {
    0x0006304F, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};
inline constexpr IID DIID_ExplorerEvents_10 = {
    0x0006300F, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};

// InspectorEvents {0006307D-0000-0000-C000-000000000046} and InspectorEvents_10
// {0006302A-0000-0000-C000-000000000046}: one inspector window.
inline constexpr IID DIID_InspectorEvents = {
    0x0006307D, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};
inline constexpr IID DIID_InspectorEvents_10 = {
    0x0006302A, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};

// ExplorerEvents(_10).Close() and InspectorEvents(_10).Close(): 0xF008 (61448) in the Outlook
// type library's listings of ExplorerEvents_10 and InspectorEvents.
inline constexpr DISPID DISPID_WindowClose = 0xF008;
