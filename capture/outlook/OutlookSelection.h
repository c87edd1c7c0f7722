// The items selected in Outlook's active explorer, as every Outlook capture begins.
#pragma once

#include <oaidl.h>

#include <cstdint>

#include "common/ComPtr.h"

// The explorer's selection and its item count. Logs and fails as the count does; kNothingSelected
// when the count is zero.
HRESULT OpenSelection(IDispatch* application, ComPtr<IDispatch>& selection, int32_t& count);

// "Outlookversion: 16.0.0.5000 (16)": the full version and the major version the add-in goes by.
void LogOutlookVersion(IDispatch* application);
