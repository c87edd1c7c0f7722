// The sink on Outlook's Inspectors collection: each inspector window that opens is reported to the
// add-in, which gives it its buttons. Held by the add-in while connected; disconnected at
// shutdown.
#pragma once

#include "addin/CommandBarEvents.h"
#include "addin/EventConnection.h"
#include "addin/WindowEventTarget.h"
#include "common/ComObject.h"

class CInspectorsHandler final
    : public ComObject<CInspectorsHandler, LiveCount::NotCounted,
                       Implements<IDispatch, IID_IDispatch, DIID_InspectorsEvents>> {
public:
    explicit CInspectorsHandler(WindowEventTarget& target) noexcept : m_target(&target) {}

    HRESULT Connect(IDispatch* inspectors) noexcept;
    // Unadvises and forgets the add-in: a late NewInspector does nothing.
    HRESULT Disconnect() noexcept;

    HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID riid, LPOLESTR* names, UINT count, LCID lcid,
                                            DISPID* ids) noexcept override;
    HRESULT STDMETHODCALLTYPE Invoke(DISPID id, REFIID riid, LCID lcid, WORD flags,
                                     DISPPARAMS* params, VARIANT* result, EXCEPINFO* excep,
                                     UINT* argError) noexcept override;

private:
    friend ComObject;
    ~CInspectorsHandler() override = default;

    WindowEventTarget* m_target;
    EventConnection m_connection;
};
