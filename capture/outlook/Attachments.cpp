#include "capture/outlook/Attachments.h"

#include <windows.h>

#include <algorithm>
#include <functional>
#include <string>

#include "capture/outlook/OutlookSelection.h"
#include "capture/outlook/Redemption.h"
#include "common/AttachmentRecord.h"
#include "common/Automation.h"
#include "common/BStr.h"
#include "common/BoundedFormat.h"
#include "common/ComPtr.h"
#include "common/LogFile.h"
#include "common/PathBuffer.h"
#include "common/Variant.h"
#include "handoff/StagingArea.h"

namespace {

constexpr size_t kNumberCapacity = 1024;

PropertyMap MakeRecord(const wchar_t* fileName, int32_t size, bool hidden, int32_t key) {
    PropertyMap record;
    wchar_t number[kNumberCapacity];
    record.Add(kAttachmentName, fileName, 0);
    FormatBounded(number, kNumberCapacity, L"%d", size);
    record.Add(kAttachmentSize, number, 0);
    FormatBounded(number, kNumberCapacity, L"%d", hidden ? 1 : 0);
    record.Add(kAttachmentHidden, number, 0);
    FormatBounded(number, kNumberCapacity, L"%d", key);
    record.Add(kAttachmentKey, number, 0);
    return record;
}

bool IsChosen(const AttachmentList& attachments, const PropertyMap& record) {
    const std::wstring& key = record.Find(kAttachmentKey)->value;
    return std::any_of(attachments.begin(), attachments.end(), [&](const PropertyMap& chosen) {
        const PropertyEntry* chosenKey = chosen.Find(kAttachmentKey);
        return chosen.Find(kAttachmentSelected) && chosenKey &&
               lstrcmpiW(chosenKey->value.c_str(), key.c_str()) == 0;
    });
}

// Writes one chosen attachment into a staging folder of its own; the folder of a failed save is
// given up.
void SaveChosen(IDispatch* attachment, const PropertyMap& record, FileList& files) {
    PathBuffer folder{};
    PathBuffer path{};
    if (!CreateStagingFolder(folder.data(), folder.size())) {
        LogError(L"Failed to get path of temp directory\n");
        return;
    }
    if (!FormatBounded(path.data(), path.size(), L"%s%s", folder.data(),
                       record.Find(kAttachmentName)->value.c_str())) {
        LogError(L"Can't save the attachment! hr = 0x%08X\n", E_INVALIDARG);
    } else {
        Variant target(path.data());
        const HRESULT hr = CallMethodNoThrow(attachment, L"SaveAsFile", {&target});
        if (SUCCEEDED(hr)) {
            files.emplace_back(path.data());
            return;
        }
        LogError(L"Can't save the attachment! hr = 0x%08X\n", hr);
    }
    folder[wcslen(folder.data()) - 1] = L'\0';
    MarkFreeToDelete(folder.data());
}

// Sets up the library for `item` and runs the query on it.
HRESULT QueryItem(IDispatch* application, IDispatch* item, int32_t mode,
                  AttachmentList& attachments, FileList& files) {
    return RunInRedemptionFolder(application, item, [&](IDispatch* folder) {
        HRESULT hr = QueryRDOItemAttachmentList(folder, item, mode, attachments, files);
        if (FAILED(hr)) {
            LogError(L"error in QueryRDOItemAttachmentList! hr = 0x%08X\n", hr);
        }
        return hr;
    });
}

// The items the attachment commands act on: the one given, or the selection.
HRESULT ForEachItem(IDispatch* application, IDispatch* item,
                    const std::function<HRESULT(IDispatch* item)>& action) {
    if (item) {
        LogOutlookVersion(application);
        return action(item);
    }
    ComPtr<IDispatch> selection;
    int32_t count = 0;
    HRESULT hr = OpenSelection(application, selection, count);
    if (FAILED(hr)) {
        return hr;
    }
    LogOutlookVersion(application);
    for (int32_t i = 1; i <= count; ++i) {
        Variant position(i);
        ComPtr<IDispatch> selected;
        hr = GetObjectPropertyNoThrow(selection.get(), GetOrCall(L"Item"), selected.put(),
                                      {&position});
        if (FAILED(hr)) {
            LogError(L"Can't get mail item! hr = 0x%08X\n", hr);
            return hr;
        }
        hr = action(selected.get());
        if (FAILED(hr)) {
            return hr;
        }
    }
    return S_OK;
}

}  // namespace

