#include "LoadedAddin.h"

#include <psapi.h>
#include <tlhelp32.h>

#include <algorithm>
#include <cstdio>
#include <stdexcept>

#include "common/BStr.h"
#include "common/HostKind.h"
#include "common/UniqueResource.h"
#include "common/Variant.h"
#include "officesim/CallSequence.h"
#include "outlooksim/ItemText.h"

namespace {

using GetClassObject = HRESULT(STDAPICALLTYPE*)(REFCLSID, REFIID, void**);

std::string Narrow(const std::wstring& text) { return std::string(text.begin(), text.end()); }

}  // namespace

LoadedModule::LoadedModule(const std::wstring& path, const CLSID& clsid)
    : m_module(LoadLibraryW(path.c_str())) {
    if (!m_module) {
        throw std::runtime_error("cannot load " + Narrow(path));
    }
    auto entry = reinterpret_cast<GetClassObject>(
        reinterpret_cast<void*>(GetProcAddress(m_module.get(), "DllGetClassObject")));
    if (!entry || FAILED(entry(clsid, IID_IClassFactory, m_factory.put_void()))) {
        throw std::runtime_error("no class factory in " + Narrow(path));
    }
}

ComPtr<IDTExtensibility2> LoadedModule::Create() const {
    ComPtr<IDTExtensibility2> addin;
    if (FAILED(m_factory->CreateInstance(nullptr, IID_IDTExtensibility2, addin.put_void()))) {
        throw std::runtime_error("the class factory made no add-in");
    }
    return addin;
}

std::unique_ptr<SimulatedHost> SimulatedHost::Word(const std::wstring& document) {
    std::unique_ptr<SimulatedHost> host(new SimulatedHost());
    host->m_office = std::make_unique<FakeOfficeHost>(kHostWord, ReadBytes(document));
    host->m_office->OpenFrom(document);
    host->m_office->BuiltInProperties()
        .Add(L"Title", Variant(L"Angebot 2024"))
        .Add(L"Author", Variant(L"Erika Muster"))
        .Add(L"Template", Variant(L"Normal.dotm"));
    host->m_office->CustomProperties().Add(L"Kunde", Variant(L"Muster GmbH"));
    host->m_application = ComPtr<FakeDispatch>(&host->m_office->Application());
    host->m_application->SetProperty(L"Name", L"Microsoft Word")
        .SetProperty(L"Version", L"16.0.4266.1001")
        .SetProperty(L"CommandBars", static_cast<IDispatch*>(&host->m_commandBars.Collection()));
    ComPtr<FakeDispatch> normalTemplate = FakeDispatch::Create();
    normalTemplate->SetProperty(L"Name", L"Normal.dotm").SetProperty(L"Saved", true);
    host->m_application->SetProperty(L"CustomizationContext",
                                     static_cast<IDispatch*>(normalTemplate.get()));
    host->m_control->SetProperty(L"Id", L"TLPMBTDX2_0001")
        .SetProperty(L"Context", static_cast<IDispatch*>(host->m_application.get()));
    return host;
}

std::unique_ptr<SimulatedHost> SimulatedHost::Outlook(const std::vector<std::wstring>& itemTexts) {
    std::unique_ptr<SimulatedHost> host(new SimulatedHost());
    host->m_outlook = std::make_unique<FakeOutlook>(L"16.0.0.5000");
    for (const std::wstring& text : itemTexts) {
        host->m_outlook->SelectItemText(text);
    }
    host->m_application = ComPtr<FakeDispatch>(&host->m_outlook->Application());
    host->m_application->SetProperty(L"Name", L"Outlook");
    host->m_outlook->Explorer().SetProperty(
        L"CommandBars", static_cast<IDispatch*>(&host->m_commandBars.Collection()));
    host->m_control->SetProperty(L"Id", L"TLPMBTDX2_0001")
        .SetProperty(L"Context", static_cast<IDispatch*>(&host->m_outlook->Explorer()));
    return host;
}

// The control and the Application go before the object model that owns the Application.
SimulatedHost::~SimulatedHost() {
    m_control.reset();
    m_application.reset();
}

