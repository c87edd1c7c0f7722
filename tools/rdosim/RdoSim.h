// What rdosim.dll and the programs that load it share: the class id it registers for the
// ProgID and the export through which a program installs the class factory.
#pragma once

#include <unknwn.h>

// {5B3C1E0A-7D24-4F6B-9A1E-3C8D2F4A6B71}
constexpr CLSID kClsidRdoSimSession = {
    0x5B3C1E0A, 0x7D24, 0x4F6B, {0x9A, 0x1E, 0x3C, 0x8D, 0x2F, 0x4A, 0x6B, 0x71}};
constexpr wchar_t kRdoSimProgId[] = L"Redemption.RDOSession";

// Installs (or with null removes) the factory DllGetClassObject hands out. The DLL holds a
// reference until the next call.
using RdoSimInstallFactoryFunction = HRESULT(STDAPICALLTYPE*)(IClassFactory* factory);
