#include "officesim/FakeCommandBars.h"

#include <windows.h>

#include <algorithm>
#include <utility>

#include <olectl.h>

#include "common/ComError.h"

namespace {

// _CommandBarButtonEvents and its Click, as the hosts publish them.
constexpr IID kButtonEvents = {
    0x000C0351, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};
constexpr DISPID kClick = 1;
constexpr int32_t kControlPopup = 10;

std::wstring Text(const VARIANT& value) {
    Variant text;
    if (FAILED(VariantChangeType(&text, const_cast<VARIANT*>(&value), 0, VT_BSTR)) ||
        !text.bstrVal) {
        return {};
    }
    return text.bstrVal;
}

// The open clipboard's data in registered format `name`, or nothing.
std::string ClipboardBytes(const wchar_t* name) {
    HANDLE data = GetClipboardData(RegisterClipboardFormatW(name));
    const SIZE_T size = data ? GlobalSize(data) : 0;
    const char* bytes = size ? static_cast<const char*>(GlobalLock(data)) : nullptr;
    if (!bytes) {
        return {};
    }
    std::string copy(bytes, size);
    GlobalUnlock(data);
    return copy;
}

void SetObject(VARIANT* result, IDispatch* object) {
    result->vt = VT_DISPATCH;
    result->pdispVal = object;
    if (object) {
        object->AddRef();
    }
}

}  // namespace

// --- FakeConnectionPoint

void FakeConnectionPoint::Fire(DISPID id, std::vector<VARIANT> args) {
    std::reverse(args.begin(), args.end());
    std::vector<ComPtr<IDispatch>> sinks;
    for (const auto& [cookie, sink] : m_sinks) {
        sinks.push_back(sink);
    }
    for (const ComPtr<IDispatch>& sink : sinks) {
        DISPPARAMS params{args.data(), nullptr, static_cast<UINT>(args.size()), 0};
        sink->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_METHOD, &params, nullptr, nullptr,
                     nullptr);
    }
}

HRESULT FakeConnectionPoint::GetConnectionInterface(IID* iid) noexcept {
    if (!iid) {
        return E_POINTER;
    }
    *iid = m_events;
    return S_OK;
}

HRESULT FakeConnectionPoint::GetConnectionPointContainer(
    IConnectionPointContainer** container) noexcept {
    if (!container) {
        return E_POINTER;
    }
    *container = nullptr;
    return E_NOTIMPL;
}

HRESULT FakeConnectionPoint::Advise(IUnknown* sink, DWORD* cookie) noexcept try {
    if (!sink || !cookie) {
        return E_POINTER;
    }
    *cookie = 0;
    if (FAILED(m_adviseFailure)) {
        return std::exchange(m_adviseFailure, S_OK);
    }
    ComPtr<IDispatch> events;
    if (FAILED(sink->QueryInterface(m_events, events.put_void()))) {
        return CONNECT_E_CANNOTCONNECT;
    }
    *cookie = m_nextCookie++;
    m_sinks.emplace(*cookie, std::move(events));
    return S_OK;
} catch (...) {
    return HResultFromCaughtException();
}

HRESULT FakeConnectionPoint::Unadvise(DWORD cookie) noexcept {
    auto found = m_sinks.find(cookie);
    if (found == m_sinks.end()) {
        return CONNECT_E_NOCONNECTION;
    }
    // The sink's last reference may go here; it must not find itself still listed.
    ComPtr<IDispatch> sink = std::move(found->second);
    m_sinks.erase(found);
    return S_OK;
}

HRESULT FakeConnectionPoint::EnumConnections(IEnumConnections** connections) noexcept {
    if (!connections) {
        return E_POINTER;
    }
    *connections = nullptr;
    return E_NOTIMPL;
}

// --- FakeEventSource

FakeEventSource::FakeEventSource(std::vector<IID> events) {
    for (const IID& iid : events) {
        m_points.push_back(MakeComObject<FakeConnectionPoint>(iid));
    }
}

void FakeEventSource::Fire(DISPID id, const std::vector<VARIANT>& args) {
    const ComPtr<FakeEventSource> self(this);
    for (const ComPtr<FakeConnectionPoint>& point : m_points) {
        point->Fire(id, args);
    }
}

