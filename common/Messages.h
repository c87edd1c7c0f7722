// The German message boxes of the user commands, their texts and captions from the user-interface
// language file when it has them (common/LanguageFile.h), else from the module's string table.
#pragma once

#include <windows.h>

#include "common/CheckedFormat.h"

// Loads user-interface text `id` into `buffer`, from the language file or else the string table;
// returns its length, 0 when no text exists.
int LoadUiString(UINT id, wchar_t* buffer, int capacity) noexcept;

// The formatting side of the two below; called only by them.
namespace unchecked {
void ShowErrorMessage(UINT id, ...) noexcept;
int AskQuestion(UINT id, ...) noexcept;
}  // namespace unchecked

// The formats come from the string table at run time, so only the arguments are checked while
// compiling: each must be something wvsprintfW can take (an integer, a character or a string
// pointer; no class objects, no floating-point numbers).

// Formats text `id` with the extra arguments (wvsprintfW) and shows it as an error with the
// caption "Fehler bei der Dokumentablage", topmost, without an owner. Shows nothing when either
// text is missing.
template <checked_format::WindowsFormatArgument... Args>
void ShowErrorMessage(UINT id, const Args&... args) noexcept {
    unchecked::ShowErrorMessage(id, args...);
}

// Like ShowErrorMessage, as a yes/no question captioned "Dokument ablegen". Returns IDYES or IDNO;
// IDNO when a text is missing.
template <checked_format::WindowsFormatArgument... Args>
int AskQuestion(UINT id, const Args&... args) noexcept {
    return unchecked::AskQuestion(id, args...);
}
