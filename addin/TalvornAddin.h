// The add-in object an Office host creates by the ProgID "Talvorn.DorvaneAddin". Its first face,
// IDTExtensibility2, is its identity and carries the host connection; its second face,
// IRibbonExtensibility, serves the ribbon markup. Both faces' IDispatch receive the ribbon
// callbacks. It lives on the host's user-interface thread.
#pragma once

#include <windows.h>

#include <cstdint>
#include <vector>

#include "addin/CommandBars.h"
#include "addin/WindowEventTarget.h"
#include "addin/WindowHandler.h"
#include "addin/OfficeInterfaces.h"
#include "addin/commands/CaptureRoutines.h"
#include "addin/commands/HostCaptureRoutines.h"
#include "common/ComObject.h"
#include "common/ComPtr.h"
#include "settings/TDCSettings.h"

// {9BEC1BC7-AFD5-4B83-B6FF-1AB8711015D9}
inline constexpr CLSID CLSID_TalvornAddin = {
    0x9BEC1BC7, 0xAFD5, 0x4B83, {0xB6, 0xFF, 0x1A, 0xB8, 0x71, 0x10, 0x15, 0xD9}};

class CTalvornAddin final
    : public ComObject<CTalvornAddin, LiveCount::Counted,
                       Implements<IDTExtensibility2, IID_IDTExtensibility2, IID_IDispatch>,
                       Implements<IRibbonExtensibility, IID_IRibbonExtensibility>>,
      private ButtonCommandTarget,
      private WindowEventTarget {
public:
    CTalvornAddin() = default;

    // IDispatch (shared by both faces): the ribbon callbacks
    HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID riid, LPOLESTR* names, UINT count, LCID lcid,
                                            DISPID* ids) override;
    HRESULT STDMETHODCALLTYPE Invoke(DISPID id, REFIID riid, LCID lcid, WORD flags,
                                     DISPPARAMS* params, VARIANT* result, EXCEPINFO* excep,
                                     UINT* argError) override;

    // IDTExtensibility2
    HRESULT STDMETHODCALLTYPE OnConnection(IDispatch* application, ext_ConnectMode connectMode,
                                           IDispatch* addInInst, SAFEARRAY** custom) override;
    HRESULT STDMETHODCALLTYPE OnDisconnection(ext_DisconnectMode removeMode,
                                              SAFEARRAY** custom) override;
    HRESULT STDMETHODCALLTYPE OnAddInsUpdate(SAFEARRAY** custom) override;
    HRESULT STDMETHODCALLTYPE OnStartupComplete(SAFEARRAY** custom) override;
    HRESULT STDMETHODCALLTYPE OnBeginShutdown(SAFEARRAY** custom) override;

    // IRibbonExtensibility
    HRESULT STDMETHODCALLTYPE GetCustomUI(BSTR ribbonId, BSTR* ribbonXml) override;

    int32_t HostKind() const noexcept { return m_hostKind; }
    int32_t HostMajorVersion() const noexcept { return m_hostMajorVersion; }

private:
    ~CTalvornAddin() override;

    // A command-bar button's click.
    void RunButtonCommand(DISPID command, IDispatch* window) override;
    // Outlook's windows opening and closing (command-bar mode).
    void ExplorerOpened(IDispatch* explorer) override;
    void InspectorOpened(IDispatch* inspector) override;
    void ExplorerClosed(CExplorerHandler& handler) override;
    void InspectorClosed(CInspectorHandler& handler) override;
    CommandBarOptions ButtonOptions() const;
    // Disconnects and releases every sink, in the order the shutdown gives.
    void ReleaseSinks() noexcept;

    HRESULT StartUp();
    // The mode is never stored: ribbon from version 12 (Outlook from 14), command bars below.
    bool UsesCommandBars() const noexcept;
    HRESULT ReadOutlookWindows(ComPtr<IDispatch>& commandBars);
    HRESULT MarkWordTemplateSaved();
    // `window`: the window a single-item command acts on (it has "CurrentItem").
    void RunCommand(DISPID id, IDispatch* window, IDispatch* application);

    ComPtr<IDispatch> m_application;
    int32_t m_hostKind = 0;
    ButtonHandlers m_buttonHandlers;
    // Outlook before the ribbon: the sinks on the window collections and on every window opened
    // since start-up, each window's sink with the buttons of that window.
    ComPtr<CExplorersHandler> m_explorersHandler;
    ComPtr<CInspectorsHandler> m_inspectorsHandler;
    std::vector<ComPtr<CExplorerHandler>> m_explorerHandlers;
    std::vector<ComPtr<CInspectorHandler>> m_inspectorHandlers;
    CTDCSettings m_settings;
    int32_t m_hostMajorVersion = 0;
    CHostCaptureRoutines m_captures;
    // A command's dialogs are modal but have no owner: the host's ribbon can still be clicked.
    bool m_commandRunning = false;
};