size_t FakeEventSource::ConnectionCount() const {
    size_t count = 0;
    for (const ComPtr<FakeConnectionPoint>& point : m_points) {
        count += point->ConnectionCount();
    }
    return count;
}

FakeConnectionPoint* FakeEventSource::Point(REFIID events) const {
    for (const ComPtr<FakeConnectionPoint>& point : m_points) {
        IID iid{};
        if (SUCCEEDED(point->GetConnectionInterface(&iid)) && iid == events) {
            return point.get();
        }
    }
    return nullptr;
}

HRESULT FakeEventSource::GetIDsOfNames(REFIID riid, LPOLESTR* names, UINT count, LCID lcid,
                                       DISPID* ids) noexcept {
    return m_properties->GetIDsOfNames(riid, names, count, lcid, ids);
}

HRESULT FakeEventSource::Invoke(DISPID id, REFIID riid, LCID lcid, WORD flags, DISPPARAMS* params,
                                VARIANT* result, EXCEPINFO* excep, UINT* argError) noexcept {
    return m_properties->Invoke(id, riid, lcid, flags, params, result, excep, argError);
}

HRESULT FakeEventSource::EnumConnectionPoints(IEnumConnectionPoints** points) noexcept {
    if (!points) {
        return E_POINTER;
    }
    *points = nullptr;
    return E_NOTIMPL;
}

HRESULT FakeEventSource::FindConnectionPoint(REFIID riid, IConnectionPoint** point) noexcept {
    if (!point) {
        return E_POINTER;
    }
    *point = Point(riid);
    if (!*point) {
        return CONNECT_E_NOCONNECTION;
    }
    (*point)->AddRef();
    return S_OK;
}

// --- FakeCommandBarButton

FakeCommandBarButton::FakeCommandBarButton() : FakeEventSource({kButtonEvents}) {
    for (const wchar_t* name : {L"Tag", L"Caption", L"TooltipText"}) {
        Properties().SetProperty(name, L"");
    }
    Properties().SetProperty(L"Style", Variant(int32_t{0}));
    Properties().SetProperty(L"Visible", true);
    Properties().SetMethod(L"PasteFace", [this](const FakeDispatch::Args&, VARIANT*) {
        if (!OpenClipboard(nullptr)) {
            return HRESULT_FROM_WIN32(GetLastError());
        }
        std::string face = ClipboardBytes(L"Toolbar Button Face");
        std::string mask = ClipboardBytes(L"Toolbar Button Mask");
        CloseClipboard();
        if (face.empty() || mask.empty()) {
            return E_FAIL;
        }
        m_face = std::move(face);
        m_mask = std::move(mask);
        return S_OK;
    });
}

FakeConnectionPoint& FakeCommandBarButton::Clicks() const noexcept { return *Point(kButtonEvents); }

void FakeCommandBarButton::Click() {
    VARIANT_BOOL cancelDefault = VARIANT_FALSE;
    VARIANT control;
    control.vt = VT_DISPATCH;
    control.pdispVal = static_cast<IDispatch*>(this);
    VARIANT cancel;
    cancel.vt = VT_BOOL | VT_BYREF;
    cancel.pboolVal = &cancelDefault;
    Fire(kClick, {control, cancel});
}

// --- FakeCommandBars

IDispatch* FakeCommandBars::Control::Object() const {
    return button ? static_cast<IDispatch*>(button.get())
                  : static_cast<IDispatch*>(properties.get());
}

