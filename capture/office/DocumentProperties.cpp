#include "capture/office/DocumentProperties.h"

#include <windows.h>

#include <cstdint>
#include <cwchar>
#include <string>

#include "common/Automation.h"
#include "common/BStr.h"
#include "common/ComPtr.h"
#include "common/LogFile.h"
#include "common/Variant.h"

namespace {

// The built-in properties that are archived; any other built-in property is skipped.
constexpr const wchar_t* kCollectedBuiltIns[] = {
    L"Title",          L"Subject",         L"Author",        L"Keywords",
    L"Comments",       L"Last author",     L"Creation date", L"Company",
    L"Last save time", L"Number of pages", L"Category",      L"Last print date",
};

bool IsCollectedBuiltIn(const wchar_t* name) {
    for (const wchar_t* builtIn : kCollectedBuiltIns) {
        if (wcscmp(builtIn, name) == 0) {
            return true;
        }
    }
    return false;
}

// Upper case with every blank turned into an underscore: "Last author" -> "LAST AUTHOR" ->
// "LAST_AUTHOR".
std::wstring ToMapName(std::wstring name) {
    if (!name.empty()) {
        CharUpperW(name.data());
    }
    for (wchar_t& c : name) {
        if (c == L' ') {
            c = L'_';
        }
    }
    return name;
}

void Collect(PropertyMap& map, const std::wstring& name, const std::wstring& value) {
    map.Add(name.c_str(), value.c_str());
    LogInfo(L"Collect property %s value %s\n", name.c_str(), value.c_str());
}

// Formats with the system default locale's own formats, not the user's overrides.
template <class Format>
bool FormatWithSystemLocale(Format format, const SYSTEMTIME& time, std::wstring& text,
                            bool& lengthFailed) {
    int length = format(LOCALE_SYSTEM_DEFAULT, LOCALE_NOUSEROVERRIDE, &time, nullptr, nullptr, 0);
    lengthFailed = length <= 0;
    if (lengthFailed) {
        return false;
    }
    text.assign(static_cast<size_t>(length), L'\0');
    int written =
        format(LOCALE_SYSTEM_DEFAULT, LOCALE_NOUSEROVERRIDE, &time, nullptr, text.data(), length);
    text.resize(written > 0 ? static_cast<size_t>(written - 1) : 0);
    return written > 0;
}

void CollectDate(PropertyMap& map, const std::wstring& name, DATE date) {
    SYSTEMTIME time{};
    if (!VariantTimeToSystemTime(date, &time)) {
        // "VT_DATA" is how this line has always read.
        LogWarning(L"Wrong value of VT_DATA variant!\n");
        return;
    }
    std::wstring dateText;
    bool lengthFailed = false;
    if (!FormatWithSystemLocale(GetDateFormatW, time, dateText, lengthFailed)) {
        if (!lengthFailed) {
            Collect(map, name, dateText);
        }
        LogError(L"Failed to format date value!\n");
        return;
    }
    Collect(map, name, dateText);

    std::wstring timeText;
    if (!FormatWithSystemLocale(GetTimeFormatW, time, timeText, lengthFailed)) {
        if (!lengthFailed) {
            LogError(L"Failed to format time value!\n");
        }
        return;
    }
    Collect(map, ToMapName(name + L"_DATETIME"), dateText + L" " + timeText);
}

void CopyProperty(IDispatch* collection, int32_t index, int32_t count, bool builtIn,
                  PropertyMap& map) {
    Variant position(index);
    ComPtr<IDispatch> property;
    if (FAILED(GetObjectPropertyNoThrow(collection, L"Item", property.put(), {&position}))) {
        LogWarning(L"Failed to access property %d of %d!\n", index, count);
        return;
    }
    BStr name;
    if (FAILED(GetTextPropertyNoThrow(property.get(), L"Name", &name))) {
        LogWarning(L"Can't get name of property %d of %d!\n", index, count);
        return;
    }
    const wchar_t* officeName = name.c_str();
    std::wstring mapName;
    if (builtIn) {
        if (!IsCollectedBuiltIn(officeName)) {
            return;
        }
        mapName = ToMapName(std::wstring(L"MSO_") + officeName);
    } else {
        mapName = officeName;
    }

    Variant value;
    // Logged before the value is read, so the type shown is always 0; log readers know the line
    // in this form.
    LogInfo(L"Found property %s typ %d\n", mapName.c_str(), value.vt);
    if (FAILED(GetPropertyNoThrow(property.get(), L"Value", &value))) {
        LogWarning(L"Can't get value of property %s %d of %d!\n", mapName.c_str(), index, count);
        return;
    }
    switch (value.vt) {
    case VT_BSTR:
        Collect(map, mapName, value.bstrVal ? value.bstrVal : L"");
        break;
    case VT_I4: {
        wchar_t number[33];
        _ltow(value.lVal, number, 10);
        Collect(map, mapName, number);
        break;
    }
    case VT_DATE:
        CollectDate(map, mapName, value.date);
        break;
    default:
        // Yes/no, floating-point and empty values are not archived.
        break;
    }
}

}  // namespace

void CopyProperties(const VARIANT* collection, int builtIn, PropertyMap* map) {
    if (!collection || collection->vt != VT_DISPATCH || !collection->pdispVal || !map) {
        LogError(L"CopyProperties(%08X, %08X) wrong function parameters!\n",
                 static_cast<unsigned>(reinterpret_cast<uintptr_t>(collection)),
                 static_cast<unsigned>(reinterpret_cast<uintptr_t>(map)));
        return;
    }
    IDispatch* properties = collection->pdispVal;
    int32_t count = 0;
    HRESULT hr = GetIntegerPropertyNoThrow(properties, L"Count", &count);
    if (FAILED(hr)) {
        LogError(L"CopyProperties: Can't get count property of document properties! hr = 0x%08X\n",
                 hr);
        return;
    }
    LogInfo(L"Count of properties %d\n", count);
    // Only the low 16 bits decide whether there is anything to read.
    const int16_t shortCount = static_cast<int16_t>(count & 0xFFFF);
    if (shortCount == 0) {
        LogWarning(L"Properties are not defined!\n");
        return;
    }
    if (shortCount < 0) {
        return;
    }
    for (int32_t index = 1; index <= count; ++index) {
        CopyProperty(properties, index, count, builtIn != 0, *map);
    }
}
