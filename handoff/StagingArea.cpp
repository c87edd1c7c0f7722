#include "handoff/StagingArea.h"

#include <windows.h>

#include <cwchar>

#include "common/BoundedFormat.h"
#include "common/UniqueResource.h"

namespace {

bool GetTempDirectory(wchar_t (&temp)[MAX_PATH]) noexcept {
    DWORD length = GetTempPathW(MAX_PATH, temp);
    return length != 0 && length < MAX_PATH;
}

bool IsDirectory(const wchar_t* path) noexcept {
    DWORD attributes = GetFileAttributesW(path);
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY);
}

bool FormatFolderPath(wchar_t* buffer, size_t capacity, const wchar_t* inbox) noexcept {
    wchar_t tick[16];
    if (!FormatBounded(tick, 16, L"%lu", GetTickCount())) {
        return false;
    }
    wchar_t name[32];
    return FormatBounded(name, 32, L"td_data_%s", tick) &&
           FormatBounded(buffer, capacity, L"%s%s\\", inbox, name);
}

}  // namespace

int CreateStagingFolder(wchar_t* buffer, size_t capacity) noexcept {
    wchar_t temp[MAX_PATH];
    if (!GetTempDirectory(temp)) {
        return 0;
    }
    wchar_t inbox[MAX_PATH];
    if (!FormatBounded(inbox, MAX_PATH, L"%std_temp_inbox\\", temp)) {
        return 0;
    }
    if (!IsDirectory(inbox)) {
        CreateDirectoryW(inbox, nullptr);
    }
    if (!FormatFolderPath(buffer, capacity, inbox)) {
        return 0;
    }
    // The tick count names the folder; two requests within one tick are told apart by waiting
    // for a later one. No lock: hosts in other processes share the area the same way.
    while (IsDirectory(buffer)) {
        Sleep(10);
        if (!FormatFolderPath(buffer, capacity, inbox)) {
            return 0;
        }
    }
    CreateDirectoryW(buffer, nullptr);
    return 1;
}

bool IsInStagingArea(const wchar_t* path) noexcept {
    wchar_t temp[MAX_PATH];
    wchar_t prefix[MAX_PATH];
    if (!path || !GetTempDirectory(temp) ||
        !FormatBounded(prefix, MAX_PATH, L"%std_temp_inbox\\td_data_", temp)) {
        return false;
    }
    return wcsncmp(path, prefix, wcslen(prefix)) == 0;
}

void MarkFreeToDelete(const wchar_t* folder) noexcept {
    wchar_t marker[MAX_PATH];
    if (!folder || !FormatBounded(marker, MAX_PATH, L"%s\\__freetodelete__.bin", folder)) {
        return;
    }
    UniqueFileHandle file(CreateFileW(marker, GENERIC_WRITE, FILE_SHARE_READ,
                                      nullptr /* security */, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL,
                                      nullptr /* template */));
}

void ReleaseStagedFolders(const HandOffList& list) noexcept {
    wchar_t temp[MAX_PATH];
    if (list.empty() || !GetTempDirectory(temp)) {
        return;
    }
    for (const std::wstring& name : list) {
        wchar_t folder[MAX_PATH];
        if (FormatBounded(folder, MAX_PATH, L"%std_temp_inbox\\%s", temp, name.c_str())) {
            MarkFreeToDelete(folder);
        }
    }
}

void SanitizeFileName(wchar_t* name) noexcept {
    if (!name) {
        return;
    }
    wchar_t source[MAX_PATH];
    wchar_t joined[MAX_PATH] = L"";
    if (!CopyBounded(source, MAX_PATH, name)) {
        return;
    }
    wchar_t* context = nullptr;
    for (wchar_t* piece = wcstok_s(source, L"\\/:*?\"<>|", &context); piece;
         piece = wcstok_s(nullptr, L"\\/:*?\"<>|", &context)) {
        wchar_t next[MAX_PATH];
        if (!FormatBounded(next, MAX_PATH, L"%s%s", joined, piece)) {
            break;
        }
        wmemcpy(joined, next, MAX_PATH);
    }
    // The cleaned name is copied back with itself as the wsprintfW format, so "%%" in a name
    // becomes "%"; file names made before keep their form. Other "%" sequences are not supported:
    // they read from a block of zeros, never from the stack, and the result is cut to the buffer.
    static const ULONG_PTR kNoArguments[MAX_PATH] = {};
    wchar_t copied[1025];
    wvsprintfW(copied, joined, reinterpret_cast<va_list>(const_cast<ULONG_PTR*>(kNoArguments)));
    wcsncpy(name, copied, MAX_PATH - 1);
    name[MAX_PATH - 1] = L'\0';
}
