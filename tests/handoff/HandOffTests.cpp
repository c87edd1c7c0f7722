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
    // A new staging folder: its path without the trailing backslash, and its name.
    struct Folder {
        std::wstring path;
        std::wstring id;
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
        text = Replace(text, "@FOLDER@", ToUtf8(folder.path));
        return Replace(text, "@ID@", ToUtf8(folder.id));
    }
    std::string HandOffOf(const Folder& folder) {
        return ReadFileBytes(folder.path + L"\\" + folder.id + L".xml");
    }

    TempDirectoryOverride m_temp;
    HandOffList m_list;
};

TEST_F(HandOffTest, DocumentMatchesTheConnectorsFormatByteForByte) {
    Folder folder = NewStagingFolder();
    std::wstring file = Stage(folder, L"Bericht & Plan.docx");
    PropertyMap map;
    map.Add(L"\u00C4nderung", L"Gr\u00FC\u00DFe \u20AC");
    map.Add(L"a", L"ends ]]> early");
    map.Add(L"MSO_TITLE_DATETIME", L"");
    map.Add(L"MSO_TITLE", L"Angebot & <Entwurf>");
    map.Add(L"B", L"upper case sorts first");

    ASSERT_EQ(WriteHandOff(file.c_str(), nullptr, &map, m_list, 1), 1);

    EXPECT_EQ(HandOffOf(folder), Expected(L"handoff_with_properties.xml", folder));
    EXPECT_EQ(m_list, HandOffList{folder.id});
}

TEST_F(HandOffTest, NoMapAndAnEmptyMapWriteTheSameDocument) {
    Folder first = NewStagingFolder();
    Folder second = NewStagingFolder();
    std::wstring firstFile = Stage(first, L"Bericht & Plan.docx");
    std::wstring secondFile = Stage(second, L"Bericht & Plan.docx");
    PropertyMap empty;

    ASSERT_EQ(WriteHandOff(firstFile.c_str(), nullptr, nullptr, m_list, 0), 1);
    ASSERT_EQ(WriteHandOff(secondFile.c_str(), nullptr, &empty, m_list, 0), 1);

    EXPECT_EQ(HandOffOf(first), Expected(L"handoff_without_properties.xml", first));
    EXPECT_EQ(HandOffOf(second), Expected(L"handoff_without_properties.xml", second));
    EXPECT_EQ(m_list, (HandOffList{first.id, second.id}));
}

TEST_F(HandOffTest, AnUnopenableDocumentFailsButStaysListed) {
    Folder folder = NewStagingFolder();
    std::wstring file = Stage(folder, L"Bericht.docx");
    // A directory where the document should go makes the open fail.
    ASSERT_TRUE(CreateDirectoryW((folder.path + L"\\" + folder.id + L".xml").c_str(), nullptr));

    EXPECT_EQ(WriteHandOff(file.c_str(), nullptr, nullptr, m_list, 0), 0);
    EXPECT_EQ(m_list, HandOffList{folder.id});
}

TEST_F(HandOffTest, AFolderNameTooLongForItsBufferFailsWithoutListing) {
    std::wstring folder = m_temp.Path() + L"a_folder_name_of_more_than_31_chars";
    ASSERT_TRUE(CreateDirectoryW(folder.c_str(), nullptr));
    std::wstring file = folder + L"\\x.txt";
    WriteFileBytes(file, "x");

    EXPECT_EQ(WriteHandOff(file.c_str(), nullptr, nullptr, m_list, 0), 0);
    EXPECT_TRUE(m_list.empty());
}

TEST_F(HandOffTest, WriteHandOffsStopsAtTheFirstFailureAndPairsPathsWithMaps) {
    Folder good = NewStagingFolder();
    Folder bad = NewStagingFolder();
    Folder never = NewStagingFolder();
    ASSERT_TRUE(CreateDirectoryW((bad.path + L"\\" + bad.id + L".xml").c_str(), nullptr));
    std::vector<PathBuffer> paths(3);
    std::vector<PropertyMap> maps(3);
    const Folder* folders[] = {&good, &bad, &never};
    for (size_t i = 0; i < 3; ++i) {
        std::wstring file = Stage(*folders[i], L"mail.msg");
        wcscpy(paths[i].data(), file.c_str());
        maps[i].Add(L"OTL_MSG_SUBJECT", (L"mail " + std::to_wstring(i)).c_str());
    }

    EXPECT_EQ(WriteHandOffs(paths.data(), maps.data(), 3, m_list, 1), 0);

    EXPECT_EQ(m_list, (HandOffList{good.id, bad.id}));
    std::string first = HandOffOf(good);
    EXPECT_NE(first.find("<![CDATA[mail 0]]>"), std::string::npos) << first;
    EXPECT_NE(first.find("<deletemail>1</deletemail>"), std::string::npos);
    EXPECT_FALSE(FileExists(never.path + L"\\" + never.id + L".xml"));
}

