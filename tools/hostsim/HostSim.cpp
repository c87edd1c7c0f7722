// The simulated Office host: does with the registered add-in what Word, Excel, PowerPoint or
// Outlook does. It creates the add-in by its ProgID from the registry, plays the host's object
// model over a real document file, connects the add-in, prints the ribbon markup it serves,
// "clicks" a ribbon button through IDispatch::Invoke and shows what came of it: the add-in's log,
// the hand-off document and the URL the Desktop Connector (the prefix's stub) received.
//
// Usage: hostsim.exe [--host word|excel|powerpoint|outlook] [--version 16.0.4266.1001]
//                    [--new] [--read-only] [--property Name=Value]... [--button Archive|Info|...]
//                    <document>
#include <windows.h>
#include <objbase.h>
#include <olectl.h>

#include <cstdio>
#include <string>
#include <vector>

#include "addin/OfficeInterfaces.h"
#include "common/BStr.h"
#include "common/ComPtr.h"
#include "common/UniqueResource.h"
#include "common/Variant.h"
#include "tools/hostsim/AutomationObject.h"

namespace {

struct HostProfile {
    const wchar_t* option;
    const wchar_t* applicationName;
    const wchar_t* activeObject;
    const wchar_t* ribbonId;
    bool saveCopyAs;
};

constexpr HostProfile kHosts[] = {
    {L"word", L"Microsoft Word", L"ActiveDocument", L"Microsoft.Word.Document", false},
    {L"excel", L"Microsoft Excel", L"ActiveWorkbook", L"Microsoft.Excel.Workbook", true},
    {L"powerpoint", L"Microsoft PowerPoint", L"ActivePresentation",
     L"Microsoft.PowerPoint.Presentation", true},
    {L"outlook", L"Outlook", nullptr, L"Microsoft.Outlook.Explorer", false},
};

struct Options {
    const HostProfile* host = &kHosts[0];
    std::wstring version = L"16.0.4266.1001";
    bool newDocument = false;
    bool readOnly = false;
    std::vector<std::pair<std::wstring, std::wstring>> properties;
    std::wstring button = L"Archive";
    std::wstring document;
};

// Writes UTF-8 to standard output whatever the console code page, so that German texts read
// correctly in a Linux terminal under Wine.
void Print(const std::wstring& text) {
    int bytes = WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr,
                                    0, nullptr, nullptr);
    std::string utf8(static_cast<size_t>(bytes > 0 ? bytes : 0), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), utf8.data(), bytes,
                        nullptr, nullptr);
    fwrite(utf8.data(), 1, utf8.size(), stdout);
    fflush(stdout);
}

std::wstring Hex(HRESULT hr) {
    wchar_t text[16];
    _snwprintf(text, 16, L"0x%08lX", static_cast<unsigned long>(hr));
    text[15] = L'\0';
    return text;
}

std::string ReadBytes(const std::wstring& path) {
    std::string bytes;
    UniqueFileHandle file(CreateFileW(path.c_str(), GENERIC_READ,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                                      FILE_ATTRIBUTE_NORMAL, nullptr));
    char chunk[4096];
    DWORD read = 0;
    while (file && ReadFile(file.get(), chunk, sizeof chunk, &read, nullptr) && read > 0) {
        bytes.append(chunk, read);
    }
    return bytes;
}

void PrintBytes(const std::string& bytes) {
    std::string text = bytes;
    if (text.compare(0, 3, "\xEF\xBB\xBF") == 0) {
        text.erase(0, 3);
    }
    fwrite(text.data(), 1, text.size(), stdout);
    fflush(stdout);
}

std::wstring TempPath() {
    wchar_t temp[MAX_PATH];
    DWORD length = GetTempPathW(MAX_PATH, temp);
    return std::wstring(temp, length < MAX_PATH ? length : 0);
}

std::wstring ExecutableBaseName() {
    wchar_t module[MAX_PATH];
    GetModuleFileNameW(nullptr, module, MAX_PATH);
    std::wstring name(module);
    name = name.substr(name.rfind(L'\\') + 1);
    return name.substr(0, name.rfind(L'.'));
}

DATE ToVariantTime(const FILETIME& utc) {
    FILETIME local;
    SYSTEMTIME time;
    DATE date = 0;
    if (FileTimeToLocalFileTime(&utc, &local) && FileTimeToSystemTime(&local, &time)) {
        SystemTimeToVariantTime(&time, &date);
    }
    return date;
}

Variant DateValue(DATE date) {
    Variant value;
    value.vt = VT_DATE;
    value.date = date;
    return value;
}

