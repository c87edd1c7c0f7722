#include "support/WindowWatcher.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <optional>
#include <ostream>
#include <stdexcept>

#include "support/TestFiles.h"

namespace {

constexpr DWORD kPollIntervalMs = 20;
// A window still open this long after its answer gets a firmer one.
constexpr DWORD kAnswerGraceMs = 5000;
// Reading a control's text waits this long for the dialog's thread to answer.
constexpr UINT kSendTimeoutMs = 2000;
// Posted to the call window: run call number wParam.
constexpr UINT kRunCall = WM_APP;
constexpr wchar_t kCallWindowClass[] = L"TalvornWindowWatcherCalls";

bool SameClass(const std::wstring& name, const wchar_t* className) {
    return CompareStringOrdinal(name.c_str(), -1, className, -1, TRUE) == CSTR_EQUAL;
}

std::wstring ClassOf(HWND hwnd) {
    wchar_t name[64] = L"";
    GetClassNameW(hwnd, name, 64);
    return name;
}

// The dialog answers on its own thread, which is inside its modal loop; the timeout keeps a
// thread that stopped pumping from stalling the watcher. 0 when the message failed.
LRESULT Send(HWND hwnd, UINT message, WPARAM wParam = 0, LPARAM lParam = 0) {
    DWORD_PTR answer = 0;
    if (!SendMessageTimeoutW(hwnd, message, wParam, lParam, SMTO_ABORTIFHUNG, kSendTimeoutMs,
                             &answer)) {
        return 0;
    }
    return static_cast<LRESULT>(answer);
}

// The text of a window, or of entry `item` of a combo box.
std::wstring TextOf(HWND hwnd, std::optional<WPARAM> item = std::nullopt) {
    LRESULT length = item ? Send(hwnd, CB_GETLBTEXTLEN, *item) : Send(hwnd, WM_GETTEXTLENGTH);
    if (length <= 0) {
        return std::wstring();
    }
    std::wstring text(static_cast<size_t>(length) + 1, L'\0');
    auto buffer = reinterpret_cast<LPARAM>(text.data());
    LRESULT copied = item ? Send(hwnd, CB_GETLBTEXT, *item, buffer)
                          : Send(hwnd, WM_GETTEXT, text.size(), buffer);
    text.resize(static_cast<size_t>(std::clamp<LRESULT>(copied, 0, length)));
    return text;
}

BOOL CALLBACK CollectDialog(HWND hwnd, LPARAM found) {
    DWORD process = 0;
    GetWindowThreadProcessId(hwnd, &process);
    if (process == GetCurrentProcessId() && IsWindowVisible(hwnd) &&
        SameClass(ClassOf(hwnd), L"#32770")) {
        reinterpret_cast<std::vector<HWND>*>(found)->push_back(hwnd);
    }
    return TRUE;
}

WindowWatcher::Window Describe(HWND dialog) {
    WindowWatcher::Window window{};
    window.caption = TextOf(dialog);
    window.owner = GetWindow(dialog, GW_OWNER);
    for (HWND child = GetWindow(dialog, GW_CHILD); child; child = GetWindow(child, GW_HWNDNEXT)) {
        // A message box hides the buttons of the other box types instead of destroying them.
        if (!IsWindowVisible(child)) {
            continue;
        }
        WindowWatcher::Control control{GetDlgCtrlID(child), ClassOf(child), TextOf(child), {}};
        if (SameClass(control.className, L"ComboBox")) {
            for (LRESULT i = 0, count = Send(child, CB_GETCOUNT); i < count; ++i) {
                control.items.push_back(TextOf(child, static_cast<WPARAM>(i)));
            }
        }
        window.controls.push_back(std::move(control));
    }
    return window;
}

void PostClick(HWND dialog, int id) {
    PostMessageW(dialog, WM_COMMAND, MAKEWPARAM(id, BN_CLICKED),
                 reinterpret_cast<LPARAM>(GetDlgItem(dialog, id)));
}

// The least committal answer the window offers: Cancel, else No, else OK, else closing it.
void Dismiss(HWND dialog, const WindowWatcher::Window& window) {
    std::vector<int> buttons = window.ButtonIds();
    for (int id : {IDCANCEL, IDNO, IDOK}) {
        if (std::find(buttons.begin(), buttons.end(), id) != buttons.end()) {
            PostClick(dialog, id);
            return;
        }
    }
    PostMessageW(dialog, WM_CLOSE, 0, 0);
}

using MessageBoxWFunction = int(WINAPI*)(HWND, LPCWSTR, LPCWSTR, UINT);

std::atomic<WindowWatcher*> g_activeWatcher{nullptr};
std::atomic<MessageBoxWFunction> g_realMessageBoxW{nullptr};

// The import address table slot through which `module` calls `function` of `dll`, or null when
// the module does not import it by name.
void** FindImportSlot(HMODULE module, const char* dll, const char* function) {
    auto* base = reinterpret_cast<BYTE*>(module);
    auto* dos = reinterpret_cast<IMAGE_DOS_HEADER*>(base);
    auto* nt = reinterpret_cast<IMAGE_NT_HEADERS*>(base + dos->e_lfanew);
    const IMAGE_DATA_DIRECTORY& imports =
        nt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
    if (imports.VirtualAddress == 0) {
        return nullptr;
    }
    for (auto* descriptor =
             reinterpret_cast<IMAGE_IMPORT_DESCRIPTOR*>(base + imports.VirtualAddress);
         descriptor->Name; ++descriptor) {
        // Without the name table the slots hold only addresses, nothing to tell them apart by.
        if (_stricmp(reinterpret_cast<const char*>(base + descriptor->Name), dll) != 0 ||
            descriptor->OriginalFirstThunk == 0) {
            continue;
        }
        auto* names = reinterpret_cast<IMAGE_THUNK_DATA*>(base + descriptor->OriginalFirstThunk);
        auto* slots = reinterpret_cast<IMAGE_THUNK_DATA*>(base + descriptor->FirstThunk);
        for (; names->u1.AddressOfData; ++names, ++slots) {
            if (IMAGE_SNAP_BY_ORDINAL(names->u1.Ordinal)) {
                continue;
            }
            auto* byName = reinterpret_cast<IMAGE_IMPORT_BY_NAME*>(base + names->u1.AddressOfData);
            if (std::strcmp(reinterpret_cast<const char*>(byName->Name), function) == 0) {
                return reinterpret_cast<void**>(&slots->u1.Function);
            }
        }
    }
    return nullptr;
}

bool WriteSlot(void** slot, void* value) {
    DWORD protection = 0;
    if (!VirtualProtect(slot, sizeof *slot, PAGE_READWRITE, &protection)) {
        return false;
    }
    *slot = value;
    VirtualProtect(slot, sizeof *slot, protection, &protection);
    return true;
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

std::vector<int> WindowWatcher::Window::ButtonIds() const {
    std::vector<int> ids;
    for (const Control& control : controls) {
        if (SameClass(control.className, L"Button")) {
            ids.push_back(control.id);
        }
    }
    return ids;
}

std::ostream& operator<<(std::ostream& out, const WindowWatcher::Window& window) {
    out << '"' << ToUtf8(window.caption) << "\" {";
    const char* separator = "";
    for (const WindowWatcher::Control& control : window.controls) {
        if (!control.text.empty()) {
            out << separator << '"' << ToUtf8(control.text) << '"';
            separator = ", ";
        }
    }
    out << '}';
    for (const std::wstring& problem : window.problems) {
        out << "; " << ToUtf8(problem);
    }
    return out;
}

WindowWatcher::Expectation& WindowWatcher::Expectation::Click(int buttonId) {
    m_watcher.AddAction(m_index, Action{buttonId, std::nullopt});
    return *this;
}

WindowWatcher::Expectation& WindowWatcher::Expectation::SelectInCombo(int comboId,
                                                                      const std::wstring& text) {
    m_watcher.AddAction(m_index, Action{comboId, text});
    return *this;
}

WindowWatcher::Expectation& WindowWatcher::Expectation::Call(std::function<void()> action) {
    HWND& window = m_watcher.m_callWindow;
    if (!window) {
        WNDCLASSW windowClass{};
        windowClass.lpfnWndProc = CallWindowProc;
        windowClass.hInstance = GetModuleHandleW(nullptr);
        windowClass.lpszClassName = kCallWindowClass;
        RegisterClassW(&windowClass);  // fails harmlessly when an earlier watcher registered it
        window = CreateWindowExW(0, kCallWindowClass, L"", 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr,
                                 windowClass.hInstance, nullptr);
        if (!window) {
            throw std::runtime_error("WindowWatcher: cannot create its call window");
        }
        SetWindowLongPtrW(window, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(&m_watcher));
    }
    std::lock_guard<std::mutex> lock(m_watcher.m_mutex);
    m_watcher.m_plans[m_index].calls.push_back(m_watcher.m_calls.size());
    m_watcher.m_calls.push_back(std::move(action));
    return *this;
}

LRESULT CALLBACK WindowWatcher::CallWindowProc(HWND hwnd, UINT message, WPARAM wParam,
                                               LPARAM lParam) {
    auto* watcher = reinterpret_cast<WindowWatcher*>(GetWindowLongPtrW(hwnd, GWLP_USERDATA));
    if (message != kRunCall || !watcher) {
        return DefWindowProcW(hwnd, message, wParam, lParam);
    }
    std::function<void()> action;
    {
        std::lock_guard<std::mutex> lock(watcher->m_mutex);
        action = watcher->m_calls.at(wParam);
    }
    try {
        action();
    } catch (...) {
        ADD_FAILURE() << "WindowWatcher: a call threw";
    }
    return 0;
}

WindowWatcher::WindowWatcher() : m_stop(CreateEventW(nullptr, TRUE, FALSE, nullptr)) {
    if (!m_stop) {
        throw std::runtime_error("WindowWatcher: cannot create its stop event");
    }
    WindowWatcher* none = nullptr;
    if (!g_activeWatcher.compare_exchange_strong(none, this)) {
        throw std::logic_error("WindowWatcher: only one watcher at a time");
    }
    try {
        m_thread = std::thread([this] { Run(); });
    } catch (...) {
        g_activeWatcher = nullptr;
        throw;
    }
    if (void** slot = FindImportSlot(GetModuleHandleW(nullptr), "user32.dll", "MessageBoxW")) {
        g_realMessageBoxW = reinterpret_cast<MessageBoxWFunction>(*slot);
        if (WriteSlot(slot, reinterpret_cast<void*>(&NotingMessageBoxW))) {
            m_messageBoxSlot = slot;
        }
    }
}

WindowWatcher::~WindowWatcher() {
    SetEvent(m_stop.get());
    m_thread.join();
    if (m_callWindow) {
        DestroyWindow(m_callWindow);
    }
    if (m_messageBoxSlot) {
        WriteSlot(m_messageBoxSlot, reinterpret_cast<void*>(g_realMessageBoxW.load()));
    }
    g_activeWatcher = nullptr;
}

int WINAPI WindowWatcher::NotingMessageBoxW(HWND owner, LPCWSTR text, LPCWSTR caption, UINT type) {
    if (WindowWatcher* watcher = g_activeWatcher.load()) {
        try {
            std::lock_guard<std::mutex> lock(watcher->m_mutex);
            watcher->m_boxCalls.push_back(
                MessageBoxCall{caption ? caption : L"", text ? text : L"", type});
        } catch (...) {
            // A box whose call was not noted is still answered; it only lacks its type.
        }
    }
    return g_realMessageBoxW.load()(owner, text, caption, type);
}

WindowWatcher::Expectation WindowWatcher::Expect(const std::wstring& caption) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_plans.push_back(Plan{caption, {}, {}, false});
    return Expectation(*this, m_plans.size() - 1);
}

void WindowWatcher::AddAction(size_t plan, Action action) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_plans[plan].actions.push_back(std::move(action));
}

