#include "capture/office/OfficeDocumentCapture.h"

#include <windows.h>

#include <ctime>
#include <cwchar>
#include <string>

#include "capture/office/DocumentProperties.h"
#include "common/Automation.h"
#include "common/BStr.h"
#include "common/BoundedFormat.h"
#include "common/CheckedFormat.h"
#include "common/ComPtr.h"
#include "common/LogFile.h"
#include "common/Variant.h"
#include "handoff/StagingArea.h"

namespace {

enum class ExtensionRule {
    // ".docx", ".docm", ".dotx", ".dotm" in all lower or all upper case; anything else is "doc".
    KnownWordFormats,
    // Whatever follows the last "." of the name.
    AfterLastDot,
};

enum class CopyMethod {
    WordSaveAs,
    SaveCopyAsThenSaveAs,
};

// A log line without arguments, and one that reports a failure's HRESULT.
using Line = CheckedFormat<>;
using StatusLine = CheckedFormat<HRESULT>;

struct OfficeHost {
    Line entryLog;
    Line exitLog;
    Line stagingFailureLog;
    const wchar_t* activeObject;
    StatusLine noActiveObjectLog;
    ExtensionRule extensionRule;
    const wchar_t* modernExtension;  // for a name without extension, from major version 12
    const wchar_t* legacyExtension;  // the same below 12
    StatusLine saveFailureLog;
    StatusLine firstSaveFailureLog;
    StatusLine nameFailureLog;
    CopyMethod copyMethod;
    bool logsSaveCopyAsFailure;  // else the fallback to SaveAs goes unmentioned
    StatusLine copyFailureLog;
    StatusLine builtInFailureLog;
    bool readsFullName;
    bool marksSaved;
};

constexpr OfficeHost kWord = {
    L"Entering SaveWordDocument\n",
    L"Leave SaveWordDocument\n",
    L"Failed to get path of temp directory ... SaveWordDocument\n",
    L"ActiveDocument",
    L"Can't get active document! hr = 0x%08X\n",
    ExtensionRule::KnownWordFormats,
    L"docx",
    L"doc",
    L"Can't save active document! hr = 0x%08X\n",
    L"Can't save initially created document! hr = 0x%08X\n",
    L"Can't get name of active document! hr = 0x%08X\n",
    CopyMethod::WordSaveAs,
    false,
    L"Can't save initially created document! hr = 0x%08X\n",
    L"Can't get built-in document properties! hr = 0x%08X\n",
    true,
    true,
};

constexpr OfficeHost kExcel = {
    L"Entering SaveExcelDocument\n",
    L"Leave SaveExcelDocument\n",
    L"Failed to get path of temp directory ... SaveExcelDocument\n",
    L"ActiveWorkbook",
    L"Can't get active work book! hr = 0x%08X\n",
    ExtensionRule::AfterLastDot,
    L"xlsx",
    L"xls",
    L"Can't save workbook! hr = 0x%08X\n",
    L"Can't save initially created workbook! hr = 0x%08X\n",
    L"Can't get name of active workbook! hr = 0x%08X\n",
    CopyMethod::SaveCopyAsThenSaveAs,
    true,
    L"Failed to save active document! hr = 0x%08X\n",
    L"Can't get built-in document properties! hr = 0x%08X\n",
    false,
    false,
};

constexpr OfficeHost kPowerPoint = {
    // "SavePoerPointDocument" is how PowerPoint's entry line has always been spelled.
    L"Entering SavePoerPointDocument\n",
    L"Leave SavePowerPointDocument\n",
    L"Failed to get path of temp directory ... SavePowerPointDocument\n",
    L"ActivePresentation",
    L"Can't get active presentation! hr = 0x%08X\n",
    ExtensionRule::AfterLastDot,
    L"pptx",
    L"ppt",
    L"Can't save active presentation! hr = 0x%08X\n",
    L"Can't save initially created presentation! hr = 0x%08X\n",
    L"Can't get name of active presentation! hr = 0x%08X\n",
    CopyMethod::SaveCopyAsThenSaveAs,
    false,
    L"Failed to save active presentation! hr = 0x%08X\n",
    // PowerPoint reports a missing built-in collection with the custom collection's text.
    L"Can't get custom document properties! hr = 0x%08X\n",
    false,
    false,
};

constexpr int32_t kFirstXmlFormatVersion = 12;

std::wstring ExtensionOf(const OfficeHost& host, const std::wstring& name, int32_t majorVersion) {
    const size_t dot = name.rfind(L'.');
    if (dot == std::wstring::npos) {
        return majorVersion >= kFirstXmlFormatVersion ? host.modernExtension : host.legacyExtension;
    }
    const std::wstring extension = name.substr(dot + 1);
    if (host.extensionRule == ExtensionRule::AfterLastDot) {
        return extension;
    }
    for (const wchar_t* known :
         {L"docx", L"docm", L"dotx", L"dotm", L"DOCX", L"DOCM", L"DOTX", L"DOTM"}) {
        if (extension == known) {
            std::wstring lower(known);
            CharLowerW(lower.data());
            return lower;
        }
    }
    return L"doc";
}

unsigned CurrentTime() { return static_cast<unsigned>(_time64(nullptr)); }

bool IsDirectory(const wchar_t* path) {
    DWORD attributes = GetFileAttributesW(path);
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY);
}

