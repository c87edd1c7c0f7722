#include "installer/SetupProperties.h"

#include <windows.h>

#include <algorithm>

namespace {

struct PropertyKey {
    const wchar_t* property;
    const wchar_t* key;
};

// Hosts first, then the settings in the order of the settings table.
constexpr PropertyKey kPropertyKeys[] = {
    {L"MSOUTLOOK", L"MSOutlook"},
    {L"MSWORD", L"MSWord"},
    {L"MSEXCEL", L"MSExcel"},
    {L"MSPOWERPOINT", L"MSPowerPoint"},
    {L"COM", L"COM"},
    {L"MULTIPROCESS", L"MultiProcess"},
    {L"NOSETTINGS", L"Nosettings"},
    {L"ATTACHMENTS", L"Attachments"},
    {L"DELETEARCDOCS", L"DeleteArcDocs"},
    {L"L", L"l"},
};
constexpr const wchar_t* kTargetProperty = L"PARAMS";
constexpr const wchar_t* kTargetKey = L"Params";

std::wstring WithoutLineBreaks(std::wstring text) {
    std::erase_if(text, [](wchar_t c) { return c == L'\r' || c == L'\n'; });
    return text;
}

std::string ToUtf8(const std::wstring& text) {
    if (text.empty()) {
        return {};
    }
    const int size = WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()),
                                         nullptr, 0, nullptr, nullptr);
    std::string utf8(static_cast<size_t>(size), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), utf8.data(), size,
                        nullptr, nullptr);
    return utf8;
}

std::wstring FromUtf8(std::string_view text) {
    if (text.empty()) {
        return {};
    }
    const int size =
        MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr, 0);
    std::wstring wide(static_cast<size_t>(size), L'\0');
    MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), wide.data(), size);
    return wide;
}

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

// Compared as the registration compares keys, without regard to case; the keys are ASCII.
bool SameKey(std::string_view a, std::string_view b) {
    const auto fold = [](char c) {
        return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
    };
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(),
                                              [&](char x, char y) { return fold(x) == fold(y); });
}

// A storage target may be given with its label unquoted ("label=Angebote Nord appid=42
// configid=7"): quotes inside a property value are awkward on any command line, and Wine's msiexec
// drops them. The label is everything up to the last " appid=".
std::wstring QuotedLabel(std::wstring target) {
    constexpr std::wstring_view kLabel = L"label=";
    constexpr std::wstring_view kAppId = L" appid=";
    const size_t appId = target.rfind(kAppId);
    if (!target.starts_with(kLabel) || target.size() == kLabel.size() ||
        target[kLabel.size()] == L'"' || appId == std::wstring::npos || appId < kLabel.size()) {
        return target;
    }
    target.insert(appId, 1, L'"');
    target.insert(kLabel.size(), 1, L'"');
    return target;
}

}  // namespace

SetupLines CollectSetupProperties(
    const std::function<std::wstring(const std::wstring&)>& property) {
    SetupLines lines;
    for (const PropertyKey& entry : kPropertyKeys) {
        if (std::wstring value = property(entry.property); !value.empty()) {
            lines.push_back({entry.key, WithoutLineBreaks(std::move(value))});
        }
    }
    for (int number = 1;; ++number) {
        std::wstring value = property(kTargetProperty + std::to_wstring(number));
        if (value.empty()) {
            break;
        }
        lines.push_back({kTargetKey, QuotedLabel(WithoutLineBreaks(std::move(value)))});
    }
    return lines;
}

SetupLines ParseSetupLines(std::string_view text) {
    if (text.starts_with(kByteOrderMark)) {
        text.remove_prefix(kByteOrderMark.size());
    }
    SetupLines lines;
    while (!text.empty()) {
        const size_t end = text.find('\n');
        std::string_view line = text.substr(0, end);
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
        if (line.ends_with('\r')) {
            line.remove_suffix(1);
        }
        if (const size_t equals = line.find('='); equals != std::string_view::npos) {
            lines.push_back({FromUtf8(line.substr(0, equals)), FromUtf8(line.substr(equals + 1))});
        }
    }
    return lines;
}

SetupLines CombineSetupLines(SetupLines installed, const SetupLines& given) {
    std::erase_if(installed, [&](const SetupLine& line) {
        return std::any_of(given.begin(), given.end(), [&](const SetupLine& other) {
            return SameKey(ToUtf8(line.key), ToUtf8(other.key));
        });
    });
    installed.insert(installed.end(), given.begin(), given.end());
    return installed;
}

std::wstring EncodeRegistrationData(const std::wstring& folder, const SetupLines& lines) {
    std::wstring data = WithoutLineBreaks(folder);
    for (const SetupLine& line : lines) {
        data += L'\n' + WithoutLineBreaks(line.key) + L'=' + WithoutLineBreaks(line.value);
    }
    return data;
}

void DecodeRegistrationData(std::wstring_view data, std::wstring& folder, SetupLines& lines) {
    lines.clear();
    size_t end = data.find(L'\n');
    folder.assign(data.substr(0, end));
    while (end != std::wstring_view::npos) {
        const size_t start = end + 1;
        end = data.find(L'\n', start);
        const std::wstring_view line = data.substr(start, end - start);
        const size_t equals = line.find(L'=');
        if (equals != std::wstring_view::npos) {
            lines.push_back(
                {std::wstring(line.substr(0, equals)), std::wstring(line.substr(equals + 1))});
        }
    }
}

std::string OverrideSetupLines(std::string_view text, const SetupLines& lines) {
    std::string result;
    if (text.starts_with(kByteOrderMark)) {
        result = kByteOrderMark;
        text.remove_prefix(kByteOrderMark.size());
    }
    std::vector<std::string> keys;
    for (const SetupLine& line : lines) {
        keys.push_back(ToUtf8(line.key));
    }
    const std::string_view newline = text.find("\r\n") != std::string_view::npos ? "\r\n" : "\n";

    while (!text.empty()) {
        const size_t end = text.find('\n');
        const std::string_view line = text.substr(0, end == std::string_view::npos ? end : end + 1);
        text.remove_prefix(line.size());
        const size_t equals = line.find('=');
        const bool overridden = equals != std::string_view::npos &&
                                std::any_of(keys.begin(), keys.end(), [&](const std::string& key) {
                                    return SameKey(line.substr(0, equals), key);
                                });
        if (!overridden) {
            result += line;
            if (!line.ends_with('\n')) {
                result += newline;
            }
        }
    }
    for (size_t i = 0; i < lines.size(); ++i) {
        result += keys[i] + "=" + ToUtf8(lines[i].value);
        result += newline;
    }
    return result;
}
