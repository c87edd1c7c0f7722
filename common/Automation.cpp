#include "common/Automation.h"

#include <array>
#include <utility>

#include "common/ComPtr.h"
#include "common/Variant.h"

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

HRESULT InvokeByName(IDispatch* object, const wchar_t* name, WORD flags, AutomationArgs args,
                     const VARIANT* putValue, VARIANT* result) noexcept {
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

// Reads `member` and converts the value to `type` in place.
HRESULT GetConvertedNoThrow(IDispatch* object, MemberRead member, VARTYPE type, VARIANT* value,
                            AutomationArgs args) noexcept {
    HRESULT hr = GetPropertyNoThrow(object, member, value, args);
    if (SUCCEEDED(hr)) {
        hr = ::VariantChangeType(value, value, 0, type);
    }
    return hr;
}

// The object a read handed back, with a reference of its own; the value keeps its reference.
HRESULT TakeObject(const VARIANT& value, IUnknown** result) noexcept {
    if (value.vt != VT_DISPATCH && value.vt != VT_UNKNOWN) {
        return DISP_E_TYPEMISMATCH;
    }
    if (!value.punkVal) {
        return E_POINTER;
    }
    *result = value.punkVal;
    value.punkVal->AddRef();
    return S_OK;
}

}  // namespace

MemberRead GetOrCall(const wchar_t* name) noexcept {
    MemberRead read(name);
    read.m_flags = DISPATCH_PROPERTYGET | DISPATCH_METHOD;
    return read;
}

HRESULT GetPropertyNoThrow(IDispatch* object, MemberRead member, VARIANT* result,
                           AutomationArgs args) noexcept {
    if (!result) {
        return E_POINTER;
    }
    return InvokeByName(object, member.Name(), member.Flags(), args, nullptr, result);
}

HRESULT GetTextPropertyNoThrow(IDispatch* object, MemberRead member, BStr* text,
                               AutomationArgs args) noexcept {
    if (!text) {
        return E_POINTER;
    }
    text->reset();
    Variant value;
    HRESULT hr = GetConvertedNoThrow(object, member, VT_BSTR, &value, args);
    if (SUCCEEDED(hr)) {
        text->reset(std::exchange(value.bstrVal, nullptr));
    }
    return hr;
}

HRESULT GetIntegerPropertyNoThrow(IDispatch* object, MemberRead member, int32_t* number,
                                  AutomationArgs args) noexcept {
    if (!number) {
        return E_POINTER;
    }
    Variant value;
    HRESULT hr = GetConvertedNoThrow(object, member, VT_I4, &value, args);
    *number = SUCCEEDED(hr) ? value.lVal : 0;
    return hr;
}

HRESULT GetBooleanPropertyNoThrow(IDispatch* object, MemberRead member, bool* flag,
                                  AutomationArgs args) noexcept {
    if (!flag) {
        return E_POINTER;
    }
    Variant value;
    HRESULT hr = GetConvertedNoThrow(object, member, VT_BOOL, &value, args);
    *flag = SUCCEEDED(hr) && value.boolVal != VARIANT_FALSE;
    return hr;
}

HRESULT GetDatePropertyNoThrow(IDispatch* object, MemberRead member, DATE* date,
                               AutomationArgs args) noexcept {
    if (!date) {
        return E_POINTER;
    }
    Variant value;
    HRESULT hr = GetConvertedNoThrow(object, member, VT_DATE, &value, args);
    *date = SUCCEEDED(hr) ? value.date : 0;
    return hr;
}

HRESULT GetObjectPropertyNoThrow(IDispatch* object, MemberRead member, IDispatch** result,
                                 AutomationArgs args) noexcept {
    if (!result) {
        return E_POINTER;
    }
    *result = nullptr;
    Variant value;
    HRESULT hr = GetPropertyNoThrow(object, member, &value, args);
    if (FAILED(hr)) {
        return hr;
    }
    ComPtr<IUnknown> unknown;
    hr = TakeObject(value, unknown.put());
    if (FAILED(hr)) {
        return hr;
    }
    if (value.vt == VT_DISPATCH) {
        *result = static_cast<IDispatch*>(unknown.Detach());
        return S_OK;
    }
    return unknown.query_to(result);
}

HRESULT GetUnknownPropertyNoThrow(IDispatch* object, MemberRead member, IUnknown** result,
                                  AutomationArgs args) noexcept {
    if (!result) {
        return E_POINTER;
    }
    *result = nullptr;
    Variant value;
    HRESULT hr = GetPropertyNoThrow(object, member, &value, args);
    if (SUCCEEDED(hr)) {
        hr = TakeObject(value, result);
    }
    return hr;
}

HRESULT PutPropertyNoThrow(IDispatch* object, const wchar_t* name, const VARIANT& value) noexcept {
    return InvokeByName(object, name, DISPATCH_PROPERTYPUT, {}, &value, nullptr);
}

HRESULT CallMethodNoThrow(IDispatch* object, const wchar_t* name, AutomationArgs args,
                          VARIANT* result) noexcept {
    return InvokeByName(object, name, DISPATCH_METHOD, args, nullptr, result);
}
