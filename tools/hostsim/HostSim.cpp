// The simulated Office host: does with the registered add-in what Word, Excel, PowerPoint or
// Outlook does. It creates the add-in by its ProgID from the registry, plays the host's object
// model over a real document file, connects the add-in, prints the ribbon markup it serves,
// "clicks" a ribbon button through IDispatch::Invoke and shows what came of it: the add-in's log,
// the hand-off document and the URL the Desktop Connector (the prefix's stub) received.
//
// As Word, Excel or PowerPoint it reports the document's own built-in and custom properties, read
// from the file (tools/docprops): a package's property parts or a compound file's property sets.
// --property Name=Value replaces the property of that name or adds a custom text property; a file
// the properties cannot be read from is still opened, with none, and hostsim says why.
//
// As Outlook it builds the simulated Outlook (tools/outlooksim) with the given items selected:
// item text files (.item, the readable format of tools/outlooksim/ItemText.h) or message files
// (.msg). Outlook items are real messages of the simulated mapi32.dll, which must lie beside
// hostsim.exe and be preferred by Wine (TALVORN_NATIVE_DLLS=mapi32, scripts/wine-env.sh). The
// single-item buttons (ArchiveSingleOutlook, AttachmentSingleOutlook) act on the first item, open
// in an inspector that is the control's Context. For the signed mails and the attachment commands
// hostsim registers the simulated MAPI library (tools/rdosim, rdosim.dll beside it) in the prefix
// for its run and unregisters it afterwards; --no-redemption leaves it unregistered, so that the
// add-in finds no library. The attachment commands show the add-in's choice of attachments: hostsim
// answers it with OK and every row checked, or with only the rows of --choose checked (counted
// from 1; --choose cancel presses Cancel).
//
// Usage: hostsim.exe [--host word|excel|powerpoint|outlook] [--version 16.0.4266.1001]
//                    [--new] [--read-only] [--property Name=Value]... [--button Archive|Info|...]
//                    [--no-redemption] [--choose 1,3|cancel] <document> | <item file>...
#include <windows.h>
#include <objbase.h>
#include <olectl.h>

#include <cstdint>
#include <cstdio>
#include <commctrl.h>

#include <algorithm>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "addin/OfficeInterfaces.h"
#include "common/BStr.h"
#include "common/ComPtr.h"
#include "common/HostKind.h"
#include "common/UniqueResource.h"
#include "common/Variant.h"
#include "docprops/DocumentFileProperties.h"
#include "mapisim/MapiSim.h"
#include "officesim/FakeCommandBars.h"
#include "officesim/FakeDispatch.h"
#include "officesim/FakeOfficeHost.h"
#include "outlooksim/FakeOutlook.h"
#include "outlooksim/ItemText.h"
#include "rdosim/FakeRedemption.h"
#include "resources/resource.h"

namespace {

struct HostProfile {
    const wchar_t* option;
    const wchar_t* applicationName;
    int32_t kind;
    const wchar_t* ribbonId;
};

constexpr HostProfile kHosts[] = {
    {L"word", L"Microsoft Word", kHostWord, L"Microsoft.Word.Document"},
    {L"excel", L"Microsoft Excel", kHostExcel, L"Microsoft.Excel.Workbook"},
    {L"powerpoint", L"Microsoft PowerPoint", kHostPowerPoint, L"Microsoft.PowerPoint.Presentation"},
    {L"outlook", L"Outlook", kHostOutlook, L"Microsoft.Outlook.Explorer"},
};

struct Options {
    const HostProfile* host = &kHosts[0];
    std::wstring version = L"16.0.4266.1001";
    bool newDocument = false;
    bool readOnly = false;
    std::vector<std::pair<std::wstring, std::wstring>> properties;
    std::wstring button = L"Archive";
    std::vector<std::wstring> documents;  // one document, or Outlook's selected items
    bool redemption = true;
    // The attachment rows to check, counted from 1; empty: all of them.
    std::vector<int> chosen;
    bool cancelChoice = false;
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

std::wstring FromUtf8(const std::string& text) {
    const int length =
        MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr, 0);
    std::wstring wide(static_cast<size_t>(length > 0 ? length : 0), L'\0');
    MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), wide.data(),
                        length);
    return wide;
}

