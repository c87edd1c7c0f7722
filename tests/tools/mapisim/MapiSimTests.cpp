// The simulated mapi32.dll, loaded beside this program, where the product's tests cannot see it:
// the buffer chain their leak counts rest on, and a copy into a message file that already holds
// names of its own, with values no sample item has (a forwarded mail, multi-valued and narrow
// strings), read back from the file. An independent reader checks the files the simulator writes
// in tools/outlooksim/msgconvert-reads-items.sh.
#include <gtest/gtest.h>
#include <windows.h>

#include <imessage.h>
#include <mapitags.h>
#include <mapix.h>

#include <memory>
#include <string>

#include "common/ComPtr.h"
#include "outlooksim/FakeOutlook.h"
#include "support/TestFiles.h"
#include "tools/mapisim/MapiSim.h"

extern "C" LPMALLOC STDAPICALLTYPE MAPIGetDefaultMalloc();

namespace {

constexpr IID kIidMessage = {0x00020307, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
constexpr ULONG kCategoriesTag = PROP_TAG(PT_MV_UNICODE, 0x6710);

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

// One value of `prop`, as GetProps hands it out (PT_ERROR when it has none).
MapiBuffer<SPropValue> Value(IMAPIProp* prop, ULONG tag) {
    SPropTagArray tags{1, {tag}};
    ULONG count = 0;
    LPSPropValue value = nullptr;
    prop->GetProps(&tags, MAPI_UNICODE, &count, &value);
    return MapiBuffer<SPropValue>(value);
}

std::wstring Text(IMAPIProp* prop, ULONG tag) {
    const auto value = Value(prop, tag);
    return value && value->ulPropTag == tag ? value->Value.lpszW : L"<missing>";
}

double Number(IMAPIProp* prop, ULONG tag) {
    const auto value = Value(prop, tag);
    return value && value->ulPropTag == tag ? value->Value.dbl : -1;
}

// The tag of Outlook's task property 0x8102 (percent complete) on `message`, looked up by name.
ULONG PercentCompleteTag(IMAPIProp* message, ULONG flags = 0) {
    GUID task = {0x00062003, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
    MAPINAMEID name{&task, MNID_ID, {}};
    name.Kind.lID = 0x8102;
    LPMAPINAMEID names[] = {&name};
    LPSPropTagArray raw = nullptr;
    EXPECT_EQ(S_OK, message->GetIDsFromNames(1, names, flags, &raw));
    MapiBuffer<SPropTagArray> tags(raw);
    return tags ? CHANGE_PROP_TYPE(tags->aulPropTag[0], PT_DOUBLE) : 0;
}

ComPtr<IMessage> OpenMessage(LPMSGSESS session, IStorage* storage) {
    ComPtr<IMessage> message;
    EXPECT_EQ(S_OK, OpenIMsgOnIStg(session, MAPIAllocateBuffer, MAPIAllocateMore, MAPIFreeBuffer,
                                   MAPIGetDefaultMalloc(), nullptr, storage, nullptr, 0, 0,
                                   message.put()));
    return message;
}

// A mail of the simulated Outlook gets a forwarded mail attached and strings Outlook's items do
// not have; CopyTo takes it whole into a file whose first named property is another one, so the
// copy must map named properties by name.
TEST(MapiSimMessage, CopyIntoAFileCarriesEveryPartAndMapsNamedPropertiesByName) {
    const ULONG buffersBefore = MapiSimLiveBuffers();
    const ULONG badFreesBefore = MapiSimBadFrees();
    ScratchFolder folder;
    const std::wstring path = folder / L"copy.msg";
    LPMSGSESS session = nullptr;
    ASSERT_EQ(S_OK, OpenIMsgSession(MAPIGetDefaultMalloc(), 0, &session));
    {
        FakeOutlook outlook;
        outlook.SelectItemText(
            L"class = IPM.Note\nPR_SUBJECT = Angebot\nTask 0x8102 double = 0.5\n"
            L"attachment = preise.txt | 42 EUR\n");
        IMessage* source = outlook.Message(0);
        const ULONG percent = PercentCompleteTag(source);
        const wchar_t* categories[] = {L"Angebot", L"Kunde A"};
        SPropValue extra[2]{};
        extra[0].ulPropTag = kCategoriesTag;
        extra[0].Value.MVszW = {2, const_cast<LPWSTR*>(categories)};
        extra[1].ulPropTag = PR_CONVERSATION_TOPIC_A;
        extra[1].Value.lpszA = const_cast<LPSTR>("Angebot");
        ASSERT_EQ(S_OK, source->SetProps(2, extra, nullptr));

        ComPtr<IAttach> attach;
        ULONG number = 0;
        ASSERT_EQ(S_OK, source->CreateAttach(nullptr, 0, &number, attach.put()));
        SPropValue method{PR_ATTACH_METHOD, 0, {}};
        method.Value.l = ATTACH_EMBEDDED_MSG;
        ASSERT_EQ(S_OK, attach->SetProps(1, &method, nullptr));
        ComPtr<IMessage> forwarded;
        ASSERT_EQ(S_OK, attach->OpenProperty(PR_ATTACH_DATA_OBJ, &kIidMessage, 0,
                                             MAPI_CREATE | MAPI_MODIFY,
                                             reinterpret_cast<LPUNKNOWN*>(forwarded.put())));
        SPropValue inner[2]{};
        inner[0].ulPropTag = PR_SUBJECT_W;
        inner[0].Value.lpszW = const_cast<LPWSTR>(L"Vorige Nachricht");
        inner[1].ulPropTag = percent;
        inner[1].Value.dbl = 0.25;
        ASSERT_EQ(S_OK, forwarded->SetProps(2, inner, nullptr));
        ASSERT_EQ(S_OK, forwarded->SaveChanges(KEEP_OPEN_READWRITE));
        ASSERT_EQ(S_OK, attach->SaveChanges(KEEP_OPEN_READWRITE));

        ComPtr<IStorage> storage;
        ASSERT_EQ(S_OK,
                  StgCreateDocfile(path.c_str(), STGM_TRANSACTED | STGM_CREATE | STGM_READWRITE, 0,
                                   storage.put()));
        ComPtr<IMessage> copy = OpenMessage(session, storage.get());
        ASSERT_TRUE(copy);
        GUID appointment = {0x00062002, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
        MAPINAMEID first{&appointment, MNID_ID, {}};
        LPMAPINAMEID names[] = {&first};
        LPSPropTagArray taken = nullptr;
        ASSERT_EQ(S_OK, copy->GetIDsFromNames(1, names, MAPI_CREATE, &taken));
        MAPIFreeBuffer(taken);
        ASSERT_EQ(S_OK, source->CopyTo(0, nullptr, nullptr, 0, nullptr, &kIidMessage, copy.get(), 0,
                                       nullptr));
        ASSERT_EQ(S_OK, copy->SaveChanges(KEEP_OPEN_READWRITE));
        ASSERT_EQ(S_OK, storage->Commit(STGC_DEFAULT));
    }
    {
        ComPtr<IStorage> storage;
        ASSERT_EQ(S_OK, StgOpenStorage(path.c_str(), nullptr, STGM_READ | STGM_SHARE_EXCLUSIVE,
                                       nullptr, 0, storage.put()));
        ComPtr<IMessage> copy = OpenMessage(session, storage.get());
        ASSERT_TRUE(copy);
        EXPECT_EQ(L"Angebot", Text(copy.get(), PR_SUBJECT_W));
        EXPECT_EQ(L"Angebot", Text(copy.get(), PR_CONVERSATION_TOPIC_W));
        const auto categories = Value(copy.get(), kCategoriesTag);
        ASSERT_TRUE(categories && categories->ulPropTag == kCategoriesTag);
        ASSERT_EQ(2u, categories->Value.MVszW.cValues);
        EXPECT_STREQ(L"Kunde A", categories->Value.MVszW.lppszW[1]);
        EXPECT_EQ(0.5, Number(copy.get(), PercentCompleteTag(copy.get())));

        ComPtr<IMAPITable> table;
        ASSERT_EQ(S_OK, copy->GetAttachmentTable(0, table.put()));
        ULONG rows = 0;
        EXPECT_EQ(S_OK, table->GetRowCount(0, &rows));
        ASSERT_EQ(2u, rows);
        ComPtr<IAttach> attach;
        ASSERT_EQ(S_OK, copy->OpenAttach(1, nullptr, 0, attach.put()));
        ComPtr<IMessage> forwarded;
        ASSERT_EQ(S_OK, attach->OpenProperty(PR_ATTACH_DATA_OBJ, &kIidMessage, 0, 0,
                                             reinterpret_cast<LPUNKNOWN*>(forwarded.put())));
        EXPECT_EQ(L"Vorige Nachricht", Text(forwarded.get(), PR_SUBJECT_W));
        EXPECT_EQ(0.25, Number(forwarded.get(), PercentCompleteTag(forwarded.get())));
    }
    CloseIMsgSession(session);
    EXPECT_EQ(buffersBefore, MapiSimLiveBuffers());
    EXPECT_EQ(0u, MapiSimLiveObjects());
    EXPECT_EQ(0u, MapiSimLiveSessions());
    EXPECT_EQ(badFreesBefore, MapiSimBadFrees());
}

}  // namespace
