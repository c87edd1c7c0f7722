#include <ostream>
#include <string>
#include <thread>
#include <future>
#include <vector>

#include "addin/AddinTest.h"
#include "common/ServerCounts.h"
#include "officesim/FakeCommandBars.h"
#include "support/BuiltModule.h"
#include "support/TestFiles.h"
#include "support/WindowWatcher.h"

namespace {

const std::vector<std::wstring> kWordTags = {
    L"TLPMBTDX2_0001", L"TLPMBTDX2_0002", L"TLPMBTDX2_0003", L"TLCBBTDX2_0002", L"TLCBBTDX2_0003"};

void PutClipboardText(const std::wstring& text) {
    ASSERT_TRUE(OpenClipboard(nullptr));
    EmptyClipboard();
    const size_t bytes = (text.size() + 1) * sizeof(wchar_t);
    HGLOBAL memory = GlobalAlloc(GMEM_MOVEABLE, bytes);
    memcpy(GlobalLock(memory), text.c_str(), bytes);
    GlobalUnlock(memory);
    SetClipboardData(CF_UNICODETEXT, memory);
    CloseClipboard();
}

std::wstring ClipboardText() {
    std::wstring text;
    if (OpenClipboard(nullptr)) {
        HANDLE data = GetClipboardData(CF_UNICODETEXT);
        const wchar_t* chars = data ? static_cast<const wchar_t*>(GlobalLock(data)) : nullptr;
        if (chars) {
            text = chars;
            GlobalUnlock(data);
        }
        CloseClipboard();
    }
    return text;
}

// Word 2003 with its command bars; add-ins are created from the class factory as the host does.
class CommandBarsTest : public AddinTest {
protected:
    CommandBarsTest() {
        m_template->SetProperty(L"Saved", false);
        m_application->SetProperty(L"Name", L"Microsoft Word")
            .SetProperty(L"Version", L"11.0.8173")
            .SetProperty(L"CommandBars", static_cast<IDispatch*>(&m_bars.Collection()))
            .SetProperty(L"CustomizationContext", static_cast<IDispatch*>(m_template.get()));
        m_registry.SetMachineString(L"Dir", BuiltAddinFolder().c_str());
        m_startObjects = LiveObjectCount();
    }

    HRESULT Start(IDTExtensibility2* addin) {
        return addin->OnConnection(m_application.get(), ext_cm_Startup, nullptr, nullptr) == S_OK
                   ? addin->OnStartupComplete(nullptr)
                   : E_FAIL;
    }
    static void Stop(IDTExtensibility2* addin) {
        EXPECT_EQ(addin->OnBeginShutdown(nullptr), S_OK);
        EXPECT_EQ(addin->OnDisconnection(ext_dm_HostShutdown, nullptr), S_OK);
    }
    // No sink left advised, no button held by anyone but its bar, no sink object alive.
    void ExpectAllLetGo() {
        EXPECT_EQ(m_bars.ConnectionCount(), 0u);
        for (FakeCommandBarButton* button : m_bars.Buttons()) {
            EXPECT_EQ(button->RefCount(), 1u);
            EXPECT_EQ(button->Clicks().RefCount(), 1u);
        }
        EXPECT_EQ(m_application->RefCount(), 1u);
    }

