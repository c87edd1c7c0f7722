#include "addin/WindowHandler.h"

#include "common/Automation.h"
#include "common/ComError.h"
#include "common/LogFile.h"

template <class Window>
HRESULT CWindowsHandler<Window>::Connect(IDispatch* windows) noexcept {
    return m_connection.Connect(windows, {Window::kCollectionEvents},
                                static_cast<IDispatch*>(this));
}

template <class Window>
HRESULT CWindowsHandler<Window>::Disconnect() noexcept {
    m_target = nullptr;
    const ComPtr<CWindowsHandler> self(this);
    return m_connection.Disconnect();
}

template <class Window>
HRESULT CWindowsHandler<Window>::GetIDsOfNames(REFIID riid, LPOLESTR*, UINT, LCID,
                                               DISPID* ids) noexcept {
    return NoEventNames(riid, ids);
}

template <class Window>
HRESULT CWindowsHandler<Window>::Invoke(DISPID id, REFIID riid, LCID, WORD, DISPPARAMS* params,
                                        VARIANT*, EXCEPINFO*, UINT*) noexcept {
    if (riid != IID_NULL) {
        return DISP_E_UNKNOWNINTERFACE;
    }
    if (id != Window::kNewWindow) {
        return DISP_E_MEMBERNOTFOUND;
    }
    const ComPtr<IDispatch> window = FirstObjectArgument(params);
    if (!m_target || !window) {
        return S_OK;
    }
    try {
        const ComPtr<CWindowsHandler> self(this);
        (m_target->*Window::kOpened)(window.get());
    } catch (...) {
        LogError(Window::kNewWindowFailed, HResultFromCaughtException());
    }
    return S_OK;
}

template <class Window>
HRESULT CWindowHandler<Window>::Connect(IDispatch* window,
                                        const CommandBarOptions& options) noexcept {
    if (!window) {
        return E_POINTER;
    }
    ComPtr<IDispatch> commandBars;
    HRESULT hr = GetObjectPropertyNoThrow(window, L"CommandBars", commandBars.put());
    if (FAILED(hr)) {
        LogError(L"Failed to access CommandBars property! hr = 0x%08X\n", hr);
        return hr;
    }
    CommandBarOptions windowOptions = options;
    if constexpr (Window::kButtonsActOnWindow) {
        windowOptions.inspector = window;
    }
    hr = SetUpCommandBars(commandBars.get(), windowOptions, m_commands, m_buttons);
    if (SUCCEEDED(hr)) {
        hr = m_connection.Connect(window, {Window::kWindowEvents10, Window::kWindowEvents},
                                  static_cast<IDispatch*>(this));
    }
    if (FAILED(hr)) {
        ReleaseButtonHandlers(m_buttons);
    }
    return hr;
}

template <class Window>
void CWindowHandler<Window>::Disconnect() noexcept {
    m_target = nullptr;
    const ComPtr<CWindowHandler> self(this);
    ReleaseButtonHandlers(m_buttons);
    const HRESULT hr = m_connection.Disconnect();
    if (FAILED(hr)) {
        LogError(Window::kUnadviseFailed, hr);
    }
}

template <class Window>
HRESULT CWindowHandler<Window>::GetIDsOfNames(REFIID riid, LPOLESTR*, UINT, LCID,
                                              DISPID* ids) noexcept {
    return NoEventNames(riid, ids);
}

template <class Window>
HRESULT CWindowHandler<Window>::Invoke(DISPID id, REFIID riid, LCID, WORD, DISPPARAMS*, VARIANT*,
                                       EXCEPINFO*, UINT*) noexcept {
    if (riid != IID_NULL) {
        return DISP_E_UNKNOWNINTERFACE;
    }
    // Activate, Deactivate and the window's other events are not the add-in's business.
    if (id != DISPID_WindowClose) {
        return DISP_E_MEMBERNOTFOUND;
    }
    if (!m_target) {
        return S_OK;
    }
    try {
        // The add-in drops its reference in here.
        const ComPtr<CWindowHandler> self(this);
        (m_target->*Window::kClosed)(*this);
    } catch (...) {
        LogError(Window::kCloseFailed, HResultFromCaughtException());
    }
    return S_OK;
}

template class CWindowsHandler<ExplorerWindow>;
template class CWindowsHandler<InspectorWindow>;
template class CWindowHandler<ExplorerWindow>;
template class CWindowHandler<InspectorWindow>;
