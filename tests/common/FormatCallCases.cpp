// Calls of the printf-style functions as the compiler must judge them. Compiled on its own with
// -fsyntax-only: as it is, every call must compile; with BAD_<name> defined for one of the names
// below, that one wrong call must not.
#include <windows.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "common/BStr.h"
#include "common/BoundedFormat.h"
#include "common/LogFile.h"
#include "common/Messages.h"
#include "common/Variant.h"

enum Color { kRed };

void GoodCalls(const wchar_t* text, HRESULT hr, const std::wstring& owned, const BStr& bstr) {
    wchar_t buffer[MAX_PATH] = L"";
    LogInfo(L"Entering SaveWordDocument\n");
    LogError(L"Can't get active document! hr = 0x%08X\n", hr);
    LogWarning(L"%s %d %u %x %c %C %%\n", text, -1, 2u, DWORD{3}, L'w', 'n');
    LogFatal(L"%hs %S %ls %ws %p\n", "narrow", "narrow", text, owned.c_str(), &hr);
    FormatBounded(buffer, MAX_PATH, L"%s\\%s", buffer, bstr.c_str());
    FormatBounded(buffer, MAX_PATH, L"%-*.*s|%I64d|%lld|%Iu|%I32d|%ld|%hd|%d|%d", 8, 3, text,
                  int64_t{1}, 2LL, size_t{3}, 4, 5L, short{6}, true, kRed);
    FormatString(L"%.2lf %g %e %Lf %f\n", 1.5, 2.5f, 3.0, 4.0, 5.0);
    ShowErrorMessage(1, L"setup.ini", 7, text);
    AskQuestion(2);
}

void BadCall(const wchar_t* text, const std::wstring& owned, const BStr& bstr,
             const Variant& variant) {
    wchar_t buffer[16] = L"";
    (void)text, (void)owned, (void)bstr, (void)variant, (void)buffer;
#if defined(BAD_wstring_for_s)
    LogError(L"Can't open %s\n", owned);
#elif defined(BAD_bstr_for_s)
    LogInfo(L"Office Application %s\n", bstr);
#elif defined(BAD_variant_for_s)
    LogWarning(L"Found property %s\n", variant);
#elif defined(BAD_int_for_s)
    FormatString(L"%s", 42);
#elif defined(BAD_wide_for_d)
    FormatBounded(buffer, 16, L"%d", text);
#elif defined(BAD_wide_for_X)
    LogFatal(L"hr = 0x%08X\n", text);
#elif defined(BAD_narrow_for_s)
    LogInfo(L"%s\n", "narrow");
#elif defined(BAD_int64_for_d)
    LogInfo(L"%d\n", size_t{1});
#elif defined(BAD_too_few)
    LogError(L"%s hr = 0x%08X\n", text);
#elif defined(BAD_too_many)
    LogError(L"Failed!\n", text);
#elif defined(BAD_unknown_conversion)
    LogInfo(L"%y\n", 1);
#elif defined(BAD_runtime_format)
    LogInfo(text);
#elif defined(BAD_message_with_wstring)
    ShowErrorMessage(1, owned);
#endif
}
