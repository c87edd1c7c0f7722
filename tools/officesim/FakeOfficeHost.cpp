#include "officesim/FakeOfficeHost.h"

#include <windows.h>

#include <stdexcept>

#include "common/HostKind.h"
#include "common/UniqueResource.h"

namespace {

using Args = FakeDispatch::Args;

// How automation callers leave out an optional argument.
bool IsOmitted(const VARIANT& value) {
    return value.vt == VT_ERROR && value.scode == DISP_E_PARAMNOTFOUND;
}

bool IsOmittedOr(const Args& args, size_t index, VARTYPE vt) {
    return index >= args.size() || IsOmitted(args[index]) || args[index].vt == vt;
}

std::wstring TextOf(const VARIANT& value) {
    return value.vt == VT_BSTR && value.bstrVal ? value.bstrVal : L"";
}

HRESULT WriteContent(const std::string& content, const std::wstring& file) {
    UniqueFileHandle handle(CreateFileW(file.c_str(), GENERIC_WRITE, 0, nullptr /* security */,
                                        CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL,
                                        nullptr /* template */));
    if (!handle) {
        return HRESULT_FROM_WIN32(GetLastError());
    }
    DWORD written = 0;
    if (!WriteFile(handle.get(), content.data(), static_cast<DWORD>(content.size()), &written,
                   nullptr)) {
        return HRESULT_FROM_WIN32(GetLastError());
    }
    return written == content.size() ? S_OK : E_FAIL;
}

// A file name the fake can write: a full path with a folder and a name.
HRESULT CheckFileArgument(const Args& args) {
    if (args.empty() || IsOmitted(args[0])) {
        return DISP_E_PARAMNOTFOUND;
    }
    if (args[0].vt != VT_BSTR) {
        return DISP_E_TYPEMISMATCH;
    }
    const std::wstring file = TextOf(args[0]);
    const size_t slash = file.rfind(L'\\');
    if (slash == std::wstring::npos || slash + 1 == file.size()) {
        return E_INVALIDARG;
    }
    return S_OK;
}

// Arguments from `first` on are not modelled: the fake accepts them only when omitted.
HRESULT CheckOmittedFrom(const Args& args, size_t first) {
    for (size_t i = first; i < args.size(); ++i) {
        if (!IsOmitted(args[i])) {
            return E_NOTIMPL;
        }
    }
    return S_OK;
}

// Word's SaveAs(FileName, FileFormat, LockComments, Password, AddToRecentFiles, ...): a format
// number would ask for a conversion, which the fake does not do.
HRESULT CheckWordSaveAsArguments(const Args& args) {
    if (args.size() > 16) {
        return DISP_E_BADPARAMCOUNT;
    }
    if (args.size() > 1 && !IsOmitted(args[1])) {
        return args[1].vt == VT_I4 ? E_NOTIMPL : DISP_E_TYPEMISMATCH;
    }
    if (!IsOmittedOr(args, 2, VT_BOOL) || !IsOmittedOr(args, 3, VT_BSTR) ||
        !IsOmittedOr(args, 4, VT_BOOL)) {
        return DISP_E_TYPEMISMATCH;
    }
    return CheckOmittedFrom(args, 5);
}

// The document now lives in `fullName`, as after opening it from there or saving it there.
void MoveDocument(FakeDispatch& document, const std::wstring& fullName) {
    const size_t slash = fullName.rfind(L'\\');
    // Office's Path has no trailing backslash.
    document.SetProperty(L"Path", fullName.substr(0, slash).c_str());
    document.SetProperty(L"Name", fullName.substr(slash + 1).c_str());
    document.SetProperty(L"FullName", fullName.c_str());
    document.SetProperty(L"ReadOnly", false);
}

}  // namespace

Variant DateValue(int year, int month, int day, int hour, int minute, int second) {
    SYSTEMTIME time{};
    time.wYear = static_cast<WORD>(year);
    time.wMonth = static_cast<WORD>(month);
    time.wDay = static_cast<WORD>(day);
    time.wHour = static_cast<WORD>(hour);
    time.wMinute = static_cast<WORD>(minute);
    time.wSecond = static_cast<WORD>(second);
    Variant value;
    if (!SystemTimeToVariantTime(&time, &value.date)) {
        throw std::invalid_argument("DateValue: not a date");
    }
    value.vt = VT_DATE;
    return value;
}

Variant DoubleValue(double number) {
    Variant value;
    value.vt = VT_R8;
    value.dblVal = number;
    return value;
}

FakeDocumentProperties::FakeDocumentProperties()
    : m_collection(FakeDispatch::Create()),
      m_items(std::make_shared<std::vector<ComPtr<FakeDispatch>>>()) {
    auto items = m_items;
    m_collection->SetComputedProperty(L"Count", [items](const Args& args, VARIANT* result) {
        if (!args.empty()) {
            return DISP_E_BADPARAMCOUNT;
        }
        result->vt = VT_I4;
        result->lVal = static_cast<LONG>(items->size());
        return S_OK;
    });
    m_collection->SetComputedProperty(L"Item", [items](const Args& args, VARIANT* result) {
        size_t index = 0;
        const HRESULT hr = ItemIndex(args, items->size(), &index);
        if (FAILED(hr)) {
            return hr;
        }
        FakeDispatch* item = (*items)[index].get();
        item->AddRef();
        result->vt = VT_DISPATCH;
        result->pdispVal = item;
        return S_OK;
    });
}

FakeDocumentProperties& FakeDocumentProperties::Add(const std::wstring& name,
                                                    const VARIANT& value) {
    ComPtr<FakeDispatch> property = FakeDispatch::Create();
    property->SetProperty(L"Name", name.c_str());
    property->SetProperty(L"Value", value);
    m_items->push_back(std::move(property));
    return *this;
}

