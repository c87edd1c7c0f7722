// A stand-in for the part of the Word, Excel and PowerPoint object models that the Office capture
// reads: the Application with its active document, the document's file names, flags and save
// methods, and its two document-property collections. Every object is a FakeDispatch, so its user
// (a test, or the simulated host) sees each call, injects failures into any member and checks
// reference counts.
//
// The save methods really write: they put the document's content (the bytes it was given: a
// small real package in the tests, the user's document in the simulated host) into the file they
// are given. SaveAs moves the
// document to the new file as the hosts do (Path, Name and FullName follow, ReadOnly clears);
// SaveCopyAs leaves it where it is; Save writes to FullName. Each write sets Saved, except
// SaveCopyAs. Where a host would ask the user (Save of a document that has no file yet, or is
// read-only) the fake refuses with kFakeOfficeRefused.
//
// Not modelled: file formats (a format argument other than "omitted" is refused, not applied),
// the hosts' other SaveAs arguments beyond their types, dialogs, Application.Version (the capture
// is given the version), lookup of a property by name in Item, and recent-files lists.
#pragma once

#include <oaidl.h>

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "common/ComPtr.h"
#include "common/Variant.h"
#include "officesim/FakeDispatch.h"

// What the fake's Save answers where a host would ask the user instead.
inline constexpr HRESULT kFakeOfficeRefused = static_cast<HRESULT>(0x800A1772);

// Labelled reference counts of a group of fake objects, for comparing before and after.
using RefCountList = std::vector<std::pair<std::wstring, ULONG>>;

// Values of the kinds document properties hold besides texts, numbers and flags (Variant has
// constructors for those).
Variant DateValue(int year, int month, int day, int hour = 0, int minute = 0, int second = 0);
Variant DoubleValue(double value);

// A CustomDocumentProperties or BuiltInDocumentProperties collection: Count, and Item(i) counted
// from 1 handing out a property object with Name and Value. The collection holds its property
// objects; tests may replace Count (Collection().SetProperty(L"Count", ...)) to model odd counts.
class FakeDocumentProperties {
public:
    FakeDocumentProperties();
    FakeDocumentProperties(const FakeDocumentProperties&) = delete;
    FakeDocumentProperties& operator=(const FakeDocumentProperties&) = delete;

    // Appends a property with a value of any VARIANT type.
    FakeDocumentProperties& Add(const std::wstring& name, const VARIANT& value);

    FakeDispatch& Collection() const { return *m_collection.get(); }
    // The property object Item(index) hands out, counted from 1.
    FakeDispatch& Property(size_t index) const;

    RefCountList RefCounts(const std::wstring& label) const;

private:
    ComPtr<FakeDispatch> m_collection;
    // Shared with the Item handler, which lives inside the collection object.
    std::shared_ptr<std::vector<ComPtr<FakeDispatch>>> m_items;
};

// One host's Application and its active document. `hostKind` is kHostWord, kHostExcel or
// kHostPowerPoint; the Application answers only to that host's member (ActiveDocument,
// ActiveWorkbook or ActivePresentation), and only Excel and PowerPoint documents have SaveCopyAs.
// The document starts as a new one that was never saved, named after the host's habit
// ("Dokument1", "Mappe1", "Präsentation1"), holding `content`.
class FakeOfficeHost {
public:
    FakeOfficeHost(int32_t hostKind, std::string content);
    FakeOfficeHost(const FakeOfficeHost&) = delete;
    FakeOfficeHost& operator=(const FakeOfficeHost&) = delete;

    int32_t HostKind() const { return m_hostKind; }
    const wchar_t* ActiveMember() const;
    // "docx", "xlsx" or "pptx".
    const wchar_t* Extension() const;

    FakeDispatch& Application() const { return *m_application.get(); }
    FakeDispatch& Document() const { return *m_document.get(); }
    FakeDocumentProperties& CustomProperties() { return m_custom; }
    FakeDocumentProperties& BuiltInProperties() { return m_builtIn; }

    // The document as opened from `fullName`: the file is written with the current content now.
    void OpenFrom(const std::wstring& fullName, bool readOnly = false);
    // A new document that has no file yet.
    void StartUnsaved(const std::wstring& name);
    // Replaces the content, as if the user had changed the document. Marks the document unsaved;
    // no file changes.
    void ReplaceContent(std::string content);
    const std::string& Content() const { return *m_content; }

    std::wstring FullName() const;

    // The Application, the document, both collections and every property object.
    RefCountList RefCounts() const;

private:
    void DefineSaveMethods();

    int32_t m_hostKind;
    // Shared with the save handlers, which live inside the document object.
    std::shared_ptr<std::string> m_content = std::make_shared<std::string>();
    ComPtr<FakeDispatch> m_application = FakeDispatch::Create();
    ComPtr<FakeDispatch> m_document = FakeDispatch::Create();
    FakeDocumentProperties m_custom;
    FakeDocumentProperties m_builtIn;
};
