// The hand-off document pins the writer's output byte for byte, and its failures to open; here
// what the hand-off does not use: attribute order, comments, a second Open.
#include <gtest/gtest.h>

#include <string>

#include "handoff/XmlWriter.h"
#include "support/TestFiles.h"

namespace {

// Attributes come out in the reverse order they were queued; Open again truncates; an end with
// nothing open writes nothing; Close drops open elements and queued attributes unwritten.
TEST(XmlWriter, WritesAttributesInReverseOrderCommentsAndOnlyWhatItWasAskedToWrite) {
    ScratchFolder folder;
    const std::wstring path = folder / L"out.xml";
    CXmlWriter writer(path.c_str());
    ASSERT_TRUE(writer.Open());
    writer.WriteElement(L"old", L"text");
    ASSERT_TRUE(writer.Open());
    writer.EndElement();
    writer.StartElement(L"root");
    writer.AddAttribute(L"first", L"1");
    writer.AddAttribute(L"second", L"2");
    writer.StartElement(L"child");
    writer.WriteComment(L"note");
    writer.AddAttribute(L"name", L"x&y");
    writer.WriteElement(L"leaf", L"a < b");
    writer.EndElement();
    writer.AddAttribute(L"left", L"over");
    writer.Close();
    writer.EndAll();

    EXPECT_EQ(ReadFileBytes(path),
              "\xEF\xBB\xBF"
              "\r\n<root>"
              "\r\n\t<child second=\"2\" first=\"1\">"
              "\r\n\t\t<!--note-->"
              "\r\n\t\t<leaf name=\"x&y\">a < b</leaf>"
              "\r\n\t</child>");
}

}  // namespace
