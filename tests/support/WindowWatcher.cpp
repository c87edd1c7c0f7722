#include "support/WindowWatcher.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <ostream>
#include <stdexcept>

#include "support/TestFiles.h"

namespace {

constexpr DWORD kPollIntervalMs = 20;

std::wstring ClassOf(HWND hwnd) {
    wchar_t name[64] = L"";
    GetClassNameW(hwnd, name, 64);
    return name;
}

bool IsClass(const std::wstring& name, const wchar_t* className) {
    return CompareStringOrdinal(name.c_str(), -1, className, -1, TRUE) == CSTR_EQUAL;
}

// The dialog answers from its modal loop; the timeout keeps a thread that stopped pumping from
// stalling the watcher. 0 when the message failed.
LRESULT Send(HWND hwnd, UINT message, WPARAM wParam = 0, LPARAM lParam = 0) {
    DWORD_PTR answer = 0;
    return SendMessageTimeoutW(hwnd, message, wParam, lParam, SMTO_ABORTIFHUNG, 2000, &answer)
               ? static_cast<LRESULT>(answer)
               : 0;
}

// The text of a window, or of entry `item` of a combo box.
std::wstring TextOf(HWND hwnd, std::optional<WPARAM> item = std::nullopt) {
    LRESULT length = item ? Send(hwnd, CB_GETLBTEXTLEN, *item) : Send(hwnd, WM_GETTEXTLENGTH);
    std::wstring text(static_cast<size_t>(std::max<LRESULT>(length, 0)) + 1, L'\0');
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
        IsClass(ClassOf(hwnd), L"#32770")) {
        reinterpret_cast<std::vector<HWND>*>(found)->push_back(hwnd);
    }
    return TRUE;
}

WindowWatcher::Window Describe(HWND dialog) {
    WindowWatcher::Window window{TextOf(dialog), {}, GetWindow(dialog, GW_OWNER), {}, false, false};
    for (HWND child = GetWindow(dialog, GW_CHILD); child; child = GetWindow(child, GW_HWNDNEXT)) {
        // A message box hides the buttons of the other box types instead of destroying them.
        if (!IsWindowVisible(child)) {
            continue;
        }
        auto& control = window.controls.emplace_back(
            WindowWatcher::Control{GetDlgCtrlID(child), ClassOf(child), TextOf(child), {}});
        LRESULT items = IsClass(control.className, L"ComboBox") ? Send(child, CB_GETCOUNT) : 0;
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

using MessageBoxWFunction = int(WINAPI*)(HWND, LPCWSTR, LPCWSTR, UINT);
std::atomic<WindowWatcher*> g_activeWatcher{nullptr};
std::atomic<MessageBoxWFunction> g_realMessageBoxW{nullptr};

// The import address table slot through which the test program calls user32's MessageBoxW.
void** MessageBoxImportSlot() {
    auto* base = reinterpret_cast<BYTE*>(GetModuleHandleW(nullptr));
    auto at = [base](auto offset) { return base + offset; };
    auto* nt = reinterpret_cast<IMAGE_NT_HEADERS*>(
        at(reinterpret_cast<IMAGE_DOS_HEADER*>(base)->e_lfanew));
    DWORD imports = nt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT].VirtualAddress;
    for (auto* dll = reinterpret_cast<IMAGE_IMPORT_DESCRIPTOR*>(at(imports)); imports && dll->Name;
         ++dll) {
        if (_stricmp(reinterpret_cast<const char*>(at(dll->Name)), "user32.dll") != 0 ||
            dll->OriginalFirstThunk == 0) {
            continue;
        }
        auto* name = reinterpret_cast<IMAGE_THUNK_DATA*>(at(dll->OriginalFirstThunk));
        auto* slot = reinterpret_cast<IMAGE_THUNK_DATA*>(at(dll->FirstThunk));
        for (; name->u1.AddressOfData; ++name, ++slot) {
            auto* byName = reinterpret_cast<IMAGE_IMPORT_BY_NAME*>(at(name->u1.AddressOfData));
            if (!IMAGE_SNAP_BY_ORDINAL(name->u1.Ordinal) &&
                std::strcmp(reinterpret_cast<const char*>(byName->Name), "MessageBoxW") == 0) {
                return reinterpret_cast<void**>(&slot->u1.Function);
            }
        }
    }
    return nullptr;
}

void WriteSlot(void** slot, void* value) {
    DWORD protection = 0;
    VirtualProtect(slot, sizeof *slot, PAGE_READWRITE, &protection);
    *slot = value;
    VirtualProtect(slot, sizeof *slot, protection, &protection);
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
        if (IsClass(control.className, L"Button")) {
            ids.push_back(control.id);
        }
    }
    return ids;
}

std::ostream& operator<<(std::ostream& out, const WindowWatcher::Window& window) {
    out << '"' << ToUtf8(window.caption) << '"';
    for (const WindowWatcher::Control& control : window.controls) {
        out << (&control == &window.controls[0] ? " {\"" : ", \"") << ToUtf8(control.text) << '"';
    }
    return out << (window.controls.empty() ? "" : "}")
               << (window.unanswerable ? " could not be answered" : "");
}

