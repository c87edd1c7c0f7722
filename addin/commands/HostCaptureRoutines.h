// The capture routines an add-in in a real host uses: Word, Excel and PowerPoint documents through
// the Office capture, the Outlook selection, the single open item and the attachments through the
// Outlook capture.
#pragma once

#include "addin/commands/CaptureRoutines.h"

class CHostCaptureRoutines : public CaptureRoutines {
public:
    HRESULT SaveOfficeDocument(int32_t hostKind, IDispatch* application, PathBuffer& path,
                               PropertyMap& map, int32_t majorVersion) override;
    HRESULT GetOutlookDocumentCount(IDispatch* application) override;
    HRESULT SaveOutlookDocument(IDispatch* application, PathBuffer* paths, PropertyMap* maps,
                                int32_t count) override;
    HRESULT SaveOutlookItem(IDispatch* application, IDispatch* item, int32_t majorVersion,
                            PathBuffer& path, PropertyMap& map) override;
    HRESULT GetAttachmentList(IDispatch* application, IDispatch* item,
                              AttachmentList& attachments) override;
    HRESULT SaveAttachments(IDispatch* application, IDispatch* item,
                            const AttachmentList& attachments, FileList& files) override;
};
