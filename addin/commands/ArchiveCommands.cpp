#include "addin/commands/ArchiveCommands.h"

#include <vector>

#include "common/Automation.h"
#include "common/BoundedFormat.h"
#include "common/ComPtr.h"
#include "common/HandOffList.h"
#include "common/HostKind.h"
#include "common/LogFile.h"
#include "common/Messages.h"
#include "handoff/ConnectorLaunch.h"
#include "handoff/HandOff.h"
#include "handoff/StagingArea.h"
#include "resources/resource.h"
#include "settings/SelectStorageTargetDialog.h"
#include "settings/TDCSettings.h"

namespace {

// The end of every archive command once hand-offs are written: a storage target is chosen when
// there are several, then the connector is started. A cancelled choice gives the staged folders
// back to the connector for deletion and ends silently.
void SelectAndLaunch(const CTDCSettings& settings, const HandOffList& list, int32_t hostKind) {
    if (settings.CountStorageTargets() > 1 && ShowSelectStorageTargetDialog(&settings) == 0) {
        ReleaseStagedFolders(list);
        return;
    }
    if (!LaunchConnector(settings, list, hostKind)) {
        ShowErrorMessage(IDS_CONNECTOR_NOT_FOUND);
    }
}

// The same with settings loaded now, for the commands that have not needed them before.
void SelectAndLaunch(const HandOffList& list, int32_t hostKind) {
    CTDCSettings settings;
    settings.LoadSettings();
    SelectAndLaunch(settings, list, hostKind);
}

UINT MessageForOutlookStatus(HRESULT status) {
    switch (status) {
    case kNothingSelected:
        return IDS_NOTHING_SELECTED;
    case kUnsupportedItem:
        return IDS_UNSUPPORTED_ITEM;
    case E_OUTOFMEMORY:
        return IDS_CAPTURE_OUT_OF_MEMORY;
    default:
        return IDS_CAPTURE_FAILED;
    }
}

void ArchiveOutlookSelection(const CommandContext& context) {
    HRESULT counted = context.captures.GetOutlookDocumentCount(context.application);
    if (counted == kNothingSelected) {
        ShowErrorMessage(IDS_NOTHING_SELECTED);
        return;
    }
    // Any other status goes on with what it says as a count; a negative one gives no buffers.
    const int32_t count = counted > 0 ? counted : 0;
    HandOffList list;
    CTDCSettings settings;
    {
        std::vector<PathBuffer> paths(static_cast<size_t>(count));
        std::vector<PropertyMap> maps(static_cast<size_t>(count));
        HRESULT hr = context.captures.SaveOutlookDocument(context.application, paths.data(),
                                                          maps.data(), count);
        if (FAILED(hr)) {
            ShowErrorMessage(MessageForOutlookStatus(hr));
            return;
        }
        settings.LoadSettings();
        const int deleteMail = settings.IsOn(L"DeleteArcDocs") ? 1 : 0;
        if (!WriteHandOffs(paths.data(), maps.data(), count, list, deleteMail)) {
            ShowErrorMessage(IDS_HANDOFF_FAILED);
            return;
        }
    }
    SelectAndLaunch(settings, list, context.hostKind);
}

void ArchiveOfficeDocument(const CommandContext& context) {
    PathBuffer path{};
    PropertyMap map;
    HRESULT hr = context.captures.SaveOfficeDocument(context.hostKind, context.application, path,
                                                     map, context.majorVersion);
    if (FAILED(hr)) {
        ShowErrorMessage(IDS_CAPTURE_FAILED);
        return;
    }
    HandOffList list;
    if (!WriteHandOff(path.data(), nullptr, &map, list, 0)) {
        ShowErrorMessage(IDS_HANDOFF_FAILED);
        return;
    }
    SelectAndLaunch(list, context.hostKind);
}

// The "CurrentItem" of an Outlook window; logs and gives null when it cannot be read.
ComPtr<IDispatch> CurrentItemOf(IDispatch* window) {
    ComPtr<IDispatch> item;
    HRESULT hr = GetObjectPropertyNoThrow(window, L"CurrentItem", item.put());
    if (FAILED(hr)) {
        LogError(L"Can't get CurrentItem from Context! hr = 0x%08X\n", hr);
        item.reset();
    }
    return item;
}

}  // namespace

// Every command logs the word "Outlook" whatever the host; log readers search for these lines.
void OnArchive(const CommandContext& context) {
    LogInfo(L"Outlook CTalvornAddin->OnArchive invoked\n");
    switch (context.hostKind) {
    case kHostOutlook:
        ArchiveOutlookSelection(context);
        break;
    case kHostWord:
    case kHostExcel:
    case kHostPowerPoint:
        ArchiveOfficeDocument(context);
        break;
    default:
        break;
    }
}

void OnArchiveSingleOutlook(const CommandContext& context, IDispatch* window) {
    PathBuffer path{};
    PropertyMap map;
    LogInfo(L"Outlook CTalvornAddin->OnArchiveSingleOutlook invoked\n");
    ComPtr<IDispatch> item = CurrentItemOf(window);
    if (!item) {
        return;
    }
    HRESULT hr = context.captures.SaveOutlookItem(context.application, item.get(),
                                                  context.majorVersion, path, map);
    if (FAILED(hr)) {
        LogError(L"Can't save current item! hr = 0x%08X\n", hr);
        return;
    }
    HandOffList list;
    // A single open item is never marked for deletion, whatever "DeleteArcDocs" says.
    if (!WriteHandOffs(&path, &map, 1, list, 0)) {
        ShowErrorMessage(IDS_HANDOFF_FAILED);
        return;
    }
    SelectAndLaunch(list, context.hostKind);
}

void OnAttachment(const CommandContext& context, IDispatch* item) {
    LogInfo(L"Outlook CTalvornAddin->OnAttachment invoked\n");
    if (!item &&
        context.captures.GetOutlookDocumentCount(context.application) == kNothingSelected) {
        ShowErrorMessage(IDS_NOTHING_SELECTED);
        return;
    }
    AttachmentList attachments;
    context.captures.GetAttachmentList(context.application, item, attachments);
    if (attachments.empty()) {
        ShowErrorMessage(IDS_NO_ATTACHMENTS);
        return;
    }
    if (context.chooser.ChooseAttachments(attachments) == 0) {
        return;
    }
    FileList files;
    context.captures.SaveAttachments(context.application, item, attachments, files);
    if (files.empty()) {
        LogError(L"error saving attachment files to disk\n");
        return;
    }
    HandOffList list;
    {
        std::vector<PathBuffer> paths(files.size());
        for (size_t i = 0; i < files.size(); ++i) {
            CopyBounded(paths[i].data(), paths[i].size(), files[i].c_str());
        }
        // Unlike the other commands, a failed hand-off does not stop this one: the connector is
        // still offered the hand-offs written before the failure.
        if (!WriteHandOffs(paths.data(), nullptr, static_cast<int>(paths.size()), list, 0)) {
            ShowErrorMessage(IDS_HANDOFF_FAILED);
        }
    }
    SelectAndLaunch(list, context.hostKind);
}

void OnAttachmentSingleOutlook(const CommandContext& context, IDispatch* window) {
    LogInfo(L"Outlook CTalvornAddin->OnAttachmentSingleOutlook invoked\n");
    ComPtr<IDispatch> item = CurrentItemOf(window);
    if (!item) {
        return;
    }
    OnAttachment(context, item.get());
}
