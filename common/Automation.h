// Late-bound access to host objects (Office and Outlook object models) by member name: the name is
// resolved with GetIDsOfNames under LOCALE_USER_DEFAULT, then Invoke runs the property get, the
// property put or the method call. Results come back as HRESULTs for the caller to log.
#pragma once

#include <oaidl.h>

#include <initializer_list>

// Reads property `name`, with optional arguments in their natural order (for indexed properties
// such as Item(i)), into `result`, which is cleared first.
HRESULT GetPropertyNoThrow(IDispatch* object, const wchar_t* name, VARIANT* result,
                           std::initializer_list<const VARIANT*> args = {}) noexcept;

// Reads property `name` and hands out the object it holds; DISP_E_TYPEMISMATCH when the property
// is not an object, E_POINTER when it is an empty object reference.
HRESULT GetObjectPropertyNoThrow(IDispatch* object, const wchar_t* name, IDispatch** result,
                                 std::initializer_list<const VARIANT*> args = {}) noexcept;

HRESULT PutPropertyNoThrow(IDispatch* object, const wchar_t* name, const VARIANT& value) noexcept;

// Calls method `name` with arguments in their natural order; `result` may be null.
HRESULT CallMethodNoThrow(IDispatch* object, const wchar_t* name,
                          std::initializer_list<const VARIANT*> args = {},
                          VARIANT* result = nullptr) noexcept;
