// Language files for the tests: written byte for byte as tools/langfile/langfile.py writes them,
// into a folder that the machine-wide "Dir" names, with the language "l" set to use them.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "support/RegistrySandbox.h"
#include "support/TestFiles.h"

std::vector<uint8_t> LanguageFileBytes(const std::map<unsigned, std::wstring>& texts);

// "Dir" set to a fresh folder (or the given one) and "l" to `language` in the machine-wide key.
class LanguageFolder {
public:
    explicit LanguageFolder(RegistrySandbox& registry, const wchar_t* language = L"en",
                            const std::wstring& folder = L"");

    // Writes "lang_<code>.bin" into the folder.
    void Write(const std::wstring& code, const std::vector<uint8_t>& bytes) const;
    const std::wstring& Path() const { return m_path; }

private:
    ScratchFolder m_scratch;
    std::wstring m_path;  // without a trailing backslash, as registration writes "Dir"
};
