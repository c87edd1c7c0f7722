#include "support/WindowWatcher.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <ostream>
#include <stdexcept>

#include "support/TestFiles.h"

namespace {

constexpr UINT kRunCall = WM_APP;
constexpr wchar_t kCallWindowClass[] = L"TalvornWindowWatcherCalls";
WindowWatcher* g_activeWatcher = nullptr;
using MessageBoxWFunction = int(WINAPI*)(HWND, LPCWSTR, LPCWSTR, UINT);
MessageBoxWFunction g_realMessageBoxW = nullptr;

std::wstring ClassOf(HWND hwnd) {
    wchar_t name[64] = L"";
    GetClassNameW(hwnd, name, 64);
    return name;
}

bool IsClass(const std::wstring& name, const wchar_t* className) {
    return CompareStringOrdinal(name.c_str(), -1, className, -1, TRUE) == CSTR_EQUAL;
}

// The text of a window, or of entry `item` of a combo box.
std::wstring TextOf(HWND hwnd, std::optional<WPARAM> item = std::nullopt) {
    LRESULT length = item ? SendMessageW(hwnd, CB_GETLBTEXTLEN, *item, 0)
                          : SendMessageW(hwnd, WM_GETTEXTLENGTH, 0, 0);
    std::wstring text(static_cast<size_t>(std::max<LRESULT>(length, 0)) + 1, L'\0');
    auto buffer = reinterpret_cast<LPARAM>(text.data());
    LRESULT copied = item ? SendMessageW(hwnd, CB_GETLBTEXT, *item, buffer)
                          : SendMessageW(hwnd, WM_GETTEXT, text.size(), buffer);
    text.resize(static_cast<size_t>(std::clamp<LRESULT>(copied, 0, length)));
    return text;
}

WindowWatcher::Window Describe(HWND dialog) {
    WindowWatcher::Window window{TextOf(dialog), {}, GetWindow(dialog, GW_OWNER), {}};
    for (HWND child = GetWindow(dialog, GW_CHILD); child; child = GetWindow(child, GW_HWNDNEXT)) {
        // A message box hides the buttons of the other box types instead of destroying them.
        if (!(GetWindowLongW(child, GWL_STYLE) & WS_VISIBLE)) {
            continue;
        }
        auto& control = window.controls.emplace_back(
            WindowWatcher::Control{GetDlgCtrlID(child), ClassOf(child), TextOf(child), {}});
        LRESULT items =
            IsClass(control.className, L"ComboBox") ? SendMessageW(child, CB_GETCOUNT, 0, 0) : 0;
        for (LRESULT i = 0; i < items; ++i) {
            control.items.push_back(TextOf(child, static_cast<WPARAM>(i)));
        }
    }
    return window;
}

void PostCommand(HWND dialog, int id, WORD code) {
    PostMessageW(dialog, WM_COMMAND, MAKEWPARAM(id, code),
                 reinterpret_cast<LPARAM>(GetDlgItem(dialog, id)));
}

}  // namespace

bool WindowWatcher::Window::HasText(const std::wstring& text) const {
    return std::any_of(controls.begin(), controls.end(),
                       [&](const Control& control) { return control.text == text; });
}

const WindowWatcher::Control* WindowWatcher::Window::FindControl(int id) const {
    auto found = std::find_if(controls.begin(), controls.end(),
                              [&](const Control& control) { return control.id == id; });
    return found == controls.end() ? nullptr : &*found;
}

std::ostream& operator<<(std::ostream& out, const WindowWatcher::Window& window) {
    out << '"' << ToUtf8(window.caption) << '"';
    for (const WindowWatcher::Control& control : window.controls) {
        out << (&control == &window.controls[0] ? " {\"" : ", \"") << ToUtf8(control.text) << '"';
    }
    return out << (window.controls.empty() ? "" : "}");
}

WindowWatcher::Expectation& WindowWatcher::Expectation::Add(int id,
                                                            std::optional<std::wstring> entry) {
    m_watcher.m_plans[m_index].actions.push_back(Action{id, std::move(entry)});
    return *this;
}

WindowWatcher::Expectation& WindowWatcher::Expectation::Call(std::function<void()> action) {
    m_watcher.m_plans[m_index].calls.push_back(m_watcher.m_calls.size());
    m_watcher.m_calls.push_back(std::move(action));
    return *this;
}

LRESULT CALLBACK WindowWatcher::RunCall(HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam) {
    if (message != kRunCall || !g_activeWatcher) {
        return DefWindowProcW(hwnd, message, wParam, lParam);
    }
    // A copy: the call may add expectations of its own.
    std::function<void()> action = g_activeWatcher->m_calls.at(wParam);
    try {
        action();
    } catch (...) {
        ADD_FAILURE() << "WindowWatcher: a call threw";
    }
    return 0;
}

