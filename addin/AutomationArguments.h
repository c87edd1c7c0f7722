// The arguments of one IDispatch::Invoke call as an automation method sees them: in their natural
// order (DISPPARAMS keeps them last first), with an omitted optional argument (VT_ERROR
// DISP_E_PARAMNOTFOUND) read as missing, references (VT_BYREF) followed, and values converted the
// way VariantChangeType converts them. A script's array arrives as a SAFEARRAY of VARIANTs, a
// typed client's as a SAFEARRAY of BSTRs; both read as a list of texts.
//
// A read that cannot be satisfied throws ArgumentError; the method's Invoke turns it into its
// HRESULT and the position automation reports in puArgErr. A failure of the method itself, which
// the caller should read as a sentence, is a MethodFailure, reported through EXCEPINFO.
#pragma once

#include <oaidl.h>

#include <string>
#include <vector>

struct ArgumentError {
    HRESULT hr;     // DISP_E_TYPEMISMATCH, DISP_E_PARAMNOTOPTIONAL, DISP_E_BADPARAMCOUNT
    UINT argError;  // index into DISPPARAMS::rgvarg, as puArgErr expects it
};

struct MethodFailure {
    HRESULT scode;
    std::wstring description;
};

class MethodArguments {
public:
    // Throws ArgumentError (DISP_E_BADPARAMCOUNT) when the call carries fewer than `minimum` or
    // more than `maximum` arguments; named arguments are refused with DISP_E_NONAMEDARGS.
    MethodArguments(const DISPPARAMS& params, UINT minimum, UINT maximum);

    UINT Count() const noexcept { return m_params.cArgs; }
    // False for an argument beyond the count and for an omitted optional one.
    bool Has(UINT index) const noexcept;
    // True when the argument (after references) is an array.
    bool IsArray(UINT index) const noexcept;

    // A text: required, not an array, not Empty or Null. Numbers and dates are converted.
    std::wstring Text(UINT index) const;
    // One text, or every element of a one-dimensional array of texts in index order.
    std::vector<std::wstring> Texts(UINT index) const;
    // The same, where only an array will do.
    std::vector<std::wstring> TextArray(UINT index) const;

private:
    const VARIANT& At(UINT index) const noexcept;
    [[noreturn]] void Throw(HRESULT hr, UINT index) const;

    const DISPPARAMS& m_params;
};

// Fills `info` (when given) for DISP_E_EXCEPTION: the source is the connector's ProgID. Returns
// DISP_E_EXCEPTION, or the failure's own code when the caller passed no EXCEPINFO.
HRESULT ReportMethodFailure(const MethodFailure& failure, EXCEPINFO* info) noexcept;
