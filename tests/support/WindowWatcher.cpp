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
// A window still open this long after its answer gets a firmer one.
constexpr DWORD kAnswerGraceMs = 5000;
// Reading a control's text waits this long for the dialog's thread to answer.
constexpr UINT kSendTimeoutMs = 2000;

bool SameClass(HWND hwnd, const wchar_t* className) {
    wchar_t name[64] = L"";
    GetClassNameW(hwnd, name, 64);
    return CompareStringOrdinal(name, -1, className, -1, TRUE) == CSTR_EQUAL;
}

bool Send(HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam, LRESULT* result) {
    DWORD_PTR answer = 0;
    if (!SendMessageTimeoutW(hwnd, message, wParam, lParam, SMTO_ABORTIFHUNG, kSendTimeoutMs,
                             &answer)) {
        return false;
    }
    *result = static_cast<LRESULT>(answer);
    return true;
}

// The dialog answers WM_GETTEXT on its own thread, which is inside its modal loop; the timeout
// keeps a thread that stopped pumping from stalling the watcher.
std::wstring TextOf(HWND hwnd) {
    LRESULT length = 0;
    if (!Send(hwnd, WM_GETTEXTLENGTH, 0, 0, &length) || length <= 0) {
        return std::wstring();
    }
    std::wstring text(static_cast<size_t>(length) + 1, L'\0');
    LRESULT copied = 0;
    if (!Send(hwnd, WM_GETTEXT, text.size(), reinterpret_cast<LPARAM>(text.data()), &copied)) {
        return std::wstring();
    }
    text.resize(static_cast<size_t>(copied > 0 ? copied : 0));
    return text;
}

std::vector<std::wstring> ComboItems(HWND combo) {
    std::vector<std::wstring> items;
    LRESULT count = 0;
    if (!Send(combo, CB_GETCOUNT, 0, 0, &count)) {
        return items;
    }
    for (LRESULT i = 0; i < count; ++i) {
        LRESULT length = 0;
        if (!Send(combo, CB_GETLBTEXTLEN, i, 0, &length) || length < 0) {
            items.emplace_back();
            continue;
        }
        std::wstring item(static_cast<size_t>(length) + 1, L'\0');
        LRESULT copied = 0;
        Send(combo, CB_GETLBTEXT, i, reinterpret_cast<LPARAM>(item.data()), &copied);
        item.resize(static_cast<size_t>(copied > 0 ? copied : 0));
        items.push_back(std::move(item));
    }
    return items;
}

BOOL CALLBACK CollectDialog(HWND hwnd, LPARAM found) {
    DWORD process = 0;
    GetWindowThreadProcessId(hwnd, &process);
    if (process == GetCurrentProcessId() && IsWindowVisible(hwnd) && SameClass(hwnd, L"#32770")) {
        reinterpret_cast<std::vector<HWND>*>(found)->push_back(hwnd);
    }
    return TRUE;
}

WindowWatcher::Window Describe(HWND dialog) {
    WindowWatcher::Window window{};
    window.caption = TextOf(dialog);
    window.style = static_cast<DWORD>(GetWindowLongW(dialog, GWL_STYLE));
    window.exStyle = static_cast<DWORD>(GetWindowLongW(dialog, GWL_EXSTYLE));
    window.owner = GetWindow(dialog, GW_OWNER);
    for (HWND child = GetWindow(dialog, GW_CHILD); child; child = GetWindow(child, GW_HWNDNEXT)) {
        // A message box hides the buttons of the other box types instead of destroying them.
        if (!IsWindowVisible(child)) {
            continue;
        }
        WindowWatcher::Control control{};
        control.id = GetDlgCtrlID(child);
        wchar_t className[64] = L"";
        GetClassNameW(child, className, 64);
        control.className = className;
        control.text = TextOf(child);
        if (SameClass(child, L"ComboBox")) {
            control.items = ComboItems(child);
        }
        if (!control.text.empty()) {
            window.texts.push_back(control.text);
        }
        window.controls.push_back(std::move(control));
    }
    return window;
}

struct Post {
    HWND hwnd;
    UINT message;
    WPARAM wParam;
    LPARAM lParam;
};

Post ClickOf(HWND dialog, int id) {
    return Post{dialog, WM_COMMAND, MAKEWPARAM(id, BN_CLICKED),
                reinterpret_cast<LPARAM>(GetDlgItem(dialog, id))};
}

