#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <tuple>
#include <vector>

#include "addin/commands/ArchiveCommands.h"
#include "common/HostKind.h"
#include "common/Messages.h"
#include "resources/resource.h"
#include "support/ConnectorRecord.h"
#include "support/FakeCaptures.h"
#include "support/FakeDispatch.h"
#include "support/RegistrySandbox.h"
#include "support/TestFiles.h"
#include "support/WindowWatcher.h"

namespace {

using Routine = FakeCaptures::Routine;
using Routines = std::vector<Routine>;
using StagedFiles = std::vector<FakeCaptures::StagedFile>;

const std::wstring kErrorCaption = L"Fehler bei der Dokumentablage";
const std::wstring kSelectCaption = L"Dokument ablegen";
const std::wstring kRechnungen = L"appid=42$configid=7";
constexpr int32_t kMajorVersion = 16;

std::wstring UiText(UINT id) {
    wchar_t text[260] = L"";
    LoadUiString(id, text, 260);
    return text;
}

bool Contains(const std::string& text, const std::string& piece) {
    return text.find(piece) != std::string::npos;
}

std::string HandOffOf(const FakeCaptures::StagedFile& file) {
    return ReadFileBytes(file.folder + L"\\" + file.id + L".xml");
}

bool HasHandOff(const FakeCaptures::StagedFile& file) {
    return FileExists(file.folder + L"\\" + file.id + L".xml");
}

std::wstring FreeToDeleteMarkerOf(const FakeCaptures::StagedFile& file) {
    return file.folder + L"\\__freetodelete__.bin";
}

// The URL the connector is started with for `files` of host `hostKind` and the target part
// `target` ("appid=42$configid=7").
std::wstring Url(int32_t hostKind, const std::wstring& target, const StagedFiles& files) {
    std::wstring url =
        L"talvorn:\\\\di$" + target + L"$startapp=" + std::to_wstring(hostKind) + L"$files=";
    for (size_t i = 0; i < files.size(); ++i) {
        url += (i > 0 ? L"," : L"") + files[i].id;
    }
    return url;
}

class ArchiveCommandTest : public testing::Test {
protected:
    ArchiveCommandTest() {
        m_window->SetProperty(L"CurrentItem", static_cast<IDispatch*>(m_item.get()));
        m_registry.SetMachineTargets({StorageTarget(L"Rechnungen", L"42", L"7")});
    }
    // An unexpected window fails every test, also one that expected none.
    void TearDown() override { m_watcher.Verify(); }

    // Runs one command and checks that it handed back every reference it took to the host
    // objects, whatever way it ended.
    void Run(const std::function<void(const CommandContext&)>& command, int32_t hostKind) {
        const ULONG application = m_application->RefCount();
        const ULONG window = m_window->RefCount();
        const ULONG item = m_item->RefCount();
        command(
            CommandContext{hostKind, kMajorVersion, m_application.get(), m_captures, m_captures});
        EXPECT_EQ(m_application->RefCount(), application) << "references to the application";
        EXPECT_EQ(m_window->RefCount(), window) << "references to the window";
        EXPECT_EQ(m_item->RefCount(), item) << "references to the item";
    }
    void Archive(int32_t hostKind) {
        Run([](const CommandContext& context) { OnArchive(context); }, hostKind);
    }
    void ArchiveOpenItem() {
        Run([&](const CommandContext& context) { OnArchiveSingleOutlook(context, m_window.get()); },
            kHostOutlook);
    }
    void ArchiveAttachments(IDispatch* item) {
        Run([&](const CommandContext& context) { OnAttachment(context, item); }, kHostOutlook);
    }
    void ArchiveAttachmentsOfOpenItem() {
        Run(
            [&](const CommandContext& context) {
                OnAttachmentSingleOutlook(context, m_window.get());
            },
            kHostOutlook);
    }