    FakeCommandBars m_bars;
    ComPtr<FakeDispatch> m_application = FakeDispatch::Create();
    ComPtr<FakeDispatch> m_template = FakeDispatch::Create();
    LONG m_startObjects = 0;
};

TEST_F(CommandBarsTest, TwoStartsShareOneSetOfTemporaryControlsAndShutdownLetsGo) {
    PutClipboardText(L"des Benutzers Text");
    ASSERT_EQ(Start(m_addin.get()), S_OK);
    EXPECT_EQ(ClipboardText(), L"des Benutzers Text");
    EXPECT_EQ(m_bars.ToolbarCount(), 1u);
    EXPECT_EQ(m_bars.ControlCount(), kWordTags.size() + 1) << "buttons and the popup";
    ASSERT_NE(m_bars.PopupBar(L"TLCBBTDX2_0001"), nullptr);
    for (const std::wstring& tag : kWordTags) {
        FakeCommandBarButton* button = m_bars.Button(tag);
        ASSERT_NE(button, nullptr) << ToUtf8(tag);
        EXPECT_EQ(button->Clicks().ConnectionCount(), 1u);
        EXPECT_TRUE(button->Properties().Value(L"Temporary").boolVal);
        // A 16 x 16 face and mask, as 32-bit DIBs.
        EXPECT_EQ(button->Face().size(), sizeof(BITMAPINFOHEADER) + 16 * 16 * 4);
        EXPECT_EQ(button->Mask().size(), button->Face().size());
    }
    const FakeDispatch& archive = m_bars.Button(L"TLPMBTDX2_0001")->Properties();
    EXPECT_EQ(std::wstring(archive.Value(L"Caption").bstrVal), L"Dokument ablegen");
    EXPECT_EQ(std::wstring(archive.Value(L"TooltipText").bstrVal),
              L"Dokument ablegen in die talvorn dorvane");
    // Word's template took the customisation; it is marked saved again afterwards.
    EXPECT_EQ(m_template->Value(L"Saved").vt, VT_I2);
    Stop(m_addin.get());
    m_addin.reset();
    ExpectAllLetGo();

    ComPtr<IDTExtensibility2> second = NewAddin();
    ASSERT_EQ(Start(second.get()), S_OK);
    EXPECT_EQ(m_bars.ToolbarCount(), 1u);
    EXPECT_EQ(m_bars.ControlCount(), kWordTags.size() + 1);
    EXPECT_EQ(m_bars.ConnectionCount(), kWordTags.size());
    for (FakeCommandBarButton* button : m_bars.Buttons()) {
        EXPECT_EQ(button->Properties().CallCount(L"PasteFace"), 1u) << "pasted once";
    }
    Stop(second.get());
    second.reset();
    ExpectAllLetGo();
    EXPECT_EQ(LiveObjectCount(), m_startObjects - 1) << "the fixture's add-in is gone too";
}

// Nosettings leaves out both settings buttons; the others come as always.
TEST_F(CommandBarsTest, LockedSettingsHaveNoButton) {
    m_registry.SetMachineNumber(L"Nosettings", 1);
    ASSERT_EQ(Start(m_addin.get()), S_OK);
    EXPECT_EQ(m_bars.Button(L"TLPMBTDX2_0002"), nullptr);
    EXPECT_EQ(m_bars.Button(L"TLCBBTDX2_0003"), nullptr);
    EXPECT_EQ(m_bars.ConnectionCount(), 3u);
    Stop(m_addin.get());
}

// A button the host refuses is logged; the buttons after it are still added.
TEST_F(CommandBarsTest, AFailingAddCostsOnlyItsButton) {
    m_bars.FailControlAdd(2, E_OUTOFMEMORY);  // the popup is added first, then archive
    LogCapture log;
    ASSERT_EQ(Start(m_addin.get()), S_OK);
    EXPECT_TRUE(log.Contains(L"[ERR] Failed to add the button TLPMBTDX2_0001! hr = 0x8007000E\n"))
        << ToUtf8(log.Text());
    EXPECT_EQ(m_bars.Button(L"TLPMBTDX2_0001"), nullptr);
    EXPECT_EQ(m_bars.ConnectionCount(), kWordTags.size() - 1);
    Stop(m_addin.get());
    ExpectAllLetGo();
}

// A clipboard another program holds open costs the faces, not the buttons.
TEST_F(CommandBarsTest, ABusyClipboardCostsOnlyTheFaces) {
    std::promise<void> opened;
    std::promise<void> done;
    std::thread holder([&] {
        // Held by a window of its own: a clipboard opened without one is anyone's.
        HWND window =
            CreateWindowW(L"STATIC", L"", 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr, nullptr, nullptr);
        OpenClipboard(window);
        opened.set_value();
        done.get_future().wait();
        CloseClipboard();
        DestroyWindow(window);
    });
    opened.get_future().wait();
    LogCapture log;
    const HRESULT started = Start(m_addin.get());
    done.set_value();
    holder.join();

    EXPECT_EQ(started, S_OK);
    EXPECT_TRUE(log.Contains(L"[ERR] Failed to paste the face of button TLPMBTDX2_0001! hr = "))
        << ToUtf8(log.Text());
    EXPECT_EQ(m_bars.ConnectionCount(), kWordTags.size());
    for (FakeCommandBarButton* button : m_bars.Buttons()) {
        EXPECT_TRUE(button->Face().empty());
    }
    Stop(m_addin.get());
}

// Each button's click reaches its command: its log line, and the dialog it opens.
struct ClickCase {
    const wchar_t* tag;
    const wchar_t* logLine;
    const wchar_t* dialog;
    int answer;
};

void PrintTo(const ClickCase& row, std::ostream* out) { *out << ToUtf8(row.tag); }

class ButtonClickTest : public CommandBarsTest, public testing::WithParamInterface<ClickCase> {};

TEST_P(ButtonClickTest, ReachesItsCommand) {
    const ClickCase& row = GetParam();
    ASSERT_EQ(Start(m_addin.get()), S_OK);
    WindowWatcher watcher;
    watcher.Expect(row.dialog).Click(row.answer);
    LogCapture log;

    m_bars.Button(row.tag)->Click();

    watcher.Verify();
    EXPECT_TRUE(
        log.Contains(std::wstring(L"[INF] Outlook CTalvornAddin->") + row.logLine + L" invoked\n"))
        << ToUtf8(log.Text());
    Stop(m_addin.get());
    // A click after shutdown reaches no sink.
    m_bars.Button(row.tag)->Click();
    EXPECT_EQ(watcher.Seen().size(), 1u);
}

INSTANTIATE_TEST_SUITE_P(
    Buttons, ButtonClickTest,
    testing::Values(
        ClickCase{L"TLPMBTDX2_0001", L"OnArchive", L"Fehler bei der Dokumentablage", IDOK},
        ClickCase{L"TLCBBTDX2_0002", L"OnArchive", L"Fehler bei der Dokumentablage", IDOK},
        ClickCase{L"TLPMBTDX2_0002", L"OnSettings", L"Einstellungen", IDCANCEL},
        ClickCase{L"TLCBBTDX2_0003", L"OnSettings", L"Einstellungen", IDCANCEL},
        ClickCase{L"TLPMBTDX2_0003", L"OnAbout", L"Info", IDOK}));

}  // namespace
