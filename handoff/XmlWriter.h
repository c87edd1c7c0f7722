// A minimal streaming XML writer over one UTF-8 file (BOM, CRLF line ends). Each element starts on
// a new line indented by one tab per level. Nothing is escaped: the hand-off reader takes names
// and texts exactly as written.
#pragma once

#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include "common/UniqueResource.h"

class CXmlWriter {
public:
    explicit CXmlWriter(const wchar_t* path);
    ~CXmlWriter();
    CXmlWriter(const CXmlWriter&) = delete;
    CXmlWriter& operator=(const CXmlWriter&) = delete;

    // Creates or truncates the file; false when it cannot be opened.
    bool Open() noexcept;
    // Queues an attribute for the next element. Attributes come out in the reverse order of
    // their addition.
    void AddAttribute(const wchar_t* name, const wchar_t* value);
    void StartElement(const wchar_t* name);
    void WriteElement(const wchar_t* name, const wchar_t* text);
    void WriteCDataElement(const wchar_t* name, const wchar_t* text);
    void WriteComment(const wchar_t* text);
    void EndElement();
    void EndAll();
    // Closes the file; queued attributes and open elements are dropped without being written.
    void Close() noexcept;

private:
    void Write(const std::wstring& text);
    void NewLine();
    void StartTag(const wchar_t* name);

    std::wstring m_path;
    UniqueStdioFile m_stream;
    int32_t m_depth = 0;
    std::vector<std::wstring> m_pendingAttributes;
    std::deque<std::wstring> m_openElements;
};
