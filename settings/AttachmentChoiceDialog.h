// The attachment choice shown before chosen attachments go to the connector: one checked row per
// attachment record with its file name and size; the user unchecks what is not to be archived.
#pragma once

#include <windows.h>

#include <cstdint>
#include <string>
#include <vector>

#include "common/PropertyMap.h"

// The size as the list shows it: "%d bytes" below 1 KB, else "%.2lf" in the largest of KB, MB, GB
// and TB (powers of 1024) in which the number shown stays below 1024 after rounding, so that a
// size is never written as "1024.00 KB"; sizes of 1024 TB and more are shown in TB.
std::wstring FormatAttachmentSize(int64_t bytes);

// Shows the modal dialog (resource 119) without an owner over `attachments` (records holding
// OTL_ATTACHMENT_NAME and OTL_ATTACHMENT_SIZE), every row checked at first. OK with at least one
// row checked adds OTL_ATTACHMENT_SELECTED to the records of the checked rows and returns 1; OK
// with none checked does nothing. Cancel or closing returns 0 and leaves the records as they were.
INT_PTR ShowAttachmentChoiceDialog(std::vector<PropertyMap>& attachments) noexcept;