FakeDispatch& FakeDocumentProperties::Property(size_t index) const {
    return *m_items->at(index - 1).get();
}

RefCountList FakeDocumentProperties::RefCounts(const std::wstring& label) const {
    RefCountList counts{{label, m_collection->RefCount()}};
    for (size_t i = 0; i < m_items->size(); ++i) {
        counts.emplace_back(label + L".Item(" + std::to_wstring(i + 1) + L")",
                            (*m_items)[i]->RefCount());
    }
    return counts;
}

FakeOfficeHost::FakeOfficeHost(int32_t hostKind, std::string content) : m_hostKind(hostKind) {
    if (hostKind != kHostWord && hostKind != kHostExcel && hostKind != kHostPowerPoint) {
        throw std::invalid_argument("FakeOfficeHost: Word, Excel or PowerPoint only");
    }
    *m_content = std::move(content);
    m_application->SetProperty(ActiveMember(), static_cast<IDispatch*>(m_document.get()));
    m_document->SetProperty(L"CustomDocumentProperties",
                            static_cast<IDispatch*>(&m_custom.Collection()));
    m_document->SetProperty(L"BuiltInDocumentProperties",
                            static_cast<IDispatch*>(&m_builtIn.Collection()));
    DefineSaveMethods();
    StartUnsaved(hostKind == kHostWord    ? L"Dokument1"
                 : hostKind == kHostExcel ? L"Mappe1"
                                          : L"Pr\u00E4sentation1");
}

const wchar_t* FakeOfficeHost::ActiveMember() const {
    return m_hostKind == kHostWord    ? L"ActiveDocument"
           : m_hostKind == kHostExcel ? L"ActiveWorkbook"
                                      : L"ActivePresentation";
}

const wchar_t* FakeOfficeHost::Extension() const {
    return m_hostKind == kHostWord ? L"docx" : m_hostKind == kHostExcel ? L"xlsx" : L"pptx";
}

void FakeOfficeHost::StartUnsaved(const std::wstring& name) {
    m_document->SetProperty(L"Path", L"");
    m_document->SetProperty(L"Name", name.c_str());
    // A document without a file answers its name as its full name.
    m_document->SetProperty(L"FullName", name.c_str());
    m_document->SetProperty(L"ReadOnly", false);
    m_document->SetProperty(L"Saved", false);
}

void FakeOfficeHost::OpenFrom(const std::wstring& fullName, bool readOnly) {
    if (fullName.rfind(L'\\') == std::wstring::npos || FAILED(WriteContent(*m_content, fullName))) {
        throw std::runtime_error("FakeOfficeHost: cannot write the document's file");
    }
    MoveDocument(*m_document.get(), fullName);
    m_document->SetProperty(L"ReadOnly", readOnly);
    m_document->SetProperty(L"Saved", true);
}

void FakeOfficeHost::ReplaceContent(std::string content) {
    *m_content = std::move(content);
    m_document->SetProperty(L"Saved", false);
}

std::wstring FakeOfficeHost::FullName() const { return TextOf(m_document->Value(L"FullName")); }

RefCountList FakeOfficeHost::RefCounts() const {
    RefCountList counts{{L"Application", m_application->RefCount()},
                        {L"document", m_document->RefCount()}};
    for (auto& entry : m_custom.RefCounts(L"CustomDocumentProperties")) {
        counts.push_back(std::move(entry));
    }
    for (auto& entry : m_builtIn.RefCounts(L"BuiltInDocumentProperties")) {
        counts.push_back(std::move(entry));
    }
    return counts;
}

void FakeOfficeHost::DefineSaveMethods() {
    // The handlers live inside the document object: a plain pointer back to it makes no cycle.
    FakeDispatch* document = m_document.get();
    auto content = m_content;
    const bool word = m_hostKind == kHostWord;

    auto isSet = [document](const wchar_t* flag) {
        const VARIANT& value = document->Value(flag);
        return value.vt == VT_BOOL && value.boolVal != VARIANT_FALSE;
    };
    document->SetMethod(L"Save", [=](const Args& args, VARIANT*) {
        if (!args.empty()) {
            return DISP_E_BADPARAMCOUNT;
        }
        const std::wstring fullName = TextOf(document->Value(L"FullName"));
        if (TextOf(document->Value(L"Path")).empty() || isSet(L"ReadOnly")) {
            return kFakeOfficeRefused;
        }
        HRESULT hr = WriteContent(*content, fullName);
        if (SUCCEEDED(hr)) {
            document->SetProperty(L"Saved", true);
        }
        return hr;
    });

    document->SetMethod(L"SaveAs", [=](const Args& args, VARIANT*) {
        HRESULT hr = CheckFileArgument(args);
        if (SUCCEEDED(hr)) {
            hr = word ? CheckWordSaveAsArguments(args) : CheckOmittedFrom(args, 1);
        }
        const std::wstring file = SUCCEEDED(hr) ? TextOf(args[0]) : std::wstring();
        if (SUCCEEDED(hr)) {
            hr = WriteContent(*content, file);
        }
        if (FAILED(hr)) {
            return hr;
        }
        MoveDocument(*document, file);
        document->SetProperty(L"Saved", true);
        return S_OK;
    });

    if (word) {
        return;
    }
    // Excel takes only the file name; PowerPoint's format and font arguments are not modelled.
    document->SetMethod(L"SaveCopyAs", [=](const Args& args, VARIANT*) {
        HRESULT hr = CheckFileArgument(args);
        if (SUCCEEDED(hr)) {
            hr = CheckOmittedFrom(args, 1);
        }
        return SUCCEEDED(hr) ? WriteContent(*content, TextOf(args[0])) : hr;
    });
}
