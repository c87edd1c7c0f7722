// The hand-off document pins the writer's output byte for byte; here what it does not use.
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

TEST_F(XmlWriterTest, WritesAttributesInReverseOrderAndComments) {
    CXmlWriter writer(m_path.c_str());
    ASSERT_TRUE(writer.Open());
    writer.StartElement(L"root");
    writer.AddAttribute(L"first", L"1");
    writer.AddAttribute(L"second", L"2");
    writer.StartElement(L"child");
    writer.WriteComment(L"note");
    writer.AddAttribute(L"name", L"x&y");
    writer.WriteElement(L"leaf", L"a < b");
    writer.EndAll();
    writer.Close();

    EXPECT_EQ(ReadFileBytes(m_path),
              "\xEF\xBB\xBF"
              "\r\n<root>"
              "\r\n\t<child second=\"2\" first=\"1\">"
              "\r\n\t\t<!--note-->"
              "\r\n\t\t<leaf name=\"x&y\">a < b</leaf>"
              "\r\n\t</child>"
              "\r\n</root>");
}

// Reopening truncates; closing drops open elements and pending attributes unwritten; an end
// with nothing open, or any write to a stream that did not open, writes nothing.
TEST_F(XmlWriterTest, WritesNothingItWasNotAskedToWrite) {
    {
        CXmlWriter writer(m_path.c_str());
        ASSERT_TRUE(writer.Open());
        writer.WriteElement(L"old", L"text");
        ASSERT_TRUE(writer.Open());
        writer.EndElement();
        writer.StartElement(L"files");
        writer.AddAttribute(L"left", L"over");
        writer.Close();
        writer.EndAll();
    }
    EXPECT_EQ(ReadFileBytes(m_path), "\xEF\xBB\xBF\r\n<files>");

    CXmlWriter missing((m_folder / L"missing\\out.xml").c_str());
    EXPECT_FALSE(missing.Open());
    missing.StartElement(L"files");
    missing.EndAll();
    EXPECT_FALSE(FileExists(m_folder / L"missing\\out.xml"));
}

}  // namespace
