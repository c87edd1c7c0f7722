// Reading a storage target's parameter text, "label=\"Invoices\" appid=42 configid=7", back into
// its pieces. Each extractor writes into a caller's buffer of kStorageTargetTextCapacity
// characters and leaves it empty when the key is missing.
#pragma once

#include <cstddef>

inline constexpr size_t kStorageTargetTextCapacity = 1048;

// From the first "appid" to the end, its first blank turned into "$": "appid=42$configid=7".
void ExtractTargetPart(const wchar_t* parameter,
                       wchar_t (&out)[kStorageTargetTextCapacity]) noexcept;

// The text between the quotes after the first "label=": "Invoices".
void ExtractLabel(const wchar_t* parameter, wchar_t (&out)[kStorageTargetTextCapacity]) noexcept;

// The text after the first "<key>=" up to the next blank: "42" for "appid".
void ExtractKeyValue(const wchar_t* parameter, const wchar_t* key,
                     wchar_t (&out)[kStorageTargetTextCapacity]) noexcept;