WindowWatcher::WindowWatcher() {
    if (g_activeWatcher) {
        throw std::logic_error("WindowWatcher: only one watcher at a time");
    }
    m_hook = SetWindowsHookExW(WH_CALLWNDPROCRET, OnWindowMessage, nullptr, GetCurrentThreadId());
    if (!m_hook) {
        throw std::runtime_error("WindowWatcher: cannot hook the thread's windows");
    }
    WNDCLASSW windowClass{};
    windowClass.lpfnWndProc = RunCall;
    windowClass.hInstance = GetModuleHandleW(nullptr);
    windowClass.lpszClassName = kCallWindowClass;
    RegisterClassW(&windowClass);  // fails harmlessly when an earlier watcher registered it
    m_callWindow = CreateWindowExW(0, kCallWindowClass, L"", 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr,
                                   windowClass.hInstance, nullptr);
    g_activeWatcher = this;
    void* real =
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"user32.dll"), "MessageBoxW"));
    g_realMessageBoxW = reinterpret_cast<MessageBoxWFunction>(real);
    m_messageBoxPatch.emplace(GetModuleHandleW(nullptr), real,
                              reinterpret_cast<void*>(&NotingMessageBoxW));
}

WindowWatcher::~WindowWatcher() {
    m_messageBoxPatch.reset();
    UnhookWindowsHookEx(m_hook);
    DestroyWindow(m_callWindow);
    g_activeWatcher = nullptr;
}

int WINAPI WindowWatcher::NotingMessageBoxW(HWND owner, LPCWSTR text, LPCWSTR caption, UINT type) {
    if (g_activeWatcher) {
        g_activeWatcher->m_boxCalls.push_back(
            BoxCall{caption ? caption : L"", text ? text : L"", type});
    }
    return g_realMessageBoxW(owner, text, caption, type);
}

// A dialog that ends while it is made is never shown and so never seen.
LRESULT CALLBACK WindowWatcher::OnWindowMessage(int code, WPARAM wParam, LPARAM lParam) {
    const auto* message = reinterpret_cast<const CWPRETSTRUCT*>(lParam);
    WindowWatcher* watcher = g_activeWatcher;
    if (code == HC_ACTION && watcher && IsClass(ClassOf(message->hwnd), L"#32770")) {
        std::vector<HWND>& shown = watcher->m_shown;
        auto known = std::find(shown.begin(), shown.end(), message->hwnd);
        if (message->message == WM_SHOWWINDOW && message->wParam && known == shown.end()) {
            shown.push_back(message->hwnd);
            watcher->Answer(message->hwnd);
        } else if (message->message == WM_NCDESTROY && known != shown.end()) {
            shown.erase(known);
        }
    }
    return CallNextHookEx(nullptr, code, wParam, lParam);
}

WindowWatcher::Expectation WindowWatcher::Expect(const std::wstring& caption) {
    m_plans.push_back(Plan{caption, {}, {}, false});
    return Expectation(*this, m_plans.size() - 1);
}

HWND WindowWatcher::Open(const std::wstring& caption) const {
    auto found = std::find_if(m_shown.rbegin(), m_shown.rend(),
                              [&](HWND dialog) { return TextOf(dialog) == caption; });
    return found == m_shown.rend() ? nullptr : *found;
}

void WindowWatcher::Verify() const {
    for (const Plan& plan : m_plans) {
        if (!plan.used) {
            ADD_FAILURE() << "no window \"" << ToUtf8(plan.caption) << "\" appeared";
        }
    }
}

void WindowWatcher::Answer(HWND dialog) {
    Window& record = m_seen.emplace_back(Describe(dialog));
    auto call = std::find_if(m_boxCalls.begin(), m_boxCalls.end(), [&](const BoxCall& box) {
        return box.caption == record.caption && record.HasText(box.text);
    });
    if (call != m_boxCalls.end()) {
        record.messageBoxType = call->type;
        m_boxCalls.erase(call);
    }
    auto plan = std::find_if(m_plans.begin(), m_plans.end(), [&](const Plan& candidate) {
        return !candidate.used && candidate.caption == record.caption;
    });
    if (plan == m_plans.end() && !m_cancelUnexpected) {
        ADD_FAILURE() << "unexpected window " << record;
    }
    // Posted: the dialog's modal loop handles them in this order once it runs.
    for (size_t call : plan != m_plans.end() ? plan->calls : std::vector<size_t>()) {
        PostMessageW(m_callWindow, kRunCall, call, 0);
    }
    bool clicked = false;
    for (const Action& action : plan != m_plans.end() ? plan->actions : std::vector<Action>()) {
        const Control* control = record.FindControl(action.id);
        auto entry = control && action.entry
                         ? std::find(control->items.begin(), control->items.end(), *action.entry)
                         : std::vector<std::wstring>::const_iterator();
        if (!control || (action.entry && entry == control->items.end())) {
            ADD_FAILURE() << "no control " << action.id << " or entry to answer " << record;
        } else if (action.entry) {
            PostMessageW(GetDlgItem(dialog, action.id), CB_SETCURSEL,
                         static_cast<WPARAM>(entry - control->items.begin()), 0);
            PostCommand(dialog, action.id, CBN_SELCHANGE);
        } else {
            PostCommand(dialog, action.id, BN_CLICKED);
            clicked = true;
        }
    }
    if (plan != m_plans.end()) {
        plan->used = true;
    }
    // Any box and dialog of this system ends on IDCANCEL, answering nothing.
    if (!clicked) {
        PostCommand(dialog, IDCANCEL, BN_CLICKED);
    }
}
