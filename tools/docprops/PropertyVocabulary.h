// What the package and compound-file readers share: Office's built-in property vocabulary with
// where each property lives in either kind of file, and the values as Office types them.
#pragma once

#include <windows.h>
#include <propidl.h>

#include <cstdint>
#include <string>

#include "common/Variant.h"
#include "docprops/DocumentFileProperties.h"

// Where a built-in property lives in a package and in a compound file.
enum class Part { Core, Extended, None };
enum class PropertySet { Summary, DocumentSummary, None };
// How Office types it: text, whole number, date, or an editing time that files keep as a
// duration and Office reports in minutes.
enum class Kind { Text, Number, Date, Minutes };

struct BuiltInProperty {
    const wchar_t* name;
    Kind kind;
    Part part;
    const wchar_t* element;  // local name in the core or extended part
    PropertySet set;
    PROPID id;
};

// Office's built-in vocabulary, in the order its collection hands it out.
inline constexpr BuiltInProperty kBuiltIn[] = {
    {L"Title", Kind::Text, Part::Core, L"title", PropertySet::Summary, PIDSI_TITLE},
    {L"Subject", Kind::Text, Part::Core, L"subject", PropertySet::Summary, PIDSI_SUBJECT},
    {L"Author", Kind::Text, Part::Core, L"creator", PropertySet::Summary, PIDSI_AUTHOR},
    {L"Keywords", Kind::Text, Part::Core, L"keywords", PropertySet::Summary, PIDSI_KEYWORDS},
    {L"Comments", Kind::Text, Part::Core, L"description", PropertySet::Summary, PIDSI_COMMENTS},
    {L"Template", Kind::Text, Part::Extended, L"Template", PropertySet::Summary, PIDSI_TEMPLATE},
    {L"Last author", Kind::Text, Part::Core, L"lastModifiedBy", PropertySet::Summary,
     PIDSI_LASTAUTHOR},
    {L"Revision number", Kind::Text, Part::Core, L"revision", PropertySet::Summary,
     PIDSI_REVNUMBER},
    {L"Application name", Kind::Text, Part::Extended, L"Application", PropertySet::Summary,
     PIDSI_APPNAME},
    {L"Last print date", Kind::Date, Part::Core, L"lastPrinted", PropertySet::Summary,
     PIDSI_LASTPRINTED},
    {L"Creation date", Kind::Date, Part::Core, L"created", PropertySet::Summary, PIDSI_CREATE_DTM},
    {L"Last save time", Kind::Date, Part::Core, L"modified", PropertySet::Summary,
     PIDSI_LASTSAVE_DTM},
    {L"Total editing time", Kind::Minutes, Part::Extended, L"TotalTime", PropertySet::Summary,
     PIDSI_EDITTIME},
    {L"Number of pages", Kind::Number, Part::Extended, L"Pages", PropertySet::Summary,
     PIDSI_PAGECOUNT},
    {L"Number of words", Kind::Number, Part::Extended, L"Words", PropertySet::Summary,
     PIDSI_WORDCOUNT},
    {L"Number of characters", Kind::Number, Part::Extended, L"Characters", PropertySet::Summary,
     PIDSI_CHARCOUNT},
    {L"Security", Kind::Number, Part::Extended, L"DocSecurity", PropertySet::Summary,
     PIDSI_DOC_SECURITY},
    {L"Category", Kind::Text, Part::Core, L"category", PropertySet::DocumentSummary,
     PIDDSI_CATEGORY},
    {L"Format", Kind::Text, Part::Extended, L"PresentationFormat", PropertySet::DocumentSummary,
     PIDDSI_PRESFORMAT},
    {L"Manager", Kind::Text, Part::Extended, L"Manager", PropertySet::DocumentSummary,
     PIDDSI_MANAGER},
    {L"Company", Kind::Text, Part::Extended, L"Company", PropertySet::DocumentSummary,
     PIDDSI_COMPANY},
    {L"Number of bytes", Kind::Number, Part::None, L"", PropertySet::DocumentSummary,
     PIDDSI_BYTECOUNT},
    {L"Number of lines", Kind::Number, Part::Extended, L"Lines", PropertySet::DocumentSummary,
     PIDDSI_LINECOUNT},
    {L"Number of paragraphs", Kind::Number, Part::Extended, L"Paragraphs",
     PropertySet::DocumentSummary, PIDDSI_PARCOUNT},
    {L"Number of slides", Kind::Number, Part::Extended, L"Slides", PropertySet::DocumentSummary,
     PIDDSI_SLIDECOUNT},
    {L"Number of notes", Kind::Number, Part::Extended, L"Notes", PropertySet::DocumentSummary,
     PIDDSI_NOTECOUNT},
    {L"Number of hidden Slides", Kind::Number, Part::Extended, L"HiddenSlides",
     PropertySet::DocumentSummary, PIDDSI_HIDDENCOUNT},
    {L"Number of multimedia clips", Kind::Number, Part::Extended, L"MMClips",
     PropertySet::DocumentSummary, PIDDSI_MMCLIPCOUNT},
    {L"Hyperlink base", Kind::Text, Part::Extended, L"HyperlinkBase", PropertySet::None, 0},
    {L"Number of characters (with spaces)", Kind::Number, Part::Extended, L"CharactersWithSpaces",
     PropertySet::DocumentSummary, 0x11},
    {L"Content type", Kind::Text, Part::Core, L"contentType", PropertySet::DocumentSummary, 0x1A},
    {L"Content status", Kind::Text, Part::Core, L"contentStatus", PropertySet::DocumentSummary,
     0x1B},
    {L"Language", Kind::Text, Part::Core, L"language", PropertySet::DocumentSummary, 0x1C},
    {L"Document version", Kind::Text, Part::Core, L"version", PropertySet::DocumentSummary, 0x1D},
};

inline std::wstring Widen(const char* text, UINT codePage) {
    const int length = MultiByteToWideChar(codePage, 0, text, -1, nullptr, 0);
    std::wstring wide(static_cast<size_t>(length > 0 ? length : 1), L'\0');
    MultiByteToWideChar(codePage, 0, text, -1, wide.data(), length);
    wide.resize(wcslen(wide.c_str()));
    return wide;
}

inline Variant TextValue(const std::wstring& text) { return Variant(text.c_str()); }

inline Variant NumberValue(int32_t number) { return Variant(number); }

inline Variant DoubleValue(double number) {
    Variant value;
    value.vt = VT_R8;
    value.dblVal = number;
    return value;
}

// A moment in UTC as Office shows it: a date in the computer's local time.
inline Variant LocalDate(const FILETIME& utc) {
    SYSTEMTIME universal;
    SYSTEMTIME local;
    Variant value;
    if (FileTimeToSystemTime(&utc, &universal) &&
        SystemTimeToTzSpecificLocalTime(nullptr, &universal, &local) &&
        SystemTimeToVariantTime(&local, &value.date)) {
        value.vt = VT_DATE;
    }
    return value;
}

// The properties of a package's bytes, and of a compound file. Both throw DocumentFileError.
DocumentFileProperties ReadPackage(std::string bytes);
DocumentFileProperties ReadCompoundFile(const std::wstring& path);
