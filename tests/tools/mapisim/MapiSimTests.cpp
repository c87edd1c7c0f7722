// The simulated mapi32.dll, loaded beside this program: the buffer chain, HexFromBin, and a mail
// written to a message file, read back and copied whole into a second file.
#include <gtest/gtest.h>
#include <windows.h>

#include <imessage.h>
#include <mapitags.h>
#include <mapix.h>

#include <memory>
#include <string>

#include "common/ComPtr.h"
#include "support/TestFiles.h"
#include "tools/mapisim/MapiSim.h"
#include "tools/mapisim/SampleMessage.h"

// Declared here rather than through mapiutil.h, whose HexFromBin takes the caller's character
// set: the real module's writes narrow text.
extern "C" void STDAPICALLTYPE HexFromBin(LPBYTE lpb, int cb, LPSTR lpsz);
extern "C" LPMALLOC STDAPICALLTYPE MAPIGetDefaultMalloc();
extern "C" HRESULT STDAPICALLTYPE OpenStreamOnFile(LPALLOCATEBUFFER, LPFREEBUFFER, ULONG ulFlags,
                                                   LPSTR lpszFileName, LPSTR lpszPrefix,
                                                   LPSTREAM* lppStream);

namespace {

constexpr IID kIidMessage = {0x00020307, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};

struct MapiFree {
    void operator()(void* p) const { MAPIFreeBuffer(p); }
};
template <class T>
using MapiBuffer = std::unique_ptr<T, MapiFree>;

TEST(MapiSimBuffers, FreeingAFirstBufferFreesEveryBufferLinkedToIt) {
    ULONG before = MapiSimLiveBuffers();
    ULONG badBefore = MapiSimBadFrees();
    void* first = nullptr;
    void* linked = nullptr;
    void* linkedToLinked = nullptr;
    ASSERT_EQ(S_OK, MAPIAllocateBuffer(16, &first));
    ASSERT_EQ(S_OK, MAPIAllocateMore(8, first, &linked));
    ASSERT_EQ(S_OK, MAPIAllocateMore(8, linked, &linkedToLinked));
    EXPECT_EQ(before + 3, MapiSimLiveBuffers());

    MAPIFreeBuffer(linked);  // a linked buffer lives as long as the first one
    EXPECT_EQ(before + 3, MapiSimLiveBuffers());
    MAPIFreeBuffer(first);
    EXPECT_EQ(before, MapiSimLiveBuffers());
    EXPECT_EQ(0u, MAPIFreeBuffer(nullptr));
    MAPIFreeBuffer(first);  // twice
    EXPECT_EQ(badBefore + 2, MapiSimBadFrees());
}

TEST(MapiSimHex, WritesTwoUpperCaseDigitsPerByte) {
    BYTE bytes[] = {0x00, 0xAB, 0x7F, 0xC4};
    char text[2 * sizeof(bytes) + 1];
    memset(text, 'x', sizeof(text));
    HexFromBin(bytes, sizeof(bytes), text);
    EXPECT_STREQ("00AB7FC4", text);
    HexFromBin(bytes, 0, text);
    EXPECT_STREQ("", text);
}

TEST(MapiSimStreamOnFile, MakesAFileOfAUniqueNameInTheFolder) {
    ScratchFolder folder;
    std::string path = ToUtf8(folder.Path());
    ComPtr<IStream> stream;
    ASSERT_EQ(S_OK, OpenStreamOnFile(MAPIAllocateBuffer, MAPIFreeBuffer, 0x80000000 /* unique */,
                                     path.data(), const_cast<LPSTR>("msg"), stream.put()));
    ULONG written = 0;
    EXPECT_EQ(S_OK, stream->Write("abc", 3, &written));
    STATSTG stat{};
    ASSERT_EQ(S_OK, stream->Stat(&stat, STATFLAG_DEFAULT));
    std::wstring name = stat.pwcsName;
    CoTaskMemFree(stat.pwcsName);
    stream.reset();
    EXPECT_EQ(0u, name.find(folder.Path() + L"msg"));
    EXPECT_EQ("abc", ReadFileBytes(name));
}

// Each case opens its messages in one session and must give back every buffer, object and
// session it took.
class MapiSimMessage : public testing::Test {
protected:
    void SetUp() override {
        m_buffersBefore = MapiSimLiveBuffers();
        m_badFreesBefore = MapiSimBadFrees();
        m_path = m_folder / L"sample.msg";
        ASSERT_EQ(S_OK, sample::WriteSampleMessage(m_path));
        ASSERT_EQ(S_OK, OpenIMsgSession(MAPIGetDefaultMalloc(), 0, &m_session));
    }
    void TearDown() override {
        CloseIMsgSession(m_session);
        EXPECT_EQ(m_buffersBefore, MapiSimLiveBuffers());
        EXPECT_EQ(0u, MapiSimLiveObjects());
        EXPECT_EQ(0u, MapiSimLiveSessions());
        EXPECT_EQ(m_badFreesBefore, MapiSimBadFrees());
    }