WindowWatcher::Expectation& WindowWatcher::Expectation::Add(int id,
                                                            std::optional<std::wstring> entry) {
    std::lock_guard<std::mutex> lock(m_watcher.m_mutex);
    m_watcher.m_plans[m_index].actions.push_back(Action{id, std::move(entry)});
    return *this;
}

WindowWatcher::WindowWatcher() : m_stop(CreateEventW(nullptr, TRUE, FALSE, nullptr)) {
    WindowWatcher* none = nullptr;
    if (!m_stop || !g_activeWatcher.compare_exchange_strong(none, this)) {
        throw std::logic_error("WindowWatcher: only one watcher at a time");
    }
    if ((m_messageBoxSlot = MessageBoxImportSlot())) {
        g_realMessageBoxW = reinterpret_cast<MessageBoxWFunction>(*m_messageBoxSlot);
        WriteSlot(m_messageBoxSlot, reinterpret_cast<void*>(&NotingMessageBoxW));
    }
    m_thread = std::thread([this] {
        do {
            Poll();
        } while (WaitForSingleObject(m_stop.get(), kPollIntervalMs) == WAIT_TIMEOUT);
    });
}

WindowWatcher::~WindowWatcher() {
    SetEvent(m_stop.get());
    m_thread.join();
    if (m_messageBoxSlot) {
        WriteSlot(m_messageBoxSlot, reinterpret_cast<void*>(g_realMessageBoxW.load()));
    }
    g_activeWatcher = nullptr;
}

int WINAPI WindowWatcher::NotingMessageBoxW(HWND owner, LPCWSTR text, LPCWSTR caption, UINT type) {
    if (WindowWatcher* watcher = g_activeWatcher.load()) {
        std::lock_guard<std::mutex> lock(watcher->m_mutex);
        watcher->m_boxCalls.push_back(BoxCall{caption ? caption : L"", text ? text : L"", type});
    }
    return g_realMessageBoxW.load()(owner, text, caption, type);
}

WindowWatcher::Expectation WindowWatcher::Expect(const std::wstring& caption) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_plans.push_back(Plan{caption, {}, false});
    return Expectation(*this, m_plans.size() - 1);
}

std::vector<WindowWatcher::Window> WindowWatcher::Seen() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_seen;
}

void WindowWatcher::Verify() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    for (const Window& window : m_seen) {
        if (!window.expected || window.unanswerable) {
            ADD_FAILURE() << (window.expected ? "window " : "unexpected window ") << window;
        }
    }
    for (const Plan& plan : m_plans) {
        if (!plan.used) {
            ADD_FAILURE() << "no window \"" << ToUtf8(plan.caption) << "\" appeared";
        }
    }
}

void WindowWatcher::Poll() {
    std::vector<HWND> dialogs;
    EnumWindows(CollectDialog, reinterpret_cast<LPARAM>(&dialogs));
    // A window that has gone is forgotten, so that its handle used again is a new window.
    std::erase_if(m_open, [&](HWND open) {
        return std::find(dialogs.begin(), dialogs.end(), open) == dialogs.end();
    });
    for (HWND dialog : dialogs) {
        if (std::find(m_open.begin(), m_open.end(), dialog) == m_open.end()) {
            m_open.push_back(dialog);
            Answer(dialog);
        }
    }
}

void WindowWatcher::Answer(HWND dialog) {
    Window record = Describe(dialog);
    std::vector<Action> actions;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
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
        if (plan != m_plans.end()) {
            plan->used = record.expected = true;
            actions = plan->actions;
        }
    }
    // The answer is worked out and the window recorded before the first message goes out: the
    // code under test may return, and the test read Seen(), as soon as the dialog has it.
    std::vector<std::pair<int, int>> answers;  // a control id and a combo box entry, -1 to click
    for (const Action& action : actions) {
        const Control* control = record.FindControl(action.id);
        if (!control) {
            record.unanswerable = true;
        } else if (!action.entry) {
            answers.emplace_back(action.id, -1);
        } else {
            auto entry = std::find(control->items.begin(), control->items.end(), *action.entry);
            record.unanswerable |= entry == control->items.end();
            answers.emplace_back(action.id, static_cast<int>(entry - control->items.begin()));
        }
    }
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_seen.push_back(record);
    }
    bool clicked = false;
    for (auto [id, entry] : answers) {
        if (entry >= 0) {
            PostMessageW(GetDlgItem(dialog, id), CB_SETCURSEL, static_cast<WPARAM>(entry), 0);
        }
        PostCommand(dialog, id, entry >= 0 ? CBN_SELCHANGE : BN_CLICKED);
        clicked |= entry < 0;
    }
    // Any box and dialog of this system ends on IDCANCEL, answering nothing.
    if (!clicked) {
        PostCommand(dialog, IDCANCEL, BN_CLICKED);
    }
}