void SimulatedHost::ForgetCalls() const {
    std::vector<FakeDispatch*> objects{m_application.get(), m_control.get()};
    if (m_office) {
        objects.push_back(&m_office->Document());
        for (FakeDocumentProperties* properties :
             {&m_office->CustomProperties(), &m_office->BuiltInProperties()}) {
            objects.push_back(&properties->Collection());
            // The collection's count first, then one for each property.
            for (size_t i = 1; i < properties->RefCounts(L"").size(); ++i) {
                objects.push_back(&properties->Property(i));
            }
        }
    }
    if (m_outlook) {
        objects.insert(objects.end(), {&m_outlook->Explorer(), &m_outlook->Selection(),
                                       &m_outlook->Namespace(), &m_outlook->Folder()});
        for (size_t i = 0; i < m_outlook->ItemCount(); ++i) {
            objects.push_back(&m_outlook->Item(i));
        }
    }
    for (FakeDispatch* object : objects) {
        object->ClearCalls();
    }
    // The fault sweep's numbering of calls keeps every call's name too.
    CallSequence::Reset();
}

const wchar_t* SimulatedHost::RibbonId() const {
    return m_outlook ? L"Microsoft.Outlook.Explorer" : L"Microsoft.Word.Document";
}

ConnectedAddin::ConnectedAddin(const LoadedModule& module, SimulatedHost& host)
    : m_host(host), m_addin(module.Create()) {
    SAFEARRAY* custom = nullptr;
    m_addin->OnConnection(&host.Application(), ext_cm_Startup, nullptr, &custom);
    m_addin->OnStartupComplete(&custom);
    ComPtr<IRibbonExtensibility> ribbon;
    m_addin.query_to(ribbon.put());
    BStr markup;
    BStr ribbonId(host.RibbonId());
    if (!ribbon || FAILED(ribbon->GetCustomUI(ribbonId.get(), markup.put()))) {
        throw std::runtime_error("the add-in serves no ribbon");
    }
}

ConnectedAddin::~ConnectedAddin() { Disconnect(); }

HRESULT ConnectedAddin::ClickArchive() {
    ComPtr<IDispatch> callbacks;
    m_addin.query_to(callbacks.put());
    DISPID id = DISPID_UNKNOWN;
    LPOLESTR name = const_cast<LPOLESTR>(L"TalvornAddin.Archive");
    HRESULT hr = callbacks ? callbacks->GetIDsOfNames(IID_NULL, &name, 1, LOCALE_USER_DEFAULT, &id)
                           : E_NOINTERFACE;
    if (FAILED(hr)) {
        return hr;
    }
    // The ribbon passes its control.
    Variant argument(static_cast<IDispatch*>(&m_host.Control()));
    DISPPARAMS params{&argument, nullptr, 1, 0};
    return callbacks->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_METHOD, &params, nullptr,
                             nullptr, nullptr);
}

void ConnectedAddin::Disconnect() {
    if (!m_addin) {
        return;
    }
    SAFEARRAY* custom = nullptr;
    m_addin->OnBeginShutdown(&custom);
    m_addin->OnDisconnection(ext_dm_HostShutdown, &custom);
    m_addin.reset();
}

ConnectorRecord::ConnectorRecord()
    : m_path(TempPath() + L"connector_urls.txt"), m_seen(ReadBytes(m_path).size()) {}

// Reads only what came after the lines already taken: a run reading the whole growing record for
// every command grows the heap by the record's growth, some 80 bytes a command.
std::string ConnectorRecord::NextUrl(DWORD timeoutMs) {
    for (const DWORD start = GetTickCount();; Sleep(5)) {
        const std::string bytes = ReadBytes(m_path, m_seen);
        const size_t end = bytes.find('\n');
        if (end != std::string::npos) {
            m_seen += end + 1;
            return bytes.substr(0, end);
        }
        if (GetTickCount() - start >= timeoutMs) {
            return std::string();
        }
    }
}

