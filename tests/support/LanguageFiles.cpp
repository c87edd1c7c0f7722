#include "support/LanguageFiles.h"

#include "settings/TDCSettings.h"

namespace {
void PutU32(std::vector<uint8_t>& out, size_t at, uint32_t value) {
    for (int i = 0; i < 4; ++i) {
        out[at + i] = static_cast<uint8_t>(value >> (8 * i));
    }
}
}  // namespace

std::vector<uint8_t> LanguageFileBytes(const std::map<unsigned, std::wstring>& texts) {
    constexpr size_t kHeader = 16;
    constexpr size_t kEntry = 12;
    std::vector<uint8_t> out(kHeader + kEntry * texts.size());
    out[0] = 'T';
    out[1] = 'D';
    out[2] = 'L';
    out[3] = 'F';
    out[4] = 1;
    out[6] = kHeader;
    PutU32(out, 8, static_cast<uint32_t>(texts.size()));
    size_t entry = kHeader;
    for (const auto& [id, text] : texts) {
        PutU32(out, entry, id);
        PutU32(out, entry + 4, static_cast<uint32_t>(out.size()));
        PutU32(out, entry + 8, static_cast<uint32_t>(text.size()));
        for (wchar_t c : text) {
            out.push_back(static_cast<uint8_t>(c & 0xFF));
            out.push_back(static_cast<uint8_t>(c >> 8));
        }
        entry += kEntry;
    }
    PutU32(out, 12, static_cast<uint32_t>(out.size()));
    return out;
}

LanguageFolder::LanguageFolder(RegistrySandbox& registry, const wchar_t* language,
                               const std::wstring& folder)
    : m_path(folder.empty() ? m_scratch.Path().substr(0, m_scratch.Path().size() - 1) : folder) {
    registry.SetMachineString(kDirValue, m_path.c_str());
    registry.SetMachineString(L"l", language);
}

void LanguageFolder::Write(const std::wstring& code, const std::vector<uint8_t>& bytes) const {
    WriteFileBytes(m_path + L"\\lang_" + code + L".bin", std::string(bytes.begin(), bytes.end()));
}
