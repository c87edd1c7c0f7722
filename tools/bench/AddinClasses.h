// The classes the soak run and the benchmark create from the modules they load.
#pragma once

#include <guiddef.h>

// {9BEC1BC7-AFD5-4B83-B6FF-1AB8711015D9}, the add-in class "Talvorn.DorvaneAddin".
inline constexpr CLSID kAddinClass = {
    0x9BEC1BC7, 0xAFD5, 0x4B83, {0xB6, 0xFF, 0x1A, 0xB8, 0x71, 0x10, 0x15, 0xD9}};
// {6D1C3E52-0B8F-4E39-9A47-2C5B8E0F7A11}, the empty add-in of EmptyAddin.cpp, the floor.
inline constexpr CLSID kEmptyAddinClass = {
    0x6D1C3E52, 0x0B8F, 0x4E39, {0x9A, 0x47, 0x2C, 0x5B, 0x8E, 0x0F, 0x7A, 0x11}};
