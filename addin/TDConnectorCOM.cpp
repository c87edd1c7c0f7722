#include "addin/TDConnectorCOM.h"

#include <windows.h>

#include "addin/AutomationArguments.h"
#include "addin/ConnectorRequests.h"
#include "common/ComError.h"
#include "common/PropertyMap.h"

namespace {

enum MethodId : DISPID { kRun = 1, kDisplaySettings, kDisplayInfo, kDeleteMail };

// In DISPID order.
constexpr const wchar_t* kMethodNames[] = {L"Run", L"DisplaySettings", L"DisplayInfo",
                                           L"DeleteMail"};

// Room for a few dozen name/value pairs; more is no mail's identity but a wrong call.
constexpr UINT kMostDeleteMailArguments = 64;

void SetBoolean(VARIANT* result, bool value) noexcept {
    if (result) {
        result->vt = VT_BOOL;
        result->boolVal = value ? VARIANT_TRUE : VARIANT_FALSE;
    }
}

// Either two arrays, names and values, or names and values alternating.
PropertyMap DeleteMailProperties(const MethodArguments& arguments) {
    PropertyMap properties;
    if (arguments.Count() == 2 && arguments.IsArray(0)) {
        const std::vector<std::wstring> names = arguments.Texts(0);
        const std::vector<std::wstring> values = arguments.TextArray(1);
        if (names.size() != values.size()) {
            throw MethodFailure{E_INVALIDARG, L"DeleteMail needs as many values as names."};
        }
        for (size_t i = 0; i < names.size(); ++i) {
            properties.Add(names[i].c_str(), values[i].c_str());
        }
        return properties;
    }
    if (arguments.Count() % 2 != 0) {
        throw ArgumentError{DISP_E_BADPARAMCOUNT, 0};
    }
    for (UINT i = 0; i < arguments.Count(); i += 2) {
        properties.Add(arguments.Text(i).c_str(), arguments.Text(i + 1).c_str());
    }
    return properties;
}

}  // namespace

HRESULT CTDConnectorCOM::GetIDsOfNames(REFIID riid, LPOLESTR* names, UINT count, LCID,
                                       DISPID* ids) {
    if (riid != IID_NULL) {
        return DISP_E_UNKNOWNINTERFACE;
    }
    if (!names || !ids) {
        return E_POINTER;
    }
    HRESULT hr = S_OK;
    for (UINT i = 0; i < count; ++i) {
        ids[i] = DISPID_UNKNOWN;
        // Only the first name is a member; the others would name its arguments, which have none.
        for (size_t m = 0; i == 0 && m < std::size(kMethodNames); ++m) {
            if (names[i] && lstrcmpiW(names[i], kMethodNames[m]) == 0) {
                ids[i] = static_cast<DISPID>(m + 1);
            }
        }
        if (ids[i] == DISPID_UNKNOWN) {
            hr = DISP_E_UNKNOWNNAME;
        }
    }
    return hr;
}

HRESULT CTDConnectorCOM::Invoke(DISPID id, REFIID riid, LCID, WORD flags, DISPPARAMS* params,
                                VARIANT* result, EXCEPINFO* excep, UINT* argError) try {
    if (riid != IID_NULL) {
        return DISP_E_UNKNOWNINTERFACE;
    }
    if (id < kRun || id > kDeleteMail || !(flags & DISPATCH_METHOD)) {
        return DISP_E_MEMBERNOTFOUND;
    }
    DISPPARAMS none{};
    const DISPPARAMS& given = params ? *params : none;
    if (result) {
        VariantInit(result);
    }
    // The dialogs run a message loop: whatever the caller does meanwhile, this object stays.
    ComPtr<CTDConnectorCOM> self(this);
    switch (id) {
    case kRun: {
        MethodArguments arguments(given, 1, 1);
        SetBoolean(result, ArchiveFiles(arguments.Texts(0),
                                        HostKindOfProcess(CurrentProcessName().c_str())));
        break;
    }
    case kDisplaySettings:
        MethodArguments(given, 0, 0);
        SetBoolean(result, EditSettings());
        break;
    case kDisplayInfo:
        MethodArguments(given, 0, 0);
        ShowInfo();
        break;
    case kDeleteMail: {
        MethodArguments arguments(given, 2, kMostDeleteMailArguments);
        SetBoolean(result, DeleteArchivedMail(DeleteMailProperties(arguments)));
        break;
    }
    default:
        break;
    }
    return S_OK;
} catch (const ArgumentError& error) {
    if (argError && (error.hr == DISP_E_TYPEMISMATCH || error.hr == DISP_E_PARAMNOTOPTIONAL)) {
        *argError = error.argError;
    }
    return error.hr;
} catch (const MethodFailure& failure) {
    return ReportMethodFailure(failure, excep);
} catch (...) {
    return HResultFromCaughtException();
}
