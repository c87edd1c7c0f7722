// Wide printf formatting with Windows semantics ("%s" takes a wide string in a wide format), done
// by the C runtime's own formatter. The bounded form fails instead of truncating: a text that does
// not fit its fixed buffer is an error for the caller to report, never a crash of the host. Every
// format is checked against its arguments while compiling (common/CheckedFormat.h).
#pragma once

#include <cstddef>
#include <string>

#include "common/CheckedFormat.h"

// The C runtime side of the checked functions below; called only by them.
namespace unchecked {
bool FormatBounded(wchar_t* buffer, size_t capacity, const wchar_t* format, ...) noexcept;
std::wstring FormatString(const wchar_t* format, ...);
}  // namespace unchecked

// Formats into `buffer` of `capacity` characters, NUL included. On overflow the buffer is left
// empty and the result is false.
template <class... Args>
bool FormatBounded(wchar_t* buffer, size_t capacity, FormatFor<Args...> format,
                   const Args&... args) noexcept {
    return unchecked::FormatBounded(buffer, capacity, format.c_str(), args...);
}

// Copies `text` into `buffer`; false (and an empty buffer) when it does not fit.
bool CopyBounded(wchar_t* buffer, size_t capacity, const wchar_t* text) noexcept;

// Formats into a string of whatever length the text needs. May throw std::bad_alloc.
template <class... Args>
std::wstring FormatString(FormatFor<Args...> format, const Args&... args) {
    return unchecked::FormatString(format.c_str(), args...);
}
