#include <windows.h>
#include <commctrl.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "common/AttachmentRecord.h"
#include "resources/resource.h"
#include "settings/AttachmentChoiceDialog.h"
#include "support/WindowWatcher.h"

namespace {

constexpr wchar_t kCaption[] = L"Anh\u00E4nge ausw\u00E4hlen";

struct Row {
    std::wstring name;
    std::wstring size;
    bool checked;
    bool operator==(const Row&) const = default;
};

void PrintTo(const Row& row, std::ostream* out) {
    *out << std::string(row.name.begin(), row.name.end()) << "|"
         << std::string(row.size.begin(), row.size.end()) << "|" << row.checked;
}

std::vector<Row> ReadRows(HWND list) {
    std::vector<Row> rows;
    for (int i = 0; i < ListView_GetItemCount(list); ++i) {
        wchar_t name[260] = L"";
        wchar_t size[64] = L"";
        ListView_GetItemText(list, i, 0, name, 260);
        ListView_GetItemText(list, i, 1, size, 64);
        rows.push_back({name, size, ListView_GetCheckState(list, i) != 0});
    }
    return rows;
}

struct ChoiceCase {
    const char* name;
    std::vector<int> unchecked;  // rows the user unchecks
    std::vector<int> clicks;
    INT_PTR result;
    std::vector<bool> selected;  // records carrying OTL_ATTACHMENT_SELECTED afterwards
};

void PrintTo(const ChoiceCase& row, std::ostream* out) { *out << row.name; }

class AttachmentChoiceTest : public testing::TestWithParam<ChoiceCase> {};

TEST_P(AttachmentChoiceTest, ShowsEveryRecordCheckedAndMarksTheChosenOnes) {
    const ChoiceCase& row = GetParam();
    std::vector<PropertyMap> attachments(3);
    const wchar_t* names[] = {L"Angebot.pdf", L"Preisliste.xlsx", L"Foto.jpg"};
    const wchar_t* sizes[] = {L"512", L"20480", L"3145728"};
    for (size_t i = 0; i < 3; ++i) {
        attachments[i].Add(kAttachmentName, names[i], 0);
        attachments[i].Add(kAttachmentSize, sizes[i], 0);
        attachments[i].Add(kAttachmentKey, std::to_wstring(i + 2).c_str(), 0);
    }
    std::vector<Row> shown;
    WindowWatcher watcher;
    WindowWatcher::Expectation answer = watcher.Expect(kCaption).Call([&] {
        HWND list = GetDlgItem(watcher.Open(kCaption), IDC_ATTACHMENTS);
        shown = ReadRows(list);
        for (int index : row.unchecked) {
            ListView_SetCheckState(list, index, FALSE);
        }
    });
    for (int click : row.clicks) {
        answer.Click(click);
    }

    EXPECT_EQ(ShowAttachmentChoiceDialog(attachments), row.result);

    watcher.Verify();
    ASSERT_EQ(watcher.Seen().size(), 1u);
    EXPECT_EQ(watcher.Seen()[0].FindControl(IDOK)->text, L"Ok");
    EXPECT_EQ(watcher.Seen()[0].FindControl(IDCANCEL)->text, L"Abbrechen");
    EXPECT_EQ(shown, (std::vector<Row>{{L"Angebot.pdf", L"512 bytes", true},
                                       {L"Preisliste.xlsx", L"20.00 KB", true},
                                       {L"Foto.jpg", L"3.00 MB", true}}));
    for (size_t i = 0; i < 3; ++i) {
        const PropertyEntry* selected = attachments[i].Find(kAttachmentSelected);
        EXPECT_EQ(selected != nullptr, row.selected[i]) << i;
        if (selected) {
            EXPECT_EQ(selected->flag, 0u);
        }
        EXPECT_EQ(attachments[i].Find(kAttachmentKey)->value, std::to_wstring(i + 2));
    }
}

INSTANTIATE_TEST_SUITE_P(
    Choices, AttachmentChoiceTest,
    testing::Values(
        ChoiceCase{"AllKept", {}, {IDOK}, 1, {true, true, true}},
        ChoiceCase{"OneUnchecked", {1}, {IDOK}, 1, {true, false, true}},
        ChoiceCase{"CancelLeavesTheRecords", {1}, {IDCANCEL}, 0, {false, false, false}},
        // OK with nothing checked does nothing: the dialog waits for Cancel.
        ChoiceCase{"NoneCheckedOkWaits", {0, 1, 2}, {IDOK, IDCANCEL}, 0, {false, false, false}}),
    [](const testing::TestParamInfo<ChoiceCase>& info) { return std::string(info.param.name); });

TEST(AttachmentSize, TheNumberShownStaysBelow1024InItsUnit) {
    const std::pair<int64_t, const wchar_t*> rows[] = {
        {0, L"0 bytes"},
        {1023, L"1023 bytes"},
        {1024, L"1.00 KB"},
        {1536, L"1.50 KB"},
        {1048565, L"1023.99 KB"},
        // 1023.996 KB would read 1024.00 KB, so it goes up a unit.
        {1048572, L"1.00 MB"},
        {5LL * 1024 * 1024 * 1024, L"5.00 GB"},
        {3LL * 1024 * 1024 * 1024 * 1024, L"3.00 TB"},
        {2048LL * 1024 * 1024 * 1024 * 1024, L"2048.00 TB"},
    };
    for (const auto& [bytes, text] : rows) {
        EXPECT_EQ(FormatAttachmentSize(bytes), text) << bytes;
    }
}

}  // namespace
