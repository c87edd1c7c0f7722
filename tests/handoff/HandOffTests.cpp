#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "handoff/HandOff.h"
#include "handoff/StagingArea.h"
#include "support/TestFiles.h"

namespace {

std::string Replace(std::string text, const std::string& from, const std::string& to) {
    for (size_t at = text.find(from); at != std::string::npos;
         at = text.find(from, at + to.size())) {
        text.replace(at, from.size(), to);
    }
    return text;
}

class HandOffTest : public testing::Test {
protected:
    // A staging folder: its path without the trailing backslash, and its name.
    struct Folder {
        std::wstring path;
        std::wstring id;
        std::wstring Document() const { return path + L"\\" + id + L".xml"; }
    };
    Folder NewStagingFolder() {
        wchar_t buffer[MAX_PATH];
        EXPECT_EQ(CreateStagingFolder(buffer, MAX_PATH), 1);
        std::wstring path(buffer);
        path.pop_back();
        return {path, path.substr(path.rfind(L'\\') + 1)};
    }
    std::wstring Stage(const Folder& folder, const wchar_t* name) {
        std::wstring file = folder.path + L"\\" + name;
        WriteFileBytes(file, "content");
        return file;
    }
    std::string Expected(const wchar_t* file, const Folder& folder) {
        std::string text = ReadFileBytes(TestSourcePath(std::wstring(L"handoff/expected/") + file));
        return Replace(Replace(text, "@FOLDER@", ToUtf8(folder.path)), "@ID@", ToUtf8(folder.id));
    }
    // A directory where the document belongs makes its opening fail.
    void Block(const Folder& folder) {
        ASSERT_TRUE(CreateDirectoryW(folder.Document().c_str(), nullptr));
    }
    Folder FolderOfListEntry(size_t index) {
        return {m_temp.Inbox() + m_list.at(index), m_list.at(index)};
    }

