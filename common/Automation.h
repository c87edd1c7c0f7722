// Late-bound access to host objects (the Office and Outlook object models, the Redemption library)
// by member name: the name is resolved with GetIDsOfNames under LOCALE_USER_DEFAULT, then Invoke
// runs the property get, the property put or the method call. Results come back as HRESULTs for
// the caller to log; the typed reads convert the value the way VariantChangeType does, so a
// number read as text or the text "2" read as an integer both work.
#pragma once

#include <oaidl.h>

#include <cstdint>
#include <initializer_list>

#include "common/BStr.h"

// Arguments of an indexed property or a method, in their natural order (the first one first).
using AutomationArgs = std::initializer_list<const VARIANT*>;

// The member a read names and how it is invoked: a property get, or, made by GetOrCall(), a
// property get or method call alike, as automation clients read members that some object models
// declare as methods (Outlook's Selection.Item(i)).
class MemberRead {
public:
    // Implicit, so that a plain name reads a property.
    MemberRead(const wchar_t* name) noexcept : m_name(name) {}

    const wchar_t* Name() const noexcept { return m_name; }
    WORD Flags() const noexcept { return m_flags; }

private:
    friend MemberRead GetOrCall(const wchar_t* name) noexcept;

    const wchar_t* m_name;
    WORD m_flags = DISPATCH_PROPERTYGET;
};

MemberRead GetOrCall(const wchar_t* name) noexcept;

// Reads `member` into `result`, which is cleared first.
HRESULT GetPropertyNoThrow(IDispatch* object, MemberRead member, VARIANT* result,
                           AutomationArgs args = {}) noexcept;

// Typed reads. On failure the output is empty (null, 0, false) and the HRESULT says why: the
// call's own failure, or the conversion's (DISP_E_TYPEMISMATCH and the like).
HRESULT GetTextPropertyNoThrow(IDispatch* object, MemberRead member, BStr* text,
                               AutomationArgs args = {}) noexcept;
HRESULT GetIntegerPropertyNoThrow(IDispatch* object, MemberRead member, int32_t* value,
                                  AutomationArgs args = {}) noexcept;
HRESULT GetBooleanPropertyNoThrow(IDispatch* object, MemberRead member, bool* value,
                                  AutomationArgs args = {}) noexcept;
HRESULT GetDatePropertyNoThrow(IDispatch* object, MemberRead member, DATE* value,
                               AutomationArgs args = {}) noexcept;

// Object reads hand out one reference. A value that is not an object is DISP_E_TYPEMISMATCH, an
// empty object reference (Nothing) E_POINTER. A plain IUnknown (some collections answer with one)
// is asked for IDispatch; GetUnknownPropertyNoThrow takes any object as it comes, for values that
// are no automation objects at all (Outlook's MAPIOBJECT).
HRESULT GetObjectPropertyNoThrow(IDispatch* object, MemberRead member, IDispatch** result,
                                 AutomationArgs args = {}) noexcept;
HRESULT GetUnknownPropertyNoThrow(IDispatch* object, MemberRead member, IUnknown** result,
                                  AutomationArgs args = {}) noexcept;

HRESULT PutPropertyNoThrow(IDispatch* object, const wchar_t* name, const VARIANT& value) noexcept;

// Calls method `name`; `result` may be null.
HRESULT CallMethodNoThrow(IDispatch* object, const wchar_t* name, AutomationArgs args = {},
                          VARIANT* result = nullptr) noexcept;