// Saves the document as `path`, which becomes its file. Word is given its five arguments: the
// format omitted so that the document keeps its own, no comment lock, no password, and not added
// to the recent files, so that staging folders never show up there.
HRESULT SaveDocumentAs(const OfficeHost& host, IDispatch* document, const wchar_t* path) {
    Variant file(path);
    if (host.copyMethod != CopyMethod::WordSaveAs) {
        return CallMethodNoThrow(document, L"SaveAs", {&file});
    }
    Variant keepFormat;
    keepFormat.vt = VT_ERROR;
    keepFormat.scode = DISP_E_PARAMNOTFOUND;
    Variant lockComments(false);
    Variant password(L"");
    Variant addToRecentFiles(false);
    return CallMethodNoThrow(document, L"SaveAs",
                             {&file, &keepFormat, &lockComments, &password, &addToRecentFiles});
}

HRESULT WriteStagedCopy(const OfficeHost& host, IDispatch* document, const wchar_t* stagedPath) {
    if (host.copyMethod == CopyMethod::WordSaveAs) {
        HRESULT hr = SaveDocumentAs(host, document, stagedPath);
        if (FAILED(hr)) {
            LogError(host.copyFailureLog, hr);
        }
        return hr;
    }
    Variant file(stagedPath);
    HRESULT hr = CallMethodNoThrow(document, L"SaveCopyAs", {&file});
    if (SUCCEEDED(hr)) {
        return hr;
    }
    if (host.logsSaveCopyAsFailure) {
        LogError(L"Can not SaveCopyAs active document! hr = 0x%08X\n", hr);
    }
    hr = CallMethodNoThrow(document, L"SaveAs", {&file});
    if (FAILED(hr)) {
        LogError(host.copyFailureLog, hr);
    }
    return hr;
}

void CollectProperties(const OfficeHost& host, IDispatch* document, PropertyMap& map) {
    Variant custom;
    HRESULT hr = GetPropertyNoThrow(document, L"CustomDocumentProperties", &custom);
    if (FAILED(hr)) {
        LogError(L"Can't get custom document properties! hr = 0x%08X\n", hr);
    } else {
        CopyProperties(&custom, 0, &map);
    }
    Variant builtIn;
    hr = GetPropertyNoThrow(document, L"BuiltInDocumentProperties", &builtIn);
    if (FAILED(hr)) {
        LogError(host.builtInFailureLog, hr);
    } else {
        CopyProperties(&builtIn, 1, &map);
    }
}