TEST_F(HandOffTest, WriteHandOffsWithoutMapsOrEntries) {
    Folder folder = NewStagingFolder();
    PathBuffer path{};
    wcscpy(path.data(), Stage(folder, L"Anhang.pdf").c_str());

    EXPECT_EQ(WriteHandOffs(nullptr, nullptr, 0, m_list, 0), 1);
    EXPECT_EQ(WriteHandOffs(&path, nullptr, -1, m_list, 0), 1);
    EXPECT_TRUE(m_list.empty());
    EXPECT_EQ(WriteHandOffs(&path, nullptr, 1, m_list, 0), 1);
    EXPECT_EQ(HandOffOf(folder).find("<property"), std::string::npos);
}

class HandOffsForFilesTest : public HandOffTest {
protected:
    static std::wstring FileList(std::initializer_list<std::wstring> files) {
        std::wstring buffer;
        for (const std::wstring& file : files) {
            buffer += file;
            buffer.push_back(L'\0');
        }
        return buffer;
    }
    Folder FolderOfListEntry(size_t index) {
        std::wstring path = m_temp.Inbox() + m_list.at(index);
        return {path, m_list.at(index)};
    }

    ScratchFolder m_outside;
};

TEST_F(HandOffsForFilesTest, AMissingFileEndsTheWalkWithSuccess) {
    Folder folder = NewStagingFolder();
    std::wstring files = FileList(
        {Stage(folder, L"eins.pdf"), folder.path + L"\\fehlt.pdf", Stage(folder, L"drei.pdf")});

    EXPECT_EQ(WriteHandOffsForFiles(files.c_str(), 3, nullptr, m_list, 0), 1);
    EXPECT_EQ(m_list, HandOffList{folder.id});
}

TEST_F(HandOffsForFilesTest, ADirectoryEndsTheWalkWithSuccess) {
    std::wstring files = FileList({m_outside.Path()});
    EXPECT_EQ(WriteHandOffsForFiles(files.c_str(), 1, nullptr, m_list, 0), 1);
    EXPECT_TRUE(m_list.empty());
}

TEST_F(HandOffsForFilesTest, AForeignFileGetsAFreshEmptyStagingFolderAndIsNotCopied) {
    std::wstring foreign = m_outside / L"Vertrag.pdf";
    WriteFileBytes(foreign, "pdf");
    PropertyMap map;
    map.Add(L"SOURCE", L"connector");
    std::wstring files = FileList({foreign});

    ASSERT_EQ(WriteHandOffsForFiles(files.c_str(), 1, &map, m_list, 0), 1);

    ASSERT_EQ(m_list.size(), 1u);
    Folder fresh = FolderOfListEntry(0);
    std::string xml = HandOffOf(fresh);
    EXPECT_NE(xml.find("<path>" + ToUtf8(foreign) + "</path>"), std::string::npos) << xml;
    EXPECT_NE(xml.find("<deletefile>" + ToUtf8(fresh.path) + "</deletefile>"), std::string::npos);
    EXPECT_NE(xml.find("<property name=\"SOURCE\"><![CDATA[connector]]></property>"),
              std::string::npos);
    EXPECT_FALSE(FileExists(fresh.path + L"\\Vertrag.pdf"));
}

TEST_F(HandOffsForFilesTest, AStagedFileAfterAForeignOneReusesTheForeignFilesFolder) {
    std::wstring foreign = m_outside / L"Vertrag.pdf";
    WriteFileBytes(foreign, "pdf");
    Folder own = NewStagingFolder();
    std::wstring staged = Stage(own, L"Anlage.pdf");
    std::wstring files = FileList({foreign, staged});

    ASSERT_EQ(WriteHandOffsForFiles(files.c_str(), 2, nullptr, m_list, 0), 1);

    // Both hand-offs went to the folder made for the foreign file; the second replaced the first.
    ASSERT_EQ(m_list.size(), 2u);
    EXPECT_EQ(m_list[0], m_list[1]);
    EXPECT_NE(m_list[0], own.id);
    std::string xml = HandOffOf(FolderOfListEntry(1));
    EXPECT_NE(xml.find("<path>" + ToUtf8(staged) + "</path>"), std::string::npos) << xml;
    EXPECT_FALSE(FileExists(own.path + L"\\" + own.id + L".xml"));
}

TEST_F(HandOffsForFilesTest, StagedFilesKeepTheirOwnFolders) {
    Folder first = NewStagingFolder();
    Folder second = NewStagingFolder();
    std::wstring files = FileList({Stage(first, L"a.msg"), Stage(second, L"b.msg")});

    ASSERT_EQ(WriteHandOffsForFiles(files.c_str(), 2, nullptr, m_list, 1), 1);
    EXPECT_EQ(m_list, (HandOffList{first.id, second.id}));
    EXPECT_NE(HandOffOf(second).find("<deletemail>1</deletemail>"), std::string::npos);
}

}  // namespace