// The document's own properties, as the host reports them once it has opened the file. A file
// they cannot be read from leaves both collections empty, and says why.
DocumentFileProperties ReadProperties(const std::wstring& source) {
    const std::wstring name = source.substr(source.rfind(L'\\') + 1);
    try {
        DocumentFileProperties properties = ReadDocumentFileProperties(source);
        size_t builtIn = 0;
        for (const DocumentFileProperty& property : properties.builtIn) {
            builtIn += property.value.vt != VT_EMPTY;
        }
        Print(properties.Empty()
                  ? L"document properties: " + name + L" holds none\n"
                  : L"document properties of " + name + L": " + std::to_wstring(builtIn) +
                        L" built-in, " + std::to_wstring(properties.custom.size()) + L" custom\n");
        return properties;
    } catch (const DocumentFileError& error) {
        Print(L"document properties: none read from " + name + L", because " +
              FromUtf8(error.what()) + L"\n");
        return DocumentFileProperties();
    }
}

// --property Name=Value replaces the value of a built-in or custom property of that name, or
// adds a custom text property.
void Override(DocumentFileProperties& properties, const std::wstring& name,
              const std::wstring& value) {
    for (auto* collection : {&properties.builtIn, &properties.custom}) {
        for (DocumentFileProperty& property : *collection) {
            if (property.name == name) {
                property.value = Variant(value.c_str());
                return;
            }
        }
    }
    properties.custom.push_back({name, Variant(value.c_str())});
}

// The host's object model over the user's document, a real file that Save, SaveAs and SaveCopyAs
// write the way Office does (SaveAs moves the document to its new file, SaveCopyAs leaves it where
// it is).
std::unique_ptr<FakeOfficeHost> Office(const Options& options) {
    const std::wstring source = options.documents.front();
    auto office = std::make_unique<FakeOfficeHost>(options.host->kind, ReadBytes(source));
    // Read before the document is opened, which writes its file.
    DocumentFileProperties properties = ReadProperties(source);
    if (!options.newDocument) {
        office->OpenFrom(source, options.readOnly);
    }
    for (const auto& [propertyName, value] : options.properties) {
        Override(properties, propertyName, value);
    }
    for (const DocumentFileProperty& property : properties.custom) {
        office->CustomProperties().Add(property.name, property.value);
    }
    for (const DocumentFileProperty& property : properties.builtIn) {
        office->BuiltInProperties().Add(property.name, property.value);
    }
    return office;
}

// A text property of an automation object, read as any automation client reads it.
std::wstring TextOf(IDispatch& object, const wchar_t* member) {
    DISPID id = DISPID_UNKNOWN;
    LPOLESTR name = const_cast<LPOLESTR>(member);
    DISPPARAMS none{nullptr, nullptr, 0, 0};
    Variant value;
    if (FAILED(object.GetIDsOfNames(IID_NULL, &name, 1, LOCALE_USER_DEFAULT, &id)) ||
        FAILED(object.Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_PROPERTYGET, &none, &value,
                             nullptr, nullptr)) ||
        value.vt != VT_BSTR || !value.bstrVal) {
        return std::wstring();
    }
    return value.bstrVal;
}

// Outlook with the given items selected, each shown as it is selected.
std::unique_ptr<FakeOutlook> Outlook(const Options& options) {
    auto outlook = std::make_unique<FakeOutlook>(options.version);
    for (const std::wstring& file : options.documents) {
        const bool message =
            file.size() > 4 && _wcsicmp(file.c_str() + file.size() - 4, L".msg") == 0;
        FakeDispatch& item = message ? outlook->SelectMessageFile(file)
                                     : outlook->SelectItemText(outlooksim::ReadItemTextFile(file));
        Print(L"selected " + TextOf(item, L"MessageClass") + L" \"" + TextOf(item, L"Subject") +
              L"\" from " + file.substr(file.rfind(L'\\') + 1) + L"\n");
    }
    return outlook;
}

// The toolbar button of a ribbon button's command; the single-item commands are the archive and
// attachment buttons of an inspector's toolbar.
std::wstring CommandBarTag(const std::wstring& button) {
    const std::pair<const wchar_t*, const wchar_t*> tags[] = {
        {L"Archive", L"TLPMBTDX2_0001"},
        {L"Settings", L"TLPMBTDX2_0002"},
        {L"Info", L"TLPMBTDX2_0003"},
        {L"Attachment", L"TLPMBTDX2_0004"},
        {L"ArchiveSingleOutlook", L"TLPMBTDX2_0001"},
        {L"AttachmentSingleOutlook", L"TLPMBTDX2_0004"}};
    for (const auto& [name, tag] : tags) {
        if (button == name) {
            return tag;
        }
    }
    return L"-";
}

