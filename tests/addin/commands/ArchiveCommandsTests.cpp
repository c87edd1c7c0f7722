#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "addin/commands/ArchiveCommands.h"
#include "common/HostKind.h"
#include "common/Messages.h"
#include "resources/resource.h"
#include "support/ConnectorRecord.h"
#include "support/FakeCaptures.h"
#include "officesim/FakeDispatch.h"
#include "support/RegistrySandbox.h"
#include "support/TestFiles.h"
#include "support/WindowWatcher.h"

namespace {

using Routine = FakeCaptures::Routine;
using Routines = std::vector<Routine>;
using StagedFiles = std::vector<FakeCaptures::StagedFile>;

const std::wstring kErrorCaption = L"Fehler bei der Dokumentablage";
const std::wstring kSelectCaption = L"Dokument ablegen";
constexpr int32_t kMajorVersion = 16;

std::string HandOffOf(const FakeCaptures::StagedFile& file) {
    return ReadFileBytes(file.folder + L"\\" + file.id + L".xml");
}

// The URL the connector is started with for `files` of host `hostKind` and the target
// "Rechnungen".
std::wstring Url(int32_t hostKind, const StagedFiles& files) {
    std::wstring url =
        L"talvorn:\\\\di$appid=42$configid=7$startapp=" + std::to_wstring(hostKind) + L"$files=";
    for (size_t i = 0; i < files.size(); ++i) {
        url += (i > 0 ? L"," : L"") + files[i].id;
    }
    return url;
}

class ArchiveCommandTest : public testing::Test {
protected:
    ArchiveCommandTest() {
        m_window->SetProperty(L"CurrentItem", Item());
        // One storage target: a launch offers no choice.
        m_registry.SetMachineTargets({StorageTarget(L"Rechnungen", L"42", L"7")});
    }
    // An unmet expectation fails every test, and so does an error box other than the ones
    // announced with ExpectErrorBoxes.
    void TearDown() override {
        m_watcher.Verify();
        size_t next = 0;
        for (const WindowWatcher::Window& window : m_watcher.Seen()) {
            if (window.caption == kErrorCaption && next < m_errorBoxes.size()) {
                wchar_t text[260] = L"";
                LoadUiString(m_errorBoxes[next++], text, 260);
                EXPECT_TRUE(window.HasText(text)) << window;
            }
        }
    }

    // Runs one command and checks that it handed back every reference it took to the host
    // objects, whatever way it ended.
    void Run(int32_t hostKind, const std::function<void(const CommandContext&)>& command) {
        auto refCounts = [&] {
            return std::vector{m_application->RefCount(), m_window->RefCount(), m_item->RefCount()};
        };
        const std::vector<ULONG> before = refCounts();
        command(
            CommandContext{hostKind, kMajorVersion, m_application.get(), m_captures, m_captures});
        EXPECT_EQ(refCounts(), before) << "references to the application, the window, the item";
    }
    void Archive(int32_t hostKind) { Run(hostKind, OnArchive); }
    void ArchiveOpenItem() {
        Run(kHostOutlook, [&](const auto& context) { OnArchiveSingleOutlook(context, Window()); });
    }
    void ArchiveAttachments(IDispatch* item) {
        Run(kHostOutlook, [&](const auto& context) { OnAttachment(context, item); });
    }
    void ArchiveAttachmentsOfOpenItem() {
        Run(kHostOutlook,
            [&](const auto& context) { OnAttachmentSingleOutlook(context, Window()); });
    }

    // Hides the connector's URL handler from the shell. A launch then shows Wine's box and the
    // add-in's message before the command returns, so in a test that expects neither, any launch
    // attempt is an unexpected window.
    void RemoveConnectorHandler() { m_noHandler.emplace(); }
    // Two targets, so that a choice offered where none belongs is an unexpected window.
    void UseTwoTargets() {
        m_registry.SetMachineTargets(
            {StorageTarget(L"Angebote", L"1", L"2"), StorageTarget(L"Rechnungen", L"42", L"7")});
    }
    // The error boxes the test's commands show, with these texts in this order; each is answered.
    void ExpectErrorBoxes(std::vector<UINT> ids) {
        for (size_t i = 0; i < ids.size(); ++i) {
            m_watcher.Expect(kErrorCaption).Click(IDOK);
        }
        m_errorBoxes = std::move(ids);
    }
    // The one URL the connector got.
    std::wstring LaunchedUrl() {
        std::vector<std::wstring> urls = m_connector.WaitForUrls(1);
        EXPECT_EQ(urls.size(), 1u);
        return urls.empty() ? std::wstring() : urls[0];
    }
    IDispatch* Item() const { return m_item.get(); }
    IDispatch* Window() const { return m_window.get(); }

