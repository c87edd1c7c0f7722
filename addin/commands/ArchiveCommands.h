// The archive commands behind the ribbon and command-bar buttons: capture what is to be archived
// into the staging area, write one hand-off per captured file, let the user pick a storage target
// when there are several, and start the connector. They return nothing to the host and report
// every failure themselves, with one German message box or a log line. Out of memory is thrown
// to the COM boundary that called them.
#pragma once

#include <oaidl.h>

#include <cstdint>

#include "addin/commands/CaptureRoutines.h"

struct CommandContext {
    int32_t hostKind;      // HostKind
    int32_t majorVersion;  // of the host, passed on to the captures unchanged
    IDispatch* application;
    CaptureRoutines& captures;
    AttachmentChooser& chooser;
};

// The active document in Word, Excel and PowerPoint; every selected item in Outlook.
void OnArchive(const CommandContext& context);
// The current item of the Outlook window `window` (the ribbon control's context).
void OnArchiveSingleOutlook(const CommandContext& context, IDispatch* window);
// Chosen attachments of `item`, or of the selected items when `item` is null.
void OnAttachment(const CommandContext& context, IDispatch* item);
// Chosen attachments of the current item of the Outlook window `window`.
void OnAttachmentSingleOutlook(const CommandContext& context, IDispatch* window);