HRESULT QueryRDOItemAttachmentList(IDispatch* folder, IDispatch* item, int32_t mode,
                                   AttachmentList& attachments, FileList& files) {
    LogInfo(L"Entering QueryRDOItemAttachmentList\n");
    ComPtr<IDispatch> mail;
    if (FAILED(FindRDOMail(folder, item, mail))) {
        LogError(L"### No mail found! ###\n");
        return E_FAIL;
    }
    ComPtr<IDispatch> message;
    HRESULT hr =
        GetObjectPropertyNoThrow(mail.get(), GetOrCall(L"GetDecryptedMessage"), message.put());
    if (FAILED(hr)) {
        LogError(L"Can't decrypt message! hr = 0x%08X\n", hr);
        return hr;
    }
    ComPtr<IDispatch> collection;
    hr = GetObjectPropertyNoThrow(message.get(), L"Attachments", collection.put());
    if (FAILED(hr)) {
        LogError(L"Can't get attachments from message! hr = 0x%08X\n", hr);
        return hr;
    }
    int32_t count = 0;
    hr = GetIntegerPropertyNoThrow(collection.get(), L"Count", &count);
    if (FAILED(hr)) {
        LogError(L"Can't get count of attachments! hr = 0x%08X\n", hr);
        return hr;
    }
    for (int32_t position = 1; position <= count; ++position) {
        Variant index(position);
        ComPtr<IDispatch> attachment;
        BStr fileName;
        int32_t size = 0;
        bool hidden = false;
        // An attachment that cannot be read is left out; the others are still listed.
        if (FAILED(LogIfFailed(GetObjectPropertyNoThrow(collection.get(), GetOrCall(L"Item"),
                                                        attachment.put(), {&index}),
                               L"Can't get attachment! hr = 0x%08X\n")) ||
            FAILED(LogIfFailed(GetTextPropertyNoThrow(attachment.get(), L"FileName", &fileName),
                               L"Can't get filename of attachment! hr = 0x%08X\n")) ||
            FAILED(LogIfFailed(GetIntegerPropertyNoThrow(attachment.get(), L"Size", &size),
                               L"Can't get size of attachment! hr = 0x%08X\n")) ||
            FAILED(LogIfFailed(GetBooleanPropertyNoThrow(attachment.get(), L"Hidden", &hidden),
                               L"Can't get hidden flag of attachment! hr = 0x%08X\n"))) {
            continue;
        }
        PropertyMap record = MakeRecord(fileName.c_str(), size, hidden, position);
        if (lstrcmpiW(record.Find(kAttachmentHidden)->value.c_str(), L"0") != 0) {
            continue;
        }
        if (mode == kListAttachments) {
            attachments.push_back(std::move(record));
        } else if (IsChosen(attachments, record)) {
            SaveChosen(attachment.get(), record, files);
        }
    }
    return S_OK;
}

HRESULT GetAttachmentList(IDispatch* application, IDispatch* item, AttachmentList& attachments) {
    LogInfo(L"Entering GetAttachmentList\n");
    FileList none;
    return ForEachItem(application, item, [&](IDispatch* each) {
        return QueryItem(application, each, kListAttachments, attachments, none);
    });
}

HRESULT SaveAttachments(IDispatch* application, IDispatch* item, const AttachmentList& attachments,
                        FileList& files) {
    LogInfo(L"Entering SaveAttachments\n");
    // Keys count positions within one mail, so each mail is shown only the records listed for it:
    // listing it again tells how many of the records in order are its own.
    size_t first = 0;
    return ForEachItem(application, item, [&](IDispatch* each) {
        HRESULT hr = S_OK;
        AttachmentList own;
        if (item) {
            own = attachments;
        } else {
            FileList none;
            hr = QueryItem(application, each, kListAttachments, own, none);
            if (FAILED(hr)) {
                return hr;
            }
            const size_t last = std::min(attachments.size(), first + own.size());
            own.assign(attachments.begin() + static_cast<ptrdiff_t>(first),
                       attachments.begin() + static_cast<ptrdiff_t>(last));
            first = last;
        }
        return QueryItem(application, each, kSaveAttachments, own, files);
    });
}