// A DocumentProperties collection: Count and Item(i), each item with Name and Value.
ComPtr<AutomationObject> PropertyCollection(std::vector<ComPtr<AutomationObject>> items) {
    ComPtr<AutomationObject> collection = AutomationObject::Create();
    collection->Property(L"Count", Variant(static_cast<int32_t>(items.size())));
    collection->Member(L"Item", [items](const AutomationObject::Args& args, VARIANT* result) {
        Variant index;
        if (args.empty() || FAILED(VariantChangeType(&index, args[0], 0, VT_I4)) ||
            index.lVal < 1 || static_cast<size_t>(index.lVal) > items.size()) {
            return DISP_E_BADINDEX;
        }
        VariantClear(result);
        result->vt = VT_DISPATCH;
        result->pdispVal = items[static_cast<size_t>(index.lVal - 1)].get();
        result->pdispVal->AddRef();
        return S_OK;
    });
    return collection;
}

ComPtr<AutomationObject> DocumentProperty(const wchar_t* name, Variant value) {
    ComPtr<AutomationObject> property = AutomationObject::Create();
    property->Property(L"Name", Variant(name));
    property->Property(L"Value", std::move(value));
    return property;
}

// The document object: a real file on disk that Save, SaveAs and SaveCopyAs write the way Office
// does (SaveAs moves the document to its new file, SaveCopyAs leaves it where it is).
ComPtr<AutomationObject> Document(const Options& options) {
    const std::wstring source = options.document;
    const size_t slash = source.rfind(L'\\');
    const std::wstring folder = slash == std::wstring::npos ? L"" : source.substr(0, slash);
    std::wstring name = slash == std::wstring::npos ? source : source.substr(slash + 1);
    const std::wstring title = name.substr(0, name.rfind(L'.'));
    if (options.newDocument) {
        name = L"Dokument1";
    }

    ComPtr<AutomationObject> document = AutomationObject::Create();
    AutomationObject* self = document.get();
    document->Property(L"Path", Variant(options.newDocument ? L"" : folder.c_str()))
        .Property(L"Name", Variant(name.c_str()))
        .Property(L"FullName", Variant(options.newDocument ? name.c_str() : source.c_str()))
        .Property(L"ReadOnly", Variant(options.readOnly))
        .Property(L"Saved", Variant(false));
    document->Member(L"Save", [](const AutomationObject::Args&, VARIANT*) { return S_OK; });
    document->Member(L"SaveAs", [self, source](const AutomationObject::Args& args, VARIANT*) {
        Variant file;
        if (args.empty() || FAILED(VariantChangeType(&file, args[0], 0, VT_BSTR)) ||
            !CopyFileW(source.c_str(), file.bstrVal, FALSE)) {
            return E_FAIL;
        }
        std::wstring path(file.bstrVal);
        const size_t cut = path.rfind(L'\\');
        self->Property(L"FullName", Variant(path.c_str()))
            .Property(L"Path", Variant(path.substr(0, cut).c_str()))
            .Property(L"Name", Variant(path.substr(cut + 1).c_str()));
        return S_OK;
    });
    document->Member(L"SaveCopyAs", [source](const AutomationObject::Args& args, VARIANT*) {
        Variant file;
        if (args.empty() || FAILED(VariantChangeType(&file, args[0], 0, VT_BSTR))) {
            return E_INVALIDARG;
        }
        return CopyFileW(source.c_str(), file.bstrVal, FALSE) ? S_OK : E_FAIL;
    });

    std::vector<ComPtr<AutomationObject>> custom;
    for (const auto& [propertyName, value] : options.properties) {
        custom.push_back(DocumentProperty(propertyName.c_str(), Variant(value.c_str())));
    }
    WIN32_FILE_ATTRIBUTE_DATA info{};
    GetFileAttributesExW(source.c_str(), GetFileExInfoStandard, &info);
    wchar_t user[256] = L"";
    DWORD userLength = 256;
    GetUserNameW(user, &userLength);
    std::vector<ComPtr<AutomationObject>> builtIn = {
        DocumentProperty(L"Title", Variant(title.c_str())),
        DocumentProperty(L"Author", Variant(user)),
        DocumentProperty(L"Creation date", DateValue(ToVariantTime(info.ftCreationTime))),
        DocumentProperty(L"Last save time", DateValue(ToVariantTime(info.ftLastWriteTime))),
        DocumentProperty(L"Number of pages", Variant(int32_t{1})),
        // Office keeps properties it does not know the value of as empty; they are not archived.
        DocumentProperty(L"Last print date", Variant()),
        DocumentProperty(L"Template", Variant(L"Normal.dotm")),
    };
    document->Property(L"CustomDocumentProperties",
                       Variant(static_cast<IDispatch*>(PropertyCollection(custom).get())));
    document->Property(L"BuiltInDocumentProperties",
                       Variant(static_cast<IDispatch*>(PropertyCollection(builtIn).get())));
    return document;
}

