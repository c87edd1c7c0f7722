#include "common/LanguageFile.h"

#include <algorithm>
#include <cstring>
#include <cwchar>
#include <string_view>

#include "common/AddinKeys.h"
#include "common/LogFile.h"
#include "common/Registry.h"
#include "common/UniqueResource.h"

namespace {

constexpr uint8_t kMagic[4] = {'T', 'D', 'L', 'F'};
constexpr uint32_t kHeaderSize = 16;
constexpr uint32_t kEntrySize = 12;
// The registry values are read as the settings read them.
constexpr size_t kValueCapacity = 1024;
constexpr size_t kMaxLanguageCodeLength = 16;
// The language the string table speaks: no file is looked for.
constexpr wchar_t kBuiltInLanguage[] = L"de";

uint16_t ReadU16(const uint8_t* at) { return static_cast<uint16_t>(at[0] | (at[1] << 8)); }
uint32_t ReadU32(const uint8_t* at) {
    return static_cast<uint32_t>(at[0]) | (static_cast<uint32_t>(at[1]) << 8) |
           (static_cast<uint32_t>(at[2]) << 16) | (static_cast<uint32_t>(at[3]) << 24);
}

std::wstring ReadText(HKEY root, const std::wstring& path, const wchar_t* name) {
    UniqueHKey key;
    if (path.empty() || OpenRegKey(root, path.c_str(), KEY_READ, key) != ERROR_SUCCESS) {
        return std::wstring();
    }
    wchar_t text[kValueCapacity];
    ReadRegText(key.get(), name, text, kValueCapacity);
    return text;
}

// "l" as LoadSettings ends up with it: the per-user key (of HKEY_CURRENT_USER, or when that is
// missing the one below the machine-wide key) over the machine-wide key.
std::wstring ReadLanguage() {
    std::wstring userPath = AddinUserKeyPath();
    UniqueHKey userKey;
    if (!userPath.empty() &&
        (OpenRegKey(HKEY_CURRENT_USER, userPath.c_str(), KEY_READ, userKey) == ERROR_SUCCESS ||
         OpenRegKey(HKEY_LOCAL_MACHINE, userPath.c_str(), KEY_READ, userKey) == ERROR_SUCCESS)) {
        wchar_t text[kValueCapacity];
        if (ReadRegText(userKey.get(), L"l", text, kValueCapacity) == ERROR_SUCCESS) {
            return text;
        }
    }
    return ReadText(HKEY_LOCAL_MACHINE, AddinMachineKeyPath(), L"l");
}

// Letters, digits, '-' and '_' only: the code becomes part of a file name.
bool IsLanguageCode(const std::wstring& code) {
    return !code.empty() && code.size() <= kMaxLanguageCodeLength &&
           std::all_of(code.begin(), code.end(), [](wchar_t c) {
               return (c >= L'a' && c <= L'z') || (c >= L'A' && c <= L'Z') ||
                      (c >= L'0' && c <= L'9') || c == L'-' || c == L'_';
           });
}

// What was last read, so that a file is parsed (and a broken one logged) once, not per text.
struct LoadedFile {
    std::wstring path;
    bool present = false;
    FILETIME written{};
    uint64_t size = 0;
    std::optional<LanguageTable> table;
};

LoadedFile& Loaded() {
    static LoadedFile loaded;
    return loaded;
}

std::optional<LanguageTable> ReadTable(const std::wstring& path, uint64_t size,
                                       std::wstring& problem) {
    if (size > kMaxLanguageFileSize) {
        problem = L"file too large";
        return std::nullopt;
    }
    UniqueFileHandle file(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ,
                                      nullptr /* security */, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL,
                                      nullptr /* template */));
    if (!file) {
        problem = L"cannot be opened";
        return std::nullopt;
    }
    std::vector<uint8_t> bytes(static_cast<size_t>(size));
    DWORD read = 0;
    if (!ReadFile(file.get(), bytes.data(), static_cast<DWORD>(bytes.size()), &read, nullptr) ||
        read != bytes.size()) {
        problem = L"cannot be read";
        return std::nullopt;
    }
    return LanguageTable::Parse(bytes, problem);
}

const LanguageTable* CurrentTable() {
    std::wstring path = LanguageFilePath();
    LoadedFile& loaded = Loaded();
    if (path.empty()) {
        loaded = LoadedFile{};
        return nullptr;
    }
    WIN32_FILE_ATTRIBUTE_DATA data{};
    bool present = GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &data) &&
                   !(data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY);
    uint64_t size = (static_cast<uint64_t>(data.nFileSizeHigh) << 32) | data.nFileSizeLow;
    if (path == loaded.path && present == loaded.present &&
        (!present ||
         (size == loaded.size && CompareFileTime(&data.ftLastWriteTime, &loaded.written) == 0))) {
        return loaded.table ? &*loaded.table : nullptr;
    }
    loaded = LoadedFile{path, present, data.ftLastWriteTime, size, std::nullopt};
    if (!present) {
        LogWarning(L"Language file %s not found, using the built-in texts\n", path.c_str());
        return nullptr;
    }
    std::wstring problem;
    loaded.table = ReadTable(path, size, problem);
    if (!loaded.table) {
        LogWarning(L"Language file %s ignored (%s), using the built-in texts\n", path.c_str(),
                   problem.c_str());
        return nullptr;
    }
    return &*loaded.table;
}

}  // namespace

