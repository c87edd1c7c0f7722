#include "common/Module.h"

// The linker's symbol for the start of the image this code is part of: the DLL in the product,
// the program itself when the code is linked into a tool or a test.
extern "C" IMAGE_DOS_HEADER __ImageBase;

namespace {
HINSTANCE g_moduleInstance = nullptr;
}

HINSTANCE ModuleInstance() noexcept {
    return g_moduleInstance ? g_moduleInstance : reinterpret_cast<HINSTANCE>(&__ImageBase);
}

void SetModuleInstance(HINSTANCE instance) noexcept { g_moduleInstance = instance; }
