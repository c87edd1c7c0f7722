#include "addin/commands/HostCaptureRoutines.h"

#include "capture/office/OfficeDocumentCapture.h"
#include "capture/outlook/OutlookCapture.h"
#include "common/ComError.h"
#include "common/HostKind.h"
#include "common/LogFile.h"

namespace {

HRESULT OutlookCaptureMissing(const wchar_t* routine) {
    LogError(L"%s: Outlook items can not be archived by this build! hr = 0x%08X\n", routine,
             E_NOTIMPL);
    return E_NOTIMPL;
}

}  // namespace

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

HRESULT CHostCaptureRoutines::SaveOutlookItem(IDispatch*, IDispatch*, int32_t, PathBuffer&,
                                              PropertyMap&) {
    return OutlookCaptureMissing(L"SaveOutlookItem");
}

HRESULT CHostCaptureRoutines::GetAttachmentList(IDispatch*, IDispatch*, AttachmentList&) {
    return OutlookCaptureMissing(L"GetAttachmentList");
}

HRESULT CHostCaptureRoutines::SaveAttachments(IDispatch*, IDispatch*, const AttachmentList&,
                                              FileList&) {
    return OutlookCaptureMissing(L"SaveAttachments");
}