    // Takes the connector's URL handler away. A launch then shows Wine's box and the add-in's
    // message before the command returns, so in a test that expects neither, any launch attempt
    // is an unexpected window.
    void RemoveConnectorHandler() { m_noHandler.emplace(); }
    void UseTwoTargets() {
        m_registry.SetMachineTargets(
            {StorageTarget(L"Angebote", L"1", L"2"), StorageTarget(L"Rechnungen", L"42", L"7")});
    }
    void AnswerErrorBox() { m_watcher.Expect(kErrorCaption).Click(IDOK); }
    // The command showed exactly one error box, with text `id`.
    void ExpectErrorBoxOf(UINT id) {
        std::vector<WindowWatcher::Window> boxes;
        for (const WindowWatcher::Window& window : m_watcher.Seen()) {
            if (window.caption == kErrorCaption) {
                boxes.push_back(window);
            }
        }
        ASSERT_EQ(boxes.size(), 1u);
        EXPECT_TRUE(boxes[0].HasText(UiText(id))) << boxes[0];
    }
    // The one URL the connector got.
    std::wstring LaunchedUrl() {
        std::vector<std::wstring> urls = m_connector.WaitForUrls(1);
        EXPECT_EQ(urls.size(), 1u);
        return urls.empty() ? std::wstring() : urls[0];
    }
    IDispatch* Item() const { return m_item.get(); }