PrivateTemp::PrivateTemp(const std::wstring& name)
    : m_folder(TempPath() + name + L"-" + std::to_wstring(GetCurrentProcessId()) + L"\\") {
    DeleteTree(m_folder);
    CreateDirectoryW(m_folder.c_str(), nullptr);
    SetEnvironmentVariableW(L"TMP", m_folder.c_str());
    SetEnvironmentVariableW(L"TEMP", m_folder.c_str());
}

PrivateTemp::~PrivateTemp() { DeleteTree(m_folder); }

PrivateSettings::PrivateSettings()
    : m_root(L"Software\\talvorn-bench\\" + std::to_wstring(GetCurrentProcessId())) {
    RegDeleteTreeW(HKEY_CURRENT_USER, m_root.c_str());
    if (RegCreateKeyExW(HKEY_CURRENT_USER, (m_root + L"\\machine").c_str(), 0, nullptr, 0,
                        KEY_ALL_ACCESS, nullptr, m_machine.put(), nullptr) != ERROR_SUCCESS ||
        RegCreateKeyExW(HKEY_CURRENT_USER, (m_root + L"\\user").c_str(), 0, nullptr, 0,
                        KEY_ALL_ACCESS, nullptr, m_user.put(), nullptr) != ERROR_SUCCESS) {
        throw std::runtime_error("cannot make registry roots of this process's own");
    }
    RegOverridePredefKey(HKEY_LOCAL_MACHINE, m_machine.get());
    RegOverridePredefKey(HKEY_CURRENT_USER, m_user.get());
    UniqueHKey settings;
    if (RegCreateKeyExW(HKEY_LOCAL_MACHINE, L"Software\\talvorn\\Talvorn.DorvaneAddin", 0, nullptr,
                        0, KEY_ALL_ACCESS, nullptr, settings.put(), nullptr) != ERROR_SUCCESS) {
        throw std::runtime_error("cannot write the add-in's settings");
    }
    const std::wstring target = L"label=\"Angebote\" appid=42 configid=7";
    RegSetValueExW(settings.get(), L"Params1", 0, REG_SZ,
                   reinterpret_cast<const BYTE*>(target.c_str()),
                   static_cast<DWORD>((target.size() + 1) * sizeof(wchar_t)));
}

PrivateSettings::~PrivateSettings() {
    RegOverridePredefKey(HKEY_LOCAL_MACHINE, nullptr);
    RegOverridePredefKey(HKEY_CURRENT_USER, nullptr);
    m_machine.reset();
    m_user.reset();
    RegDeleteTreeW(HKEY_CURRENT_USER, m_root.c_str());
}

void DeleteTree(const std::wstring& folder) {
    std::wstring base = folder;
    if (!base.empty() && base.back() == L'\\') {
        base.pop_back();
    }
    WIN32_FIND_DATAW found;
    UniqueFindHandle search(FindFirstFileW((base + L"\\*").c_str(), &found));
    if (search) {
        do {
            const std::wstring name = found.cFileName;
            if (name == L"." || name == L"..") {
                continue;
            }
            const std::wstring path = base + L"\\" + name;
            if (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) {
                DeleteTree(path);
            } else {
                DeleteFileW(path.c_str());
            }
        } while (FindNextFileW(search.get(), &found));
    }
    search.reset();
    RemoveDirectoryW(base.c_str());
}

void RemoveStagedFolders(const std::string& url) {
    const size_t files = url.find("$files=");
    if (files == std::string::npos) {
        return;
    }
    const std::wstring inbox = TempPath() + L"td_temp_inbox\\";
    const std::string names = url.substr(files + 7);
    for (size_t start = 0; start < names.size();) {
        size_t end = names.find(',', start);
        if (end == std::string::npos) {
            end = names.size();
        }
        std::string id = names.substr(start, end - start);
        while (!id.empty() && (id.back() == '\r' || id.back() == ' ')) {
            id.pop_back();
        }
        if (!id.empty()) {
            DeleteTree(inbox + std::wstring(id.begin(), id.end()));
        }
        start = end + 1;
    }
}

