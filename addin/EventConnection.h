// One advise connection of an event sink on an event source: the source's connection point for
// one event interface and the cookie it gave. Shared by the add-in's sinks.
#pragma once

#include <ocidl.h>

#include <initializer_list>

#include "common/ComPtr.h"

class EventConnection {
public:
    EventConnection() = default;
    EventConnection(const EventConnection&) = delete;
    EventConnection& operator=(const EventConnection&) = delete;
    // A connection still open at destruction ends here; see Disconnect.
    ~EventConnection() { Disconnect(); }

    // Advises `sink` on the first of `events` that `source` has a connection point for. Once
    // connected, a second call fails E_UNEXPECTED.
    HRESULT Connect(IUnknown* source, std::initializer_list<IID> events, IUnknown* sink) noexcept;
    // Unadvises; S_FALSE when not connected. The connection point may release the sink's last
    // reference: the sink keeps itself alive around the call.
    HRESULT Disconnect() noexcept;
    bool IsConnected() const noexcept { return static_cast<bool>(m_point); }

private:
    ComPtr<IConnectionPoint> m_point;
    DWORD m_cookie = 0;
};

// GetIDsOfNames of an event sink: hosts fire events by DISPID, so there are no names to resolve.
HRESULT NoEventNames(REFIID riid, DISPID* ids) noexcept;

// The first argument of an event or callback (which Invoke receives last) as an object, by value
// or by reference; null when it is none.
ComPtr<IDispatch> FirstObjectArgument(const DISPPARAMS* params) noexcept;