std::vector<WindowWatcher::Window> WindowWatcher::Seen() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_seen;
}

void WindowWatcher::ExpectNoUnexpected() const {
    for (const Window& window : Seen()) {
        if (!window.expected) {
            ADD_FAILURE() << "unexpected window " << window;
        }
    }
}

void WindowWatcher::Verify() const {
    ExpectNoUnexpected();
    std::lock_guard<std::mutex> lock(m_mutex);
    for (const Plan& plan : m_plans) {
        if (!plan.used) {
            ADD_FAILURE() << "no window \"" << ToUtf8(plan.caption) << "\" appeared";
        }
    }
    for (const Window& window : m_seen) {
        if (window.expected && !window.problems.empty()) {
            ADD_FAILURE() << "window answered with problems: " << window;
        }
    }
}

void WindowWatcher::Run() noexcept {
    try {
        do {
            Poll();
        } while (WaitForSingleObject(m_stop.get(), kPollIntervalMs) == WAIT_TIMEOUT);
    } catch (...) {
        // The thread would end the program; the test is told instead, and any dialog left open
        // is the watchdog's to report.
        ADD_FAILURE() << "WindowWatcher: the watcher thread stopped on an exception";
    }
}

void WindowWatcher::Poll() {
    std::vector<HWND> dialogs;
    EnumWindows(CollectDialog, reinterpret_cast<LPARAM>(&dialogs));

    // Forget the windows that have gone, so that a handle used again counts as a new window.
    std::erase_if(m_handled, [&](const Handled& handled) {
        return std::find(dialogs.begin(), dialogs.end(), handled.hwnd) == dialogs.end();
    });

    for (HWND dialog : dialogs) {
        auto known = std::find_if(m_handled.begin(), m_handled.end(),
                                  [&](const Handled& handled) { return handled.hwnd == dialog; });
        if (known != m_handled.end()) {
            // Still open long after its answer: noted once, then cancelled and closed.
            if (!known->escalated && GetTickCount() - known->answeredAt > kAnswerGraceMs) {
                known->escalated = true;
                {
                    std::lock_guard<std::mutex> lock(m_mutex);
                    m_seen[known->record].problems.push_back(L"still open after the answer");
                }
                PostMessageW(dialog, WM_COMMAND, MAKEWPARAM(IDCANCEL, BN_CLICKED), 0);
                PostMessageW(dialog, WM_CLOSE, 0, 0);
            }
            continue;
        }

        Window record = Describe(dialog);
        std::vector<Action> actions;
        std::vector<size_t> calls;
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            for (auto call = m_boxCalls.begin(); call != m_boxCalls.end(); ++call) {
                if (call->caption == record.caption && record.HasText(call->text)) {
                    record.messageBoxType = call->type;
                    m_boxCalls.erase(call);
                    break;
                }
            }
            for (Plan& plan : m_plans) {
                if (!plan.used && plan.caption == record.caption) {
                    plan.used = true;
                    record.expected = true;
                    actions = plan.actions;
                    calls = plan.calls;
                    break;
                }
            }
        }
        Answer(dialog, record, actions, calls);
    }
}