HRESULT SaveOfficeDocument(const OfficeHost& host, IDispatch* application, PathBuffer& path,
                           PropertyMap& map, int32_t majorVersion) {
    LogInfo(host.entryLog);
    if (!CreateStagingFolder(path.data(), path.size())) {
        LogError(host.stagingFailureLog);
        return E_FAIL;
    }
    const std::wstring folder = path.data();

    ComPtr<IDispatch> document;
    HRESULT hr = GetObjectPropertyNoThrow(application, host.activeObject, document.put());
    if (FAILED(hr)) {
        LogError(host.noActiveObjectLog, hr);
        return hr;
    }
    BStr documentPath;
    hr = GetTextPropertyNoThrow(document.get(), L"Path", &documentPath);
    if (FAILED(hr)) {
        LogError(L"Can't get path of active document! hr = 0x%08X\n", hr);
        return hr;
    }
    bool readOnly = false;
    hr = GetBooleanPropertyNoThrow(document.get(), L"ReadOnly", &readOnly);
    if (FAILED(hr)) {
        LogError(L"Can't get ReadOnly flag of active document! hr = 0x%08X\n", hr);
        return hr;
    }

    // A document that lives in the staging area is the copy of an earlier archive: saving it in
    // place would change what that archive handed to the connector, so it is saved anew like a
    // document that was never saved.
    const bool ownFile = *documentPath.c_str() && !readOnly &&
                         !IsInStagingArea((std::wstring(documentPath.c_str()) + L"\\").c_str());
    // The file the document itself lives in once it was first saved into the staging folder.
    std::wstring firstSavePath;
    if (ownFile) {
        hr = CallMethodNoThrow(document.get(), L"Save");
        if (FAILED(hr)) {
            LogError(host.saveFailureLog, hr);
            return hr;
        }
    } else {
        BStr name;
        hr = GetTextPropertyNoThrow(document.get(), L"Name", &name);
        if (FAILED(hr)) {
            LogError(host.nameFailureLog, hr);
            return hr;
        }
        wchar_t base[MAX_PATH];
        wchar_t temporary[MAX_PATH];
        if (!FormatBounded(base, MAX_PATH, L"%sdorvane_%08X", folder.c_str(), CurrentTime()) ||
            !FormatBounded(temporary, MAX_PATH, L"%s.%s", base,
                           ExtensionOf(host, name.c_str(), majorVersion).c_str())) {
            LogError(host.firstSaveFailureLog, HRESULT_FROM_WIN32(ERROR_FILENAME_EXCED_RANGE));
            return HRESULT_FROM_WIN32(ERROR_FILENAME_EXCED_RANGE);
        }
        LogInfo(L"Temporary file to save initially created document is %s\n", temporary);
        hr = SaveDocumentAs(host, document.get(), temporary);
        if (FAILED(hr)) {
            LogError(host.firstSaveFailureLog, hr);
            return hr;
        }
        firstSavePath = temporary;
    }

    BStr name;
    hr = GetTextPropertyNoThrow(document.get(), L"Name", &name);
    BStr fullName;
    if (SUCCEEDED(hr) && host.readsFullName) {
        hr = GetTextPropertyNoThrow(document.get(), L"FullName", &fullName);
    }
    if (FAILED(hr)) {
        LogError(host.nameFailureLog, hr);
        return hr;
    }

    wchar_t staged[MAX_PATH];
    bool fits = FormatBounded(staged, MAX_PATH, L"%s%s", folder.c_str(), name.c_str());
    const wchar_t* currentFile = firstSavePath.empty() ? fullName.c_str() : firstSavePath.c_str();
    if (fits && *currentFile && lstrcmpiW(staged, currentFile) == 0) {
        wchar_t prefix[MAX_PATH];
        fits = FormatBounded(prefix, MAX_PATH, L"%s%X_", folder.c_str(), CurrentTime()) &&
               FormatBounded(staged, MAX_PATH, L"%s%s", prefix, name.c_str());
    }
    if (!fits) {
        LogError(host.copyFailureLog, HRESULT_FROM_WIN32(ERROR_FILENAME_EXCED_RANGE));
        return HRESULT_FROM_WIN32(ERROR_FILENAME_EXCED_RANGE);
    }
    if (GetFileAttributesW(staged) != INVALID_FILE_ATTRIBUTES && !IsDirectory(staged)) {
        DeleteFileW(staged);
    }
    hr = WriteStagedCopy(host, document.get(), staged);
    if (FAILED(hr)) {
        return hr;
    }
    CopyBounded(path.data(), path.size(), staged);
    // Word's SaveAs moved the document into the staging folder, which the connector deletes: a
    // document with a file of its own goes back to it, so the user's next save lands there.
    if (host.copyMethod == CopyMethod::WordSaveAs && ownFile) {
        hr = SaveDocumentAs(host, document.get(), fullName.c_str());
        if (FAILED(hr)) {
            LogWarning(L"Can't return the document to its own file %s! hr = 0x%08X\n",
                       fullName.c_str(), hr);
        }
    }

    CollectProperties(host, document.get(), map);

    if (host.marksSaved) {
        Variant saved(true);
        hr = PutPropertyNoThrow(document.get(), L"Saved", saved);
        if (FAILED(hr)) {
            LogError(L"Failed to set saved flag of the current word document! hr = 0x%08X\n", hr);
        }
    }
    LogInfo(host.exitLog);
    return S_OK;
}

}  // namespace

HRESULT SaveWordDocument(IDispatch* application, PathBuffer& path, PropertyMap& map,
                         int32_t majorVersion) {
    return SaveOfficeDocument(kWord, application, path, map, majorVersion);
}

HRESULT SaveExcelDocument(IDispatch* application, PathBuffer& path, PropertyMap& map,
                          int32_t majorVersion) {
    return SaveOfficeDocument(kExcel, application, path, map, majorVersion);
}

HRESULT SavePowerPointDocument(IDispatch* application, PathBuffer& path, PropertyMap& map,
                               int32_t majorVersion) {
    return SaveOfficeDocument(kPowerPoint, application, path, map, majorVersion);
}
