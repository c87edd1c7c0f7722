// What the archive commands ask of the capture subsystems and of the attachment choice dialog.
// The Office and Outlook captures implement these; the commands never know which one they talk to.
#pragma once

#include <oaidl.h>

#include <cstdint>

#include "capture/CaptureTypes.h"
#include "common/PathBuffer.h"
#include "common/PropertyMap.h"

class CaptureRoutines {
public:
    virtual ~CaptureRoutines() = default;

    // Stages the active Word document, Excel workbook or PowerPoint presentation (`hostKind` 2, 3
    // or 4) and collects its properties.
    virtual HRESULT SaveOfficeDocument(int32_t hostKind, IDispatch* application, PathBuffer& path,
                                       PropertyMap& map, int32_t majorVersion) = 0;

    // The number of items selected in Outlook, or kNothingSelected.
    virtual HRESULT GetOutlookDocumentCount(IDispatch* application) = 0;

    // Stages every selected item as a .msg file into `paths[i]` with its properties in `maps[i]`.
    // Fails with kNothingSelected, kUnsupportedItem, E_OUTOFMEMORY or any other status.
    virtual HRESULT SaveOutlookDocument(IDispatch* application, PathBuffer* paths,
                                        PropertyMap* maps, int32_t count) = 0;

    // Stages one Outlook item (the current item of an open window).
    virtual HRESULT SaveOutlookItem(IDispatch* application, IDispatch* item, int32_t majorVersion,
                                    PathBuffer& path, PropertyMap& map) = 0;

    // Lists the visible attachments of `item`, or of the selection when `item` is null.
    virtual HRESULT GetAttachmentList(IDispatch* application, IDispatch* item,
                                      AttachmentList& attachments) = 0;

    // Saves the chosen attachments of `item` (or of the selection) into staging folders.
    virtual HRESULT SaveAttachments(IDispatch* application, IDispatch* item,
                                    const AttachmentList& attachments, FileList& files) = 0;
};

class AttachmentChooser {
public:
    virtual ~AttachmentChooser() = default;
    // Lets the user choose among `attachments` and marks the chosen records. 0 on cancel.
    virtual int ChooseAttachments(AttachmentList& attachments) = 0;
};