    TempDirectoryOverride m_temp;
    HandOffList m_list;
};

// Without a map or with an empty one, the document has no properties.
TEST_F(HandOffTest, DocumentMatchesTheConnectorsFormatByteForByte) {
    const Folder folders[] = {NewStagingFolder(), NewStagingFolder(), NewStagingFolder()};
    PropertyMap map;
    map.Add(L"\u00C4nderung", L"Gr\u00FC\u00DFe \u20AC");
    map.Add(L"a", L"ends ]]> early");
    map.Add(L"MSO_TITLE_DATETIME", L"");
    map.Add(L"MSO_TITLE", L"Angebot & <Entwurf>");
    map.Add(L"B", L"upper case sorts first");
    PropertyMap empty;
    const PropertyMap* maps[] = {&map, nullptr, &empty};

    for (size_t i = 0; i < 3; ++i) {
        const std::wstring file = Stage(folders[i], L"Bericht & Plan.docx");
        ASSERT_EQ(WriteHandOff(file.c_str(), nullptr, maps[i], m_list, i == 0 ? 1 : 0), 1);
        EXPECT_EQ(
            ReadFileBytes(folders[i].Document()),
            Expected(i == 0 ? L"handoff_with_properties.xml" : L"handoff_without_properties.xml",
                     folders[i]));
    }
    EXPECT_EQ(m_list, (HandOffList{folders[0].id, folders[1].id, folders[2].id}));
}

// A document that cannot be opened is listed all the same; a folder name longer than its buffer
// of 32 characters fails before it is listed.
TEST_F(HandOffTest, FailuresReturnZero) {
    Folder blocked = NewStagingFolder();
    Block(blocked);
    std::wstring longName = m_temp.Path() + L"a_folder_name_of_more_than_31_chars";
    ASSERT_TRUE(CreateDirectoryW(longName.c_str(), nullptr));
    WriteFileBytes(longName + L"\\x.txt", "x");

    EXPECT_EQ(WriteHandOff(Stage(blocked, L"Bericht.docx").c_str(), nullptr, nullptr, m_list, 0),
              0);
    EXPECT_EQ(WriteHandOff((longName + L"\\x.txt").c_str(), nullptr, nullptr, m_list, 0), 0);
    EXPECT_EQ(m_list, HandOffList{blocked.id});
}

TEST_F(HandOffTest, WriteHandOffsPairsPathsWithMapsAndStopsAtTheFirstFailure) {
    const Folder folders[] = {NewStagingFolder(), NewStagingFolder(), NewStagingFolder()};
    Block(folders[1]);
    std::vector<PathBuffer> paths(3);
    std::vector<PropertyMap> maps(3);
    for (size_t i = 0; i < 3; ++i) {
        wcscpy(paths[i].data(), Stage(folders[i], L"mail.msg").c_str());
        maps[i].Add(L"OTL_MSG_SUBJECT", (L"mail " + std::to_wstring(i)).c_str());
    }

    EXPECT_EQ(WriteHandOffs(paths.data(), nullptr, 0, m_list, 0), 1);
    EXPECT_EQ(WriteHandOffs(paths.data(), nullptr, -1, m_list, 0), 1);
    EXPECT_TRUE(m_list.empty());
    EXPECT_EQ(WriteHandOffs(paths.data(), maps.data(), 3, m_list, 1), 0);

    EXPECT_EQ(m_list, (HandOffList{folders[0].id, folders[1].id}));
    std::string first = ReadFileBytes(folders[0].Document());
    EXPECT_TRUE(Contains(first, "<![CDATA[mail 0]]>")) << first;
    EXPECT_TRUE(Contains(first, "<deletemail>1</deletemail>"));
    EXPECT_FALSE(FileExists(folders[2].Document()));
    // Without maps: no properties.
    EXPECT_EQ(WriteHandOffs(paths.data(), nullptr, 1, m_list, 0), 1);
    EXPECT_FALSE(Contains(ReadFileBytes(folders[0].Document()), "<property"));
}

// --- WriteHandOffsForFiles: a buffer of NUL-terminated paths, as the connector's object names
// them.

std::wstring FileList(std::initializer_list<std::wstring> files) {
    std::wstring buffer;
    for (const std::wstring& file : files) {
        buffer += file;
        buffer.push_back(L'\0');
    }
    return buffer;
}

TEST_F(HandOffTest, StagedFilesKeepTheirFoldersAndAMissingFileOrAFolderEndsTheWalk) {
    const Folder first = NewStagingFolder();
    const Folder second = NewStagingFolder();
    std::wstring files = FileList({Stage(first, L"a.msg"), Stage(second, L"b.msg"),
                                   first.path + L"\\fehlt.pdf", Stage(first, L"c.msg")});

    EXPECT_EQ(WriteHandOffsForFiles(files.c_str(), 4, nullptr, m_list, 1), 1);
    EXPECT_EQ(m_list, (HandOffList{first.id, second.id}));
    EXPECT_TRUE(Contains(ReadFileBytes(second.Document()), "<deletemail>1</deletemail>"));

    files = FileList({m_temp.Path()});
    EXPECT_EQ(WriteHandOffsForFiles(files.c_str(), 1, nullptr, m_list, 0), 1);
    EXPECT_EQ(m_list.size(), 2u);
}

TEST_F(HandOffTest, AForeignFileGetsAFreshEmptyStagingFolderAndIsNotCopied) {
    ScratchFolder outside;
    std::wstring foreign = outside / L"Vertrag.pdf";
    WriteFileBytes(foreign, "pdf");
    PropertyMap map;
    map.Add(L"SOURCE", L"connector");

    ASSERT_EQ(WriteHandOffsForFiles(FileList({foreign}).c_str(), 1, &map, m_list, 0), 1);

    ASSERT_EQ(m_list.size(), 1u);
    Folder fresh = FolderOfListEntry(0);
    std::string xml = ReadFileBytes(fresh.Document());
    EXPECT_TRUE(Contains(xml, "<path>" + ToUtf8(foreign) + "</path>")) << xml;
    EXPECT_TRUE(Contains(xml, "<deletefile>" + ToUtf8(fresh.path) + "</deletefile>"));
    EXPECT_TRUE(Contains(xml, "<property name=\"SOURCE\"><![CDATA[connector]]></property>"));
    EXPECT_FALSE(FileExists(fresh.path + L"\\Vertrag.pdf"));
}

// The fresh folder is found once per list: a staged file after a foreign one is written against
// the foreign file's folder, where its hand-off replaces the first.
TEST_F(HandOffTest, AStagedFileAfterAForeignOneReusesTheForeignFilesFolder) {
    ScratchFolder outside;
    std::wstring foreign = outside / L"Vertrag.pdf";
    WriteFileBytes(foreign, "pdf");
    Folder own = NewStagingFolder();
    std::wstring staged = Stage(own, L"Anlage.pdf");

    ASSERT_EQ(WriteHandOffsForFiles(FileList({foreign, staged}).c_str(), 2, nullptr, m_list, 0), 1);

    ASSERT_EQ(m_list.size(), 2u);
    EXPECT_EQ(m_list[0], m_list[1]);
    EXPECT_NE(m_list[0], own.id);
    std::string xml = ReadFileBytes(FolderOfListEntry(1).Document());
    EXPECT_TRUE(Contains(xml, "<path>" + ToUtf8(staged) + "</path>")) << xml;
    EXPECT_FALSE(FileExists(own.Document()));
}

}  // namespace
