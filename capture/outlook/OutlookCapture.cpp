#include "capture/outlook/OutlookCapture.h"

#include <windows.h>
#include <mapidefs.h>

#include <string>

#include "capture/CaptureTypes.h"
#include "capture/outlook/ItemKinds.h"
#include "capture/outlook/MapiOwners.h"
#include "capture/outlook/MapiPropertyReader.h"
#include "capture/outlook/MsgFile.h"
#include "capture/outlook/OutlookSelection.h"
#include "capture/outlook/Redemption.h"
#include "common/Automation.h"
#include "common/BStr.h"
#include "common/ComPtr.h"
#include "common/LogFile.h"
#include "common/Variant.h"

namespace {

// A note's values are what Outlook shows, read through its object model by these members.
struct NoteMember {
    uint32_t tag;
    const wchar_t* member;
};
constexpr NoteMember kNoteMembers[] = {
    {0x1000001F, L"Body"},
    {0x0037001F, L"Subject"},
};

void ReadNote(IDispatch* note, IMessage* message, const PropertyDescriptor* table,
              PropertyMap& map) {
    for (const PropertyDescriptor* descriptor = table; descriptor->name; ++descriptor) {
        const NoteMember* member = nullptr;
        for (const NoteMember& candidate : kNoteMembers) {
            if (candidate.tag == descriptor->tag) {
                member = &candidate;
            }
        }
        if (!member) {
            ReadProperty(message, *descriptor, map);
            continue;
        }
        BStr value;
        HRESULT hr = GetTextPropertyNoThrow(note, member->member, &value);
        if (FAILED(hr)) {
            LogError(L"Failed to get %s of Outlook::_NoteItem object! hr = 0x%08X\n",
                     member->member, hr);
            continue;
        }
        LogInfo(L"Collect MAPI property %s value %s\n", descriptor->name, value.c_str());
        map.Add(descriptor->name, value.c_str(), descriptor->exportFlag);
    }
}

HRESULT SaveReadableItem(IDispatch* application, IDispatch* item, const ItemClass& kind,
                         int32_t itemNumber, PathBuffer& path, PropertyMap& map);

// Reads and stages one selected item; `itemNumber` is its zero-based position in the selection.
HRESULT SaveItem(IDispatch* application, IDispatch* item, int32_t itemNumber, PathBuffer& path,
                 PropertyMap& map) {
    BStr messageClass;
    HRESULT hr = GetTextPropertyNoThrow(item, L"MessageClass", &messageClass);
    if (FAILED(hr)) {
        LogError(L"Can't get message class of selected item! hr = 0x%08X\n", hr);
        return hr;
    }
    const ItemClass* itemClass = FindItemClass(messageClass.c_str());
    if (!itemClass) {
        LogError(L"Wrong message class of selected item!\n");
        return kUnsupportedItem;
    }
    if (itemClass->kind == ItemKind::SignedMail) {
        // Outlook's MAPI object of a signed or encrypted mail holds only the wrapped content; the
        // library reads the mail as the user sees it.
        hr = SaveSignedMail(application, item, path, itemNumber, map);
    } else {
        hr = SaveReadableItem(application, item, *itemClass, itemNumber, path, map);
    }
    if (hr == kNoMsgFileName) {
        // No staging folder or file name: nothing was written, which the command reports as a
        // failed capture.
        LogError(L"No message file could be named for item %d! hr = 0x%08X\n", itemNumber, E_FAIL);
        return E_FAIL;
    }
    return hr;
}

HRESULT SaveReadableItem(IDispatch* application, IDispatch* item, const ItemClass& kind,
                         int32_t itemNumber, PathBuffer& path, PropertyMap& map) {
    const ItemClass* itemClass = &kind;
    ComPtr<IDispatch> typedItem;
    HRESULT hr = item->QueryInterface(*itemClass->itemInterface, typedItem.put_void());
    if (FAILED(hr)) {
        LogError(L"Failed to get %s object! hr = 0x%08X\n", itemClass->interfaceName, hr);
        return hr;
    }
    ComPtr<IUnknown> mapiObject;
    hr = GetUnknownPropertyNoThrow(typedItem.get(), L"MAPIOBJECT", mapiObject.put());
    if (FAILED(hr)) {
        LogError(L"Failed to get MAPIOBJECT of %s item! hr = 0x%08X\n", itemClass->kindWord, hr);
        return hr;
    }
    ComPtr<IMessage> message;
    hr = mapiObject.query_to(kIidMessage, message.put());
    if (FAILED(hr)) {
        LogError(L"Failed to get IMessage interface from %s object! hr = 0x%08X\n",
                 itemClass->interfaceName, hr);
        return hr;
    }

    if (itemClass->kind == ItemKind::Note) {
        ReadNote(typedItem.get(), message.get(), itemClass->table, map);
    } else {
        ReadPropertyTable(message.get(), itemClass->table, map);
    }
    if (itemClass->kind == ItemKind::Mail) {
        CollectRecipientSmtpAddresses(message.get(), map);
        ResolveSenderSmtpAddress(application, message.get(), map);
    }

    hr = SaveToMSG(message.get(), path, itemNumber);
    // Outlook can often write a mail that MAPI could not copy; out of memory it cannot.
    if (itemClass->kind == ItemKind::Mail && FAILED(hr) && hr != E_OUTOFMEMORY) {
        hr = SaveToMSG_SMIME(typedItem.get(), path, itemNumber);
    }
    return hr;
}

}  // namespace

HRESULT GetOutlookDocumentCount(IDispatch* application) {
    LogInfo(L"Entering GetOutlookDocumentCount\n");
    ComPtr<IDispatch> selection;
    int32_t count = 0;
    HRESULT hr = OpenSelection(application, selection, count);
    return FAILED(hr) ? hr : count;
}

HRESULT SaveOutlookDocument(IDispatch* application, PathBuffer* paths, PropertyMap* maps,
                            int32_t count) {
    LogInfo(L"Entering SaveOutlookDocument\n");
    ComPtr<IDispatch> selection;
    int32_t selected = 0;
    HRESULT hr = OpenSelection(application, selection, selected);
    if (FAILED(hr)) {
        return hr;
    }
    LogOutlookVersion(application);
    // The command sized its buffers by an earlier count; the selection may have changed since.
    const int32_t items = selected < count ? selected : count;
    for (int32_t i = 0; i < items; ++i) {
        Variant position(i + 1);
        ComPtr<IDispatch> item;
        hr = GetObjectPropertyNoThrow(selection.get(), GetOrCall(L"Item"), item.put(), {&position});
        if (FAILED(hr)) {
            LogError(L"Can't get mail item! hr = 0x%08X\n", hr);
            return hr;
        }
        hr = SaveItem(application, item.get(), i, paths[i], maps[i]);
        if (FAILED(hr)) {
            return hr;
        }
    }
    LogInfo(L"Leave SaveOutlookDocument\n");
    return S_OK;
}

HRESULT SaveOutlookItem(IDispatch* application, IDispatch* item, PathBuffer& path,
                        PropertyMap& map) {
    LogInfo(L"Entering SaveOutlookItem\n");
    if (!item) {
        return E_POINTER;
    }
    LogOutlookVersion(application);
    const HRESULT hr = SaveItem(application, item, 0, path, map);
    LogInfo(L"Leave SaveOutlookItem\n");
    return hr;
}
