#include "addin/commands/HostCaptureRoutines.h"

#include "capture/office/OfficeDocumentCapture.h"
#include "capture/outlook/Attachments.h"
#include "capture/outlook/OutlookCapture.h"
#include "common/ComError.h"
#include "common/HostKind.h"

HRESULT CHostCaptureRoutines::SaveOfficeDocument(int32_t hostKind, IDispatch* application,
                                                 PathBuffer& path, PropertyMap& map,
                                                 int32_t majorVersion) {
    switch (hostKind) {
    case kHostWord:
        return SaveWordDocument(application, path, map, majorVersion);
    case kHostExcel:
        return SaveExcelDocument(application, path, map, majorVersion);
    case kHostPowerPoint:
        return SavePowerPointDocument(application, path, map, majorVersion);
    default:
        return E_INVALIDARG;
    }
}

HRESULT CHostCaptureRoutines::GetOutlookDocumentCount(IDispatch* application) {
    return ::GetOutlookDocumentCount(application);
}

// Running out of memory while building a text ends the capture with E_OUTOFMEMORY, which the
// command reports as such.
HRESULT CHostCaptureRoutines::SaveOutlookDocument(IDispatch* application, PathBuffer* paths,
                                                  PropertyMap* maps, int32_t count) try {
    return ::SaveOutlookDocument(application, paths, maps, count);
} catch (...) {
    return HResultFromCaughtException();
}

// A text that cannot be built for lack of memory ends these with E_OUTOFMEMORY, never with an
// exception into the host.
HRESULT CHostCaptureRoutines::SaveOutlookItem(IDispatch* application, IDispatch* item, int32_t,
                                              PathBuffer& path, PropertyMap& map) try {
    return ::SaveOutlookItem(application, item, path, map);
} catch (...) {
    return HResultFromCaughtException();
}

HRESULT CHostCaptureRoutines::GetAttachmentList(IDispatch* application, IDispatch* item,
                                                AttachmentList& attachments) try {
    return ::GetAttachmentList(application, item, attachments);
} catch (...) {
    return HResultFromCaughtException();
}

HRESULT CHostCaptureRoutines::SaveAttachments(IDispatch* application, IDispatch* item,
                                              const AttachmentList& attachments,
                                              FileList& files) try {
    return ::SaveAttachments(application, item, attachments, files);
} catch (...) {
    return HResultFromCaughtException();
}