// The least committal answer the window offers: Cancel, else No, else OK, else closing it.
Post DismissalOf(HWND dialog, const WindowWatcher::Window& window) {
    std::vector<int> buttons = window.ButtonIds();
    for (int id : {IDCANCEL, IDNO, IDOK}) {
        for (int button : buttons) {
            if (button == id) {
                return ClickOf(dialog, id);
            }
        }
    }
    return Post{dialog, WM_CLOSE, 0, 0};
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

// Points one import of the test program at a replacement for as long as it lives.
class WindowWatcher::ImportPatch {
public:
    static std::unique_ptr<ImportPatch> Install(void** slot, void* replacement) {
        void* original = *slot;
        if (!WriteSlot(slot, replacement)) {
            return nullptr;
        }
        return std::unique_ptr<ImportPatch>(new ImportPatch(slot, original));
    }
    ~ImportPatch() { WriteSlot(m_slot, m_original); }
    ImportPatch(const ImportPatch&) = delete;
    ImportPatch& operator=(const ImportPatch&) = delete;

private:
    ImportPatch(void** slot, void* original) : m_slot(slot), m_original(original) {}
    void** m_slot;
    void* m_original;
};

bool WindowWatcher::Window::HasText(const std::wstring& text) const {
    for (const std::wstring& candidate : texts) {
        if (candidate == text) {
            return true;
        }
    }
    return false;
}

const WindowWatcher::Control* WindowWatcher::Window::FindControl(int id) const {
    for (const Control& control : controls) {
        if (control.id == id) {
            return &control;
        }
    }
    return nullptr;
}

std::vector<int> WindowWatcher::Window::ButtonIds() const {
    std::vector<int> ids;
    for (const Control& control : controls) {
        if (CompareStringOrdinal(control.className.c_str(), -1, L"Button", -1, TRUE) ==
            CSTR_EQUAL) {
            ids.push_back(control.id);
        }
    }
    return ids;
}

std::ostream& operator<<(std::ostream& out, const WindowWatcher::Window& window) {
    out << '"' << ToUtf8(window.caption) << "\" {";
    const char* separator = "";
    for (const std::wstring& text : window.texts) {
        out << separator << '"' << ToUtf8(text) << '"';
        separator = ", ";
    }
    out << '}';
    for (const std::wstring& problem : window.problems) {
        out << "; " << ToUtf8(problem);
    }
    return out;
}

WindowWatcher::Expectation& WindowWatcher::Expectation::Click(int buttonId) {
    m_watcher.AddAction(m_index, Action{Action::Kind::Click, buttonId, 0, {}});
    return *this;
}

WindowWatcher::Expectation& WindowWatcher::Expectation::SelectInCombo(int comboId, int index) {
    m_watcher.AddAction(m_index, Action{Action::Kind::SelectIndex, comboId, index, {}});
    return *this;
}

WindowWatcher::Expectation& WindowWatcher::Expectation::SelectInCombo(int comboId,
                                                                      const std::wstring& text) {
    m_watcher.AddAction(m_index, Action{Action::Kind::SelectText, comboId, 0, text});
    return *this;
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
        if (void** slot = FindImportSlot(GetModuleHandleW(nullptr), "user32.dll", "MessageBoxW")) {
            g_realMessageBoxW = reinterpret_cast<MessageBoxWFunction>(*slot);
            m_messageBoxPatch =
                ImportPatch::Install(slot, reinterpret_cast<void*>(&NotingMessageBoxW));
        }
        m_thread = std::thread([this] { Run(); });
    } catch (...) {
        m_messageBoxPatch.reset();
        g_activeWatcher = nullptr;
        throw;
    }
}

WindowWatcher::~WindowWatcher() {
    SetEvent(m_stop.get());
    m_thread.join();
    m_messageBoxPatch.reset();
    g_activeWatcher = nullptr;
}

int WINAPI WindowWatcher::NotingMessageBoxW(HWND owner, LPCWSTR text, LPCWSTR caption, UINT type) {
    if (WindowWatcher* watcher = g_activeWatcher.load()) {
        watcher->NoteMessageBox(text, caption, type);
    }
    return g_realMessageBoxW.load()(owner, text, caption, type);
}

void WindowWatcher::NoteMessageBox(LPCWSTR text, LPCWSTR caption, UINT type) noexcept try {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_boxCalls.push_back(MessageBoxCall{caption ? caption : L"", text ? text : L"", type});
} catch (...) {
    // A box whose call was not noted is still answered; it only lacks its type.
}