    // The message in the file, on a storage opened with `mode`.
    ComPtr<IMessage> Open(const std::wstring& path, DWORD mode, ComPtr<IStorage>& storage) {
        ComPtr<IMessage> message;
        EXPECT_EQ(S_OK, StgOpenStorage(path.c_str(), nullptr, mode, nullptr, 0, storage.put()));
        EXPECT_EQ(S_OK, OpenIMsgOnIStg(m_session, MAPIAllocateBuffer, MAPIAllocateMore,
                                       MAPIFreeBuffer, MAPIGetDefaultMalloc(), nullptr,
                                       storage.get(), nullptr, 0, 0, message.put()));
        return message;
    }

    static std::wstring Text(IMAPIProp* prop, ULONG tag) {
        SPropTagArray tags{1, {tag}};
        ULONG count = 0;
        LPSPropValue raw = nullptr;
        HRESULT hr = prop->GetProps(&tags, MAPI_UNICODE, &count, &raw);
        MapiBuffer<SPropValue> value(raw);
        if (hr != S_OK || PROP_TYPE(value->ulPropTag) != PT_UNICODE) {
            return L"<missing>";
        }
        return value->Value.lpszW;
    }

    // The whole value of a string property, read through a stream.
    static std::wstring StreamText(IMAPIProp* prop, ULONG tag) {
        ComPtr<IStream> stream;
        EXPECT_EQ(S_OK, prop->OpenProperty(tag, &IID_IStream, 0, 0,
                                           reinterpret_cast<LPUNKNOWN*>(stream.put())));
        STATSTG stat{};
        stream->Stat(&stat, STATFLAG_NONAME);
        std::wstring text(stat.cbSize.LowPart / sizeof(wchar_t), L'\0');
        ULONG read = 0;
        stream->Read(text.data(), stat.cbSize.LowPart, &read);
        EXPECT_EQ(L'\0', text.back());  // the stream ends with the terminating zero
        text.pop_back();
        return text;
    }

    // The sample's contents, wherever the message came from.
    void ExpectSample(IMessage* message) {
        EXPECT_EQ(sample::kSubject, Text(message, PR_SUBJECT_W));
        EXPECT_EQ(sample::kSenderAddress, Text(message, PR_SENDER_EMAIL_ADDRESS_W));
        EXPECT_EQ(L"Angebot", Text(message, PR_CONVERSATION_TOPIC_W));  // stored narrow

        SizedSPropTagArray(6, tags) = {
            6,
            {PR_BODY_W, PR_MESSAGE_DELIVERY_TIME, PR_READ_RECEIPT_REQUESTED, PR_SENDER_ENTRYID,
             sample::kCategoriesTag, sample::kNumbersTag}};
        ULONG count = 0;
        LPSPropValue raw = nullptr;
        EXPECT_EQ(MAPI_W_ERRORS_RETURNED,
                  message->GetProps(reinterpret_cast<LPSPropTagArray>(&tags), MAPI_UNICODE, &count,
                                    &raw));
        MapiBuffer<SPropValue> values(raw);
        ASSERT_EQ(6u, count);
        EXPECT_EQ(PROP_TAG(PT_ERROR, PROP_ID(PR_BODY)), values.get()[0].ulPropTag);
        EXPECT_EQ(MAPI_E_NOT_ENOUGH_MEMORY, values.get()[0].Value.err);
        EXPECT_EQ(sample::kDeliveryTime, static_cast<ULONGLONG>(values.get()[1].Value.li.QuadPart));
        EXPECT_EQ(TRUE, values.get()[2].Value.b);
        EXPECT_EQ(8u, values.get()[3].Value.bin.cb);
        const SWStringArray& categories = values.get()[4].Value.MVszW;
        ASSERT_EQ(2u, categories.cValues);
        EXPECT_STREQ(sample::kCategories[1], categories.lppszW[1]);
        const SLongArray& numbers = values.get()[5].Value.MVl;
        ASSERT_EQ(3u, numbers.cValues);
        EXPECT_EQ(sample::kNumbers[2], numbers.lpl[2]);
        EXPECT_EQ(sample::LongBody(), StreamText(message, PR_BODY_W));

        ExpectNamedProperties(message);
        ExpectRecipients(message);
        ExpectAttachments(message);
    }

