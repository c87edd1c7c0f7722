// User-interface language files: "<Dir>\lang_<l>.bin" beside the add-in module overrides texts of
// the string table, id by id; a text the file lacks comes from the string table.
//
// The file is little-endian and versioned:
//
//     offset  size  field
//     0       4     magic "TDLF"
//     4       2     format version, 1
//     6       2     header size in bytes, 16
//     8       4     number of entries N
//     12      4     size of the whole file in bytes
//     16      12*N  entries: string id, offset of the text from the start of the file in bytes,
//                   length of the text in UTF-16 code units; ids strictly ascending
//     ...           the texts, UTF-16LE, without terminators
//
// A file that breaks any of these rules (another magic or version, a size that disagrees with the
// file's, an entry pointing outside the file or at an odd offset, ids out of order, a file larger
// than kMaxLanguageFileSize) is refused as a whole. tools/langfile/langfile.py makes one from a
// text file of "id = text" lines.
#pragma once

#include <windows.h>

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

inline constexpr uint16_t kLanguageFileVersion = 1;
inline constexpr uint32_t kMaxLanguageFileSize = 1024 * 1024;

class LanguageTable {
public:
    // The table in `bytes`, or none with the reason in `problem`.
    static std::optional<LanguageTable> Parse(std::span<const uint8_t> bytes,
                                              std::wstring& problem);

    // Text `id`, or null when the file has none.
    const std::wstring* Find(UINT id) const noexcept;
    size_t Size() const noexcept { return m_texts.size(); }

private:
    std::vector<std::pair<UINT, std::wstring>> m_texts;  // ascending ids
};

// The language file in effect: "Dir" of the machine-wide key, and "l" of the per-user key over the
// machine-wide one, as the settings load them. Empty when either is missing, when "l" names the
// built-in German ("de") or when it is not a plain language code.
std::wstring LanguageFilePath();

// The codes of the language files in the "Dir" folder ("en" for "lang_en.bin"), sorted; files
// whose name holds no plain language code are left out.
std::vector<std::wstring> AvailableLanguages();

// Text `id` of the language file in effect into `buffer` (cut to capacity - 1 characters); returns
// its length, 0 when there is no such text. The file is read again only when its path, size or
// time changes; a missing or broken file is logged once and then treated as empty.
int LoadLanguageFileString(UINT id, wchar_t* buffer, int capacity) noexcept;