ComPtr<AutomationObject> Application(const Options& options, AutomationObject* document) {
    ComPtr<AutomationObject> application = AutomationObject::Create();
    application->Property(L"Name", Variant(options.host->applicationName))
        .Property(L"Version", Variant(options.version.c_str()))
        .Property(L"CommandBars",
                  Variant(static_cast<IDispatch*>(AutomationObject::Create().get())));
    if (lstrcmpW(options.host->option, L"word") == 0) {
        // The template that receives customisations; the add-in marks it saved in command-bar mode.
        ComPtr<AutomationObject> normalTemplate = AutomationObject::Create();
        normalTemplate->Property(L"Name", Variant(L"Normal.dotm"))
            .Property(L"Saved", Variant(true));
        application->Property(L"CustomizationContext",
                              Variant(static_cast<IDispatch*>(normalTemplate.get())));
    }
    if (document && options.host->activeObject) {
        application->Property(options.host->activeObject,
                              Variant(static_cast<IDispatch*>(document)));
    }
    return application;
}

bool ParseOptions(int argc, wchar_t** argv, Options& options) {
    for (int i = 1; i < argc; ++i) {
        std::wstring arg = argv[i];
        if (arg == L"--host" && i + 1 < argc) {
            options.host = nullptr;
            for (const HostProfile& host : kHosts) {
                if (lstrcmpiW(argv[i + 1], host.option) == 0) {
                    options.host = &host;
                }
            }
            ++i;
            if (!options.host) {
                return false;
            }
        } else if (arg == L"--version" && i + 1 < argc) {
            options.version = argv[++i];
        } else if (arg == L"--button" && i + 1 < argc) {
            options.button = argv[++i];
        } else if (arg == L"--property" && i + 1 < argc) {
            std::wstring pair = argv[++i];
            size_t equals = pair.find(L'=');
            if (equals == std::wstring::npos) {
                return false;
            }
            options.properties.emplace_back(pair.substr(0, equals), pair.substr(equals + 1));
        } else if (arg == L"--new") {
            options.newDocument = true;
        } else if (arg == L"--read-only") {
            options.readOnly = true;
        } else if (options.document.empty() && arg.rfind(L"--", 0) != 0) {
            wchar_t full[MAX_PATH];
            if (!GetFullPathNameW(argv[i], MAX_PATH, full, nullptr)) {
                return false;
            }
            options.document = full;
        } else {
            return false;
        }
    }
    return !options.document.empty() || options.host->activeObject == nullptr;
}

// The connector is started asynchronously by the shell; its record shows up shortly after.
std::string WaitForConnector(const std::wstring& record, size_t seen) {
    for (DWORD start = GetTickCount(); GetTickCount() - start < 10000; Sleep(50)) {
        std::string bytes = ReadBytes(record);
        if (bytes.size() > seen && bytes.back() == '\n') {
            return bytes.substr(seen);
        }
    }
    return std::string();
}

void ShowHandOffs(const std::string& url) {
    const size_t files = url.find("$files=");
    if (files == std::string::npos) {
        return;
    }
    std::string names = url.substr(files + 7);
    while (!names.empty() && (names.back() == '\n' || names.back() == '\r')) {
        names.pop_back();
    }
    size_t start = 0;
    while (start < names.size()) {
        size_t end = names.find(',', start);
        std::string id =
            names.substr(start, end == std::string::npos ? std::string::npos : end - start);
        std::wstring wideId(id.begin(), id.end());
        std::wstring path = TempPath() + L"td_temp_inbox\\" + wideId + L"\\" + wideId + L".xml";
        Print(L"\nhand-off document " + path + L" (UTF-8 with BOM, CRLF):");
        PrintBytes(ReadBytes(path));
        Print(L"\n");
        if (end == std::string::npos) {
            break;
        }
        start = end + 1;
    }
}

