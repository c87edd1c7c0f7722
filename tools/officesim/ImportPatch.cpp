#include "ImportPatch.h"

#include <stdexcept>

namespace {

// Writes `to` into every import slot of `module` that holds `from`; the number of slots written.
int Rewrite(HMODULE module, void* from, void* to) {
    auto* base = reinterpret_cast<BYTE*>(module);
    const auto* dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
    const auto* nt = reinterpret_cast<const IMAGE_NT_HEADERS*>(base + dos->e_lfanew);
    const IMAGE_DATA_DIRECTORY& imports =
        nt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
    if (imports.VirtualAddress == 0) {
        return 0;
    }
    int rewritten = 0;
    for (auto* descriptor =
             reinterpret_cast<const IMAGE_IMPORT_DESCRIPTOR*>(base + imports.VirtualAddress);
         descriptor->Name != 0; ++descriptor) {
        for (auto* slot = reinterpret_cast<IMAGE_THUNK_DATA*>(base + descriptor->FirstThunk);
             slot->u1.Function != 0; ++slot) {
            if (reinterpret_cast<void*>(slot->u1.Function) != from) {
                continue;
            }
            DWORD protection = 0;
            if (VirtualProtect(&slot->u1.Function, sizeof slot->u1.Function, PAGE_READWRITE,
                               &protection)) {
                slot->u1.Function = reinterpret_cast<ULONG_PTR>(to);
                VirtualProtect(&slot->u1.Function, sizeof slot->u1.Function, protection,
                               &protection);
                ++rewritten;
            }
        }
    }
    return rewritten;
}

}  // namespace

ImportPatch::ImportPatch(HMODULE module, void* original, void* replacement)
    : m_module(module), m_original(original), m_replacement(replacement) {
    if (!original || Rewrite(module, original, replacement) == 0) {
        throw std::runtime_error("the module does not import the function to be replaced");
    }
}

ImportPatch::~ImportPatch() { Rewrite(m_module, m_replacement, m_original); }
