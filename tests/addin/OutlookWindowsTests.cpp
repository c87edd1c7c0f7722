#include <olectl.h>

#include <map>
#include <ostream>
#include <string>
#include <vector>

#include "addin/AddinTest.h"
#include "addin/CommandBarEvents.h"
#include "officesim/FakeCommandBars.h"
#include "outlooksim/FakeOutlook.h"
#include "support/TestFiles.h"

namespace {

using WindowKind = FakeOutlook::WindowKind;

// Outlook's buttons with the setting "Attachments" on: four on the toolbar, two in the popup.
constexpr size_t kButtonsPerWindow = 6;
const wchar_t* const kItemText = L"class = IPM.Note\nPR_SUBJECT = Lieferschein\n";

// Outlook 2007, whose windows get their buttons from the window events. With "MultiProcess" the
// add-in follows every explorer window too.
class OutlookWindowsTest : public AddinTest {
protected:
    OutlookWindowsTest() : m_outlook(L"12.0.6423.1000") {
        m_registry.SetMachineNumber(L"Attachments", 1);
        m_outlook.SelectItemText(kItemText);
        m_outlook.SelectItemText(kItemText);
        for (const auto& [object, count] : m_outlook.RefCounts()) {
            m_startCounts[object] = count;
        }
    }

    HRESULT Start(bool multiProcess) {
        m_registry.SetMachineNumber(L"MultiProcess", multiProcess ? 1 : 0);
        EXPECT_EQ(m_addin->OnConnection(&m_outlook.Application(), ext_cm_Startup, nullptr, nullptr),
                  S_OK);
        return m_addin->OnStartupComplete(nullptr);
    }
    void Stop() {
        EXPECT_EQ(m_addin->OnBeginShutdown(nullptr), S_OK);
        EXPECT_EQ(m_addin->OnDisconnection(ext_dm_HostShutdown, nullptr), S_OK);
    }

    // Advise connections the window and its buttons have open.
    size_t WindowSinks(WindowKind kind, size_t index) const {
        return m_outlook.Window(kind, index).ConnectionCount();
    }
    size_t ButtonSinks(WindowKind kind, size_t index) const {
        return m_outlook.WindowBars(kind, index).ConnectionCount();
    }

    // No connection left anywhere and every count back where it started: a window open at
    // shutdown holds only Outlook's references, and once Outlook closes it, lets go of its item.
    void ExpectAllLetGo(const std::vector<bool>& inspectorsOpen) {
        EXPECT_EQ(m_outlook.Explorers().ConnectionCount(), 0u);
        EXPECT_EQ(m_outlook.Inspectors().ConnectionCount(), 0u);
        EXPECT_EQ(m_outlook.ExplorerBars().ConnectionCount(), 0u);
        for (WindowKind kind : {WindowKind::Explorer, WindowKind::Inspector}) {
            for (size_t i = 0; i < m_outlook.WindowCount(kind); ++i) {
                EXPECT_EQ(WindowSinks(kind, i) + ButtonSinks(kind, i), 0u);
            }
        }
        for (size_t i = 0; i < inspectorsOpen.size(); ++i) {
            EXPECT_EQ(m_outlook.Window(WindowKind::Inspector, i).RefCount(),
                      inspectorsOpen[i] ? 2u : 1u)
                << "inspector " << i + 1;
            m_outlook.CloseWindow(WindowKind::Inspector, i);
        }
        for (size_t i = 0; i < m_outlook.WindowCount(WindowKind::Explorer); ++i) {
            m_outlook.CloseWindow(WindowKind::Explorer, i);
        }
        for (const auto& [object, count] : m_outlook.RefCounts()) {
            const auto start = m_startCounts.find(object);
            EXPECT_EQ(count, start != m_startCounts.end() ? start->second : 1u) << ToUtf8(object);
        }
    }

