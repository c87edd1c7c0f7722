#include <gtest/gtest.h>

#include <vector>

#include "common/Messages.h"
#include "resources/resource.h"
#include "support/WindowWatcher.h"

namespace {

constexpr UINT kNoSuchText = 7999;
const wchar_t kErrorCaption[] = L"Fehler bei der Dokumentablage";
const wchar_t kQuestionCaption[] = L"Dokument ablegen";

class MessagesTest : public testing::Test {
protected:
    // The one window the test answered, after checking that nothing else appeared.
    WindowWatcher::Window OnlyWindow() {
        watcher.Verify();
        std::vector<WindowWatcher::Window> seen = watcher.Seen();
        EXPECT_EQ(1u, seen.size());
        return seen.empty() ? WindowWatcher::Window{} : seen[0];
    }

    WindowWatcher watcher;
};

// Wine leaves MB_TOPMOST out of the window's extended style, so the boxes' topmost and icon flags
// are checked on the MessageBoxW call that showed them.
TEST_F(MessagesTest, ErrorMessageIsAnOkBoxAboveAllWindowsWithoutOwner) {
    watcher.Expect(kErrorCaption).Click(IDOK);

    ShowErrorMessage(IDS_CAPTURE_FAILED);

    WindowWatcher::Window box = OnlyWindow();
    EXPECT_TRUE(box.HasText(L"Das Dokument konnte nicht zwischengespeichert werden!")) << box;
    EXPECT_EQ(std::vector<int>{IDOK}, box.ButtonIds());
    ASSERT_TRUE(box.messageBoxType.has_value());
    EXPECT_EQ(MB_ICONERROR, *box.messageBoxType & MB_ICONMASK);
    EXPECT_TRUE(*box.messageBoxType & MB_TOPMOST);
    EXPECT_EQ(nullptr, box.owner);
}

TEST_F(MessagesTest, ErrorMessageFormatsItsArgumentsIntoTheText) {
    watcher.Expect(kErrorCaption).Click(IDOK);

    ShowErrorMessage(IDS_SETUP_FILE_NOT_OPENED, L"setup.ini");

    WindowWatcher::Window box = OnlyWindow();
    EXPECT_TRUE(box.HasText(L"Datei \"setup.ini\" konnte nicht geöffnet werden!")) << box;
}

TEST_F(MessagesTest, QuestionFormatsItsArgumentsIntoTheText) {
    watcher.Expect(kQuestionCaption).Click(IDYES);

    AskQuestion(IDS_ASK_ARCHIVE_ALL, 3);

    WindowWatcher::Window box = OnlyWindow();
    EXPECT_TRUE(
        box.HasText(L"Sie haben 3 Dateien ausgewählt. Möchten Sie alle Dateien archivieren?"))
        << box;
}

TEST_F(MessagesTest, MissingTextShowsNothing) {
    ShowErrorMessage(kNoSuchText);
    EXPECT_EQ(IDNO, AskQuestion(kNoSuchText));

    // Both calls have returned, so a box they showed has been seen and answered by now.
    EXPECT_TRUE(watcher.Seen().empty());
}

class AskQuestionTest : public MessagesTest, public testing::WithParamInterface<int> {};

TEST_P(AskQuestionTest, ReturnsTheClickedButtonOfATopmostYesNoBox) {
    watcher.Expect(kQuestionCaption).Click(GetParam());

    EXPECT_EQ(GetParam(), AskQuestion(IDS_ASK_DELETE_ARCHIVED));

    WindowWatcher::Window box = OnlyWindow();
    EXPECT_TRUE(box.HasText(L"Soll das archivierte Dokument gelöscht werden?")) << box;
    EXPECT_EQ((std::vector<int>{IDYES, IDNO}), box.ButtonIds());
    ASSERT_TRUE(box.messageBoxType.has_value());
    EXPECT_EQ(MB_ICONQUESTION, *box.messageBoxType & MB_ICONMASK);
    EXPECT_TRUE(*box.messageBoxType & MB_TOPMOST);
}

INSTANTIATE_TEST_SUITE_P(Answers, AskQuestionTest, testing::Values(IDYES, IDNO),
                         [](const testing::TestParamInfo<int>& info) {
                             return info.param == IDYES ? "Yes" : "No";
                         });

}  // namespace
