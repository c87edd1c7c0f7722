// Puts a function of the benchmark in place of one that a loaded module imports, by rewriting the
// module's import address table, so that the benchmark sees the module's calls to it without the
// module knowing. Used for the shell's ShellExecuteExW: Wine cannot launch the URL of 100 mails.
#pragma once

#include <windows.h>

// Replaces every slot of `module`'s import table that holds `original` by `replacement` for the
// object's life, and puts `original` back at the end. Throws when no slot holds it.
class ImportPatch {
public:
    ImportPatch(HMODULE module, void* original, void* replacement);
    ~ImportPatch();
    ImportPatch(const ImportPatch&) = delete;
    ImportPatch& operator=(const ImportPatch&) = delete;

private:
    HMODULE m_module;
    void* m_original;
    void* m_replacement;
};
