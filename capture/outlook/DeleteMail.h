// Deletes an archived mail from Outlook once the document-management side has taken it over. The
// request names the mail by the identifiers the capture stored with it (PR_ENTRYID and
// PR_STORE_ENTRYID, export flag 0); signed and encrypted mails are deleted through the Redemption
// library, every other item through Outlook. Nothing asks the user first.
#pragma once

#include <oaidl.h>

#include <cstddef>

#include "common/PropertyMap.h"

// The capacity of the failure text DeleteMailItem hands to the log.
inline constexpr size_t kDeleteFailureCapacity = 2048;

// Checks the archived item's identifiers in `properties` and deletes it; every failure is logged.
HRESULT DeleteMailItem(IDispatch* application, const PropertyMap& properties);

// Deletes the item `entryId` of store `storeId`. On failure `failure` (of `capacity` characters)
// holds the text that says why.
HRESULT DeleteMailByID(IDispatch* application, const wchar_t* entryId, const wchar_t* storeId,
                       wchar_t* failure, size_t capacity);