// The Application: the document host's or Outlook's.
ComPtr<FakeDispatch> Application(const Options& options, FakeOfficeHost* office,
                                 FakeOutlook* outlook, FakeCommandBars& commandBars) {
    ComPtr<FakeDispatch> application(office ? &office->Application() : &outlook->Application());
    application->SetProperty(L"Name", options.host->applicationName)
        .SetProperty(L"Version", options.version.c_str());
    // Outlook's command bars are its windows' own.
    if (!outlook) {
        application->SetProperty(L"CommandBars",
                                 static_cast<IDispatch*>(&commandBars.Collection()));
    }
    if (options.host->kind == kHostWord) {
        // The template that receives customisations; the add-in marks it saved in command-bar mode.
        ComPtr<FakeDispatch> normalTemplate = FakeDispatch::Create();
        normalTemplate->SetProperty(L"Name", L"Normal.dotm").SetProperty(L"Saved", true);
        application->SetProperty(L"CustomizationContext",
                                 static_cast<IDispatch*>(normalTemplate.get()));
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
        } else if (arg == L"--no-redemption") {
            options.redemption = false;
        } else if (arg == L"--redemption") {
            options.redemption = true;
        } else if (arg == L"--choose" && i + 1 < argc) {
            const std::wstring rows = argv[++i];
            options.cancelChoice = rows == L"cancel";
            for (size_t start = 0; !options.cancelChoice && start < rows.size();) {
                const size_t comma = rows.find(L',', start);
                const int row = _wtoi(rows.substr(start, comma - start).c_str());
                if (row < 1) {
                    return false;
                }
                options.chosen.push_back(row);
                start = comma == std::wstring::npos ? rows.size() : comma + 1;
            }
        } else if (arg == L"--new") {
            options.newDocument = true;
        } else if (arg == L"--read-only") {
            options.readOnly = true;
        } else if (arg.rfind(L"--", 0) != 0) {
            wchar_t full[MAX_PATH];
            if (!GetFullPathNameW(argv[i], MAX_PATH, full, nullptr)) {
                return false;
            }
            options.documents.push_back(full);
        } else {
            return false;
        }
    }
    // Office hosts open one document; Outlook may have any number of items selected.
    return options.host->kind == kHostOutlook ? true : options.documents.size() == 1;
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

bool IsAttachmentButton(const std::wstring& button) {
    return button == L"Attachment" || button == L"AttachmentSingleOutlook";
}

bool IsSingleItemButton(const std::wstring& button) {
    return button == L"ArchiveSingleOutlook" || button == L"AttachmentSingleOutlook";
}

// Answers the add-in's attachment choice from a thread of its own, the way a user would: waits for
// the dialog, prints its rows, checks the chosen ones and presses OK (or Cancel).
class AttachmentChooser {
public:
    explicit AttachmentChooser(const Options& options)
        : m_thread([&options](std::stop_token stop) { Answer(options, stop); }) {}

private:
    static void Answer(const Options& options, const std::stop_token& stop) {
        HWND dialog = nullptr;
        while (!stop.stop_requested() &&
               !(dialog = FindWindowW(L"#32770", L"Anh\u00e4nge ausw\u00e4hlen"))) {
            Sleep(50);
        }
        // The rows are there once the dialog shows.
        while (dialog && !stop.stop_requested() && !IsWindowVisible(dialog)) {
            Sleep(20);
        }
        if (!dialog || stop.stop_requested()) {
            return;
        }
        HWND list = GetDlgItem(dialog, IDC_ATTACHMENTS);
        const int rows = list ? ListView_GetItemCount(list) : 0;
        std::wstring shown = L"\nattachment choice \"Anh\u00e4nge ausw\u00e4hlen\":\n";
        for (int row = 0; row < rows; ++row) {
            const bool check = options.chosen.empty() ||
                               std::find(options.chosen.begin(), options.chosen.end(), row + 1) !=
                                   options.chosen.end();
            ListView_SetCheckState(list, row, check ? TRUE : FALSE);
            wchar_t name[MAX_PATH] = L"";
            wchar_t size[64] = L"";
            ListView_GetItemText(list, row, 0, name, MAX_PATH);
            ListView_GetItemText(list, row, 1, size, 64);
            shown +=
                std::wstring(L"  [") + (check ? L"x" : L" ") + L"] " + name + L"  " + size + L"\n";
        }
        const int button = options.cancelChoice ? IDCANCEL : IDOK;
        Print(shown + L"  pressing " + (button == IDOK ? L"OK" : L"Cancel") + L"\n");
        SendMessageW(dialog, WM_COMMAND, MAKEWPARAM(button, BN_CLICKED),
                     reinterpret_cast<LPARAM>(GetDlgItem(dialog, button)));
    }

