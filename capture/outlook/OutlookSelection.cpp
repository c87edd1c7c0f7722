#include "capture/outlook/OutlookSelection.h"

#include <string>

#include "capture/CaptureTypes.h"
#include "common/Automation.h"
#include "common/BStr.h"
#include "common/LogFile.h"

HRESULT OpenSelection(IDispatch* application, ComPtr<IDispatch>& selection, int32_t& count) {
    ComPtr<IDispatch> explorer;
    HRESULT hr =
        GetObjectPropertyNoThrow(application, GetOrCall(L"ActiveExplorer"), explorer.put());
    if (FAILED(hr)) {
        LogError(L"Can't get active explorer! hr = 0x%08X\n", hr);
        return hr;
    }
    hr = GetObjectPropertyNoThrow(explorer.get(), L"Selection", selection.put());
    if (FAILED(hr)) {
        LogError(L"Can't get selected items! hr = 0x%08X\n", hr);
        return hr;
    }
    hr = GetIntegerPropertyNoThrow(selection.get(), L"Count", &count);
    if (FAILED(hr)) {
        LogError(L"Can't get count of selected items! hr = 0x%08X\n", hr);
        return hr;
    }
    if (count <= 0) {
        LogInfo(L"There are no items selected!\n");
        return kNothingSelected;
    }
    return S_OK;
}

void LogOutlookVersion(IDispatch* application) {
    BStr version;
    HRESULT hr = GetTextPropertyNoThrow(application, L"Version", &version);
    if (FAILED(hr)) {
        LogError(L"Can't get version from outlook! hr = 0x%08X\n", hr);
        return;
    }
    const std::wstring full = version.c_str();
    const std::wstring major = full.substr(0, full.find(L'.'));
    LogInfo(L"Outlookversion: %s (%s)\n", full.c_str(), major.c_str());
}
