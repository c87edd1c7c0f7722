#include "docprops/DocumentFileProperties.h"

#include <windows.h>

#include "common/UniqueResource.h"
#include "docprops/PropertyVocabulary.h"

namespace {

std::string ReadFileBytes(const std::wstring& path) {
    UniqueFileHandle file(CreateFileW(
        path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr /* security */,
        OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr /* template */));
    if (!file) {
        throw DocumentFileError("it cannot be opened (error " + std::to_string(GetLastError()) +
                                ")");
    }
    std::string bytes;
    char chunk[65536];
    DWORD read = 0;
    while (ReadFile(file.get(), chunk, sizeof chunk, &read, nullptr) && read > 0) {
        bytes.append(chunk, read);
    }
    return bytes;
}

}  // namespace

bool DocumentFileProperties::Empty() const {
    for (const DocumentFileProperty& property : builtIn) {
        if (property.value.vt != VT_EMPTY) {
            return false;
        }
    }
    return custom.empty();
}

DocumentFileProperties ReadDocumentFileProperties(const std::wstring& path) {
    std::string bytes = ReadFileBytes(path);
    if (bytes.empty()) {
        throw DocumentFileError("it is empty");
    }
    if (bytes.compare(0, 8, "\xD0\xCF\x11\xE0\xA1\xB1\x1A\xE1", 8) == 0) {
        return ReadCompoundFile(path);
    }
    if (bytes.compare(0, 2, "PK") != 0) {
        throw DocumentFileError("it is neither an Office package nor a compound file");
    }
    return ReadPackage(std::move(bytes));
}
