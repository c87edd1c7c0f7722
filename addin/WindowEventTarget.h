// What Outlook's window sinks report to: the add-in, which keeps a sink per open window. Not
// owned by the sinks; they forget it when they are disconnected.
#pragma once

#include <oaidl.h>

// The sinks of addin/WindowHandler.h, one instance per kind of window.
template <class Window>
class CWindowHandler;
struct ExplorerWindow;
struct InspectorWindow;
using CExplorerHandler = CWindowHandler<ExplorerWindow>;
using CInspectorHandler = CWindowHandler<InspectorWindow>;

class WindowEventTarget {
public:
    virtual void ExplorerOpened(IDispatch* explorer) = 0;
    virtual void InspectorOpened(IDispatch* inspector) = 0;
    // The window of `handler` closes; the handler is still connected.
    virtual void ExplorerClosed(CExplorerHandler& handler) = 0;
    virtual void InspectorClosed(CInspectorHandler& handler) = 0;

protected:
    ~WindowEventTarget() = default;
};