    // First: the connector inherits this TEMP, and the record reads the file it writes there.
    TempDirectoryOverride m_temp;
    RegistrySandbox m_registry;
    ConnectorRecord m_connector;
    FakeCaptures m_captures;
    ComPtr<FakeDispatch> m_application = FakeDispatch::Create();
    ComPtr<FakeDispatch> m_window = FakeDispatch::Create();
    ComPtr<FakeDispatch> m_item = FakeDispatch::Create();
    LogCapture m_log;
    std::optional<PrivateClassesRoot> m_noHandler;
    std::vector<UINT> m_errorBoxes;
    WindowWatcher m_watcher;
};

// --- OnArchive: the Outlook selection or the active Office document.

// "DeleteArcDocs" on, and the second target chosen; or off, and the choice cancelled: then every
// folder written is marked free to delete and the command ends silently. The other commands set
// "DeleteArcDocs" too and check that their hand-offs ignore it.
class OutlookSelectionTest : public ArchiveCommandTest, public testing::WithParamInterface<bool> {};

TEST_P(OutlookSelectionTest, HandsOffEveryItemWithItsPropertiesForTheChosenTarget) {
    const bool chosen = GetParam();
    m_registry.SetMachineNumber(L"DeleteArcDocs", chosen ? 1 : 0);
    UseTwoTargets();
    if (chosen) {
        m_watcher.Expect(kSelectCaption)
            .SelectInCombo(IDC_STORAGE_TARGETS, L"Rechnungen")
            .Click(IDOK);
    } else {
        RemoveConnectorHandler();
        m_watcher.Expect(kSelectCaption).Click(IDCANCEL);
    }
    m_captures.SelectItems(3);

    Archive(kHostOutlook);

    const StagedFiles& staged = m_captures.Staged();
    ASSERT_EQ(staged.size(), 3u);
    for (size_t i = 0; i < staged.size(); ++i) {
        std::string handOff = HandOffOf(staged[i]);
        EXPECT_TRUE(Contains(handOff, "<![CDATA[Mail " + std::to_string(i + 1) + "]]>")) << handOff;
        EXPECT_TRUE(Contains(handOff, "<path>" + ToUtf8(staged[i].path) + "</path>")) << handOff;
        EXPECT_EQ(Contains(handOff, "<deletemail>1</deletemail>"), chosen) << handOff;
        EXPECT_EQ(FileSize(staged[i].folder + L"\\__freetodelete__.bin"), chosen ? -1 : 0);
    }
    if (chosen) {
        EXPECT_EQ(LaunchedUrl(), Url(kHostOutlook, staged));
    }
}

INSTANTIATE_TEST_SUITE_P(Choice, OutlookSelectionTest, testing::Bool(),
                         [](const testing::TestParamInfo<bool>& info) {
                             return info.param ? "Chosen" : "Cancelled";
                         });

// OnAttachment without an item asks the selection too.
TEST_F(ArchiveCommandTest, NothingSelectedIsReportedBeforeAnythingIsCaptured) {
    RemoveConnectorHandler();
    m_captures.SelectItems(0);
    ExpectErrorBoxes({IDS_NOTHING_SELECTED, IDS_NOTHING_SELECTED});

    Archive(kHostOutlook);
    ArchiveAttachments(nullptr);

    EXPECT_EQ(m_captures.Routines(),
              (Routines{Routine::GetOutlookDocumentCount, Routine::GetOutlookDocumentCount}));
}

struct CaptureFailure {
    int32_t hostKind;
    HRESULT status;
    UINT message;
};

void PrintTo(const CaptureFailure& row, std::ostream* out) {
    *out << "host " << row.hostKind << ", 0x" << std::hex << static_cast<uint32_t>(row.status)
         << std::dec << " -> " << row.message;
}

class CaptureFailureTest : public ArchiveCommandTest,
                           public testing::WithParamInterface<CaptureFailure> {};

TEST_P(CaptureFailureTest, ShowsItsMessageAndLaunchesNothing) {
    RemoveConnectorHandler();
    m_captures.SetStatus(Routine::SaveOutlookDocument, GetParam().status);
    m_captures.SetStatus(Routine::SaveOfficeDocument, GetParam().status);
    ExpectErrorBoxes({GetParam().message});

    Archive(GetParam().hostKind);
}

// The Outlook statuses mean nothing to an Office capture: its failures all show one message.
INSTANTIATE_TEST_SUITE_P(
    Statuses, CaptureFailureTest,
    testing::Values(CaptureFailure{kHostOutlook, kNothingSelected, IDS_NOTHING_SELECTED},
                    CaptureFailure{kHostOutlook, kUnsupportedItem, IDS_UNSUPPORTED_ITEM},
                    CaptureFailure{kHostOutlook, E_OUTOFMEMORY, IDS_CAPTURE_OUT_OF_MEMORY},
                    CaptureFailure{kHostOutlook, E_FAIL, IDS_CAPTURE_FAILED},
                    CaptureFailure{kHostWord, kUnsupportedItem, IDS_CAPTURE_FAILED}));

// The active Office document of each host, or the current item of an open Outlook window: one
// file, with its properties but never mail deletion, launched for its host.
class SingleDocumentTest : public ArchiveCommandTest,
                           public testing::WithParamInterface<int32_t> {};

TEST_P(SingleDocumentTest, IsHandedOffWithItsPropertiesAndLaunchedForItsHost) {
    const bool item = GetParam() == kHostOutlook;
    m_registry.SetMachineNumber(L"DeleteArcDocs", 1);

    item ? ArchiveOpenItem() : Archive(GetParam());

    ASSERT_EQ(m_captures.Routines(),
              Routines{item ? Routine::SaveOutlookItem : Routine::SaveOfficeDocument});
    EXPECT_EQ(m_captures.Calls()[0].hostKind, item ? 0 : GetParam());
    EXPECT_EQ(m_captures.Calls()[0].majorVersion, kMajorVersion);
    EXPECT_EQ(m_captures.Calls()[0].application, m_application.get());
    EXPECT_EQ(m_captures.Calls()[0].item, item ? Item() : nullptr);
    ASSERT_EQ(m_captures.Staged().size(), 1u);
    std::string handOff = HandOffOf(m_captures.Staged()[0]);
    EXPECT_TRUE(
        Contains(handOff, item ? "<![CDATA[Offene Mail]]>" : "<property name=\"MSO_TITLE\">"))
        << handOff;
    EXPECT_FALSE(Contains(handOff, "<deletemail>")) << handOff;
    EXPECT_EQ(LaunchedUrl(), Url(GetParam(), m_captures.Staged()));
    EXPECT_EQ(m_log.Contains(L"[INF] Outlook CTalvornAddin->OnArchiveSingleOutlook invoked\n"),
              item);
}

INSTANTIATE_TEST_SUITE_P(Hosts, SingleDocumentTest,
                         testing::Values(kHostWord, kHostExcel, kHostPowerPoint, kHostOutlook));

class OtherHostTest : public ArchiveCommandTest, public testing::WithParamInterface<int32_t> {};

// The word "Outlook" in every host is what log readers search for.
TEST_P(OtherHostTest, OnlyLogsThatTheCommandWasInvoked) {
    RemoveConnectorHandler();

    Archive(GetParam());

    EXPECT_TRUE(m_captures.Calls().empty());
    std::wstring log = m_log.Text();
    EXPECT_TRUE(log.ends_with(L"[INF] Outlook CTalvornAddin->OnArchive invoked\n")) << ToUtf8(log);
    EXPECT_EQ(std::count(log.begin(), log.end(), L'\n'), 1) << ToUtf8(log);
}

INSTANTIATE_TEST_SUITE_P(Hosts, OtherHostTest, testing::Values(0, 7));

// --- The common end: hand-offs, the storage-target choice and the launch.

// Only the attachment command goes on to the choice (cancelled here) and so to the launch.
TEST_F(ArchiveCommandTest, AFailedHandOffEndsEveryCommandButTheAttachmentOneBeforeTheChoice) {
    UseTwoTargets();
    RemoveConnectorHandler();
    m_captures.SelectItems(2);
    m_captures.SetAttachments({L"Logo.png"});
    // The second mail, the document, the open item and the attachment.
    for (size_t staged : {1u, 2u, 3u, 4u}) {
        m_captures.BlockHandOffOf(staged);
    }
    ExpectErrorBoxes(std::vector<UINT>(4, IDS_HANDOFF_FAILED));
    m_watcher.Expect(kSelectCaption).Click(IDCANCEL);

    Archive(kHostOutlook);
    Archive(kHostExcel);
    ArchiveOpenItem();
    ArchiveAttachments(Item());
}

TEST_F(ArchiveCommandTest, AConnectorThatCannotBeStartedIsReported) {
    RemoveConnectorHandler();
    // Wine's shell shows a box of its own before it gives up.
    m_watcher.Expect(L"Error").Click(IDOK);
    ExpectErrorBoxes({IDS_CONNECTOR_NOT_FOUND});

    Archive(kHostPowerPoint);

    EXPECT_TRUE(m_log.Contains(L"[ERR] Failed to open talvorn Desktop Connector, error: "));
}

// --- OnAttachment and OnAttachmentSingleOutlook: chosen attachments.

TEST_F(ArchiveCommandTest, ChosenAttachmentsOfTheOpenItemAreHandedOffBareAndLaunched) {
    // Attachments are files, not mails: they carry neither properties nor mail deletion.
    m_registry.SetMachineNumber(L"DeleteArcDocs", 1);
    m_captures.SetAttachments({L"Rechnung 0815.pdf", L"Logo.png", L"Vertrag.docx"});
    m_captures.Choose({0, 2});

    ArchiveAttachmentsOfOpenItem();

    ASSERT_EQ(m_captures.Routines(),
              (Routines{Routine::GetAttachmentList, Routine::ChooseAttachments,
                        Routine::SaveAttachments}));
    EXPECT_EQ(m_captures.Calls()[0].item, Item());
    EXPECT_EQ(m_captures.Calls()[2].item, Item());
    const StagedFiles& staged = m_captures.Staged();
    ASSERT_EQ(staged.size(), 2u);
    for (const FakeCaptures::StagedFile& file : staged) {
        std::string handOff = HandOffOf(file);
        EXPECT_TRUE(Contains(handOff, "<path>" + ToUtf8(file.path) + "</path>")) << handOff;
        EXPECT_FALSE(Contains(handOff, "<property")) << handOff;
        EXPECT_FALSE(Contains(handOff, "<deletemail>")) << handOff;
    }
    EXPECT_EQ(LaunchedUrl(), Url(kHostOutlook, staged));
    EXPECT_TRUE(
        m_log.Contains(L"[INF] Outlook CTalvornAddin->OnAttachmentSingleOutlook invoked\n"));
    EXPECT_TRUE(m_log.Contains(L"[INF] Outlook CTalvornAddin->OnAttachment invoked\n"));
}

// No attachments (a message), a cancelled choice (silence), nothing saved (a log line).
TEST_F(ArchiveCommandTest, AttachmentsEndEarlyWithoutAttachmentsAChoiceOrSavedFiles) {
    RemoveConnectorHandler();
    ExpectErrorBoxes({IDS_NO_ATTACHMENTS});
    ArchiveAttachments(Item());
    m_captures.SetAttachments({L"Logo.png"});
    m_captures.Choose({});
    ArchiveAttachments(Item());
    m_captures.Choose({0});
    m_captures.SetStatus(Routine::SaveAttachments, E_FAIL);
    ArchiveAttachments(Item());

    EXPECT_EQ(m_captures.Routines(),
              (Routines{Routine::GetAttachmentList, Routine::GetAttachmentList,
                        Routine::ChooseAttachments, Routine::GetAttachmentList,
                        Routine::ChooseAttachments, Routine::SaveAttachments}));
    std::wstring log = m_log.Text();
    EXPECT_TRUE(log.ends_with(L"[ERR] error saving attachment files to disk\n")) << ToUtf8(log);
    EXPECT_EQ(log.find(L"[ERR]"), log.rfind(L"[ERR]")) << ToUtf8(log);
}

}  // namespace