FakeCommandBars::FakeCommandBars() {
    m_bars.push_back({L"Menu Bar", NewBar(L"Menu Bar")});
    m_collection->SetProperty(L"ActiveMenuBar", static_cast<IDispatch*>(m_bars[0].bar.get()));
    m_collection->SetComputedProperty(L"Item",
                                      [this](const FakeDispatch::Args& args, VARIANT* result) {
                                          if (args.size() != 1) {
                                              return DISP_E_BADPARAMCOUNT;
                                          }
                                          const std::wstring name = Text(args[0]);
                                          for (const Bar& bar : m_bars) {
                                              if (bar.name == name) {
                                                  SetObject(result, bar.bar.get());
                                                  return S_OK;
                                              }
                                          }
                                          return E_INVALIDARG;
                                      });
    // Add(Name, Position, MenuBar, Temporary)
    m_collection->SetMethod(L"Add", [this](const FakeDispatch::Args& args, VARIANT* result) {
        const std::wstring name = args.empty() ? std::wstring() : Text(args[0]);
        for (const Bar& bar : m_bars) {
            if (!name.empty() && bar.name == name) {
                return E_INVALIDARG;
            }
        }
        m_bars.push_back({name, NewBar(name)});
        ++m_toolbars;
        SetObject(result, m_bars.back().bar.get());
        return S_OK;
    });
    // FindControl(Type, Id, Tag, Visible): the first control with the tag, or Nothing.
    m_collection->SetMethod(
        L"FindControl", [this](const FakeDispatch::Args& args, VARIANT* result) {
            const Control* control = args.size() >= 3 ? Tagged(Text(args[2])) : nullptr;
            SetObject(result, control ? control->Object() : nullptr);
            return S_OK;
        });
}

ComPtr<FakeDispatch> FakeCommandBars::NewBar(const std::wstring& name) {
    ComPtr<FakeDispatch> controls = FakeDispatch::Create();
    controls->SetMethod(L"Add", [this](const FakeDispatch::Args& args, VARIANT* result) {
        return AddControl(args, result);
    });
    ComPtr<FakeDispatch> bar = FakeDispatch::Create();
    bar->SetProperty(L"Name", name.c_str())
        .SetProperty(L"Visible", false)
        .SetProperty(L"Controls", static_cast<IDispatch*>(controls.get()));
    return bar;
}

// Controls.Add(Type, Id, Parameter, Before, Temporary)
HRESULT FakeCommandBars::AddControl(const FakeDispatch::Args& args, VARIANT* result) {
    auto failure = m_addFailures.find(++m_controlAdds);
    if (failure != m_addFailures.end()) {
        return failure->second;
    }
    Variant type;
    if (args.empty() ||
        FAILED(VariantChangeType(&type, const_cast<Variant*>(&args[0]), 0, VT_I4))) {
        return DISP_E_TYPEMISMATCH;
    }
    Control control;
    if (type.lVal == kControlPopup) {
        control.popupBar = NewBar(L"");
        control.properties = FakeDispatch::Create();
        control.properties->SetProperty(L"Tag", L"")
            .SetProperty(L"Caption", L"")
            .SetProperty(L"CommandBar", static_cast<IDispatch*>(control.popupBar.get()));
        m_bars.push_back({L"", control.popupBar});
    } else {
        control.button = MakeComObject<FakeCommandBarButton>();
        control.properties = ComPtr<FakeDispatch>(&control.button->Properties());
    }
    const bool temporary = args.size() >= 5 && args[4].vt == VT_BOOL && args[4].boolVal;
    control.properties->SetProperty(L"Temporary", temporary);
    m_controls.push_back(std::move(control));
    SetObject(result, m_controls.back().Object());
    return S_OK;
}

const FakeCommandBars::Control* FakeCommandBars::Tagged(const std::wstring& tag) const {
    for (const Control& control : m_controls) {
        if (!tag.empty() && Text(control.properties->Value(L"Tag")) == tag) {
            return &control;
        }
    }
    return nullptr;
}

FakeCommandBarButton* FakeCommandBars::Button(const std::wstring& tag) const {
    const Control* control = Tagged(tag);
    return control ? control->button.get() : nullptr;
}

std::vector<FakeCommandBarButton*> FakeCommandBars::Buttons() const {
    std::vector<FakeCommandBarButton*> buttons;
    for (const Control& control : m_controls) {
        if (control.button) {
            buttons.push_back(control.button.get());
        }
    }
    return buttons;
}

FakeDispatch* FakeCommandBars::PopupBar(const std::wstring& tag) const {
    const Control* control = Tagged(tag);
    return control ? control->popupBar.get() : nullptr;
}

size_t FakeCommandBars::ConnectionCount() const {
    size_t count = 0;
    for (FakeCommandBarButton* button : Buttons()) {
        count += button->Clicks().ConnectionCount();
    }
    return count;
}
