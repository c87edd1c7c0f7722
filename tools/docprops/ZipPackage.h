// The parts of a zip package (the container of .docx, .xlsx, .pptx and their macro and template
// variants), read from its central directory. zlib does the inflating; this only walks the
// directory and the local headers, and refuses what it does not understand (zip64, encryption,
// methods other than stored and deflated) rather than guessing.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

// What is wrong with a file that was to be read as a document: its message says it in words.
class DocumentFileError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

class ZipPackage {
public:
    // `bytes` is the whole file. Throws DocumentFileError when it holds no readable zip directory.
    explicit ZipPackage(std::string bytes);

    // Part names as the package stores them ("docProps/core.xml"); looked up without regard to
    // case, as package part names are.
    bool Has(const std::string& name) const;
    // The part's bytes, inflated and checked against their checksum. Throws DocumentFileError
    // when the part is missing or damaged.
    std::string Read(const std::string& name) const;

private:
    struct Entry {
        std::string name;
        uint16_t method = 0;
        uint16_t flags = 0;
        uint32_t crc = 0;
        uint32_t compressedSize = 0;
        uint32_t size = 0;
        uint32_t localHeader = 0;
    };
    const Entry* Find(const std::string& name) const;

    std::string m_bytes;
    std::vector<Entry> m_entries;
};
