#include "handoff/XmlWriter.h"

#include <cstdio>

#include "common/BoundedFormat.h"

CXmlWriter::CXmlWriter(const wchar_t* path) : m_path(path ? path : L"") {}

CXmlWriter::~CXmlWriter() { Close(); }

bool CXmlWriter::Open() noexcept {
    m_stream.reset();
    // Text mode with ccs=UTF-8: the runtime writes the byte-order mark, encodes in UTF-8 and
    // turns every "\n" into CR LF.
    return _wfopen_s(m_stream.put(), m_path.c_str(), L"w, ccs=UTF-8") == 0 && m_stream;
}

void CXmlWriter::Write(const std::wstring& text) {
    if (m_stream) {
        fputws(text.c_str(), m_stream.get());
    }
}

// Every element starts on a line of its own, indented by one tab per level.
void CXmlWriter::NewLine() {
    Write(L"\n" + std::wstring(static_cast<size_t>(m_depth > 0 ? m_depth : 0), L'\t'));
}

// "\n", the indentation, "<name" and the queued attributes, popped name first.
void CXmlWriter::StartTag(const wchar_t* name) {
    NewLine();
    Write(FormatString(L"<%s", name));
    while (m_pendingAttributes.size() >= 2) {
        Write(FormatString(L" %s=", m_pendingAttributes.back().c_str()));
        m_pendingAttributes.pop_back();
        Write(FormatString(L"\"%s\"", m_pendingAttributes.back().c_str()));
        m_pendingAttributes.pop_back();
    }
    m_pendingAttributes.clear();
}

void CXmlWriter::AddAttribute(const wchar_t* name, const wchar_t* value) {
    m_pendingAttributes.emplace_back(value ? value : L"");
    m_pendingAttributes.emplace_back(name ? name : L"");
}

void CXmlWriter::StartElement(const wchar_t* name) {
    StartTag(name);
    Write(L">");
    m_openElements.emplace_back(name);
    ++m_depth;
}

void CXmlWriter::WriteElement(const wchar_t* name, const wchar_t* text) {
    StartTag(name);
    Write(FormatString(L">%s</%s>", text, name));
}

void CXmlWriter::WriteCDataElement(const wchar_t* name, const wchar_t* text) {
    StartTag(name);
    Write(FormatString(L"><![CDATA[%s]]></%s>", text, name));
}

void CXmlWriter::WriteComment(const wchar_t* text) {
    NewLine();
    Write(FormatString(L"<!--%s-->", text));
}

void CXmlWriter::EndElement() {
    if (m_openElements.empty()) {
        return;
    }
    --m_depth;
    NewLine();
    Write(FormatString(L"</%s>", m_openElements.back().c_str()));
    m_openElements.pop_back();
}

void CXmlWriter::EndAll() {
    while (!m_openElements.empty()) {
        EndElement();
    }
}

void CXmlWriter::Close() noexcept {
    m_stream.reset();
    m_pendingAttributes.clear();
    m_openElements.clear();
}
