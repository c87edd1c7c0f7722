// A path of a staged file: the fixed 260-character buffer that the capture routines fill.
#pragma once

#include <windows.h>

#include <array>

using PathBuffer = std::array<wchar_t, MAX_PATH>;
