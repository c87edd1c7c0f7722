#include "handoff/HandOff.h"

#include <windows.h>

#include <cwchar>

#include "common/BoundedFormat.h"
#include "handoff/StagingArea.h"
#include "handoff/XmlWriter.h"

namespace {

constexpr size_t kHandOffPathCapacity = 2048;
// "td_data_" and at most ten digits of a tick count fit with room to spare.
constexpr size_t kFolderNameCapacity = 32;

}  // namespace

int WriteHandOff(const wchar_t* path, const wchar_t* folder, const PropertyMap* map,
                 HandOffList& list, int deleteMail) {
    if (!path) {
        return 0;
    }
    wchar_t folderPath[kHandOffPathCapacity];
    if (!CopyBounded(folderPath, kHandOffPathCapacity, folder ? folder : path)) {
        return 0;
    }
    wchar_t* cut = wcsrchr(folderPath, L'\\');
    if (!cut) {
        return 0;
    }
    *cut = L'\0';
    const wchar_t* nameStart = wcsrchr(folderPath, L'\\');
    wchar_t folderName[kFolderNameCapacity];
    // Longer folder names than a staging folder's are not supported: the hand-off fails.
    if (!nameStart || !CopyBounded(folderName, kFolderNameCapacity, nameStart + 1)) {
        return 0;
    }
    wchar_t documentPath[kHandOffPathCapacity];
    if (!FormatBounded(documentPath, kHandOffPathCapacity, L"%s%s.xml", folderPath, nameStart)) {
        return 0;
    }

    // Listed before the file is opened: a hand-off that then fails still names its folder.
    list.emplace_back(folderName);

    CXmlWriter writer(documentPath);
    if (!writer.Open()) {
        return 0;
    }
    writer.StartElement(L"files");
    writer.StartElement(L"file");
    if (map) {
        for (const auto& [name, entry] : *map) {
            writer.AddAttribute(L"name", name.c_str());
            writer.WriteCDataElement(L"property", entry.value.c_str());
        }
    }
    writer.WriteElement(L"path", path);
    writer.WriteElement(L"deletefile", folderPath);
    if (deleteMail) {
        writer.WriteElement(L"deletemail", L"1");
    }
    writer.WriteElement(L"id", folderName);
    writer.EndAll();
    writer.Close();
    return 1;
}

int WriteHandOffs(const PathBuffer* paths, const PropertyMap* maps, int count, HandOffList& list,
                  int deleteMail) {
    if (count < 1) {
        return 1;
    }
    if (!paths) {
        return 0;
    }
    for (int i = 0; i < count; ++i) {
        const wchar_t* path = paths[i].data();
        if (!WriteHandOff(path, path, maps ? &maps[i] : nullptr, list, deleteMail)) {
            return 0;
        }
    }
    return 1;
}

int WriteHandOffsForFiles(const wchar_t* files, int count, const PropertyMap* map,
                          HandOffList& list, int deleteMail) {
    if (!files) {
        return count < 1 ? 1 : 0;
    }
    // Cleared once for the whole list: a staged file that follows a foreign one is written
    // against the fresh folder made for the foreign file. Callers have relied on that.
    wchar_t freshFolder[kHandOffPathCapacity] = L"";
    const wchar_t* file = files;
    for (int i = 0; i < count; ++i, file += wcslen(file) + 1) {
        DWORD attributes = GetFileAttributesW(file);
        if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_DIRECTORY)) {
            return 1;
        }
        if (!IsInStagingArea(file) && !CreateStagingFolder(freshFolder, kHandOffPathCapacity)) {
            return 0;
        }
        if (!WriteHandOff(file, freshFolder[0] ? freshFolder : nullptr, map, list, deleteMail)) {
            return 0;
        }
    }
    return 1;
}
