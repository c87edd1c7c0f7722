// The registry calls the add-in makes, each in one place: opening and creating keys into owned
// handles, reading a text or a 32-bit number, writing them, and removing values and trees. Every
// function hands back the registry's own status (ERROR_SUCCESS or the error) for the caller to act
// on or log; none of them throws.
#pragma once

#include <windows.h>

#include "common/UniqueResource.h"

LSTATUS OpenRegKey(HKEY root, const wchar_t* path, REGSAM access, UniqueHKey& key) noexcept;
// Opens or creates `path` (non-volatile, full access).
LSTATUS CreateRegKey(HKEY root, const wchar_t* path, UniqueHKey& key) noexcept;

// Reads value `name` (null for the default value) into `buffer` of `capacity` characters, at most
// capacity - 1 characters of it, and terminates it after what was read, also when the registry
// holds the text without its NUL. The value's registry type goes to `type` when it is given; the
// bytes are read whatever the type. On failure the buffer is left empty.
LSTATUS ReadRegText(HKEY key, const wchar_t* name, wchar_t* buffer, size_t capacity,
                    DWORD* type = nullptr) noexcept;
// Reads the first four bytes of value `name` whatever its registry type; 0 on failure.
LSTATUS ReadRegNumber(HKEY key, const wchar_t* name, DWORD& number) noexcept;

// Writes REG_SZ text (its NUL included) or a REG_DWORD.
LSTATUS WriteRegText(HKEY key, const wchar_t* name, const wchar_t* text) noexcept;
LSTATUS WriteRegNumber(HKEY key, const wchar_t* name, DWORD number) noexcept;

LSTATUS DeleteRegValue(HKEY key, const wchar_t* name) noexcept;
// Removes `path` with everything below it.
LSTATUS DeleteRegTree(HKEY root, const wchar_t* path) noexcept;