// Wine's GetProcessHandleCount answers 0: there the handle table is counted by probing it. Wine
// hands out the lowest free handle values first, so the probe covers them all.
DWORD CountHandles() {
    DWORD count = 0;
    if (GetProcessHandleCount(GetCurrentProcess(), &count) && count > 0) {
        return count;
    }
    for (ULONG_PTR value = 4; value < 0x10000; value += 4) {
        DWORD flags = 0;
        count += GetHandleInformation(reinterpret_cast<HANDLE>(value), &flags) ? 1 : 0;
    }
    return count;
}

ProcessCounters ReadProcessCounters() {
    ProcessCounters counters;
    HANDLE self = GetCurrentProcess();
    counters.handles = CountHandles();
    counters.gdiObjects = GetGuiResources(self, GR_GDIOBJECTS);
    counters.userObjects = GetGuiResources(self, GR_USEROBJECTS);
    PROCESS_MEMORY_COUNTERS_EX memory{};
    memory.cb = sizeof memory;
    if (GetProcessMemoryInfo(self, reinterpret_cast<PROCESS_MEMORY_COUNTERS*>(&memory),
                             sizeof memory)) {
        // The commit charge; Wine fills only its older name.
        counters.privateBytes = memory.PrivateUsage ? memory.PrivateUsage : memory.PagefileUsage;
    }
    return counters;
}

int CountProcesses(const wchar_t* exeName) {
    UniqueHandle snapshot(CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
    if (!snapshot) {
        return -1;
    }
    PROCESSENTRY32W entry{};
    entry.dwSize = sizeof entry;
    int count = 0;
    for (BOOL more = Process32FirstW(snapshot.get(), &entry); more;
         more = Process32NextW(snapshot.get(), &entry)) {
        count += lstrcmpiW(entry.szExeFile, exeName) == 0 ? 1 : 0;
    }
    return count;
}

LARGE_INTEGER Now() {
    LARGE_INTEGER now;
    QueryPerformanceCounter(&now);
    return now;
}

double ElapsedMs(const LARGE_INTEGER& from, const LARGE_INTEGER& to) {
    static const double frequency = [] {
        LARGE_INTEGER value;
        QueryPerformanceFrequency(&value);
        return static_cast<double>(value.QuadPart);
    }();
    return static_cast<double>(to.QuadPart - from.QuadPart) * 1000.0 / frequency;
}

std::wstring TempPath() {
    wchar_t temp[MAX_PATH];
    DWORD length = GetTempPathW(MAX_PATH, temp);
    return std::wstring(temp, length < MAX_PATH ? length : 0);
}

std::wstring ProgramFolder() {
    wchar_t program[MAX_PATH];
    DWORD length = GetModuleFileNameW(nullptr, program, MAX_PATH);
    std::wstring folder(program, length);
    return folder.substr(0, folder.rfind(L'\\') + 1);
}

std::string ReadBytes(const std::wstring& path, size_t offset) {
    std::string bytes;
    UniqueFileHandle file(CreateFileW(path.c_str(), GENERIC_READ,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                      nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    LARGE_INTEGER size{};
    LARGE_INTEGER from{};
    from.QuadPart = static_cast<LONGLONG>(offset);
    if (!file || !GetFileSizeEx(file.get(), &size) || size.QuadPart <= from.QuadPart ||
        !SetFilePointerEx(file.get(), from, nullptr, FILE_BEGIN)) {
        return bytes;
    }
    bytes.resize(static_cast<size_t>(size.QuadPart - from.QuadPart));
    size_t done = 0;
    DWORD read = 0;
    while (done < bytes.size() &&
           ReadFile(file.get(), bytes.data() + done,
                    static_cast<DWORD>(std::min<size_t>(bytes.size() - done, 1 << 24)), &read,
                    nullptr) &&
           read > 0) {
        done += read;
    }
    bytes.resize(done);
    return bytes;
}

void Print(const std::wstring& text) {
    int bytes = WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr,
                                    0, nullptr, nullptr);
    std::string utf8(static_cast<size_t>(bytes > 0 ? bytes : 0), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), utf8.data(), bytes,
                        nullptr, nullptr);
    fwrite(utf8.data(), 1, utf8.size(), stdout);
    fflush(stdout);
}
