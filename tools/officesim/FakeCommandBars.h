// A command-bar object model for hosts before the ribbon: a CommandBars collection with its
// toolbars and menu bar, controls added through each bar's Controls.Add, popups with command bars
// of their own, and buttons whose click events go through a real connection point. Toolbars and
// controls stay in the model across add-in starts, as they stay in a running host.
//
// Single-threaded like the hosts' apartments.
#pragma once

#include <ocidl.h>

#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "common/ComObject.h"
#include "common/ComPtr.h"
#include "officesim/FakeDispatch.h"

// A connection point of one outgoing dispatch interface. Advise asks the sink for that
// interface, as hosts do; Fire invokes every advised sink.
class FakeConnectionPoint final
    : public ComObject<FakeConnectionPoint, LiveCount::NotCounted,
                       Implements<IConnectionPoint, IID_IConnectionPoint>> {
public:
    explicit FakeConnectionPoint(REFIID events) noexcept : m_events(events) {}

    // Invokes `id` on every sink advised now, with `args` in their natural order. Sinks may
    // unadvise while it runs.
    void Fire(DISPID id, std::vector<VARIANT> args);
    size_t ConnectionCount() const noexcept { return m_sinks.size(); }
    // The next Advise fails with `hr`.
    void FailNextAdvise(HRESULT hr) noexcept { m_adviseFailure = hr; }
    using ComObject::RefCount;

    HRESULT STDMETHODCALLTYPE GetConnectionInterface(IID* iid) noexcept override;
    HRESULT STDMETHODCALLTYPE
    GetConnectionPointContainer(IConnectionPointContainer** container) noexcept override;
    HRESULT STDMETHODCALLTYPE Advise(IUnknown* sink, DWORD* cookie) noexcept override;
    HRESULT STDMETHODCALLTYPE Unadvise(DWORD cookie) noexcept override;
    HRESULT STDMETHODCALLTYPE EnumConnections(IEnumConnections** connections) noexcept override;

private:
    friend ComObject;
    ~FakeConnectionPoint() override = default;

    IID m_events;
    DWORD m_nextCookie = 1;
    HRESULT m_adviseFailure = S_OK;
    std::map<DWORD, ComPtr<IDispatch>> m_sinks;
};

// An automation object with events, such as an Outlook window or window collection or a
// command-bar button: its properties and methods are a FakeDispatch's, its events go out through
// one connection point per event interface it sources.
class FakeEventSource
    : public ComObject<FakeEventSource, LiveCount::NotCounted, Implements<IDispatch, IID_IDispatch>,
                       Implements<IConnectionPointContainer, IID_IConnectionPointContainer>> {
public:
    explicit FakeEventSource(std::vector<IID> events);

    FakeDispatch& Properties() noexcept { return *m_properties.get(); }
    // Invokes `id` with `args` (in their natural order) on the sinks of every event interface.
    void Fire(DISPID id, const std::vector<VARIANT>& args);
    // Advise connections open on all its connection points.
    size_t ConnectionCount() const;
    // The connection point of `events`, or null.
    FakeConnectionPoint* Point(REFIID events) const;
    using ComObject::RefCount;

    HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID riid, LPOLESTR* names, UINT count, LCID lcid,
                                            DISPID* ids) noexcept override;
    HRESULT STDMETHODCALLTYPE Invoke(DISPID id, REFIID riid, LCID lcid, WORD flags,
                                     DISPPARAMS* params, VARIANT* result, EXCEPINFO* excep,
                                     UINT* argError) noexcept override;
    HRESULT STDMETHODCALLTYPE
    EnumConnectionPoints(IEnumConnectionPoints** points) noexcept override;
    HRESULT STDMETHODCALLTYPE FindConnectionPoint(REFIID riid,
                                                  IConnectionPoint** point) noexcept override;

protected:
    friend ComObject;
    ~FakeEventSource() override = default;

private:
    ComPtr<FakeDispatch> m_properties = FakeDispatch::Create();
    std::vector<ComPtr<FakeConnectionPoint>> m_points;
};

// A command-bar button: its Click goes out through the _CommandBarButtonEvents connection point.
class FakeCommandBarButton final : public FakeEventSource {
public:
    FakeCommandBarButton();

    FakeConnectionPoint& Clicks() const noexcept;
    // What a user's click does: Click(Ctrl, CancelDefault) to every sink.
    void Click();
    // The face and mask PasteFace took from the clipboard ("Toolbar Button Face" and "Toolbar
    // Button Mask"), empty before a paste. PasteFace fails without both formats.
    const std::string& Face() const noexcept { return m_face; }
    const std::string& Mask() const noexcept { return m_mask; }

private:
    ~FakeCommandBarButton() override = default;

    std::string m_face;
    std::string m_mask;
};

class FakeCommandBars {
public:
    FakeCommandBars();
    FakeCommandBars(const FakeCommandBars&) = delete;
    FakeCommandBars& operator=(const FakeCommandBars&) = delete;

    // The CommandBars collection, as Application.CommandBars or Explorer.CommandBars hands it out.
    FakeDispatch& Collection() noexcept { return *m_collection.get(); }

    // The button tagged `tag`, or null.
    FakeCommandBarButton* Button(const std::wstring& tag) const;
    std::vector<FakeCommandBarButton*> Buttons() const;
    // Controls of every kind ever added, and toolbars added through CommandBars.Add.
    size_t ControlCount() const noexcept { return m_controls.size(); }
    size_t ToolbarCount() const noexcept { return m_toolbars; }
    // The bar a popup tagged `tag` opens, or null.
    FakeDispatch* PopupBar(const std::wstring& tag) const;
    // Advise connections open on all buttons.
    size_t ConnectionCount() const;

    // The nth call of any bar's Controls.Add (counted from 1 across all bars) fails with `hr`.
    void FailControlAdd(int nth, HRESULT hr) { m_addFailures[nth] = hr; }

private:
    struct Control {
        ComPtr<FakeDispatch> properties;
        ComPtr<FakeCommandBarButton> button;  // null for a popup
        ComPtr<FakeDispatch> popupBar;
        IDispatch* Object() const;
    };
    struct Bar {
        std::wstring name;
        ComPtr<FakeDispatch> bar;
    };

    ComPtr<FakeDispatch> NewBar(const std::wstring& name);
    HRESULT AddControl(const FakeDispatch::Args& args, VARIANT* result);
    const Control* Tagged(const std::wstring& tag) const;

    ComPtr<FakeDispatch> m_collection = FakeDispatch::Create();
    std::vector<Bar> m_bars;  // the menu bar, toolbars and popups' bars
    std::vector<Control> m_controls;
    size_t m_toolbars = 0;
    int m_controlAdds = 0;
    std::map<int, HRESULT> m_addFailures;
};
