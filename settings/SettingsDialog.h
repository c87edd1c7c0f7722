// The settings dialog (resource 112): the user-interface language, the storage targets as a
// three-column list ("Name", "Anwendungs ID", "Konfigurations ID") with fields to add a target and
// a way to remove one, and the switch "Abgelegte E-Mails löschen" (DeleteArcDocs). It edits a
// loaded settings object; saving is the caller's, when the object reports itself changed.
#pragma once

#include <windows.h>

class CTDCSettings;

// Shows the modal dialog without an owner. OK stores the edited values in `settings` and marks it
// changed, returning 1; Cancel or closing leaves it as it was and returns 0.
INT_PTR ShowSettingsDialog(CTDCSettings& settings) noexcept;
