#include <gtest/gtest.h>

#include <vector>

#include "common/Messages.h"
#include "resources/resource.h"
#include "support/WindowWatcher.h"

namespace {

const wchar_t kErrorCaption[] = L"Fehler bei der Dokumentablage";
const wchar_t kQuestionCaption[] = L"Dokument ablegen";

// Wine leaves MB_TOPMOST out of the window's extended style, so the boxes' buttons, topmost and
// icon flags are checked on the MessageBoxW call that showed them.
class MessagesTest : public testing::Test {
protected:
    // The one window the test answered, after checking that nothing else appeared.
    WindowWatcher::Window OnlyWindow(UINT buttons, UINT icon) {
        watcher.Verify();
        std::vector<WindowWatcher::Window> seen = watcher.Seen();
        EXPECT_EQ(1u, seen.size());
        WindowWatcher::Window box = seen.empty() ? WindowWatcher::Window{} : seen[0];
        EXPECT_EQ(box.messageBoxType.value_or(~0u) & (MB_TYPEMASK | MB_ICONMASK | MB_TOPMOST),
                  buttons | icon | MB_TOPMOST);
        EXPECT_EQ(box.owner, nullptr);
        return box;
    }

    WindowWatcher watcher;
};

TEST_F(MessagesTest, ErrorMessageIsAnOkBoxAboveAllWindowsWithItsArgumentsInTheText) {
    watcher.Expect(kErrorCaption).Click(IDOK);

    ShowErrorMessage(IDS_SETUP_FILE_NOT_OPENED, L"setup.ini");

    WindowWatcher::Window box = OnlyWindow(MB_OK, MB_ICONERROR);
    EXPECT_TRUE(box.HasText(L"Datei \"setup.ini\" konnte nicht geöffnet werden!")) << box;
}

class AskQuestionTest : public MessagesTest, public testing::WithParamInterface<int> {};

TEST_P(AskQuestionTest, ReturnsTheClickedButtonOfAYesNoBoxAboveAllWindows) {
    watcher.Expect(kQuestionCaption).Click(GetParam());

    EXPECT_EQ(AskQuestion(IDS_ASK_ARCHIVE_ALL, 3), GetParam());

    WindowWatcher::Window box = OnlyWindow(MB_YESNO, MB_ICONQUESTION);
    EXPECT_TRUE(
        box.HasText(L"Sie haben 3 Dateien ausgewählt. Möchten Sie alle Dateien archivieren?"))
        << box;
}

INSTANTIATE_TEST_SUITE_P(Answers, AskQuestionTest, testing::Values(IDYES, IDNO),
                         [](const testing::TestParamInfo<int>& info) {
                             return info.param == IDYES ? "Yes" : "No";
                         });

TEST_F(MessagesTest, MissingTextShowsNothing) {
    constexpr UINT kNoSuchText = 7999;
    ShowErrorMessage(kNoSuchText);
    EXPECT_EQ(AskQuestion(kNoSuchText), IDNO);
    // Both calls have returned, so a box they showed has been seen and answered by now.
    EXPECT_TRUE(watcher.Seen().empty());
}

}  // namespace
