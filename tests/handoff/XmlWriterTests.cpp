#include <gtest/gtest.h>

#include <string>

#include "handoff/XmlWriter.h"
#include "support/TestFiles.h"

namespace {

class XmlWriterTest : public testing::Test {
protected:
    ScratchFolder m_folder;
    std::wstring m_path = m_folder / L"out.xml";
};

TEST_F(XmlWriterTest, WritesBomCrLfTabsAndAttributesInReverseOrder) {
    CXmlWriter writer(m_path.c_str());
    ASSERT_TRUE(writer.Open());
    writer.StartElement(L"root");
    writer.AddAttribute(L"first", L"1");
    writer.AddAttribute(L"second", L"2");
    writer.StartElement(L"child");
    writer.WriteComment(L"note");
    writer.AddAttribute(L"name", L"x&y");
    writer.WriteCDataElement(L"property", L"<\u00E4>");
    writer.WriteElement(L"leaf", L"a < b");
    writer.EndAll();
    writer.Close();

    EXPECT_EQ(ReadFileBytes(m_path),
              "\xEF\xBB\xBF"
              "\r\n<root>"
              "\r\n\t<child second=\"2\" first=\"1\">"
              "\r\n\t\t<!--note-->"
              "\r\n\t\t<property name=\"x&y\"><![CDATA[<\xC3\xA4>]]></property>"
              "\r\n\t\t<leaf>a < b</leaf>"
              "\r\n\t</child>"
              "\r\n</root>");
}

TEST_F(XmlWriterTest, CloseDropsOpenElementsAndPendingAttributes) {
    {
        CXmlWriter writer(m_path.c_str());
        ASSERT_TRUE(writer.Open());
        writer.StartElement(L"files");
        writer.AddAttribute(L"left", L"over");
        writer.Close();
        writer.EndAll();
    }
    EXPECT_EQ(ReadFileBytes(m_path), "\xEF\xBB\xBF\r\n<files>");
}

TEST_F(XmlWriterTest, ReopeningTruncatesAndEndElementWithNothingOpenWritesNothing) {
    CXmlWriter writer(m_path.c_str());
    ASSERT_TRUE(writer.Open());
    writer.WriteElement(L"old", L"text");
    ASSERT_TRUE(writer.Open());
    writer.EndElement();
    writer.WriteElement(L"new", L"");
    writer.Close();
    EXPECT_EQ(ReadFileBytes(m_path), "\xEF\xBB\xBF\r\n<new></new>");
}

TEST_F(XmlWriterTest, AFileThatCannotBeOpenedIsReportedAndWritesAreIgnored) {
    CXmlWriter writer((m_folder / L"missing\\out.xml").c_str());
    EXPECT_FALSE(writer.Open());
    writer.StartElement(L"files");
    writer.EndAll();
    EXPECT_FALSE(FileExists(m_folder / L"missing\\out.xml"));
}

}  // namespace