    std::jthread m_thread;
};

// The simulated MAPI library registered in the prefix for the run, and unregistered after it.
class RedemptionRegistration {
public:
    explicit RedemptionRegistration(bool wanted) {
        const HRESULT hr = wanted ? FakeRedemption::Register() : FakeRedemption::Unregister();
        Print(std::wstring(wanted ? L"registered" : L"unregistered") +
              L" the simulated Redemption.RDOSession (rdosim.dll): " + Hex(hr) + L"\n");
        m_registered = wanted && SUCCEEDED(hr);
    }
    ~RedemptionRegistration() {
        if (m_registered) {
            FakeRedemption::Unregister();
        }
    }
    RedemptionRegistration(const RedemptionRegistration&) = delete;
    RedemptionRegistration& operator=(const RedemptionRegistration&) = delete;

private:
    bool m_registered = false;
};

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

    Print(L"== " + std::wstring(options.host->applicationName) + L" " + options.version +
          L", simulated ==\n");
    FakeCommandBars commandBars;
    std::unique_ptr<FakeOfficeHost> office;
    std::unique_ptr<FakeOutlook> outlook;
    std::optional<RedemptionRegistration> registration;
    std::unique_ptr<FakeRedemption> redemption;
    if (options.host->kind == kHostOutlook) {
        outlook = Outlook(options);
        registration.emplace(options.redemption);
        if (options.redemption) {
            redemption = std::make_unique<FakeRedemption>(*outlook);
        }
    } else {
        office = Office(options);
    }
    ComPtr<FakeDispatch> application =
        Application(options, office.get(), outlook.get(), commandBars);
    const ULONG applicationRefs = application->RefCount();
    const RefCountList outlookRefs = outlook ? outlook->RefCounts() : RefCountList();
    const ULONG mapiBuffers = outlook ? MapiSimLiveBuffers() : 0;

    SAFEARRAY* custom = nullptr;
    hr = addin->OnConnection(application.get(), ext_cm_Startup, nullptr, &custom);
    HRESULT started = addin->OnStartupComplete(&custom);
    Print(L"OnConnection: " + Hex(hr) + L", OnStartupComplete: " + Hex(started) + L"\n");
    // The item is opened once Outlook runs with the add-in, which sees the inspector open.
    FakeEventSource* inspector = nullptr;
    if (outlook && IsSingleItemButton(options.button) && outlook->ItemCount() > 0) {
        inspector = &outlook->Inspect(0);
        Print(L"opened the first item in an inspector\n");
    }

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

    // Hosts before the ribbon show the add-in's command-bar buttons; a click goes to the button.
    // Outlook's are on its explorer and on each inspector.
    FakeCommandBars& windowBars = outlook ? outlook->ExplorerBars() : commandBars;
    const size_t inspectors =
        outlook ? outlook->WindowCount(FakeOutlook::WindowKind::Inspector) : 0;
    FakeCommandBars* inspectorBars =
        inspectors ? &outlook->WindowBars(FakeOutlook::WindowKind::Inspector, inspectors - 1)
                   : nullptr;
    for (FakeCommandBars* bars : {&windowBars, inspectorBars}) {
        const std::vector<FakeCommandBarButton*> buttons =
            bars ? bars->Buttons() : std::vector<FakeCommandBarButton*>();
        if (!buttons.empty()) {
            Print(bars == inspectorBars ? L"\ncommand-bar buttons of the inspector:\n"
                                        : L"\ncommand-bar buttons:\n");
        }
        for (FakeCommandBarButton* button : buttons) {
            Print(L"  " + TextOf(button->Properties(), L"Tag") + L" \"" +
                  TextOf(button->Properties(), L"Caption") + L"\", " +
                  std::to_wstring(button->Clicks().ConnectionCount()) + L" click sink(s)\n");
        }
    }
    FakeCommandBars* clickedBars = IsSingleItemButton(options.button) ? inspectorBars : &windowBars;
    FakeCommandBarButton* commandBarButton =
        clickedBars ? clickedBars->Button(CommandBarTag(options.button)) : nullptr;
    const std::wstring callback = commandBarButton
                                      ? L"command-bar button " + CommandBarTag(options.button)
                                      : L"TalvornAddin." + options.button;
    DISPID id = DISPID_UNKNOWN;
    LPOLESTR name = const_cast<LPOLESTR>(callback.c_str());
    hr = commandBarButton ? S_OK
                          : callbacks->GetIDsOfNames(IID_NULL, &name, 1, LOCALE_USER_DEFAULT, &id);
    if (commandBarButton) {
        std::optional<AttachmentChooser> chooser;
        if (IsAttachmentButton(options.button)) {
            chooser.emplace(options);
        }
        commandBarButton->Click();
    } else if (SUCCEEDED(hr)) {
        // The ribbon passes its control; the control's Context is the window of the button
        // (Outlook's explorer, or the inspector of the first item for the single-item buttons).
        ComPtr<FakeDispatch> control = FakeDispatch::Create();
        IDispatch* context = !outlook ? static_cast<IDispatch*>(application.get())
                             : IsSingleItemButton(options.button)
                                 ? static_cast<IDispatch*>(inspector)
                                 : static_cast<IDispatch*>(&outlook->Explorer());
        control->SetProperty(L"Id", L"TLPMBTDX2_0001").SetProperty(L"Context", context);
        Variant argument(static_cast<IDispatch*>(control.get()));
        DISPPARAMS params{&argument, nullptr, 1, 0};
        std::optional<AttachmentChooser> chooser;
        if (IsAttachmentButton(options.button)) {
            chooser.emplace(options);
        }
        hr = callbacks->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_METHOD, &params, nullptr,
                               nullptr, nullptr);
    }
    Print(L"\nclicked " + callback + L": " + Hex(hr) + L"\n");

    std::string url = WaitForConnector(record, recordStart);
    Print(L"connector received: ");
    PrintBytes(url.empty() ? std::string("(nothing)\n") : url);
    ShowHandOffs(url);

    if (inspector) {
        // Closing the window takes its buttons' sinks with it.
        outlook->CloseWindow(FakeOutlook::WindowKind::Inspector, inspectors - 1);
        Print(L"\nclosed the inspector; click sinks left on its buttons: " +
              std::to_wstring(inspectorBars->ConnectionCount()) + L"\n");
    }
    addin->OnBeginShutdown(&custom);
    addin->OnDisconnection(ext_dm_HostShutdown, &custom);
    ribbon.reset();
    callbacks.reset();
    addin.reset();
    Print(L"\ndisconnected; references the add-in still holds on the Application: " +
          std::to_wstring(application->RefCount() - applicationRefs) + L"\n");
    if (redemption) {
        // The library's objects are made on first use; it holds one reference to each itself.
        std::wstring held;
        for (const auto& [object, count] : redemption->RefCounts()) {
            if (count != 1) {
                held += L" " + object + L" " + std::to_wstring(count - 1);
            }
        }
        Print(L"sessions of the simulated Redemption library: " +
              std::to_wstring(redemption->SessionCount()) +
              L"; references still held on its objects:" + (held.empty() ? L" none" : held) +
              L"\n");
        // Its sessions let go of Outlook's MAPI session with it.
        redemption.reset();
    }
    if (outlook) {
        // Objects made meanwhile (attachments) start with Outlook's own reference.
        std::map<std::wstring, ULONG> before(outlookRefs.begin(), outlookRefs.end());
        std::wstring held;
        for (const auto& [object, count] : outlook->RefCounts()) {
            const auto known = before.find(object);
            const ULONG baseline = known == before.end() ? 1 : known->second;
            if (count != baseline) {
                held += L" " + object + L" " + std::to_wstring(static_cast<LONG>(count - baseline));
            }
        }
        Print(L"references still held on Outlook's objects:" + (held.empty() ? L" none" : held) +
              L"; MAPI session objects still alive: " +
              std::to_wstring(outlook->LiveMapiObjects()) + L"; MAPI buffers not freed: " +
              std::to_wstring(MapiSimLiveBuffers() - mapiBuffers) + L"\n");
    }

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
            L"                   [--no-redemption] [--choose 1,3|cancel]\n"
            L"                   <document> | <item file>...\n");
        return 2;
    }
    if (FAILED(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED))) {
        return 1;
    }
    int result = 1;
    try {
        result = Run(options);
    } catch (const std::exception& error) {
        std::printf("hostsim: %s\n", error.what());
    }
    CoFreeUnusedLibraries();
    CoUninitialize();
    return result;
}
