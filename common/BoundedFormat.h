// Wide printf formatting with Windows semantics ("%s" takes a wide string in a wide format), done
// by the C runtime's own formatter. The bounded form fails instead of truncating: a text that does
// not fit its fixed buffer is an error for the caller to report, never a crash of the host.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <string>

// Formats into `buffer` of `capacity` characters, NUL included. On overflow the buffer is left
// empty and the result is false.
bool FormatBounded(wchar_t* buffer, size_t capacity, const wchar_t* format, ...) noexcept;
bool FormatBoundedV(wchar_t* buffer, size_t capacity, const wchar_t* format, va_list args) noexcept;

// Copies `text` into `buffer`; false (and an empty buffer) when it does not fit.
bool CopyBounded(wchar_t* buffer, size_t capacity, const wchar_t* text) noexcept;

// Formats into a string of whatever length the text needs. May throw std::bad_alloc.
std::wstring FormatString(const wchar_t* format, ...);
std::wstring FormatStringV(const wchar_t* format, va_list args);