    void ExpectNamedProperties(IMessage* message) {
        GUID common = sample::kPsetidCommon;
        MAPINAMEID known{&common, MNID_ID, {}}, unknown{&common, MNID_ID, {}};
        known.Kind.lID = sample::kNamedId;
        unknown.Kind.lID = 0x8581;
        LPMAPINAMEID names[] = {&known, &unknown};
        LPSPropTagArray raw = nullptr;
        EXPECT_EQ(MAPI_W_ERRORS_RETURNED, message->GetIDsFromNames(2, names, 0, &raw));
        MapiBuffer<SPropTagArray> tags(raw);
        EXPECT_EQ(PROP_TAG(PT_ERROR, 0), tags->aulPropTag[1]);  // looked up, never created

        EXPECT_EQ(sample::kNamedValue, NamedNumber(message));

        ULONG count = 0;
        LPSPropTagArray all = nullptr;
        LPMAPINAMEID* found = nullptr;
        EXPECT_EQ(S_OK, message->GetNamesFromIDs(&all, nullptr, 0, &count, &found));
        ASSERT_GE(count, 2u);  // a copy may have had names of its own first
        EXPECT_EQ(MNID_STRING, found[count - 1]->ulKind);
        EXPECT_STREQ(sample::kStringName, found[count - 1]->Kind.lpwstrName);
        MAPIFreeBuffer(found);
        MAPIFreeBuffer(all);
    }

    void ExpectRecipients(IMessage* message) {
        ComPtr<IMAPITable> table;
        ASSERT_EQ(S_OK, message->GetRecipientTable(MAPI_UNICODE, table.put()));
        SizedSPropTagArray(2, columns) = {2, {PR_EMAIL_ADDRESS_W, PR_RECIPIENT_TYPE}};
        ASSERT_EQ(S_OK, table->SetColumns(reinterpret_cast<LPSPropTagArray>(&columns), 0));
        LPSRowSet rows = nullptr;
        ASSERT_EQ(S_OK, table->QueryRows(10, 0, &rows));
        ASSERT_EQ(2u, rows->cRows);
        EXPECT_STREQ(sample::kToAddress, rows->aRow[0].lpProps[0].Value.lpszW);
        EXPECT_EQ(MAPI_CC, rows->aRow[1].lpProps[1].Value.l);
        for (ULONG i = 0; i < rows->cRows; ++i) {
            MAPIFreeBuffer(rows->aRow[i].lpProps);
        }
        MAPIFreeBuffer(rows);
    }

    // The file attachment and the forwarded mail, in the order they were attached.
    void ExpectAttachments(IMessage* message) {
        ComPtr<IMAPITable> table;
        ASSERT_EQ(S_OK, message->GetAttachmentTable(0, table.put()));
        SPropTagArray columns{1, {PR_ATTACH_NUM}};
        table->SetColumns(&columns, 0);
        LPSRowSet rows = nullptr;
        ASSERT_EQ(S_OK, table->QueryRows(10, 0, &rows));
        ASSERT_EQ(2u, rows->cRows);
        ULONG numbers[2];
        for (ULONG i = 0; i < 2; ++i) {
            numbers[i] = static_cast<ULONG>(rows->aRow[i].lpProps[0].Value.l);
            MAPIFreeBuffer(rows->aRow[i].lpProps);
        }
        MAPIFreeBuffer(rows);

        ComPtr<IAttach> attach;
        ASSERT_EQ(S_OK, message->OpenAttach(numbers[0], nullptr, 0, attach.put()));
        EXPECT_EQ(sample::kAttachmentName, Text(attach.get(), PR_ATTACH_LONG_FILENAME_W));
        SPropTagArray data{1, {PR_ATTACH_DATA_BIN}};
        ULONG count = 0;
        LPSPropValue value = nullptr;
        ASSERT_EQ(S_OK, attach->GetProps(&data, 0, &count, &value));
        EXPECT_EQ(std::string(sample::kAttachmentData),
                  std::string(reinterpret_cast<char*>(value->Value.bin.lpb), value->Value.bin.cb));
        MAPIFreeBuffer(value);

        ComPtr<IMessage> embedded;
        ASSERT_EQ(S_OK, message->OpenAttach(numbers[1], nullptr, 0, attach.put()));
        ASSERT_EQ(S_OK, attach->OpenProperty(PR_ATTACH_DATA_OBJ, &kIidMessage, 0, 0,
                                             reinterpret_cast<LPUNKNOWN*>(embedded.put())));
        EXPECT_EQ(sample::kEmbeddedSubject, Text(embedded.get(), PR_SUBJECT_W));
        EXPECT_EQ(sample::kEmbeddedNamedValue, NamedNumber(embedded.get()));
    }

