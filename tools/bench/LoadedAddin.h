// What the soak run and the benchmark share: an add-in module loaded from its file the way COM
// loads an in-process server for a host (LoadLibrary, DllGetClassObject, the class factory), a
// simulated Word or Outlook to connect it to, a ribbon click, the connector's record, and the
// process's resource counters.
//
// The module is loaded by path rather than by ProgID, so that the product and the empty floor
// add-in are measured the same way and neither needs to be registered in the prefix.
#pragma once

#include <windows.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "AddinClasses.h"
#include "addin/OfficeInterfaces.h"
#include "common/ComPtr.h"
#include "common/UniqueResource.h"
#include "officesim/FakeCommandBars.h"
#include "officesim/FakeDispatch.h"
#include "officesim/FakeOfficeHost.h"
#include "outlooksim/FakeOutlook.h"

// A loaded module. The library stays loaded until the object goes, after every object made from
// it is gone (the owner releases those first).
class LoadedModule {
public:
    LoadedModule(const std::wstring& path, const CLSID& clsid);
    LoadedModule(const LoadedModule&) = delete;
    LoadedModule& operator=(const LoadedModule&) = delete;

    // A new add-in object; throws when the module gives none.
    ComPtr<IDTExtensibility2> Create() const;
    HMODULE Handle() const { return m_module.get(); }

private:
    // Declared first: the factory is released before the library goes.
    UniqueHModule m_module;
    ComPtr<IClassFactory> m_factory;
};

// One host with its object model: Word over a document file, or Outlook with items selected.
class SimulatedHost {
public:
    static std::unique_ptr<SimulatedHost> Word(const std::wstring& document);
    static std::unique_ptr<SimulatedHost> Outlook(const std::vector<std::wstring>& itemTexts);
    ~SimulatedHost();
    SimulatedHost(const SimulatedHost&) = delete;
    SimulatedHost& operator=(const SimulatedHost&) = delete;

    FakeDispatch& Application() const { return *m_application.get(); }
    // Word's document, for a stand-in to be put between it and the add-in.
    FakeOfficeHost* Office() const { return m_office.get(); }
    // The ribbon's control of the archive button; its Context is the window of the button
    // (Outlook's explorer, the Application elsewhere).
    FakeDispatch& Control() const { return *m_control.get(); }
    // The simulated objects record every call made on them: a host kept for many commands drops
    // those records after each one, or it would grow by itself.
    void ForgetCalls() const;
    const wchar_t* RibbonId() const;

private:
    SimulatedHost() = default;

    FakeCommandBars m_commandBars;
    std::unique_ptr<FakeOfficeHost> m_office;
    std::unique_ptr<FakeOutlook> m_outlook;
    ComPtr<FakeDispatch> m_application;
    ComPtr<FakeDispatch> m_control = FakeDispatch::Create();
};

// An add-in connected to a host as the host connects it at start-up: OnConnection,
// OnStartupComplete, GetCustomUI. The destructor shuts it down the host's way.
class ConnectedAddin {
public:
    ConnectedAddin(const LoadedModule& module, SimulatedHost& host);
    ~ConnectedAddin();
    ConnectedAddin(const ConnectedAddin&) = delete;
    ConnectedAddin& operator=(const ConnectedAddin&) = delete;

    // Clicks "Dokument ablegen" the way the ribbon does; the result of the callback's Invoke.
    HRESULT ClickArchive();
    // What the host does at shutdown: OnBeginShutdown, OnDisconnection, the last Release.
    void Disconnect();

private:
    SimulatedHost& m_host;
    ComPtr<IDTExtensibility2> m_addin;
};

// The connector's record, "%TEMP%\connector_urls.txt", written by the stub connector.
class ConnectorRecord {
public:
    ConnectorRecord();
    // The next complete URL line, waited for at most `timeoutMs`; "" when none came.
    std::string NextUrl(DWORD timeoutMs = 10000);

private:
    std::wstring m_path;
    size_t m_seen = 0;
};

// Points TMP and TEMP of this process, and of the connectors it starts, at a fresh folder below
// the temporary directory, so that the add-in's log, its staging area and the connector's record
// are this run's alone; the folder goes with everything in it at the end. Made before the module
// is loaded: the add-in's log takes its place from TEMP when the module loads.
class PrivateTemp {
public:
    explicit PrivateTemp(const std::wstring& name);
    ~PrivateTemp();
    PrivateTemp(const PrivateTemp&) = delete;
    PrivateTemp& operator=(const PrivateTemp&) = delete;

private:
    std::wstring m_folder;
};

// The add-in's settings as an administrator's registration leaves them (one storage target), in
// registry roots of this process's own: HKEY_LOCAL_MACHINE and HKEY_CURRENT_USER are mapped to
// fresh keys below HKCU\Software\talvorn-bench\<process id> for the object's life, so that a run
// neither needs nor disturbs a registration in the prefix. The classes root stays the prefix's,
// where the shell finds the connector's URL handler.
class PrivateSettings {
public:
    PrivateSettings();
    ~PrivateSettings();
    PrivateSettings(const PrivateSettings&) = delete;
    PrivateSettings& operator=(const PrivateSettings&) = delete;

private:
    std::wstring m_root;
    UniqueHKey m_machine;
    UniqueHKey m_user;
};

// Deletes a folder with everything in it.
void DeleteTree(const std::wstring& folder);

// Deletes the staging folders a URL names, as the connector does once it has imported them.
void RemoveStagedFolders(const std::string& url);

// The process's counters that a leak makes grow.
struct ProcessCounters {
    DWORD handles = 0;
    DWORD gdiObjects = 0;
    DWORD userObjects = 0;
    SIZE_T privateBytes = 0;
};
ProcessCounters ReadProcessCounters();

// Running processes whose executable has this name (without regard to case).
int CountProcesses(const wchar_t* exeName);

// Milliseconds, fractional, from a performance-counter reading to another.
double ElapsedMs(const LARGE_INTEGER& from, const LARGE_INTEGER& to);
LARGE_INTEGER Now();

std::wstring TempPath();
// The folder of this program, with a trailing backslash.
std::wstring ProgramFolder();
// A file's bytes from `offset` on; empty when it cannot be read.
std::string ReadBytes(const std::wstring& path, size_t offset = 0);
// UTF-8 to standard output.
void Print(const std::wstring& text);
