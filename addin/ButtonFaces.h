// A command-bar button's face: one of the add-in's images drawn into a 16 x 16 face and mask,
// offered on the clipboard under the formats command bars paste from ("Toolbar Button Face",
// "Toolbar Button Mask") and pasted with the button's PasteFace. The user's clipboard content is
// saved first and put back afterwards.
#pragma once

#include <oaidl.h>

// Pastes image file `imageName` (as the ribbon loads it) onto `button`. A missing image or a
// clipboard that cannot be opened costs the face only; the HRESULT says why.
HRESULT PasteButtonFace(IDispatch* button, const wchar_t* imageName) noexcept;
