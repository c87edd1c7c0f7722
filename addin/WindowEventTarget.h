// What Outlook's window sinks report to: the add-in, which keeps a sink per open window. Not
// owned by the sinks; they forget it when they are disconnected.
#pragma once

#include <oaidl.h>

class CExplorerHandler;
class CInspectorHandler;

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
