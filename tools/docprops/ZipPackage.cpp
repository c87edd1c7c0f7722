#include "docprops/ZipPackage.h"

#include <zlib.h>

#include <algorithm>
#include <cctype>
#include <cstring>

namespace {

constexpr uint32_t kEndOfDirectory = 0x06054b50;
constexpr uint32_t kDirectoryEntry = 0x02014b50;
constexpr uint32_t kLocalHeader = 0x04034b50;
constexpr size_t kEndOfDirectorySize = 22;
// The end record may be followed by a comment of up to 64 KiB.
constexpr size_t kLongestComment = 0xFFFF;
// Property parts are small; anything bigger than this is not worth inflating for them.
constexpr uint32_t kLargestPart = 64u << 20;

uint16_t U16(const std::string& bytes, size_t at) {
    if (at + 2 > bytes.size()) {
        throw DocumentFileError("the zip directory runs past the end of the file");
    }
    return static_cast<uint16_t>(static_cast<uint8_t>(bytes[at]) |
                                 static_cast<uint8_t>(bytes[at + 1]) << 8);
}

uint32_t U32(const std::string& bytes, size_t at) {
    return U16(bytes, at) | static_cast<uint32_t>(U16(bytes, at + 2)) << 16;
}

bool SameName(const std::string& a, const std::string& b) {
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
               return std::tolower(static_cast<unsigned char>(x)) ==
                      std::tolower(static_cast<unsigned char>(y));
           });
}

std::string Inflate(const std::string& compressed, uint32_t size) {
    std::string out(size, '\0');
    z_stream stream{};
    // Zip entries hold raw deflate data, without zlib's header.
    if (inflateInit2(&stream, -MAX_WBITS) != Z_OK) {
        throw DocumentFileError("zlib cannot start inflating");
    }
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(compressed.data()));
    stream.avail_in = static_cast<uInt>(compressed.size());
    stream.next_out = reinterpret_cast<Bytef*>(out.data());
    stream.avail_out = static_cast<uInt>(out.size());
    const int result = inflate(&stream, Z_FINISH);
    const uLong produced = stream.total_out;
    inflateEnd(&stream);
    if (result != Z_STREAM_END || produced != size) {
        throw DocumentFileError("its compressed data is damaged");
    }
    return out;
}

}  // namespace

ZipPackage::ZipPackage(std::string bytes) : m_bytes(std::move(bytes)) {
    if (m_bytes.size() < kEndOfDirectorySize) {
        throw DocumentFileError("it is too short to be a zip package");
    }
    size_t end = std::string::npos;
    const size_t lowest = m_bytes.size() > kEndOfDirectorySize + kLongestComment
                              ? m_bytes.size() - kEndOfDirectorySize - kLongestComment
                              : 0;
    for (size_t at = m_bytes.size() - kEndOfDirectorySize + 1; at-- > lowest;) {
        if (U32(m_bytes, at) == kEndOfDirectory) {
            end = at;
            break;
        }
    }
    if (end == std::string::npos) {
        throw DocumentFileError("it is not a zip package (no zip directory at its end)");
    }
    const uint16_t count = U16(m_bytes, end + 10);
    const uint32_t directorySize = U32(m_bytes, end + 12);
    const uint32_t directory = U32(m_bytes, end + 16);
    if (count == 0xFFFF || directory == 0xFFFFFFFF) {
        throw DocumentFileError("it is a zip64 package, which is not read here");
    }
    if (static_cast<uint64_t>(directory) + directorySize > end) {
        throw DocumentFileError("its zip directory lies outside the file");
    }
    size_t at = directory;
    for (uint16_t i = 0; i < count; ++i) {
        if (U32(m_bytes, at) != kDirectoryEntry) {
            throw DocumentFileError("its zip directory is damaged");
        }
        Entry entry;
        entry.flags = U16(m_bytes, at + 8);
        entry.method = U16(m_bytes, at + 10);
        entry.crc = U32(m_bytes, at + 16);
        entry.compressedSize = U32(m_bytes, at + 20);
        entry.size = U32(m_bytes, at + 24);
        const uint16_t nameLength = U16(m_bytes, at + 28);
        const uint16_t extraLength = U16(m_bytes, at + 30);
        const uint16_t commentLength = U16(m_bytes, at + 32);
        entry.localHeader = U32(m_bytes, at + 42);
        if (at + 46 + nameLength > end) {
            throw DocumentFileError("its zip directory is damaged");
        }
        entry.name = m_bytes.substr(at + 46, nameLength);
        m_entries.push_back(std::move(entry));
        at += 46 + nameLength + extraLength + commentLength;
    }
}

const ZipPackage::Entry* ZipPackage::Find(const std::string& name) const {
    for (const Entry& entry : m_entries) {
        if (SameName(entry.name, name)) {
            return &entry;
        }
    }
    return nullptr;
}

bool ZipPackage::Has(const std::string& name) const { return Find(name) != nullptr; }

std::string ZipPackage::Read(const std::string& name) const {
    const Entry* entry = Find(name);
    if (!entry) {
        throw DocumentFileError("the package has no part " + name);
    }
    const std::string failure = "its part " + name + " cannot be read: ";
    if (entry->flags & 1) {
        throw DocumentFileError(failure + "it is encrypted");
    }
    if (entry->size > kLargestPart) {
        throw DocumentFileError(failure + "it is too large");
    }
    if (U32(m_bytes, entry->localHeader) != kLocalHeader) {
        throw DocumentFileError(failure + "its local header is missing");
    }
    const size_t data = static_cast<size_t>(entry->localHeader) + 30 +
                        U16(m_bytes, entry->localHeader + 26) +
                        U16(m_bytes, entry->localHeader + 28);
    if (data > m_bytes.size() || m_bytes.size() - data < entry->compressedSize) {
        throw DocumentFileError(failure + "it runs past the end of the file");
    }
    const std::string stored = m_bytes.substr(data, entry->compressedSize);
    std::string bytes;
    try {
        if (entry->method == 0) {
            bytes = stored;
        } else if (entry->method == Z_DEFLATED) {
            bytes = Inflate(stored, entry->size);
        } else {
            throw DocumentFileError("compression method " + std::to_string(entry->method) +
                                    " is not read here");
        }
    } catch (const DocumentFileError& error) {
        throw DocumentFileError(failure + error.what());
    }
    const uLong crc = crc32(crc32(0, nullptr, 0), reinterpret_cast<const Bytef*>(bytes.data()),
                            static_cast<uInt>(bytes.size()));
    if (bytes.size() != entry->size || crc != entry->crc) {
        throw DocumentFileError(failure + "its checksum does not match");
    }
    return bytes;
}