WindowWatcher::Expectation WindowWatcher::Expect(const std::wstring& caption) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_plans.push_back(Plan{caption, {}, false});
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

std::vector<WindowWatcher::Window> WindowWatcher::Unexpected() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    std::vector<Window> unexpected;
    for (const Window& window : m_seen) {
        if (!window.expected) {
            unexpected.push_back(window);
        }
    }
    return unexpected;
}

std::vector<std::wstring> WindowWatcher::Unmet() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    std::vector<std::wstring> unmet;
    for (const Plan& plan : m_plans) {
        if (!plan.used) {
            unmet.push_back(plan.caption);
        }
    }
    return unmet;
}

void WindowWatcher::ExpectNoUnexpected() const {
    for (const Window& window : Unexpected()) {
        ADD_FAILURE() << "unexpected window " << window;
    }
}

void WindowWatcher::Verify() const {
    ExpectNoUnexpected();
    for (const std::wstring& caption : Unmet()) {
        ADD_FAILURE() << "no window \"" << ToUtf8(caption) << "\" appeared";
    }
    for (const Window& window : Seen()) {
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
            if (GetTickCount() - known->answeredAt > kAnswerGraceMs) {
                Escalate(*known);
            }
            continue;
        }

        Window record = Describe(dialog);
        std::vector<Action> actions;
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
                    break;
                }
            }
        }
        Answer(dialog, record, actions);
    }
}

void WindowWatcher::Answer(HWND dialog, Window& record, const std::vector<Action>& actions) {
    // Decide everything first and record the window before any answer goes out: the code under
    // test may return, and the test read Seen(), as soon as the dialog has its answer.
    std::vector<Post> posts;
    bool clicked = false;
    for (const Action& action : actions) {
        const Control* control = record.FindControl(action.controlId);
        if (action.kind == Action::Kind::Click) {
            if (!control) {
                record.problems.push_back(L"no button " + std::to_wstring(action.controlId));
                continue;
            }
            posts.push_back(ClickOf(dialog, action.controlId));
            clicked = true;
            continue;
        }
        if (!control || CompareStringOrdinal(control->className.c_str(), -1, L"ComboBox", -1,
                                             TRUE) != CSTR_EQUAL) {
            record.problems.push_back(L"no combo box " + std::to_wstring(action.controlId));
            continue;
        }
        int index = action.index;
        if (action.kind == Action::Kind::SelectText) {
            auto found = std::find(control->items.begin(), control->items.end(), action.text);
            if (found == control->items.end()) {
                record.problems.push_back(L"no entry \"" + action.text + L"\" in combo box " +
                                          std::to_wstring(action.controlId));
                continue;
            }
            index = static_cast<int>(found - control->items.begin());
        } else if (index < 0 || static_cast<size_t>(index) >= control->items.size()) {
            record.problems.push_back(L"no entry " + std::to_wstring(index) + L" in combo box " +
                                      std::to_wstring(action.controlId));
            continue;
        }
        HWND combo = GetDlgItem(dialog, action.controlId);
        posts.push_back(Post{combo, CB_SETCURSEL, static_cast<WPARAM>(index), 0});
        posts.push_back(Post{dialog, WM_COMMAND, MAKEWPARAM(action.controlId, CBN_SELCHANGE),
                             reinterpret_cast<LPARAM>(combo)});
    }
    if (!clicked) {
        posts.push_back(DismissalOf(dialog, record));
    }

    size_t index;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        index = m_seen.size();
        m_seen.push_back(record);
    }
    m_handled.push_back(Handled{dialog, index, GetTickCount(), 0});
    // Posted, not sent: the dialog's thread handles them in this order once its modal loop runs.
    for (const Post& post : posts) {
        PostMessageW(post.hwnd, post.message, post.wParam, post.lParam);
    }
}

void WindowWatcher::Escalate(Handled& handled) {
    ++handled.escalations;
    handled.answeredAt = GetTickCount();
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_seen[handled.record].problems.push_back(L"still open after the answer");
    }
    if (handled.escalations == 1) {
        PostMessageW(handled.hwnd, WM_COMMAND, MAKEWPARAM(IDCANCEL, BN_CLICKED), 0);
        PostMessageW(handled.hwnd, WM_CLOSE, 0, 0);
    } else if (handled.escalations == 2) {
        EndDialog(handled.hwnd, IDCANCEL);
    }
}