void WindowWatcher::Answer(HWND dialog, Window& record, const std::vector<Action>& actions,
                           const std::vector<size_t>& calls) {
    // Check every action and record the window before any answer goes out: the code under test
    // may return, and the test read Seen(), as soon as the dialog has its answer.
    std::vector<std::pair<int, int>> answers;  // a control id and a combo box entry, -1 to click
    for (const Action& action : actions) {
        const Control* control = record.FindControl(action.controlId);
        const std::wstring id = std::to_wstring(action.controlId);
        if (!control) {
            record.problems.push_back(L"no control " + id);
        } else if (!action.entry) {
            answers.emplace_back(action.controlId, -1);
        } else if (auto found =
                       std::find(control->items.begin(), control->items.end(), *action.entry);
                   found != control->items.end()) {
            answers.emplace_back(action.controlId,
                                 static_cast<int>(found - control->items.begin()));
        } else {
            record.problems.push_back(L"no entry \"" + *action.entry + L"\" in control " + id);
        }
    }
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_handled.push_back(Handled{dialog, m_seen.size(), GetTickCount(), false});
        m_seen.push_back(record);
    }
    // Posted, not sent: the dialog's thread handles them in this order once its modal loop runs.
    for (size_t call : calls) {
        PostMessageW(m_callWindow, kRunCall, call, 0);
    }
    for (auto [id, entry] : answers) {
        HWND control = GetDlgItem(dialog, id);
        if (entry < 0) {
            PostMessageW(dialog, WM_COMMAND, MAKEWPARAM(id, BN_CLICKED),
                         reinterpret_cast<LPARAM>(control));
        } else {
            PostMessageW(control, CB_SETCURSEL, static_cast<WPARAM>(entry), 0);
            PostMessageW(dialog, WM_COMMAND, MAKEWPARAM(id, CBN_SELCHANGE),
                         reinterpret_cast<LPARAM>(control));
        }
    }
    if (std::none_of(answers.begin(), answers.end(),
                     [](auto answer) { return answer.second < 0; })) {
        Dismiss(dialog, record);
    }
}
