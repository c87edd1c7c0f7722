#include "settings/StorageTargetText.h"

#include <cwchar>

namespace {

// Copies [begin, end) (end null: to the terminating NUL), cut to the buffer.
void CopyRange(const wchar_t* begin, const wchar_t* end,
               wchar_t (&out)[kStorageTargetTextCapacity]) noexcept {
    size_t length = end ? static_cast<size_t>(end - begin) : wcslen(begin);
    if (length >= kStorageTargetTextCapacity) {
        length = kStorageTargetTextCapacity - 1;
    }
    wmemcpy(out, begin, length);
    out[length] = L'\0';
}

}  // namespace

void ExtractTargetPart(const wchar_t* parameter,
                       wchar_t (&out)[kStorageTargetTextCapacity]) noexcept {
    out[0] = L'\0';
    const wchar_t* start = parameter ? wcsstr(parameter, L"appid") : nullptr;
    if (!start) {
        return;
    }
    CopyRange(start, nullptr, out);
    if (wchar_t* blank = wcschr(out, L' ')) {
        *blank = L'$';
    }
}

void ExtractLabel(const wchar_t* parameter, wchar_t (&out)[kStorageTargetTextCapacity]) noexcept {
    out[0] = L'\0';
    const wchar_t* start = parameter ? wcsstr(parameter, L"label") : nullptr;
    // Only the quote after "label=" is checked, not the "=" itself.
    if (!start || wcslen(start) < 7 || start[6] != L'"') {
        return;
    }
    const wchar_t* text = start + 7;
    CopyRange(text, wcschr(text, L'"'), out);
}

void ExtractKeyValue(const wchar_t* parameter, const wchar_t* key,
                     wchar_t (&out)[kStorageTargetTextCapacity]) noexcept {
    out[0] = L'\0';
    const wchar_t* start = (parameter && key) ? wcsstr(parameter, key) : nullptr;
    if (!start) {
        return;
    }
    const wchar_t* text = start + wcslen(key);
    if (*text == L'\0') {
        return;
    }
    ++text;  // the "="
    CopyRange(text, wcschr(text, L' '), out);
}
