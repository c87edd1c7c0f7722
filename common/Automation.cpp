#include "common/Automation.h"

#include <array>

namespace {

// No member of the host object models takes more arguments than this.
constexpr size_t kMaxArguments = 16;

// Frees what a failed Invoke handed back, and prefers the object's own error code over the
// generic DISP_E_EXCEPTION so that the log names the real cause.
HRESULT TakeExceptionResult(HRESULT hr, EXCEPINFO& excep) noexcept {
    if (excep.pfnDeferredFillIn) {
        excep.pfnDeferredFillIn(&excep);
    }
    ::SysFreeString(excep.bstrSource);
    ::SysFreeString(excep.bstrDescription);
    ::SysFreeString(excep.bstrHelpFile);
    if (hr == DISP_E_EXCEPTION && FAILED(excep.scode)) {
        return excep.scode;
    }
    return hr;
}

HRESULT InvokeByName(IDispatch* object, const wchar_t* name, WORD flags,
                     std::initializer_list<const VARIANT*> args, const VARIANT* putValue,
                     VARIANT* result) noexcept {
    if (result) {
        ::VariantClear(result);
    }
    if (!object || !name) {
        return E_POINTER;
    }
    if (args.size() + (putValue ? 1 : 0) > kMaxArguments) {
        return E_INVALIDARG;
    }
    DISPID dispid = DISPID_UNKNOWN;
    LPOLESTR names[] = {const_cast<LPOLESTR>(name)};
    HRESULT hr = object->GetIDsOfNames(IID_NULL, names, 1, LOCALE_USER_DEFAULT, &dispid);
    if (FAILED(hr)) {
        return hr;
    }

    // Invoke takes its arguments last to first; the put value goes in front as the named
    // DISPID_PROPERTYPUT argument. The copies are shallow: the callee only reads them.
    std::array<VARIANTARG, kMaxArguments> reversed{};
    UINT count = 0;
    if (putValue) {
        reversed[count++] = *putValue;
    }
    for (auto it = args.end(); it != args.begin();) {
        --it;
        if (!*it) {
            return E_POINTER;
        }
        reversed[count++] = **it;
    }
    DISPID putId = DISPID_PROPERTYPUT;
    DISPPARAMS params{};
    params.rgvarg = count ? reversed.data() : nullptr;
    params.cArgs = count;
    if (putValue) {
        params.rgdispidNamedArgs = &putId;
        params.cNamedArgs = 1;
    }

    EXCEPINFO excep{};
    UINT argError = 0;
    hr = object->Invoke(dispid, IID_NULL, LOCALE_USER_DEFAULT, flags, &params, result, &excep,
                        &argError);
    if (FAILED(hr)) {
        return TakeExceptionResult(hr, excep);
    }
    return hr;
}

}  // namespace

HRESULT GetPropertyNoThrow(IDispatch* object, const wchar_t* name, VARIANT* result,
                           std::initializer_list<const VARIANT*> args) noexcept {
    if (!result) {
        return E_POINTER;
    }
    return InvokeByName(object, name, DISPATCH_PROPERTYGET, args, nullptr, result);
}

HRESULT GetObjectPropertyNoThrow(IDispatch* object, const wchar_t* name, IDispatch** result,
                                 std::initializer_list<const VARIANT*> args) noexcept {
    if (!result) {
        return E_POINTER;
    }
    *result = nullptr;
    VARIANT value;
    ::VariantInit(&value);
    HRESULT hr = GetPropertyNoThrow(object, name, &value, args);
    if (SUCCEEDED(hr)) {
        if (value.vt != VT_DISPATCH && value.vt != VT_UNKNOWN) {
            hr = DISP_E_TYPEMISMATCH;
        } else if (!value.punkVal) {
            hr = E_POINTER;
        } else if (value.vt == VT_DISPATCH) {
            *result = value.pdispVal;
            value.pdispVal->AddRef();
        } else {
            hr = value.punkVal->QueryInterface(IID_IDispatch, reinterpret_cast<void**>(result));
        }
    }
    ::VariantClear(&value);
    return hr;
}

HRESULT PutPropertyNoThrow(IDispatch* object, const wchar_t* name, const VARIANT& value) noexcept {
    return InvokeByName(object, name, DISPATCH_PROPERTYPUT, {}, &value, nullptr);
}

HRESULT CallMethodNoThrow(IDispatch* object, const wchar_t* name,
                          std::initializer_list<const VARIANT*> args, VARIANT* result) noexcept {
    return InvokeByName(object, name, DISPATCH_METHOD, args, nullptr, result);
}