int Run(const Options& options) {
    CLSID clsid;
    HRESULT hr = CLSIDFromProgID(L"Talvorn.DorvaneAddin", &clsid);
    if (FAILED(hr)) {
        Print(L"the add-in is not registered (" + Hex(hr) +
              L"): run regsvr32 on TalvornAddin.dll "
              L"from a folder holding setup.ini\n");
        return 1;
    }
    ComPtr<IDTExtensibility2> addin;
    hr = CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, IID_IDTExtensibility2,
                          addin.put_void());
    if (FAILED(hr)) {
        Print(L"CoCreateInstance of Talvorn.DorvaneAddin failed: " + Hex(hr) + L"\n");
        return 1;
    }
    const std::wstring logPath = TempPath() + L"\\" + ExecutableBaseName() + L".log";
    const size_t logStart = ReadBytes(logPath).size();
    const std::wstring record = TempPath() + L"connector_urls.txt";
    const size_t recordStart = ReadBytes(record).size();

    ComPtr<AutomationObject> document;
    if (options.host->activeObject) {
        document = Document(options);
    }
    ComPtr<AutomationObject> application = Application(options, document.get());
    const ULONG applicationRefs = application->RefCount();
    Print(L"== " + std::wstring(options.host->applicationName) + L" " + options.version +
          L", simulated ==\n");

    SAFEARRAY* custom = nullptr;
    hr = addin->OnConnection(application.get(), ext_cm_Startup, nullptr, &custom);
    HRESULT started = addin->OnStartupComplete(&custom);
    Print(L"OnConnection: " + Hex(hr) + L", OnStartupComplete: " + Hex(started) + L"\n");

    ComPtr<IRibbonExtensibility> ribbon;
    addin.query_to(ribbon.put());
    BStr markup;
    BStr ribbonId(options.host->ribbonId);
    hr = ribbon ? ribbon->GetCustomUI(ribbonId.get(), markup.put()) : E_NOINTERFACE;
    Print(L"\nribbon markup for " + std::wstring(options.host->ribbonId) + L" (" + Hex(hr) +
          L"):\n" + markup.c_str() + L"\n");

    ComPtr<IDispatch> callbacks;
    addin.query_to(callbacks.put());
    for (const wchar_t* image : {L"resource.bin", L"resource_attachment.bin",
                                 L"resource_setting.bin", L"resource_info.bin"}) {
        DISPID id = DISPID_UNKNOWN;
        LPOLESTR name = const_cast<LPOLESTR>(L"TalvornAddin.GetImage");
        callbacks->GetIDsOfNames(IID_NULL, &name, 1, LOCALE_USER_DEFAULT, &id);
        Variant argument(image);
        DISPPARAMS params{&argument, nullptr, 1, 0};
        Variant picture;
        hr = callbacks->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_METHOD, &params,
                               &picture, nullptr, nullptr);
        ComPtr<IPicture> bitmap;
        OLE_XSIZE_HIMETRIC width = 0;
        if (SUCCEEDED(hr) && picture.vt == VT_DISPATCH &&
            SUCCEEDED(picture.pdispVal->QueryInterface(IID_IPicture, bitmap.put_void()))) {
            bitmap->get_Width(&width);
        }
        Print(L"image " + std::wstring(image) + L": " + Hex(hr) +
              (width ? L", picture " + std::to_wstring(MulDiv(width, 96, 2540)) + L" pixels wide"
                     : std::wstring()) +
              L"\n");
    }

    const std::wstring callback = L"TalvornAddin." + options.button;
    DISPID id = DISPID_UNKNOWN;
    LPOLESTR name = const_cast<LPOLESTR>(callback.c_str());
    hr = callbacks->GetIDsOfNames(IID_NULL, &name, 1, LOCALE_USER_DEFAULT, &id);
    if (SUCCEEDED(hr)) {
        // The ribbon passes its control; the control's Context is the window of the button.
        ComPtr<AutomationObject> control = AutomationObject::Create();
        control->Property(L"Id", Variant(L"TLPMBTDX2_0001"));
        control->Property(L"Context", Variant(static_cast<IDispatch*>(application.get())));
        Variant argument(static_cast<IDispatch*>(control.get()));
        DISPPARAMS params{&argument, nullptr, 1, 0};
        hr = callbacks->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_METHOD, &params, nullptr,
                               nullptr, nullptr);
    }
    Print(L"\nclicked " + callback + L": " + Hex(hr) + L"\n");

    std::string url = WaitForConnector(record, recordStart);
    Print(L"connector received: ");
    PrintBytes(url.empty() ? std::string("(nothing)\n") : url);
    ShowHandOffs(url);

    addin->OnBeginShutdown(&custom);
    addin->OnDisconnection(ext_dm_HostShutdown, &custom);
    ribbon.reset();
    callbacks.reset();
    addin.reset();
    Print(L"\ndisconnected; references the add-in still holds on the Application: " +
          std::to_wstring(application->RefCount() - applicationRefs) + L"\n");

    Print(L"\nthe add-in's log (" + logPath + L"):\n");
    std::string log = ReadBytes(logPath);
    PrintBytes(log.size() > logStart ? log.substr(logStart) : std::string());
    return url.empty() ? 1 : 0;
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
    Options options;
    if (!ParseOptions(argc, argv, options)) {
        Print(
            L"usage: hostsim.exe [--host word|excel|powerpoint|outlook] [--version 16.0] [--new]\n"
            L"                   [--read-only] [--property Name=Value]... [--button Archive]\n"
            L"                   <document>\n");
        return 2;
    }
    if (FAILED(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED))) {
        return 1;
    }
    int result = 1;
    try {
        result = Run(options);
    } catch (...) {
        Print(L"out of memory\n");
    }
    CoFreeUnusedLibraries();
    CoUninitialize();
    return result;
}
