// Owner of one BSTR. Creating one from text that cannot be allocated throws ComError with
// E_OUTOFMEMORY instead of handing back a null string.
#pragma once

#include <windows.h>
#include <oleauto.h>

#include <utility>

#include "common/ComError.h"

class BStr {
public:
    BStr() noexcept = default;
    explicit BStr(const wchar_t* text) : m_bstr(Allocate(text)) {}
    BStr(const BStr&) = delete;
    BStr& operator=(const BStr&) = delete;
    BStr(BStr&& other) noexcept : m_bstr(other.release()) {}
    BStr& operator=(BStr&& other) noexcept {
        if (this != &other) {
            reset(other.release());
        }
        return *this;
    }
    ~BStr() { reset(); }

    BSTR get() const noexcept { return m_bstr; }
    // Never null: an absent BSTR reads as the empty text, as automation treats it.
    const wchar_t* c_str() const noexcept { return m_bstr ? m_bstr : L""; }

    void reset(BSTR value = nullptr) noexcept {
        if (BSTR old = std::exchange(m_bstr, value)) {
            ::SysFreeString(old);
        }
    }
    BSTR release() noexcept { return std::exchange(m_bstr, nullptr); }
    BSTR* put() noexcept {
        reset();
        return &m_bstr;
    }

private:
    static BSTR Allocate(const wchar_t* text) {
        if (!text) {
            return nullptr;
        }
        BSTR bstr = ::SysAllocString(text);
        if (!bstr) {
            ThrowComError(E_OUTOFMEMORY);
        }
        return bstr;
    }

    BSTR m_bstr = nullptr;
};
