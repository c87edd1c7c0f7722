// The add-in's ribbon: the markup served for each host window, the callback names the markup
// names and their dispatch identifiers, and the images of the buttons.
#pragma once

#include <oaidl.h>

#include <optional>
#include <string>

enum RibbonCallback : DISPID {
    kCallbackArchive = 1,
    kCallbackSettings = 2,
    kCallbackInfo = 3,
    kCallbackGetImage = 4,
    kCallbackAttachment = 5,
    kCallbackArchiveSingleOutlook = 6,
    kCallbackAttachmentSingleOutlook = 7,
};

// The dispatch identifier of a callback name (case-sensitive), or DISPID_UNKNOWN.
DISPID RibbonCallbackId(const wchar_t* name) noexcept;

struct RibbonOptions {
    bool attachments;  // the setting "Attachments"
    bool noSettings;   // the setting "Nosettings"
};

// The Outlook, Word, PowerPoint and Excel windows that get the add-in's tab.
bool IsServedRibbon(const wchar_t* ribbonId) noexcept;

// The markup for ribbon `ribbonId`, or nothing for a ribbon the add-in does not serve. The layout,
// whitespace included, is what hosts and installations have always been given. Throws on out of
// memory.
std::optional<std::wstring> BuildRibbonXml(const wchar_t* ribbonId, const RibbonOptions& options);

// The loadImage callback: the picture of image file `imageName` from the installation folder
// ("Dir" in the machine-wide settings key), as an IPictureDisp in `result`. E_FAIL without the
// folder or the file.
HRESULT LoadRibbonImage(const wchar_t* imageName, VARIANT* result) noexcept;
