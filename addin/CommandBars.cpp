#include "addin/CommandBars.h"

#include <iterator>
#include <utility>

#include "addin/ButtonFaces.h"
#include "addin/Ribbon.h"
#include "common/Automation.h"
#include "common/ComError.h"
#include "common/LogFile.h"
#include "common/Messages.h"
#include "common/Variant.h"

namespace {

constexpr const wchar_t* kToolbarName = L"talvorn dorvane";
constexpr const wchar_t* kPopupTag = L"TLCBBTDX2_0001";
constexpr UINT kPopupCaption = 8025;

// Office's MsoControlType, MsoBarPosition and MsoButtonStyle values the setup uses.
constexpr int32_t kControlButton = 1;
constexpr int32_t kControlPopup = 10;
constexpr int32_t kBarTop = 1;
constexpr int32_t kButtonIconAndCaption = 3;

enum class Place { Toolbar, Popup };
enum class Shown { Always, WithAttachments, WithSettings };

struct ButtonRow {
    Place place;
    const wchar_t* tag;
    DISPID command;
    UINT caption;
    UINT tooltip;
    const wchar_t* image;
    Shown shown;
};

// One row per handler slot.
constexpr ButtonRow kButtons[kButtonHandlerCount] = {
    {Place::Toolbar, L"TLPMBTDX2_0001", kCallbackArchive, 8025, 8039, L"resource.bin",
     Shown::Always},
    {Place::Toolbar, L"TLPMBTDX2_0004", kCallbackAttachment, 8046, 8049, L"resource_attachment.bin",
     Shown::WithAttachments},
    {Place::Toolbar, L"TLPMBTDX2_0002", kCallbackSettings, 8026, 8040, L"resource_setting.bin",
     Shown::WithSettings},
    {Place::Toolbar, L"TLPMBTDX2_0003", kCallbackInfo, 8027, 8041, L"resource_info.bin",
     Shown::Always},
    {Place::Popup, L"TLCBBTDX2_0002", kCallbackArchive, 8025, 8039, L"resource.bin", Shown::Always},
    {Place::Popup, L"TLCBBTDX2_0003", kCallbackSettings, 8026, 8040, L"resource_setting.bin",
     Shown::WithSettings},
};

// A button's command in an inspector: the single-item flavour of archive and attachments.
DISPID InspectorCommand(DISPID command) noexcept {
    switch (command) {
    case kCallbackArchive:
        return kCallbackArchiveSingleOutlook;
    case kCallbackAttachment:
        return kCallbackAttachmentSingleOutlook;
    default:
        return command;
    }
}

bool IsShown(const ButtonRow& row, const CommandBarOptions& options) noexcept {
    switch (row.shown) {
    case Shown::WithAttachments:
        return options.attachments;
    case Shown::WithSettings:
        return !options.noSettings;
    default:
        return true;
    }
}

Variant Missing() noexcept {
    Variant missing;
    missing.vt = VT_ERROR;
    missing.scode = DISP_E_PARAMNOTFOUND;
    return missing;
}

Variant UiString(UINT id) {
    wchar_t text[256] = {};
    LoadUiString(id, text, static_cast<int>(std::size(text)));
    return Variant(text);
}

// The control tagged `tag` anywhere in the host's command bars, or null.
ComPtr<IDispatch> FindTagged(IDispatch* commandBars, const wchar_t* tag) {
    const Variant missing = Missing();
    const Variant tagValue(tag);
    ComPtr<IDispatch> control;
    if (FAILED(GetObjectPropertyNoThrow(commandBars, GetOrCall(L"FindControl"), control.put(),
                                        {&missing, &missing, &tagValue}))) {
        control.reset();
    }
    return control;
}

HRESULT AddControl(IDispatch* bar, int32_t type, const wchar_t* tag, IDispatch** control) {
    ComPtr<IDispatch> controls;
    HRESULT hr = GetObjectPropertyNoThrow(bar, L"Controls", controls.put());
    if (FAILED(hr)) {
        return hr;
    }
    const Variant typeValue(type);
    const Variant missing = Missing();
    const Variant temporary(true);
    Variant added;
    hr = CallMethodNoThrow(controls.get(), L"Add",
                           {&typeValue, &missing, &missing, &missing, &temporary}, &added);
    if (FAILED(hr)) {
        return hr;
    }
    if (added.vt != VT_DISPATCH || !added.pdispVal) {
        return E_UNEXPECTED;
    }
    hr = PutPropertyNoThrow(added.pdispVal, L"Tag", Variant(tag));
    if (FAILED(hr)) {
        return hr;
    }
    *control = added.pdispVal;
    (*control)->AddRef();
    return S_OK;
}

// The add-in's own toolbar, found by name or added.
HRESULT Toolbar(IDispatch* commandBars, IDispatch** bar) {
    const Variant name(kToolbarName);
    if (SUCCEEDED(GetObjectPropertyNoThrow(commandBars, L"Item", bar, {&name}))) {
        return S_OK;
    }
    const Variant position(kBarTop);
    const Variant menuBar(false);
    const Variant temporary(true);
    HRESULT hr = CallMethodNoThrow(commandBars, L"Add", {&name, &position, &menuBar, &temporary});
    if (FAILED(hr)) {
        return hr;
    }
    hr = GetObjectPropertyNoThrow(commandBars, L"Item", bar, {&name});
    if (FAILED(hr)) {
        return hr;
    }
    return PutPropertyNoThrow(*bar, L"Visible", Variant(true));
}

// The command bar of the add-in's popup on the host's menu bar, the popup found by tag or added.
HRESULT PopupBar(IDispatch* commandBars, IDispatch** bar) {
    ComPtr<IDispatch> popup = FindTagged(commandBars, kPopupTag);
    if (!popup) {
        ComPtr<IDispatch> menuBar;
        HRESULT hr = GetObjectPropertyNoThrow(commandBars, L"ActiveMenuBar", menuBar.put());
        if (FAILED(hr)) {
            return hr;
        }
        hr = AddControl(menuBar.get(), kControlPopup, kPopupTag, popup.put());
        if (FAILED(hr)) {
            return hr;
        }
        hr = PutPropertyNoThrow(popup.get(), L"Caption", UiString(kPopupCaption));
        if (FAILED(hr)) {
            return hr;
        }
    }
    return GetObjectPropertyNoThrow(popup.get(), L"CommandBar", bar);
}

HRESULT Button(IDispatch* commandBars, IDispatch* bar, const ButtonRow& row, IDispatch** button) {
    ComPtr<IDispatch> found = FindTagged(commandBars, row.tag);
    if (found) {
        *button = found.get();
        (*button)->AddRef();
        return S_OK;
    }
    ComPtr<IDispatch> added;
    HRESULT hr = AddControl(bar, kControlButton, row.tag, added.put());
    if (FAILED(hr)) {
        return hr;
    }
    hr = PutPropertyNoThrow(added.get(), L"Caption", UiString(row.caption));
    if (FAILED(hr)) {
        return hr;
    }
    hr = PutPropertyNoThrow(added.get(), L"TooltipText", UiString(row.tooltip));
    if (FAILED(hr)) {
        return hr;
    }
    hr = PutPropertyNoThrow(added.get(), L"Style", Variant(kButtonIconAndCaption));
    if (FAILED(hr)) {
        return hr;
    }
    hr = PasteButtonFace(added.get(), row.image);
    if (FAILED(hr)) {
        // The button works without its picture.
        LogError(L"Failed to paste the face of button %s! hr = 0x%08X\n", row.tag, hr);
    }
    *button = added.get();
    (*button)->AddRef();
    return S_OK;
}

HRESULT SetUp(IDispatch* commandBars, const CommandBarOptions& options, ButtonCommandTarget& target,
              ButtonHandlers& handlers) {
    ComPtr<IDispatch> toolbar;
    HRESULT hr = Toolbar(commandBars, toolbar.put());
    if (FAILED(hr)) {
        LogError(L"Failed to create the toolbar! hr = 0x%08X\n", hr);
        return hr;
    }
    ComPtr<IDispatch> popupBar;
    hr = PopupBar(commandBars, popupBar.put());
    if (FAILED(hr)) {
        // The toolbar's buttons do without the menu.
        LogError(L"Failed to create the popup menu! hr = 0x%08X\n", hr);
    }
    for (size_t slot = 0; slot < kButtonHandlerCount; ++slot) {
        const ButtonRow& row = kButtons[slot];
        IDispatch* bar = row.place == Place::Toolbar ? toolbar.get() : popupBar.get();
        if (!IsShown(row, options) || !bar) {
            continue;
        }
        ComPtr<IDispatch> button;
        hr = Button(commandBars, bar, row, button.put());
        if (SUCCEEDED(hr)) {
            const DISPID command = options.inspector ? InspectorCommand(row.command) : row.command;
            ComPtr<CButtonHandler> handler =
                MakeComObject<CButtonHandler>(target, command, options.inspector);
            hr = handler->Connect(button.get());
            if (SUCCEEDED(hr)) {
                handlers[slot] = std::move(handler);
                continue;
            }
        }
        LogError(L"Failed to add the button %s! hr = 0x%08X\n", row.tag, hr);
    }
    return S_OK;
}

}  // namespace

HRESULT SetUpCommandBars(IDispatch* commandBars, const CommandBarOptions& options,
                         ButtonCommandTarget& target, ButtonHandlers& handlers) noexcept {
    if (!commandBars) {
        return E_POINTER;
    }
    try {
        return SetUp(commandBars, options, target, handlers);
    } catch (...) {
        const HRESULT hr = HResultFromCaughtException();
        LogError(L"Failed to set up the command bars! hr = 0x%08X\n", hr);
        return hr;
    }
}

void ReleaseButtonHandlers(ButtonHandlers& handlers) noexcept {
    for (ComPtr<CButtonHandler>& handler : handlers) {
        if (handler) {
            handler->Disconnect();
            handler.reset();
        }
    }
}
