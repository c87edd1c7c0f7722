// The administrator's command-line properties of the package and how they reach setup.ini: each
// setup.ini key has a public property of the same name in capitals ("MSWord" is MSWORD, "l" is L),
// the storage targets are PARAMS1, PARAMS2, ... A property that is set replaces every line of its
// key in the shipped file, so PARAMS1 alone already replaces the whole list of storage targets.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

struct SetupLine {
    std::wstring key;
    std::wstring value;
};

using SetupLines = std::vector<SetupLine>;

// The lines the set properties stand for, in a fixed order; `property` answers a property's
// value, empty when it is not set. The storage targets end at the first number not set; a target
// whose label is not in quotes gets them.
SetupLines CollectSetupProperties(const std::function<std::wstring(const std::wstring&)>& property);

// The key=value lines of a setup.ini (UTF-8, with or without a byte-order mark), in file order.
SetupLines ParseSetupLines(std::string_view text);

// What an upgrade writes into the new package's setup.ini: the lines of the setup.ini installed
// so far, so that a configured machine stays configured, with the properties given now on top.
SetupLines CombineSetupLines(SetupLines installed, const SetupLines& given);

// The deferred registration learns the install folder and the lines through one text: the folder
// on the first line, then one "key=value" line each. Line breaks inside a value are dropped, so
// that no value can add a line of its own to setup.ini.
std::wstring EncodeRegistrationData(const std::wstring& folder, const SetupLines& lines);
void DecodeRegistrationData(std::wstring_view data, std::wstring& folder, SetupLines& lines);

// setup.ini (UTF-8, with or without a byte-order mark) with every line whose key is among `lines`
// removed and `lines` appended, in the file's own line ending. Other lines stay byte for byte.
std::string OverrideSetupLines(std::string_view text, const SetupLines& lines);
