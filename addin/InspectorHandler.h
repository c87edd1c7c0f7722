// The sink on one inspector window: it carries that window's buttons (the window has command bars
// of its own; its archive and attachment buttons act on the window's item) and tells the add-in
// when the window closes, which then disconnects and drops it. Nothing of the window is held
// after that.
#pragma once

#include "addin/CommandBarEvents.h"
#include "addin/CommandBars.h"
#include "addin/EventConnection.h"
#include "addin/WindowEventTarget.h"
#include "common/ComObject.h"

class CInspectorHandler final
    : public ComObject<
          CInspectorHandler, LiveCount::NotCounted,
          Implements<IDispatch, IID_IDispatch, DIID_InspectorEvents_10, DIID_InspectorEvents>> {
public:
    CInspectorHandler(WindowEventTarget& target, ButtonCommandTarget& commands) noexcept
        : m_target(&target), m_commands(commands) {}

    // Sets up the buttons on the inspector's command bars, each click handing the inspector to
    // its command, and advises its Close. On failure nothing stays connected.
    HRESULT Connect(IDispatch* inspector, const CommandBarOptions& options) noexcept;
    // Releases the buttons, unadvises and forgets the add-in.
    void Disconnect() noexcept;
    const ButtonHandlers& Buttons() const noexcept { return m_buttons; }

    HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID riid, LPOLESTR* names, UINT count, LCID lcid,
                                            DISPID* ids) noexcept override;
    HRESULT STDMETHODCALLTYPE Invoke(DISPID id, REFIID riid, LCID lcid, WORD flags,
                                     DISPPARAMS* params, VARIANT* result, EXCEPINFO* excep,
                                     UINT* argError) noexcept override;

private:
    friend ComObject;
    ~CInspectorHandler() override { ReleaseButtonHandlers(m_buttons); }

    WindowEventTarget* m_target;
    ButtonCommandTarget& m_commands;
    ButtonHandlers m_buttons;
    EventConnection m_connection;
};
