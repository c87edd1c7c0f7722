// The click sink of one command-bar button: it advises the button's _CommandBarButtonEvents
// connection point and hands each Click to its command target. The host holds the sink while it
// is advised; the add-in keeps one reference and disconnects it before letting go.
#pragma once

#include <ocidl.h>

#include "addin/CommandBarEvents.h"
#include "addin/EventConnection.h"
#include "common/ComObject.h"
#include "common/ComPtr.h"

// Who runs a button's command. Not owned by the sink: the add-in outlives its sinks' connections.
class ButtonCommandTarget {
public:
    // `window` is the inspector whose item a single-item command acts on, else null.
    virtual void RunButtonCommand(DISPID command, IDispatch* window) = 0;

protected:
    ~ButtonCommandTarget() = default;
};

class CButtonHandler final
    : public ComObject<CButtonHandler, LiveCount::Counted,
                       Implements<IDispatch, IID_IDispatch, DIID_CommandBarButtonEvents>> {
public:
    // `window` (may be null) is handed to the command with each click; the sink holds it until
    // it is disconnected.
    CButtonHandler(ButtonCommandTarget& target, DISPID command,
                   IDispatch* window = nullptr) noexcept
        : m_target(&target), m_command(command), m_window(window) {}

    // Advises the button's click events. Once connected, a second call fails E_UNEXPECTED. The
    // sink holds the button's identity until it is disconnected.
    HRESULT Connect(IDispatch* button) noexcept;
    // Unadvises (when connected) and forgets the target and the window: a click the host still
    // delivers late runs nothing.
    void Disconnect() noexcept;
    bool IsConnected() const noexcept { return m_connection.IsConnected(); }
    DISPID Command() const noexcept { return m_command; }

    HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID riid, LPOLESTR* names, UINT count, LCID lcid,
                                            DISPID* ids) noexcept override;
    HRESULT STDMETHODCALLTYPE Invoke(DISPID id, REFIID riid, LCID lcid, WORD flags,
                                     DISPPARAMS* params, VARIANT* result, EXCEPINFO* excep,
                                     UINT* argError) noexcept override;

private:
    friend ComObject;
    // A host that advised the sink holds it, so an advised sink is not destroyed; should a host
    // not have taken its reference, the connection still ends with the member (without keeping
    // the dying object alive).
    ~CButtonHandler() override = default;

    // Whether a Click is for this sink's button, by the clicked control's identity.
    bool IsOwnClick(const DISPPARAMS* params) const noexcept;

    ButtonCommandTarget* m_target;
    DISPID m_command;
    ComPtr<IDispatch> m_window;
    ComPtr<IUnknown> m_button;
    EventConnection m_connection;
};
