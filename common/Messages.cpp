#include "common/Messages.h"

#include <cstdarg>

#include "common/LanguageFile.h"
#include "common/Module.h"
#include "resources/resource.h"

namespace {

constexpr int kTextCapacity = 260;
// wvsprintfW never writes more than 1024 characters.
constexpr int kMessageCapacity = 1025;

int ShowMessage(UINT id, UINT captionId, UINT style, va_list args) noexcept {
    wchar_t text[kTextCapacity];
    wchar_t caption[kTextCapacity];
    if (LoadUiString(id, text, kTextCapacity) == 0 ||
        LoadUiString(captionId, caption, kTextCapacity) == 0) {
        return 0;
    }
    wchar_t message[kMessageCapacity];
    wvsprintfW(message, text, args);
    return MessageBoxW(nullptr /* no owner */, message, caption, style);
}

}  // namespace

int LoadUiString(UINT id, wchar_t* buffer, int capacity) noexcept {
    if (!buffer || capacity <= 0) {
        return 0;
    }
    buffer[0] = L'\0';
    if (int length = LoadLanguageFileString(id, buffer, capacity); length > 0) {
        return length;
    }
    return LoadStringW(ModuleInstance(), id, buffer, capacity);
}

void unchecked::ShowErrorMessage(UINT id, ...) noexcept {
    va_list args;
    va_start(args, id);
    ShowMessage(id, IDS_ERROR_CAPTION, MB_OK | MB_ICONERROR | MB_TOPMOST, args);
    va_end(args);
}

int unchecked::AskQuestion(UINT id, ...) noexcept {
    va_list args;
    va_start(args, id);
    int answer =
        ShowMessage(id, IDS_QUESTION_CAPTION, MB_YESNO | MB_ICONQUESTION | MB_TOPMOST, args);
    va_end(args);
    return answer == 0 ? IDNO : answer;
}
