// Configuration nobody meant to write: registry values of the wrong type, too long, empty, in
// either layer; storage-target lists with odd labels or thousands of entries; set-up files that
// are not the UTF-8 text they should be. Each loads what fits and leaves out what does not; no
// text longer than its buffer reaches the connector's URL.
#include <windows.h>

#include <gtest/gtest.h>

#include <direct.h>

#include <ostream>
#include <string>
#include <vector>

#include "handoff/ConnectorLaunch.h"
#include "server/Registration.h"
#include "settings/StorageTargetText.h"
#include "settings/TDCSettings.h"
#include "support/RegistrySandbox.h"
#include "support/TestFiles.h"

namespace {

std::vector<BYTE> Text(const std::wstring& text, bool terminated = true) {
    const BYTE* bytes = reinterpret_cast<const BYTE*>(text.c_str());
    return std::vector<BYTE>(bytes, bytes + (text.size() + (terminated ? 1 : 0)) * sizeof(wchar_t));
}

std::vector<BYTE> Number(DWORD number) {
    const BYTE* bytes = reinterpret_cast<const BYTE*>(&number);
    return std::vector<BYTE>(bytes, bytes + sizeof number);
}

const std::wstring kTarget = L"label=\"Rechnungen\" appid=42 configid=7";

struct RegistryCase {
    const char* name;
    const wchar_t* value;
    DWORD type;
    std::vector<BYTE> data;
    bool loaded;  // whether the value counts as found
};

void PrintTo(const RegistryCase& row, std::ostream* out) { *out << row.name; }

class BadRegistryValue : public testing::TestWithParam<std::tuple<RegistryCase, bool>> {
protected:
    RegistrySandbox m_registry;
    LogCapture m_log;
};

// In the machine-wide layer alone, or in the per-user layer over a machine-wide key without it.
TEST_P(BadRegistryValue, LoadsWhatFitsAndLeavesTheRestOut) {
    const auto& [row, perUser] = GetParam();
    m_registry.SetMachineNumber(L"MultiProcess", 0);
    const std::wstring path =
        perUser ? RegistrySandbox::UserPath() : RegistrySandbox::MachinePath();
    ASSERT_EQ(
        RegSetKeyValueW(perUser ? HKEY_CURRENT_USER : HKEY_LOCAL_MACHINE, path.c_str(), row.value,
                        row.type, row.data.data(), static_cast<DWORD>(row.data.size())),
        ERROR_SUCCESS);

    CTDCSettings settings;
    ASSERT_EQ(settings.LoadSettings(), S_OK);

    const SettingValue* value = settings.GetSetting(row.value);
    const bool found = value && value->Kind() != SettingKind::None;
    EXPECT_EQ(found, row.loaded);
    if (found &&
        (value->Kind() == SettingKind::String || value->Kind() == SettingKind::StorageTarget)) {
        EXPECT_LE(value->TextValue().size(), 1024u);
    }
    const std::wstring url = BuildConnectorUrl(settings, {L"td_data_1"}, 1);
    EXPECT_LT(url.size(), 2 * kStorageTargetTextCapacity) << ToUtf8(url);
}

INSTANTIATE_TEST_SUITE_P(
    Values, BadRegistryValue,
    testing::Combine(
        testing::Values(
            RegistryCase{"TargetAsNumber", L"Params1", REG_DWORD, Number(7), true},
            RegistryCase{"TargetFillingTheBufferUnterminated", L"Params1", REG_BINARY,
                         Text(std::wstring(1024, L'A'), false), true},
            RegistryCase{"TargetTooLong", L"Params1", REG_SZ,
                         Text(L"label=\"" + std::wstring(1100, L'x') + L"\" appid=1 configid=2"),
                         false},
            RegistryCase{"TargetEmpty", L"Params1", REG_SZ, Text(L""), true},
            RegistryCase{"TargetOddByteCount", L"Params1", REG_SZ, {'l', 0, 'a'}, true},
            RegistryCase{"LanguageTooLong", L"l", REG_SZ, Text(std::wstring(3000, L'd')), false},
            RegistryCase{"LanguageAsMultiString", L"l", REG_MULTI_SZ, Text(L"de\0en"), true},
            RegistryCase{"SwitchAsLongText", L"Attachments", REG_SZ, Text(L"yes"), false},
            RegistryCase{"SwitchAsEightBytes", L"Attachments", REG_QWORD, std::vector<BYTE>(8, 1),
                         false},
            RegistryCase{"SwitchEmpty", L"Attachments", REG_BINARY, {}, true}),
        testing::Bool()),
    [](const auto& info) {
        return std::string(std::get<0>(info.param).name) +
               (std::get<1>(info.param) ? "_PerUser" : "_MachineWide");
    });

// --- Storage-target lists.

struct ListCase {
    const char* name;
    std::vector<std::wstring> targets;
    int loaded;
};

void PrintTo(const ListCase& row, std::ostream* out) { *out << row.name; }

class OddTargetList : public testing::TestWithParam<ListCase> {
protected:
    RegistrySandbox m_registry;
    LogCapture m_log;
};

TEST_P(OddTargetList, LoadsAndBuildsAUrlWithoutOverflow) {
    m_registry.SetMachineTargets(GetParam().targets);
    CTDCSettings settings;
    ASSERT_EQ(settings.LoadSettings(), S_OK);
    EXPECT_EQ(settings.CountStorageTargets(), GetParam().loaded);
    for (const auto& [name, value] : settings.Values()) {
        if (value.Kind() == SettingKind::StorageTarget) {
            wchar_t label[kStorageTargetTextCapacity];
            ExtractLabel(value.TextValue().c_str(), label);
            EXPECT_LT(wcslen(label), kStorageTargetTextCapacity);
        }
    }
    BuildConnectorUrl(settings, {L"td_data_1"}, 1);
}

std::vector<std::wstring> ManyTargets(int count) {
    std::vector<std::wstring> targets;
    for (int i = 1; i <= count; ++i) {
        targets.push_back(L"label=\"Ziel " + std::to_wstring(i) + L"\" appid=" +
                          std::to_wstring(i) + L" configid=1");
    }
    return targets;
}

INSTANTIATE_TEST_SUITE_P(Lists, OddTargetList,
                         testing::Values(ListCase{"DuplicateLabels", {kTarget, kTarget}, 2},
                                         ListCase{"LabelsWithQuotesAndBlanks",
                                                  {L"label=\"Rech\"nung\" appid=1 configid=2",
                                                   L"label=\" \" appid= configid=", L"label=\"\"",
                                                   L"  label  =  \"x\"  "},
                                                  4},
                                         ListCase{"NoLabelNoIds", {L"", L"=", L"appid"}, 3},
                                         ListCase{"ThousandsOfTargets", ManyTargets(3000), 3000}),
                         [](const auto& info) { return std::string(info.param.name); });

// --- The set-up file.

struct SetupFileCase {
    const char* name;
    std::string bytes;
    bool word;  // whether "MSWord=yes" was read
};

void PrintTo(const SetupFileCase& row, std::ostream* out) { *out << row.name; }

class OddSetupFile : public testing::TestWithParam<SetupFileCase> {};

TEST_P(OddSetupFile, IsReadLineByLineWithoutOverflow) {
    ScratchFolder folder;
    WriteFileBytes(folder / L"setup.ini", GetParam().bytes);
    wchar_t previous[MAX_PATH];
    GetCurrentDirectoryW(MAX_PATH, previous);
    ASSERT_TRUE(SetCurrentDirectoryW(folder.Path().c_str()));
    SetupChoices choices;
    CTDCSettings settings;
    const bool read = ReadSetupFile(choices, settings);
    SetCurrentDirectoryW(previous);
    EXPECT_TRUE(read);
    EXPECT_EQ(choices.word, GetParam().word);
}

std::string Utf16(const std::string& ascii) {
    std::string bytes = "\xFF\xFE";
    for (char c : ascii) {
        bytes += c;
        bytes += '\0';
    }
    return bytes;
}

INSTANTIATE_TEST_SUITE_P(
    Files, OddSetupFile,
    testing::Values(
        SetupFileCase{"ByteOrderMark", "\xEF\xBB\xBFMSWord=yes\n", true},
        SetupFileCase{"Utf16", Utf16("MSWord=yes\r\n"), true},
        SetupFileCase{"NoEqualsSign", "MSWord yes\nMSWord\n", false},
        // Read in pieces of 4095 characters: the piece after them is a line of its own.
        SetupFileCase{"OverLongLine", std::string(5000, 'x') + "\nMSWord=yes\n", true},
        SetupFileCase{"OverLongValue", "l=" + std::string(10000, 'd') + "\nMSWord=yes\n", true},
        SetupFileCase{"BinaryGarbage",
                      std::string("\x00\xFF\xC3\x28\x80\x01=\x02\n", 10) + "MSWord=yes\n", false},
        SetupFileCase{"DuplicateKeysLastWins", "MSWord=yes\nMSWord=no\nMSWord=YES\n", true}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
