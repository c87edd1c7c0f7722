// Puts a function of ours in place of one that a loaded module imports, by rewriting the module's
// import address table, so that we see the module's calls to it without the module knowing: the
// benchmark and the fault sweep note the add-in's ShellExecuteExW calls (Wine cannot launch the URL
// of 100 mails), the tests' window watcher its MessageBoxW calls.
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
