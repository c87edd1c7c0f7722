// Owner of one VARIANT: initialised on construction, cleared on destruction. It is a VARIANT, so
// its address goes straight into automation calls as an argument or a result.
#pragma once

#include <windows.h>
#include <oleauto.h>

#include <cstdint>

#include "common/BStr.h"

class Variant : public VARIANT {
public:
    Variant() noexcept { ::VariantInit(this); }
    explicit Variant(int32_t value) noexcept {
        ::VariantInit(this);
        vt = VT_I4;
        lVal = value;
    }
    explicit Variant(bool value) noexcept {
        ::VariantInit(this);
        vt = VT_BOOL;
        boolVal = value ? VARIANT_TRUE : VARIANT_FALSE;
    }
    explicit Variant(const wchar_t* text) {
        ::VariantInit(this);
        BStr bstr(text ? text : L"");
        vt = VT_BSTR;
        bstrVal = bstr.release();
    }
    // Holds its own reference to the object.
    explicit Variant(IDispatch* object) noexcept {
        ::VariantInit(this);
        vt = VT_DISPATCH;
        pdispVal = object;
        if (object) {
            object->AddRef();
        }
    }
    Variant(const Variant&) = delete;
    Variant& operator=(const Variant&) = delete;
    Variant(Variant&& other) noexcept {
        *static_cast<VARIANT*>(this) = other;
        ::VariantInit(&other);
    }
    Variant& operator=(Variant&& other) noexcept {
        if (this != &other) {
            Clear();
            *static_cast<VARIANT*>(this) = other;
            ::VariantInit(&other);
        }
        return *this;
    }
    ~Variant() { ::VariantClear(this); }

    void Clear() noexcept { ::VariantClear(this); }
    VARIANT* put() noexcept {
        Clear();
        return this;
    }
};