    // The numbered named property, resolved through the names of the message's file.
    static LONG NamedNumber(IMessage* message) {
        GUID common = sample::kPsetidCommon;
        MAPINAMEID name{&common, MNID_ID, {}};
        name.Kind.lID = sample::kNamedId;
        LPMAPINAMEID names[] = {&name};
        LPSPropTagArray raw = nullptr;
        EXPECT_EQ(S_OK, message->GetIDsFromNames(1, names, 0, &raw));
        MapiBuffer<SPropTagArray> tags(raw);
        SPropTagArray wanted{1, {CHANGE_PROP_TYPE(tags->aulPropTag[0], PT_LONG)}};
        ULONG count = 0;
        LPSPropValue value = nullptr;
        EXPECT_EQ(S_OK, message->GetProps(&wanted, 0, &count, &value));
        MapiBuffer<SPropValue> owned(value);
        return value->Value.l;
    }

    ScratchFolder m_folder;
    std::wstring m_path;
    LPMSGSESS m_session = nullptr;
    ULONG m_buffersBefore = 0;
    ULONG m_badFreesBefore = 0;
};

TEST_F(MapiSimMessage, ReadsBackEveryPartOfTheFileItWrote) {
    ComPtr<IStorage> storage;
    ComPtr<IMessage> message = Open(m_path, STGM_READ | STGM_SHARE_EXCLUSIVE, storage);
    ASSERT_TRUE(message);
    ExpectSample(message.get());
}

TEST_F(MapiSimMessage, CopiesAMessageWholeIntoANewFile) {
    ComPtr<IStorage> sourceStorage;
    ComPtr<IMessage> source = Open(m_path, STGM_READ | STGM_SHARE_EXCLUSIVE, sourceStorage);
    std::wstring copyPath = m_folder / L"copy.msg";
    {
        ComPtr<IStorage> storage;
        ASSERT_EQ(S_OK,
                  StgCreateDocfile(copyPath.c_str(), STGM_TRANSACTED | STGM_CREATE | STGM_READWRITE,
                                   0, storage.put()));
        ComPtr<IMessage> copy;
        ASSERT_EQ(S_OK, OpenIMsgOnIStg(m_session, MAPIAllocateBuffer, MAPIAllocateMore,
                                       MAPIFreeBuffer, MAPIGetDefaultMalloc(), nullptr,
                                       storage.get(), nullptr, 0, 0, copy.put()));
        // A property only the target has shows that named ids are mapped, not carried over.
        GUID other = {0x00062002, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
        MAPINAMEID first{&other, MNID_ID, {}};
        LPMAPINAMEID names[] = {&first};
        LPSPropTagArray taken = nullptr;
        ASSERT_EQ(S_OK, copy->GetIDsFromNames(1, names, MAPI_CREATE, &taken));
        MAPIFreeBuffer(taken);

        ASSERT_EQ(S_OK, source->CopyTo(0, nullptr, nullptr, 0, nullptr, &kIidMessage, copy.get(), 0,
                                       nullptr));
        ASSERT_EQ(S_OK, copy->SaveChanges(KEEP_OPEN_READWRITE));
        ASSERT_EQ(S_OK, storage->Commit(STGC_DEFAULT));
    }
    ComPtr<IStorage> storage;
    ComPtr<IMessage> reread = Open(copyPath, STGM_READ | STGM_SHARE_EXCLUSIVE, storage);
    ASSERT_TRUE(reread);
    ExpectSample(reread.get());
}

}  // namespace