    // First: the connector inherits this TEMP, and the record reads the file it writes there.
    TempDirectoryOverride m_temp;
    RegistrySandbox m_registry;
    ConnectorRecord m_connector;
    FakeCaptures m_captures;
    ComPtr<FakeDispatch> m_application = FakeDispatch::Create();
    ComPtr<FakeDispatch> m_window = FakeDispatch::Create();
    ComPtr<FakeDispatch> m_item = FakeDispatch::Create();
    LogCapture m_log;
    std::optional<UrlHandlerRemoval> m_noHandler;
    WindowWatcher m_watcher;
};

// --- OnArchive in Outlook: every selected item.

using OutlookSelectionTest = ArchiveCommandTest;

TEST_F(OutlookSelectionTest, EveryItemIsHandedOffWithItsOwnPropertiesAndOneTargetNeedsNoChoice) {
    m_captures.SelectItems(3);

    Archive(kHostOutlook);

    EXPECT_EQ(m_captures.Routines(),
              (Routines{Routine::GetOutlookDocumentCount, Routine::SaveOutlookDocument}));
    EXPECT_EQ(m_captures.Calls().at(1).count, 3);
    EXPECT_EQ(m_captures.Calls().at(1).application, m_application.get());
    const StagedFiles& staged = m_captures.Staged();
    ASSERT_EQ(staged.size(), 3u);
    for (size_t i = 0; i < staged.size(); ++i) {
        std::string handOff = HandOffOf(staged[i]);
        EXPECT_TRUE(Contains(handOff, "<![CDATA[Mail " + std::to_string(i + 1) + "]]>")) << handOff;
        EXPECT_TRUE(Contains(handOff, "<path>" + ToUtf8(staged[i].path) + "</path>")) << handOff;
        EXPECT_FALSE(Contains(handOff, "<deletemail>")) << handOff;
    }
    EXPECT_EQ(LaunchedUrl(), Url(kHostOutlook, kRechnungen, staged));
    EXPECT_TRUE(m_log.Contains(L"[INF] Outlook CTalvornAddin->OnArchive invoked\n"));
}

TEST_F(OutlookSelectionTest, NothingSelectedIsReportedBeforeAnythingIsCaptured) {
    RemoveConnectorHandler();
    m_captures.SelectItems(0);
    AnswerErrorBox();

    Archive(kHostOutlook);

    ExpectErrorBoxOf(IDS_NOTHING_SELECTED);
    EXPECT_EQ(m_captures.Routines(), Routines{Routine::GetOutlookDocumentCount});
    EXPECT_FALSE(DirectoryExists(m_temp.Inbox()));
}

TEST_F(OutlookSelectionTest, DeleteArcDocsMarksEveryHandOffForMailDeletion) {
    m_registry.SetMachineNumber(L"DeleteArcDocs", 1);
    m_captures.SelectItems(2);

    Archive(kHostOutlook);

    ASSERT_EQ(m_captures.Staged().size(), 2u);
    for (const FakeCaptures::StagedFile& file : m_captures.Staged()) {
        std::string handOff = HandOffOf(file);
        EXPECT_TRUE(Contains(handOff, "<deletemail>1</deletemail>")) << handOff;
    }
    EXPECT_EQ(LaunchedUrl(), Url(kHostOutlook, kRechnungen, m_captures.Staged()));
}

struct StatusMessage {
    HRESULT status;
    UINT message;
};

void PrintTo(const StatusMessage& row, std::ostream* out) {
    *out << std::hex << "0x" << static_cast<uint32_t>(row.status) << std::dec << " -> "
         << row.message;
}

class OutlookCaptureStatusTest : public ArchiveCommandTest,
                                 public testing::WithParamInterface<StatusMessage> {};

TEST_P(OutlookCaptureStatusTest, ShowsItsMessageAndLaunchesNothing) {
    RemoveConnectorHandler();
    m_captures.SelectItems(2);
    m_captures.SetStatus(Routine::SaveOutlookDocument, GetParam().status);
    AnswerErrorBox();

    Archive(kHostOutlook);

    ExpectErrorBoxOf(GetParam().message);
    EXPECT_EQ(m_captures.Routines(),
              (Routines{Routine::GetOutlookDocumentCount, Routine::SaveOutlookDocument}));
}

INSTANTIATE_TEST_SUITE_P(Statuses, OutlookCaptureStatusTest,
                         testing::Values(StatusMessage{kNothingSelected, IDS_NOTHING_SELECTED},
                                         StatusMessage{kUnsupportedItem, IDS_UNSUPPORTED_ITEM},
                                         StatusMessage{E_OUTOFMEMORY, IDS_CAPTURE_OUT_OF_MEMORY},
                                         StatusMessage{E_FAIL, IDS_CAPTURE_FAILED},
                                         StatusMessage{static_cast<HRESULT>(0x80044304),
                                                       IDS_CAPTURE_FAILED}));

// --- OnArchive in Word, Excel and PowerPoint: the active document.

class OfficeDocumentTest : public ArchiveCommandTest,
                           public testing::WithParamInterface<int32_t> {};

TEST_P(OfficeDocumentTest, IsHandedOffWithItsPropertiesAndLaunchedForItsHost) {
    // Mail deletion belongs to Outlook selections; a document never carries it.
    m_registry.SetMachineNumber(L"DeleteArcDocs", 1);

    Archive(GetParam());

    ASSERT_EQ(m_captures.Routines(), Routines{Routine::SaveOfficeDocument});
    const FakeCaptures::Call& call = m_captures.Calls()[0];
    EXPECT_EQ(call.hostKind, GetParam());
    EXPECT_EQ(call.majorVersion, kMajorVersion);
    EXPECT_EQ(call.application, m_application.get());
    ASSERT_EQ(m_captures.Staged().size(), 1u);
    std::string handOff = HandOffOf(m_captures.Staged()[0]);
    EXPECT_TRUE(Contains(handOff, "<property name=\"MSO_TITLE\">")) << handOff;
    EXPECT_FALSE(Contains(handOff, "<deletemail>")) << handOff;
    EXPECT_EQ(LaunchedUrl(), Url(GetParam(), kRechnungen, m_captures.Staged()));
    // The word "Outlook" in every host is what log readers search for.
    EXPECT_TRUE(m_log.Contains(L"[INF] Outlook CTalvornAddin->OnArchive invoked\n"));
}

INSTANTIATE_TEST_SUITE_P(Hosts, OfficeDocumentTest,
                         testing::Values(kHostWord, kHostExcel, kHostPowerPoint));

class OfficeCaptureStatusTest : public ArchiveCommandTest,
                                public testing::WithParamInterface<StatusMessage> {};

// The Outlook statuses mean nothing to an Office capture: every failure is the one message.
TEST_P(OfficeCaptureStatusTest, ShowsTheCaptureMessageAndLaunchesNothing) {
    RemoveConnectorHandler();
    m_captures.SetStatus(Routine::SaveOfficeDocument, GetParam().status);
    AnswerErrorBox();

    Archive(kHostWord);

    ExpectErrorBoxOf(GetParam().message);
}

INSTANTIATE_TEST_SUITE_P(Statuses, OfficeCaptureStatusTest,
                         testing::Values(StatusMessage{E_FAIL, IDS_CAPTURE_FAILED},
                                         StatusMessage{kNothingSelected, IDS_CAPTURE_FAILED},
                                         StatusMessage{kUnsupportedItem, IDS_CAPTURE_FAILED},
                                         StatusMessage{E_OUTOFMEMORY, IDS_CAPTURE_FAILED}));

class OtherHostTest : public ArchiveCommandTest, public testing::WithParamInterface<int32_t> {};

TEST_P(OtherHostTest, OnlyLogsThatTheCommandWasInvoked) {
    RemoveConnectorHandler();

    Archive(GetParam());

    EXPECT_TRUE(m_captures.Calls().empty());
    EXPECT_FALSE(DirectoryExists(m_temp.Inbox()));
    std::wstring log = m_log.Text();
    EXPECT_TRUE(log.ends_with(L"[INF] Outlook CTalvornAddin->OnArchive invoked\n")) << ToUtf8(log);
    EXPECT_EQ(std::count(log.begin(), log.end(), L'\n'), 1) << ToUtf8(log);
}

INSTANTIATE_TEST_SUITE_P(Hosts, OtherHostTest, testing::Values(0, 7, 5, -1));

// --- The common end: hand-offs, the storage-target choice and the launch.

// Two targets, so that a choice offered after a failed hand-off would be an unexpected window.
class HandOffFailureTest : public ArchiveCommandTest {
protected:
    HandOffFailureTest() {
        UseTwoTargets();
        RemoveConnectorHandler();
        AnswerErrorBox();
    }
};

TEST_F(HandOffFailureTest, EndsTheOutlookSelectionBeforeTheChoice) {
    m_captures.SelectItems(3);
    m_captures.BlockHandOffOf(1);

    Archive(kHostOutlook);

    ExpectErrorBoxOf(IDS_HANDOFF_FAILED);
    EXPECT_TRUE(HasHandOff(m_captures.Staged().at(0)));
}

TEST_F(HandOffFailureTest, EndsTheOfficeDocumentBeforeTheChoice) {
    m_captures.BlockHandOffOf(0);

    Archive(kHostExcel);

    ExpectErrorBoxOf(IDS_HANDOFF_FAILED);
}

TEST_F(HandOffFailureTest, EndsTheOpenItemBeforeTheChoice) {
    m_captures.BlockHandOffOf(0);

    ArchiveOpenItem();

    ExpectErrorBoxOf(IDS_HANDOFF_FAILED);
}

class StorageTargetChoiceTest : public ArchiveCommandTest {
protected:
    StorageTargetChoiceTest() { UseTwoTargets(); }
};

TEST_F(StorageTargetChoiceTest, CancelMarksEveryWrittenFolderFreeToDeleteAndEndsSilently) {
    RemoveConnectorHandler();
    m_captures.SelectItems(3);
    m_watcher.Expect(kSelectCaption).Click(IDCANCEL);

    Archive(kHostOutlook);

    ASSERT_EQ(m_captures.Staged().size(), 3u);
    for (const FakeCaptures::StagedFile& file : m_captures.Staged()) {
        EXPECT_EQ(FileSize(FreeToDeleteMarkerOf(file)), 0) << ToUtf8(file.folder);
        // The connector deletes the folder; the add-in leaves its contents alone.
        EXPECT_TRUE(FileExists(file.path));
        EXPECT_TRUE(HasHandOff(file));
    }
}

TEST_F(StorageTargetChoiceTest, TheChosenTargetIsTheOneTheConnectorGets) {
    m_watcher.Expect(kSelectCaption).SelectInCombo(IDC_STORAGE_TARGETS, L"Rechnungen").Click(IDOK);

    Archive(kHostWord);

    EXPECT_EQ(LaunchedUrl(), Url(kHostWord, kRechnungen, m_captures.Staged()));
    ASSERT_EQ(m_captures.Staged().size(), 1u);
    EXPECT_FALSE(FileExists(FreeToDeleteMarkerOf(m_captures.Staged()[0])));
}

TEST_F(ArchiveCommandTest, AConnectorThatCannotBeStartedIsReported) {
    RemoveConnectorHandler();
    // Wine's shell shows a box of its own before it gives up.
    m_watcher.Expect(L"Error").Click(IDOK);
    AnswerErrorBox();

    Archive(kHostPowerPoint);

    ExpectErrorBoxOf(IDS_CONNECTOR_NOT_FOUND);
    EXPECT_TRUE(m_log.Contains(L"[ERR] Failed to open talvorn Desktop Connector, error: "));
}

// --- OnArchiveSingleOutlook: the current item of an open window.

using OpenItemTest = ArchiveCommandTest;

TEST_F(OpenItemTest, TheCurrentItemIsHandedOffWithoutMailDeletion) {
    m_registry.SetMachineNumber(L"DeleteArcDocs", 1);

    ArchiveOpenItem();

    ASSERT_EQ(m_captures.Routines(), Routines{Routine::SaveOutlookItem});
    const FakeCaptures::Call& call = m_captures.Calls()[0];
    EXPECT_EQ(call.item, Item());
    EXPECT_EQ(call.application, m_application.get());
    EXPECT_EQ(call.majorVersion, kMajorVersion);
    ASSERT_EQ(m_captures.Staged().size(), 1u);
    std::string handOff = HandOffOf(m_captures.Staged()[0]);
    EXPECT_TRUE(Contains(handOff, "<![CDATA[Offene Mail]]>")) << handOff;
    EXPECT_FALSE(Contains(handOff, "<deletemail>")) << handOff;
    EXPECT_EQ(LaunchedUrl(), Url(kHostOutlook, kRechnungen, m_captures.Staged()));
    EXPECT_TRUE(m_log.Contains(L"[INF] Outlook CTalvornAddin->OnArchiveSingleOutlook invoked\n"));
}

TEST_F(OpenItemTest, ACaptureFailureIsOnlyLogged) {
    RemoveConnectorHandler();
    m_captures.SetStatus(Routine::SaveOutlookItem, E_ACCESSDENIED);

    ArchiveOpenItem();

    EXPECT_TRUE(m_log.Contains(L"[ERR] Can't save current item! hr = 0x80070005\n"))
        << ToUtf8(m_log.Text());
}

// A window whose CurrentItem cannot be had as an object, and the status the log then names.
struct UnreadableItem {
    const char* name;
    std::function<void(FakeDispatch& window)> spoil;
    const wchar_t* status;
};

const UnreadableItem kUnreadableItems[] = {
    {"FailingGet", [](FakeDispatch& window) { window.FailCall(L"CurrentItem", 1, E_FAIL); },
     L"0x80004005"},
    {"UnknownName",
     [](FakeDispatch& window) { window.FailLookup(L"CurrentItem", DISP_E_UNKNOWNNAME); },
     L"0x80020006"},
    {"Nothing",
     [](FakeDispatch& window) {
         window.SetProperty(L"CurrentItem", static_cast<IDispatch*>(nullptr));
     },
     L"0x80004003"},
    {"NotAnObject",
     [](FakeDispatch& window) { window.SetProperty(L"CurrentItem", L"Posteingang"); },
     L"0x80020005"},
};

void PrintTo(const UnreadableItem& row, std::ostream* out) { *out << row.name; }

// Which of the two open-window commands runs: true for the attachment command.
class UnreadableCurrentItemTest
    : public ArchiveCommandTest,
      public testing::WithParamInterface<std::tuple<UnreadableItem, bool>> {};

TEST_P(UnreadableCurrentItemTest, IsOnlyLoggedAndNothingIsCaptured) {
    const auto& [unreadable, attachments] = GetParam();
    RemoveConnectorHandler();
    unreadable.spoil(*m_window.get());

    if (attachments) {
        ArchiveAttachmentsOfOpenItem();
    } else {
        ArchiveOpenItem();
    }

    EXPECT_TRUE(m_captures.Calls().empty());
    std::wstring line = std::wstring(L"[ERR] Can't get CurrentItem from Context! hr = ") +
                        unreadable.status + L"\n";
    EXPECT_TRUE(m_log.Contains(line)) << ToUtf8(m_log.Text());
}

INSTANTIATE_TEST_SUITE_P(Windows, UnreadableCurrentItemTest,
                         testing::Combine(testing::ValuesIn(kUnreadableItems), testing::Bool()),
                         [](const testing::TestParamInfo<std::tuple<UnreadableItem, bool>>& info) {
                             return std::string(std::get<0>(info.param).name) +
                                    (std::get<1>(info.param) ? "_Attachments" : "_Item");
                         });

// --- OnAttachment and OnAttachmentSingleOutlook: chosen attachments.

class AttachmentTest : public ArchiveCommandTest {
protected:
    AttachmentTest() {
        m_captures.SetAttachments({L"Rechnung 0815.pdf", L"Logo.png", L"Vertrag.docx"});
    }
};

TEST_F(AttachmentTest, ChosenAttachmentsAreHandedOffBareAndLaunched) {
    // Attachments are files, not mails: they carry neither properties nor mail deletion.
    m_registry.SetMachineNumber(L"DeleteArcDocs", 1);
    m_captures.Choose({0, 2});

    ArchiveAttachments(Item());

    ASSERT_EQ(m_captures.Routines(),
              (Routines{Routine::GetAttachmentList, Routine::ChooseAttachments,
                        Routine::SaveAttachments}));
    EXPECT_EQ(m_captures.Calls()[0].item, Item());
    EXPECT_EQ(m_captures.Calls()[1].count, 3);
    EXPECT_EQ(m_captures.Calls()[2].item, Item());
    const StagedFiles& staged = m_captures.Staged();
    ASSERT_EQ(staged.size(), 2u);
    EXPECT_TRUE(staged[0].path.ends_with(L"\\Rechnung 0815.pdf"));
    EXPECT_TRUE(staged[1].path.ends_with(L"\\Vertrag.docx"));
    for (const FakeCaptures::StagedFile& file : staged) {
        std::string handOff = HandOffOf(file);
        EXPECT_TRUE(Contains(handOff, "<path>" + ToUtf8(file.path) + "</path>")) << handOff;
        EXPECT_FALSE(Contains(handOff, "<property")) << handOff;
        EXPECT_FALSE(Contains(handOff, "<deletemail>")) << handOff;
    }
    EXPECT_EQ(LaunchedUrl(), Url(kHostOutlook, kRechnungen, staged));
    EXPECT_TRUE(m_log.Contains(L"[INF] Outlook CTalvornAddin->OnAttachment invoked\n"));
}

TEST_F(AttachmentTest, WithoutAnItemOrASelectionNothingSelectedIsReported) {
    RemoveConnectorHandler();
    m_captures.SelectItems(0);
    AnswerErrorBox();

    ArchiveAttachments(nullptr);

    ExpectErrorBoxOf(IDS_NOTHING_SELECTED);
    EXPECT_EQ(m_captures.Routines(), Routines{Routine::GetOutlookDocumentCount});
}

TEST_F(AttachmentTest, NoAttachmentsAreReported) {
    RemoveConnectorHandler();
    m_captures.SetAttachments({});
    AnswerErrorBox();

    ArchiveAttachments(Item());

    ExpectErrorBoxOf(IDS_NO_ATTACHMENTS);
    EXPECT_EQ(m_captures.Routines(), Routines{Routine::GetAttachmentList});
}

TEST_F(AttachmentTest, ACancelledChoiceEndsSilently) {
    RemoveConnectorHandler();
    m_captures.Choose({});

    ArchiveAttachments(Item());

    EXPECT_EQ(m_captures.Routines(),
              (Routines{Routine::GetAttachmentList, Routine::ChooseAttachments}));
    EXPECT_EQ(m_log.Text().find(L"[ERR]"), std::wstring::npos) << ToUtf8(m_log.Text());
}

TEST_F(AttachmentTest, NothingSavedIsOnlyLogged) {
    RemoveConnectorHandler();
    m_captures.SetStatus(Routine::SaveAttachments, E_FAIL);

    ArchiveAttachments(Item());

    EXPECT_TRUE(m_log.Contains(L"[ERR] error saving attachment files to disk\n"))
        << ToUtf8(m_log.Text());
}

TEST_F(AttachmentTest, AFailedHandOffIsReportedAndTheConnectorStillGetsWhatWasWritten) {
    m_captures.BlockHandOffOf(1);
    AnswerErrorBox();

    ArchiveAttachments(Item());

    ExpectErrorBoxOf(IDS_HANDOFF_FAILED);
    const StagedFiles& staged = m_captures.Staged();
    ASSERT_EQ(staged.size(), 3u);
    EXPECT_FALSE(HasHandOff(staged[2]));
    // The failed hand-off's folder is named too: it is listed before its document is opened.
    EXPECT_EQ(LaunchedUrl(), Url(kHostOutlook, kRechnungen, {staged[0], staged[1]}));
}

TEST_F(AttachmentTest, TheOpenItemsAttachmentsAreTakenFromItsCurrentItem) {
    ArchiveAttachmentsOfOpenItem();

    ASSERT_EQ(m_captures.Routines(),
              (Routines{Routine::GetAttachmentList, Routine::ChooseAttachments,
                        Routine::SaveAttachments}));
    EXPECT_EQ(m_captures.Calls()[0].item, Item());
    EXPECT_EQ(m_captures.Calls()[2].item, Item());
    EXPECT_EQ(LaunchedUrl(), Url(kHostOutlook, kRechnungen, m_captures.Staged()));
    std::wstring log = m_log.Text();
    size_t single = log.find(L"[INF] Outlook CTalvornAddin->OnAttachmentSingleOutlook invoked\n");
    size_t attachment = log.find(L"[INF] Outlook CTalvornAddin->OnAttachment invoked\n");
    EXPECT_NE(single, std::wstring::npos) << ToUtf8(log);
    EXPECT_NE(attachment, std::wstring::npos) << ToUtf8(log);
    EXPECT_LT(single, attachment);
}

}  // namespace
