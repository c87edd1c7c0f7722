// The storage-target choice shown before a document goes to the connector: lists the labels of
// the configured targets, preselects the one chosen last, and on OK remembers the choice as the
// per-user value "LastStartCenterConfig", which the connector launch then reads.
#pragma once

#include <windows.h>

class CTDCSettings;

// Shows the modal dialog (resource 118) without an owner. Returns 1 when the user confirmed a
// selection, 0 on Cancel, on closing, or without a settings object.
INT_PTR ShowSelectStorageTargetDialog(const CTDCSettings* settings) noexcept;