std::optional<LanguageTable> LanguageTable::Parse(std::span<const uint8_t> bytes,
                                                  std::wstring& problem) {
    if (bytes.size() < kHeaderSize || std::memcmp(bytes.data(), kMagic, sizeof kMagic) != 0) {
        problem = L"not a language file";
        return std::nullopt;
    }
    const uint8_t* base = bytes.data();
    if (ReadU16(base + 4) != kLanguageFileVersion || ReadU16(base + 6) != kHeaderSize) {
        problem = L"unknown format version";
        return std::nullopt;
    }
    uint64_t count = ReadU32(base + 8);
    if (ReadU32(base + 12) != bytes.size() || bytes.size() > kMaxLanguageFileSize) {
        problem = L"truncated or wrong size";
        return std::nullopt;
    }
    if (kHeaderSize + count * kEntrySize > bytes.size()) {
        problem = L"entries beyond the end";
        return std::nullopt;
    }
    LanguageTable table;
    table.m_texts.reserve(static_cast<size_t>(count));
    for (uint64_t i = 0; i < count; ++i) {
        const uint8_t* entry = base + kHeaderSize + i * kEntrySize;
        UINT id = ReadU32(entry);
        uint64_t offset = ReadU32(entry + 4);
        uint64_t length = ReadU32(entry + 8);
        if (!table.m_texts.empty() && id <= table.m_texts.back().first) {
            problem = L"ids out of order";
            return std::nullopt;
        }
        if (offset % 2 != 0 || offset < kHeaderSize + count * kEntrySize ||
            offset + length * 2 > bytes.size()) {
            problem = L"text beyond the end";
            return std::nullopt;
        }
        std::wstring text(static_cast<size_t>(length), L'\0');
        for (uint64_t c = 0; c < length; ++c) {
            text[static_cast<size_t>(c)] = static_cast<wchar_t>(ReadU16(base + offset + c * 2));
        }
        table.m_texts.emplace_back(id, std::move(text));
    }
    return table;
}

const std::wstring* LanguageTable::Find(UINT id) const noexcept {
    auto found = std::lower_bound(m_texts.begin(), m_texts.end(), id,
                                  [](const auto& entry, UINT key) { return entry.first < key; });
    return found != m_texts.end() && found->first == id ? &found->second : nullptr;
}

std::wstring LanguageFilePath() {
    std::wstring folder = ReadText(HKEY_LOCAL_MACHINE, AddinMachineKeyPath(), L"Dir");
    std::wstring language = ReadLanguage();
    if (folder.empty() || language.empty() || lstrcmpiW(language.c_str(), kBuiltInLanguage) == 0) {
        return std::wstring();
    }
    if (!IsLanguageCode(language)) {
        return std::wstring();
    }
    // "%s\lang_%s.bin"; a folder in the root of a drive keeps its own backslash ("C:\").
    if (folder.back() != L'\\') {
        folder += L'\\';
    }
    return folder + L"lang_" + language + L".bin";
}

std::vector<std::wstring> AvailableLanguages() {
    std::vector<std::wstring> codes;
    std::wstring folder = ReadText(HKEY_LOCAL_MACHINE, AddinMachineKeyPath(), L"Dir");
    if (folder.empty()) {
        return codes;
    }
    if (folder.back() != L'\\') {
        folder += L'\\';
    }
    constexpr std::wstring_view kPrefix = L"lang_";
    constexpr std::wstring_view kSuffix = L".bin";
    WIN32_FIND_DATAW found{};
    UniqueFindHandle search(FindFirstFileW((folder + L"lang_*.bin").c_str(), &found));
    if (!search) {
        return codes;
    }
    do {
        std::wstring_view name = found.cFileName;
        if ((found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) ||
            name.size() <= kPrefix.size() + kSuffix.size()) {
            continue;
        }
        std::wstring code(
            name.substr(kPrefix.size(), name.size() - kPrefix.size() - kSuffix.size()));
        // The pattern also matches longer extensions ("lang_en.bin.old") on some file systems.
        if (name.ends_with(kSuffix) && IsLanguageCode(code)) {
            codes.push_back(std::move(code));
        }
    } while (FindNextFileW(search.get(), &found));
    std::sort(codes.begin(), codes.end());
    return codes;
}

int LoadLanguageFileString(UINT id, wchar_t* buffer, int capacity) noexcept {
    if (!buffer || capacity <= 0) {
        return 0;
    }
    try {
        const LanguageTable* table = CurrentTable();
        const std::wstring* text = table ? table->Find(id) : nullptr;
        if (!text || text->empty()) {
            return 0;
        }
        size_t length = std::min(text->size(), static_cast<size_t>(capacity - 1));
        std::wmemcpy(buffer, text->data(), length);
        buffer[length] = L'\0';
        return static_cast<int>(length);
    } catch (...) {
        // Out of memory reading the file: the string table's text will do.
        return 0;
    }
}
