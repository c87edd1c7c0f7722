#include "addin/AutomationArguments.h"

#include <windows.h>
#include <oleauto.h>

#include "common/BStr.h"
#include "common/Variant.h"

namespace {

constexpr wchar_t kSource[] = L"Talvorn.DorvaneConnectorDX2COM";

// The value behind any number of references, without copying it.
const VARIANT& Dereferenced(const VARIANT& value) noexcept {
    const VARIANT* current = &value;
    while (current->vt == (VT_BYREF | VT_VARIANT) && current->pvarVal) {
        current = current->pvarVal;
    }
    return *current;
}

bool IsOmitted(const VARIANT& value) noexcept {
    const VARIANT& plain = Dereferenced(value);
    return plain.vt == VT_ERROR && plain.scode == DISP_E_PARAMNOTFOUND;
}

// Converts one scalar to text; false when it is none (Empty, Null, an array, an object without
// a default value, an error value).
bool ToText(const VARIANT& value, std::wstring& text) {
    const VARIANT& plain = Dereferenced(value);
    const VARTYPE type = static_cast<VARTYPE>(plain.vt & ~VT_BYREF);
    if ((plain.vt & VT_ARRAY) || type == VT_EMPTY || type == VT_NULL || type == VT_ERROR) {
        return false;
    }
    Variant converted;
    if (FAILED(::VariantChangeType(&converted, const_cast<VARIANT*>(&plain), 0, VT_BSTR))) {
        return false;
    }
    if (converted.vt != VT_BSTR) {
        return false;
    }
    text.assign(converted.bstrVal ? converted.bstrVal : L"", ::SysStringLen(converted.bstrVal));
    return true;
}

SAFEARRAY* ArrayOf(const VARIANT& value) noexcept {
    const VARIANT& plain = Dereferenced(value);
    if (!(plain.vt & VT_ARRAY)) {
        return nullptr;
    }
    return (plain.vt & VT_BYREF) ? (plain.pparray ? *plain.pparray : nullptr) : plain.parray;
}

// Every element of a one-dimensional array of VARIANTs or BSTRs; false for anything else.
bool ArrayTexts(const VARIANT& value, std::vector<std::wstring>& texts) {
    const VARTYPE element = static_cast<VARTYPE>(Dereferenced(value).vt & VT_TYPEMASK);
    SAFEARRAY* array = ArrayOf(value);
    if (!array || ::SafeArrayGetDim(array) != 1 || (element != VT_VARIANT && element != VT_BSTR)) {
        return false;
    }
    LONG lower = 0;
    LONG upper = -1;
    if (FAILED(::SafeArrayGetLBound(array, 1, &lower)) ||
        FAILED(::SafeArrayGetUBound(array, 1, &upper))) {
        return false;
    }
    for (LONG i = lower; i <= upper; ++i) {
        std::wstring text;
        if (element == VT_BSTR) {
            BStr item;
            if (FAILED(::SafeArrayGetElement(array, &i, item.put()))) {
                return false;
            }
            text = item.c_str();
        } else {
            Variant item;
            if (FAILED(::SafeArrayGetElement(array, &i, item.put())) || !ToText(item, text)) {
                return false;
            }
        }
        texts.push_back(std::move(text));
    }
    return true;
}

}  // namespace

MethodArguments::MethodArguments(const DISPPARAMS& params, UINT minimum, UINT maximum)
    : m_params(params) {
    if (params.cNamedArgs > 0) {
        throw ArgumentError{DISP_E_NONAMEDARGS, 0};
    }
    if (params.cArgs > 0 && !params.rgvarg) {
        throw ArgumentError{E_INVALIDARG, 0};
    }
    if (params.cArgs < minimum || params.cArgs > maximum) {
        throw ArgumentError{DISP_E_BADPARAMCOUNT, 0};
    }
}

const VARIANT& MethodArguments::At(UINT index) const noexcept {
    return m_params.rgvarg[m_params.cArgs - 1 - index];
}

void MethodArguments::Throw(HRESULT hr, UINT index) const {
    throw ArgumentError{hr, m_params.cArgs - 1 - index};
}

bool MethodArguments::Has(UINT index) const noexcept {
    return index < m_params.cArgs && !IsOmitted(At(index));
}

bool MethodArguments::IsArray(UINT index) const noexcept {
    return Has(index) && ArrayOf(At(index)) != nullptr;
}

std::wstring MethodArguments::Text(UINT index) const {
    if (index >= m_params.cArgs) {
        throw ArgumentError{DISP_E_PARAMNOTOPTIONAL, 0};
    }
    if (IsOmitted(At(index))) {
        Throw(DISP_E_PARAMNOTOPTIONAL, index);
    }
    std::wstring text;
    if (!ToText(At(index), text)) {
        Throw(DISP_E_TYPEMISMATCH, index);
    }
    return text;
}

std::vector<std::wstring> MethodArguments::Texts(UINT index) const {
    if (!IsArray(index)) {
        return {Text(index)};
    }
    std::vector<std::wstring> texts;
    if (!ArrayTexts(At(index), texts)) {
        Throw(DISP_E_TYPEMISMATCH, index);
    }
    return texts;
}

std::vector<std::wstring> MethodArguments::TextArray(UINT index) const {
    if (index < m_params.cArgs && !IsArray(index)) {
        Throw(DISP_E_TYPEMISMATCH, index);
    }
    return Texts(index);
}

HRESULT ReportMethodFailure(const MethodFailure& failure, EXCEPINFO* info) noexcept {
    if (!info) {
        return failure.scode;
    }
    *info = EXCEPINFO{};
    info->bstrSource = ::SysAllocString(kSource);
    info->bstrDescription = ::SysAllocString(failure.description.c_str());
    info->scode = failure.scode;
    return DISP_E_EXCEPTION;
}
