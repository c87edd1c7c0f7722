// The sinks on Outlook's windows in command-bar mode. A CWindowsHandler sits on a window
// collection (Explorers, Inspectors) and reports each window that opens to the add-in, which
// gives it its buttons; held by the add-in while connected, disconnected at shutdown. A
// CWindowHandler sits on one such window: it carries that window's buttons (the window has
// command bars of its own) and tells the add-in when the window closes, which then disconnects
// and drops it. Nothing of the window is held after that.
//
// Explorers and inspectors differ only in their event interfaces, their log texts and in that an
// inspector's archive and attachment buttons act on the window's item; a Window struct below
// names those for each.
#pragma once

#include "addin/CommandBarEvents.h"
#include "addin/CommandBars.h"
#include "addin/EventConnection.h"
#include "addin/WindowEventTarget.h"
#include "common/CheckedFormat.h"
#include "common/ComObject.h"

struct ExplorerWindow {
    static constexpr const IID& kCollectionEvents = DIID_ExplorersEvents;
    static constexpr DISPID kNewWindow = DISPID_NewExplorer;
    static constexpr const IID& kWindowEvents10 = DIID_ExplorerEvents_10;
    static constexpr const IID& kWindowEvents = DIID_ExplorerEvents;
    static constexpr bool kButtonsActOnWindow = false;
    static constexpr auto kOpened = &WindowEventTarget::ExplorerOpened;
    static constexpr auto kClosed = &WindowEventTarget::ExplorerClosed;
    static constexpr CheckedFormat<HRESULT> kNewWindowFailed = L"NewExplorer failed! hr = 0x%08X\n";
    static constexpr CheckedFormat<HRESULT> kCloseFailed = L"Explorer Close failed! hr = 0x%08X\n";
    static constexpr CheckedFormat<HRESULT> kUnadviseFailed =
        L"Failed to unadvise the explorer events! hr = 0x%08X\n";
};

struct InspectorWindow {
    static constexpr const IID& kCollectionEvents = DIID_InspectorsEvents;
    static constexpr DISPID kNewWindow = DISPID_NewInspector;
    static constexpr const IID& kWindowEvents10 = DIID_InspectorEvents_10;
    static constexpr const IID& kWindowEvents = DIID_InspectorEvents;
    // Each click hands the inspector to its command.
    static constexpr bool kButtonsActOnWindow = true;
    static constexpr auto kOpened = &WindowEventTarget::InspectorOpened;
    static constexpr auto kClosed = &WindowEventTarget::InspectorClosed;
    static constexpr CheckedFormat<HRESULT> kNewWindowFailed =
        L"NewInspector failed! hr = 0x%08X\n";
    static constexpr CheckedFormat<HRESULT> kCloseFailed = L"Inspector Close failed! hr = 0x%08X\n";
    static constexpr CheckedFormat<HRESULT> kUnadviseFailed =
        L"Failed to unadvise the inspector events! hr = 0x%08X\n";
};

template <class Window>
class CWindowsHandler final
    : public ComObject<CWindowsHandler<Window>, LiveCount::NotCounted,
                       Implements<IDispatch, IID_IDispatch, Window::kCollectionEvents>> {
public:
    explicit CWindowsHandler(WindowEventTarget& target) noexcept : m_target(&target) {}

    HRESULT Connect(IDispatch* windows) noexcept;
    // Unadvises and forgets the add-in: a late new window does nothing.
    HRESULT Disconnect() noexcept;

    HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID riid, LPOLESTR* names, UINT count, LCID lcid,
                                            DISPID* ids) noexcept override;
    HRESULT STDMETHODCALLTYPE Invoke(DISPID id, REFIID riid, LCID lcid, WORD flags,
                                     DISPPARAMS* params, VARIANT* result, EXCEPINFO* excep,
                                     UINT* argError) noexcept override;

private:
    template <class, LiveCount, class, class...>
    friend class ComObject;
    ~CWindowsHandler() override = default;

    WindowEventTarget* m_target;
    EventConnection m_connection;
};

template <class Window>
class CWindowHandler final
    : public ComObject<
          CWindowHandler<Window>, LiveCount::NotCounted,
          Implements<IDispatch, IID_IDispatch, Window::kWindowEvents10, Window::kWindowEvents>> {
public:
    CWindowHandler(WindowEventTarget& target, ButtonCommandTarget& commands) noexcept
        : m_target(&target), m_commands(commands) {}

    // Sets up the buttons on the window's command bars and advises its Close. On failure
    // nothing stays connected.
    HRESULT Connect(IDispatch* window, const CommandBarOptions& options) noexcept;
    // Releases the buttons, unadvises and forgets the add-in.
    void Disconnect() noexcept;
    const ButtonHandlers& Buttons() const noexcept { return m_buttons; }

    HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID riid, LPOLESTR* names, UINT count, LCID lcid,
                                            DISPID* ids) noexcept override;
    HRESULT STDMETHODCALLTYPE Invoke(DISPID id, REFIID riid, LCID lcid, WORD flags,
                                     DISPPARAMS* params, VARIANT* result, EXCEPINFO* excep,
                                     UINT* argError) noexcept override;

private:
    template <class, LiveCount, class, class...>
    friend class ComObject;
    ~CWindowHandler() override { ReleaseButtonHandlers(m_buttons); }

    WindowEventTarget* m_target;
    ButtonCommandTarget& m_commands;
    ButtonHandlers m_buttons;
    EventConnection m_connection;
};

using CExplorersHandler = CWindowsHandler<ExplorerWindow>;
using CInspectorsHandler = CWindowsHandler<InspectorWindow>;
