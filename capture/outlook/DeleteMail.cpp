#include "capture/outlook/DeleteMail.h"

#include <windows.h>

#include "capture/CaptureTypes.h"
#include "capture/outlook/ItemKinds.h"
#include "capture/outlook/Redemption.h"
#include "common/Automation.h"
#include "common/BStr.h"
#include "common/ComPtr.h"
#include "common/LogFile.h"
#include "common/Variant.h"

namespace {

// Deletes the mail through the library, which can open a signed or encrypted mail that Outlook's
// own item cannot delete properly.
HRESULT DeleteThroughRedemption(IDispatch* item, const wchar_t* entryId, const wchar_t* storeId,
                                const FailureReport& report) {
    ComPtr<IDispatch> session;
    HRESULT hr = OpenRedemptionSession(item, session, report);
    if (FAILED(hr)) {
        return hr;
    }
    Variant entry(entryId);
    Variant store(storeId);
    Variant result;
    hr = CallMethodNoThrow(session.get(), L"GetMessageFromID", {&entry, &store}, &result);
    if (SUCCEEDED(hr) && (result.vt != VT_DISPATCH || !result.pdispVal)) {
        hr = E_NOINTERFACE;
    }
    if (FAILED(hr)) {
        report(L"Can't call GetMessageFromID! hr = 0x%08X\n", hr);
        return hr;
    }
    hr = CallMethodNoThrow(result.pdispVal, L"Delete");
    if (FAILED(hr)) {
        report(L"Failed to delete RDO mail item! hr = 0x%08X\n", hr);
    }
    return hr;
}

}  // namespace

HRESULT DeleteMailItem(IDispatch* application, const PropertyMap& properties) {
    LogInfo(L"Entering DeleteMailItem\n");
    const PropertyEntry* entryId = properties.Find(kEntryIdName);
    if (!entryId) {
        LogError(L"Can't find custom document property %s!\n", kEntryIdName);
        return E_INVALIDARG;
    }
    if (entryId->value.empty()) {
        LogError(L"Invalid value of custom document property %s!\n", kEntryIdName);
        return E_INVALIDARG;
    }
    const PropertyEntry* storeId = properties.Find(kStoreEntryIdName);
    if (!storeId || storeId->value.empty()) {
        LogError(L"Invalid value of custom document property %s!\n", kStoreEntryIdName);
        return E_INVALIDARG;
    }
    wchar_t failure[kDeleteFailureCapacity] = L"";
    const HRESULT hr = DeleteMailByID(application, entryId->value.c_str(), storeId->value.c_str(),
                                      failure, kDeleteFailureCapacity);
    if (FAILED(hr)) {
        LogError(L"%s", failure);
    }
    return hr;
}

HRESULT DeleteMailByID(IDispatch* application, const wchar_t* entryId, const wchar_t* storeId,
                       wchar_t* failure, size_t capacity) {
    const FailureReport report(failure, capacity);
    BStr version;
    // Read as it always was; which version runs makes no difference to deleting.
    HRESULT hr = GetTextPropertyNoThrow(application, L"Version", &version);
    if (FAILED(hr)) {
        report(L"Can't get version from outlook! hr = 0x%08X\n", hr);
        return hr;
    }
    Variant mapi(L"MAPI");
    ComPtr<IDispatch> nameSpace;
    hr =
        GetObjectPropertyNoThrow(application, GetOrCall(L"GetNameSpace"), nameSpace.put(), {&mapi});
    if (FAILED(hr)) {
        report(L"Can't get name space object! hr = 0x%08X\n", hr);
        return hr;
    }
    Variant entry(entryId);
    Variant store(storeId);
    ComPtr<IDispatch> item;
    hr = GetObjectPropertyNoThrow(nameSpace.get(), GetOrCall(L"GetItemFromID"), item.put(),
                                  {&entry, &store});
    if (FAILED(hr)) {
        report(L"Error in GetItemFromID(%s,%s)! hr = 0x%08X\n", entryId, storeId, hr);
        return hr;
    }
    BStr messageClass;
    hr = GetTextPropertyNoThrow(item.get(), L"MessageClass", &messageClass);
    if (FAILED(hr)) {
        report(L"Can't get message class for selected item! hr = 0x%08X\n", hr);
        return hr;
    }
    const ItemClass* itemClass = FindItemClass(messageClass.c_str());
    if (itemClass && itemClass->kind == ItemKind::SignedMail) {
        hr = DeleteThroughRedemption(item.get(), entryId, storeId, report);
        if (FAILED(hr)) {
            // The connector side that asked for the deletion reads the log; there is nobody to
            // show a message box to.
            LogError(L"Fehler bei der Kommunikation mit der Redemption Schnittstelle.\n");
        }
        return hr;
    }
    hr = CallMethodNoThrow(item.get(), L"Delete");
    if (FAILED(hr)) {
        report(L"Failed to delete mail item! hr = 0x%08X\n", hr);
    }
    return hr;
}
