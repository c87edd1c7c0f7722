// Answers the dialogs and message boxes that the code under test shows on the test's thread. A
// window hook notes each dialog window (class "#32770") as it is shown, with its visible
// controls, and posts the answer the test gave beforehand, which the dialog's modal loop then
// handles, after having a piece of the test run in that loop if asked; a window nobody expected
// fails the test and is cancelled. (A window that stays open all the same is the test main's
// watchdog's to report.)
//
// Wine draws message boxes without regard to MB_TOPMOST and the icon flags, so while a watcher
// lives the test program's own MessageBoxW calls are noted (through its import table) and each
// box carries the type flags it was asked for.
//
//     WindowWatcher watcher;
//     watcher.Expect(L"Dokument ablegen").Click(IDYES);
//     EXPECT_EQ(IDYES, AskQuestion(IDS_ASK_DELETE_ARCHIVED));
//     watcher.Verify();
#pragma once

#include <windows.h>

#include <functional>
#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

#include "officesim/ImportPatch.h"

class WindowWatcher {
public:
    struct Control {
        int id;
        std::wstring className;
        std::wstring text;
        std::vector<std::wstring> items;  // of a combo box
    };

    struct Window {
        std::wstring caption;
        std::vector<Control> controls;  // the visible ones
        HWND owner;                     // for comparing only: the window is gone by then
        std::optional<UINT> messageBoxType;

        bool HasText(const std::wstring& text) const;
        const Control* FindControl(int id) const;
    };

    // The answer to one expected window: clicks and combo box picks, in the order given.
    class Expectation {
    public:
        Expectation& Click(int buttonId) { return Add(buttonId, std::nullopt); }
        Expectation& SelectInCombo(int comboId, const std::wstring& text) {
            return Add(comboId, text);
        }
        // Runs `action` from inside the window's modal loop (where a host's own windows call the
        // add-in while its dialog is open), before the window is answered.
        Expectation& Call(std::function<void()> action);

    private:
        friend class WindowWatcher;
        Expectation(WindowWatcher& watcher, size_t index) : m_watcher(watcher), m_index(index) {}
        Expectation& Add(int id, std::optional<std::wstring> entry);
        WindowWatcher& m_watcher;
        size_t m_index;
    };

    // One watcher at a time, on the thread that shows the windows.
    WindowWatcher();
    ~WindowWatcher();
    WindowWatcher(const WindowWatcher&) = delete;
    WindowWatcher& operator=(const WindowWatcher&) = delete;

    // The next window with exactly this caption; expectations of one caption are used in order.
    Expectation Expect(const std::wstring& caption);
    const std::vector<Window>& Seen() const { return m_seen; }
    // The open dialog of this caption that this thread shows. (FindWindowW may find another test
    // process's: they share the desktop.)
    HWND Open(const std::wstring& caption) const;
    // From now on a window nobody expected is cancelled and noted, not a failure.
    void CancelUnexpected() { m_cancelUnexpected = true; }
    // Fails the test for every expected window that did not appear.
    void Verify() const;

private:
    struct Action {
        int id;
        std::optional<std::wstring> entry;  // a combo box entry to pick; none for a click
    };
    struct Plan {
        std::wstring caption;
        std::vector<Action> actions;
        std::vector<size_t> calls;  // indexes into m_calls
        bool used;
    };
    struct BoxCall {
        std::wstring caption;
        std::wstring text;
        UINT type;
    };

    static LRESULT CALLBACK OnWindowMessage(int code, WPARAM wParam, LPARAM lParam);
    static LRESULT CALLBACK RunCall(HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam);
    static int WINAPI NotingMessageBoxW(HWND owner, LPCWSTR text, LPCWSTR caption, UINT type);
    void Answer(HWND dialog);

    std::vector<Plan> m_plans;
    std::vector<Window> m_seen;
    std::vector<BoxCall> m_boxCalls;  // MessageBoxW calls whose window has not been seen yet
    std::vector<HWND> m_shown;        // dialogs seen and not destroyed yet
    std::vector<std::function<void()>> m_calls;
    HWND m_callWindow = nullptr;  // a message-only window: posted to, it runs one of the calls
    HHOOK m_hook = nullptr;
    bool m_cancelUnexpected = false;
    std::optional<ImportPatch> m_messageBoxPatch;  // notes the program's own MessageBoxW calls
};

std::ostream& operator<<(std::ostream& out, const WindowWatcher::Window& window);
