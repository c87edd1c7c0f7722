// The German message boxes of the user commands, their texts and captions from the module's string
// table.
#pragma once

#include <windows.h>

// Loads user-interface text `id` into `buffer`; returns its length, 0 when no text exists.
int LoadUiString(UINT id, wchar_t* buffer, int capacity) noexcept;

// Formats text `id` with the extra arguments (wvsprintfW) and shows it as an error with the
// caption "Fehler bei der Dokumentablage", topmost, without an owner. Shows nothing when either
// text is missing.
void ShowErrorMessage(UINT id, ...) noexcept;

// Like ShowErrorMessage, as a yes/no question captioned "Dokument ablegen". Returns IDYES or IDNO;
// IDNO when a text is missing.
int AskQuestion(UINT id, ...) noexcept;