    FakeOutlook m_outlook;
    std::map<std::wstring, ULONG> m_startCounts;
};

class WindowLifetimeTest : public OutlookWindowsTest, public testing::WithParamInterface<bool> {};

TEST_P(WindowLifetimeTest, WindowsGetTheirButtonsAndLoseThemWhenTheyClose) {
    const bool multiProcess = GetParam();
    ASSERT_EQ(Start(multiProcess), S_OK);
    EXPECT_EQ(m_outlook.ExplorerBars().ConnectionCount(), kButtonsPerWindow);
    EXPECT_EQ(m_outlook.Explorers().ConnectionCount(), multiProcess ? 1u : 0u);
    EXPECT_EQ(m_outlook.Inspectors().ConnectionCount(), 1u);

    const size_t explorer = m_outlook.OpenExplorer();
    m_outlook.Inspect(0);
    m_outlook.Inspect(1);
    // One sink per window, on one of the two event interfaces it sources.
    EXPECT_EQ(WindowSinks(WindowKind::Explorer, explorer), multiProcess ? 1u : 0u);
    EXPECT_EQ(ButtonSinks(WindowKind::Explorer, explorer), multiProcess ? kButtonsPerWindow : 0u);
    for (size_t inspector : {0u, 1u}) {
        EXPECT_EQ(WindowSinks(WindowKind::Inspector, inspector), 1u);
        EXPECT_EQ(ButtonSinks(WindowKind::Inspector, inspector), kButtonsPerWindow);
    }

    m_outlook.CloseWindow(WindowKind::Inspector, 0);
    m_outlook.CloseWindow(WindowKind::Explorer, explorer);
    EXPECT_EQ(WindowSinks(WindowKind::Inspector, 0) + ButtonSinks(WindowKind::Inspector, 0), 0u);
    EXPECT_EQ(
        WindowSinks(WindowKind::Explorer, explorer) + ButtonSinks(WindowKind::Explorer, explorer),
        0u);
    EXPECT_EQ(m_outlook.Window(WindowKind::Inspector, 0).RefCount(), 1u) << "nothing kept";
    EXPECT_EQ(m_outlook.Window(WindowKind::Explorer, explorer).RefCount(), 1u);
    EXPECT_EQ(ButtonSinks(WindowKind::Inspector, 1), kButtonsPerWindow) << "the other stays";

    // The second inspector is still open at shutdown.
    Stop();
    ExpectAllLetGo({false, true});
}

INSTANTIATE_TEST_SUITE_P(MultiProcess, WindowLifetimeTest, testing::Bool(),
                         [](const testing::TestParamInfo<bool>& info) {
                             return info.param ? "On" : "Off";
                         });

// An inspector's archive and attachment buttons act on that inspector's item, and only a click on
// that window's button does.
struct InspectorClickCase {
    const wchar_t* tag;
    const wchar_t* command;
};

void PrintTo(const InspectorClickCase& row, std::ostream* out) { *out << ToUtf8(row.tag); }

class InspectorClickTest : public OutlookWindowsTest,
                           public testing::WithParamInterface<InspectorClickCase> {};

TEST_P(InspectorClickTest, RunsTheSingleItemCommandOnItsWindow) {
    const InspectorClickCase& row = GetParam();
    ASSERT_EQ(Start(false), S_OK);
    FakeEventSource& first = m_outlook.Inspect(0);
    FakeEventSource& second = m_outlook.Inspect(1);
    // The command ends at the item; what it reads shows which window it was given.
    second.Properties().FailCallsFrom(L"CurrentItem", 1, E_ABORT);
    LogCapture log;

    FakeCommandBarButton* clicked = m_outlook.WindowBars(WindowKind::Inspector, 1).Button(row.tag);
    clicked->Click();
    // Office hands the click to the sinks of the first window's button of the same tag as well.
    VARIANT control;
    control.vt = VT_DISPATCH;
    control.pdispVal = static_cast<IDispatch*>(clicked);
    VARIANT_BOOL cancelDefault = VARIANT_FALSE;
    VARIANT cancel;
    cancel.vt = VT_BOOL | VT_BYREF;
    cancel.pboolVal = &cancelDefault;
    m_outlook.WindowBars(WindowKind::Inspector, 0)
        .Button(row.tag)
        ->Clicks()
        .Fire(DISPID_CommandBarButtonClick, {control, cancel});

    EXPECT_TRUE(
        log.Contains(std::wstring(L"[INF] Outlook CTalvornAddin->") + row.command + L" invoked\n"))
        << ToUtf8(log.Text());
    EXPECT_TRUE(log.Contains(L"[ERR] Can't get CurrentItem from Context! hr = 0x80004004\n"))
        << ToUtf8(log.Text());
    EXPECT_EQ(second.Properties().CallCount(L"CurrentItem"), 1u);
    EXPECT_EQ(first.Properties().CallCount(L"CurrentItem"), 0u);
    Stop();
    ExpectAllLetGo({true, true});
}

INSTANTIATE_TEST_SUITE_P(
    Buttons, InspectorClickTest,
    testing::Values(InspectorClickCase{L"TLPMBTDX2_0001", L"OnArchiveSingleOutlook"},
                    InspectorClickCase{L"TLCBBTDX2_0002", L"OnArchiveSingleOutlook"},
                    InspectorClickCase{L"TLPMBTDX2_0004", L"OnAttachmentSingleOutlook"}));

// A window collection that refuses the add-in's sink costs the buttons of the windows it would
// announce, nothing else.
struct AdviseFailureCase {
    const char* name;
    bool explorers;
};

void PrintTo(const AdviseFailureCase& row, std::ostream* out) { *out << row.name; }

class AdviseFailureTest : public OutlookWindowsTest,
                          public testing::WithParamInterface<AdviseFailureCase> {};

TEST_P(AdviseFailureTest, IsLoggedAndTheStartUpGoesOn) {
    const AdviseFailureCase& row = GetParam();
    FakeEventSource& refusing = row.explorers ? m_outlook.Explorers() : m_outlook.Inspectors();
    refusing.Point(row.explorers ? DIID_ExplorersEvents : DIID_InspectorsEvents)
        ->FailNextAdvise(CONNECT_E_ADVISELIMIT);
    LogCapture log;

    ASSERT_EQ(Start(true), S_OK);

    EXPECT_TRUE(log.Contains(L"[ERR] Failed to advise the window events! hr = 0x80040201\n"))
        << ToUtf8(log.Text());
    EXPECT_EQ(m_outlook.ExplorerBars().ConnectionCount(), kButtonsPerWindow);
    const size_t explorer = m_outlook.OpenExplorer();
    m_outlook.Inspect(0);
    EXPECT_EQ(ButtonSinks(WindowKind::Explorer, explorer), row.explorers ? 0u : kButtonsPerWindow);
    EXPECT_EQ(ButtonSinks(WindowKind::Inspector, 0), row.explorers ? kButtonsPerWindow : 0u);
    Stop();
    ExpectAllLetGo({true});
}

INSTANTIATE_TEST_SUITE_P(Collections, AdviseFailureTest,
                         testing::Values(AdviseFailureCase{"Explorers", true},
                                         AdviseFailureCase{"Inspectors", false}),
                         [](const testing::TestParamInfo<AdviseFailureCase>& info) {
                             return std::string(info.param.name);
                         });

}  // namespace
