// Answers the message boxes and dialogs that the code under test shows on the test's own thread.
// A watcher thread polls the process's visible top-level dialog windows (class "#32770") every
// 20 ms, records each new one (caption, owner, its visible controls), and acts as the test told
// it beforehand: it clicks a button, or picks a combo box entry and then clicks, after having the
// test's thread run a piece of the test while the window is open, if asked. A window nobody
// expected is recorded and dismissed, so a test never hangs on it.
//
// Wine draws message boxes without regard to MB_TOPMOST and the icon flags, so while a watcher
// lives, the MessageBoxW calls of the code linked into this test program are also noted (through
// the program's import table) and each box carries the type flags it was asked for.
//
//     WindowWatcher watcher;
//     watcher.Expect(L"Dokument ablegen").Click(IDYES);
//     EXPECT_EQ(IDYES, AskQuestion(IDS_ASK_DELETE_ARCHIVED));
//     watcher.Verify();
#pragma once

#include <windows.h>

#include <functional>
#include <iosfwd>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "common/UniqueResource.h"

class WindowWatcher {
public:
    struct Control {
        int id;
        std::wstring className;  // "Button", "Static", "ComboBox", ...
        std::wstring text;
        std::vector<std::wstring> items;  // the entries of a combo box
    };

    struct Window {
        std::wstring caption;
        std::vector<Control> controls;  // the visible controls only
        HWND owner;  // for comparing only: the window is gone by the time a test reads this
        // The uType of the MessageBoxW call of this program that showed the window; empty for
        // other dialogs and for boxes that system code showed.
        std::optional<UINT> messageBoxType;
        bool expected;
        // What went wrong while answering it: a button or entry the test named was missing, or
        // the window stayed open after the answer.
        std::vector<std::wstring> problems;

        // Whether a visible control has exactly this text.
        bool HasText(const std::wstring& text) const;
        const Control* FindControl(int id) const;
        // The ids of the visible buttons, in control order.
        std::vector<int> ButtonIds() const;
    };

    // Builds the answer to one expected window; every call takes effect at once.
    class Expectation {
    public:
        // Clicks the button with this control id (posted as WM_COMMAND/BN_CLICKED).
        Expectation& Click(int buttonId);
        // Selects the entry `text` of a combo box before the click (posted as CB_SETCURSEL
        // followed by the CBN_SELCHANGE notification a user's pick sends).
        Expectation& SelectInCombo(int comboId, const std::wstring& text);
        // Runs `action` on the thread that calls this, from inside the window's modal loop (as a
        // host's own windows are called there), before the window is answered.
        Expectation& Call(std::function<void()> action);

    private:
        friend class WindowWatcher;
        Expectation(WindowWatcher& watcher, size_t index) : m_watcher(watcher), m_index(index) {}
        WindowWatcher& m_watcher;
        size_t m_index;
    };

    // One watcher at a time: a second one while the first lives throws std::logic_error.
    WindowWatcher();
    ~WindowWatcher();
    WindowWatcher(const WindowWatcher&) = delete;
    WindowWatcher& operator=(const WindowWatcher&) = delete;

    // The next window with exactly this caption is answered as set up on the result; several
    // expectations with one caption are used in the order they were made. An expectation without
    // a Click dismisses its window like an unexpected one.
    Expectation Expect(const std::wstring& caption);

    // Every window seen so far, in the order they appeared.
    std::vector<Window> Seen() const;

    // gtest failures for every unexpected window, every unmet expectation and every problem.
    void Verify() const;
    // gtest failures for unexpected windows only.
    void ExpectNoUnexpected() const;

private:
    struct Action {
        int controlId;
        std::optional<std::wstring> entry;  // a combo box entry to select; none for a click
    };

    struct Plan {
        std::wstring caption;
        std::vector<Action> actions;
        std::vector<size_t> calls;  // indexes into m_calls
        bool used = false;
    };

    struct Handled {
        HWND hwnd;
        size_t record;
        DWORD answeredAt;
        bool escalated;
    };

    struct MessageBoxCall {
        std::wstring caption;
        std::wstring text;
        UINT type;
    };

    static int WINAPI NotingMessageBoxW(HWND owner, LPCWSTR text, LPCWSTR caption, UINT type);
    static LRESULT CALLBACK CallWindowProc(HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam);
    void AddAction(size_t plan, Action action);
    void Run() noexcept;
    void Poll();
    void Answer(HWND dialog, Window& record, const std::vector<Action>& actions,
                const std::vector<size_t>& calls);

    mutable std::mutex m_mutex;
    std::vector<Plan> m_plans;
    std::vector<Window> m_seen;
    // MessageBoxW calls whose window has not been seen yet.
    std::vector<MessageBoxCall> m_boxCalls;
    std::vector<std::function<void()>> m_calls;
    // A message-only window of the thread that set up the calls: posted to, it runs one of them.
    HWND m_callWindow = nullptr;
    // Touched by the watcher thread only.
    std::vector<Handled> m_handled;

    // The import slot of MessageBoxW while it points at NotingMessageBoxW.
    void** m_messageBoxSlot = nullptr;
    UniqueHandle m_stop;
    std::thread m_thread;
};

std::ostream& operator<<(std::ostream& out, const WindowWatcher::Window& window);
