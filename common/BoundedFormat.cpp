#include "common/BoundedFormat.h"

#include <cstdarg>
#include <cstdio>
#include <cwchar>

// libstdc++ switches the standard printf names over to MinGW's C99 formatter, where "%s" in a
// wide format means a narrow string. The product's formats follow the Windows convention, so all
// formatting goes through msvcrt's _vsnwprintf and _vscwprintf, which keep it.

namespace {

bool FormatBoundedV(wchar_t* buffer, size_t capacity, const wchar_t* format,
                    va_list args) noexcept {
    if (!buffer || capacity == 0) {
        return false;
    }
    int written = _vsnwprintf(buffer, capacity, format, args);
    if (written < 0 || static_cast<size_t>(written) >= capacity) {
        buffer[0] = L'\0';
        return false;
    }
    return true;
}

std::wstring FormatStringV(const wchar_t* format, va_list args) {
    va_list measure;
    va_copy(measure, args);
    int length = _vscwprintf(format, measure);
    va_end(measure);
    if (length <= 0) {
        return std::wstring();
    }
    std::wstring text(static_cast<size_t>(length), L'\0');
    _vsnwprintf(text.data(), text.size() + 1, format, args);
    return text;
}

}  // namespace

bool unchecked::FormatBounded(wchar_t* buffer, size_t capacity, const wchar_t* format,
                              ...) noexcept {
    va_list args;
    va_start(args, format);
    bool ok = FormatBoundedV(buffer, capacity, format, args);
    va_end(args);
    return ok;
}

bool CopyBounded(wchar_t* buffer, size_t capacity, const wchar_t* text) noexcept {
    if (!buffer || capacity == 0) {
        return false;
    }
    size_t length = text ? wcslen(text) : 0;
    if (length >= capacity) {
        buffer[0] = L'\0';
        return false;
    }
    wmemcpy(buffer, text ? text : L"", length);
    buffer[length] = L'\0';
    return true;
}

std::wstring unchecked::FormatString(const wchar_t* format, ...) {
    va_list args;
    va_start(args, format);
    std::wstring text;
    try {
        text = FormatStringV(format, args);
    } catch (...) {
        va_end(args);
        throw;
    }
    va_end(args);
    return text;
}
