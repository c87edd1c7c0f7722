#include <gtest/gtest.h>

#include <string>

#include "common/Automation.h"
#include "common/ComPtr.h"
#include "common/Variant.h"
#include "officesim/FakeDispatch.h"
#include "support/TestFiles.h"

namespace {

using CallKind = FakeDispatch::CallKind;
using FaultStyle = FakeDispatch::FaultStyle;

// An error the host object models raise from inside a call (an Office "command failed").
constexpr HRESULT kHostError = static_cast<HRESULT>(0x800A1066);

class AutomationTest : public testing::Test {
protected:
    ComPtr<FakeDispatch> object = FakeDispatch::Create();
    ComPtr<FakeDispatch> child = FakeDispatch::Create();
};

// The result's old object is released; the argument's object keeps the caller's reference.
TEST_F(AutomationTest, CallMethodPassesArgumentsInOrderAndClearsTheResultFirst) {
    object->SetMethod(L"Move", [](const FakeDispatch::Args&, VARIANT* result) {
        result->vt = VT_BOOL;
        result->boolVal = VARIANT_TRUE;
        return S_OK;
    });
    ComPtr<FakeDispatch> folder = FakeDispatch::Create();
    const ULONG childRefs = child->RefCount();
    const ULONG folderRefs = folder->RefCount();
    Variant name(L"Angebot.docx");
    Variant target(static_cast<IDispatch*>(folder.get()));
    Variant result(static_cast<IDispatch*>(child.get()));

    ASSERT_EQ(S_OK, CallMethodNoThrow(object.get(), L"Move", {&name, &target}, &result));

    EXPECT_EQ(VT_BOOL, result.vt);
    EXPECT_EQ(childRefs, child->RefCount());
    ASSERT_EQ(1u, object->CallCount(L"Move", CallKind::Call));
    const FakeDispatch::Args& args = object->Calls()[0].args;
    ASSERT_EQ(2u, args.size());
    EXPECT_EQ(L"Angebot.docx", TextOf(args[0]));
    EXPECT_EQ(static_cast<IDispatch*>(folder.get()), args[1].pdispVal);
    object->ClearCalls();
    EXPECT_EQ(folderRefs + 1, folder->RefCount());
}

// Typed reads convert as VariantChangeType does; a failed read or conversion leaves the output
// empty rather than as it was.
TEST_F(AutomationTest, TypedReadsConvertTheValueAndEmptyTheOutputOnFailure) {
    Variant date;
    date.vt = VT_DATE;
    date.date = 45366.5;
    object->SetProperty(L"Version", Variant(int32_t{16}))
        .SetProperty(L"Count", L"12")
        .SetProperty(L"ReadOnly", Variant(int32_t{-1}))
        .SetProperty(L"ReceivedTime", date)
        .SetProperty(L"Subject", L"Angebot")
        .FailCall(L"Version", 2, kHostError);
    BStr text;
    int32_t number = 0;
    bool flag = false;
    DATE when = 0;

    EXPECT_EQ(S_OK, GetTextPropertyNoThrow(object.get(), L"Version", &text));
    EXPECT_STREQ(L"16", text.c_str());
    EXPECT_EQ(S_OK, GetIntegerPropertyNoThrow(object.get(), L"Count", &number));
    EXPECT_EQ(12, number);
    EXPECT_EQ(S_OK, GetBooleanPropertyNoThrow(object.get(), L"ReadOnly", &flag));
    EXPECT_TRUE(flag);
    EXPECT_EQ(S_OK, GetDatePropertyNoThrow(object.get(), L"ReceivedTime", &when));
    EXPECT_EQ(45366.5, when);

    EXPECT_EQ(kHostError, GetTextPropertyNoThrow(object.get(), L"Version", &text));
    EXPECT_STREQ(L"", text.c_str());
    EXPECT_EQ(DISP_E_TYPEMISMATCH, GetIntegerPropertyNoThrow(object.get(), L"Subject", &number));
    EXPECT_EQ(0, number);
    EXPECT_EQ(DISP_E_TYPEMISMATCH, GetBooleanPropertyNoThrow(object.get(), L"Subject", &flag));
    EXPECT_FALSE(flag);
    EXPECT_EQ(DISP_E_TYPEMISMATCH, GetDatePropertyNoThrow(object.get(), L"Subject", &when));
    EXPECT_EQ(0, when);
}

// Hosts answer with VT_DISPATCH as a rule (every capture test reads objects so and checks the
// reference counts), some collections with a plain VT_UNKNOWN.
TEST_F(AutomationTest, GetObjectPropertyHandsOutOneReferenceOfAnObjectAndNothingElse) {
    Variant held(static_cast<IDispatch*>(child.get()));
    held.vt = VT_UNKNOWN;  // the same pointer serves as the IUnknown
    object->SetProperty(L"ActiveDocument", held);
    const ULONG start = child->RefCount();
    ComPtr<IDispatch> document;
    ASSERT_EQ(S_OK, GetObjectPropertyNoThrow(object.get(), L"ActiveDocument", document.put()));
    EXPECT_EQ(static_cast<IDispatch*>(child.get()), document.get());
    EXPECT_EQ(start + 1, child->RefCount());
    object->SetProperty(L"Name", L"Angebot 2024.docx");
    object->SetProperty(L"Parent", static_cast<IDispatch*>(nullptr));
    IDispatch* result = child.get();
    EXPECT_EQ(DISP_E_TYPEMISMATCH, GetObjectPropertyNoThrow(object.get(), L"Name", &result));
    EXPECT_EQ(nullptr, result);
    result = child.get();
    EXPECT_EQ(E_POINTER, GetObjectPropertyNoThrow(object.get(), L"Parent", &result));
    EXPECT_EQ(nullptr, result);
}

// Outlook's Selection.Item, a method read as a property, and the MAPIOBJECT queried by an explicit
// IID are read by the Outlook capture against the simulated Outlook. A failure comes back as it
// came, an exception by its error code (filled in at once or on request): the fault sweep sees
// each style of each call logged with its code. Here what the sweep cannot inject: an exception
// without a code, which comes back as DISP_E_EXCEPTION, and the references kept throughout.
TEST_F(AutomationTest, AnExceptionWithoutACodeIsDispatchExceptionAndReferencesAreKept) {
    object->SetProperty(L"Target", static_cast<IDispatch*>(child.get()));
    const ULONG start = object->RefCount();
    const ULONG childStart = child->RefCount();
    object->FailCall(L"Target", 1, S_OK, FaultStyle::Exception)
        .FailCall(L"Target", 2, kHostError, FaultStyle::DeferredException);
    const auto run = [&] {
        ComPtr<IDispatch> value;
        return GetObjectPropertyNoThrow(object.get(), L"Target", value.put());
    };

    EXPECT_EQ(DISP_E_EXCEPTION, run());
    EXPECT_EQ(kHostError, run());
    EXPECT_EQ(S_OK, run());
    object->FailLookup(L"Target", E_ACCESSDENIED);
    EXPECT_EQ(E_ACCESSDENIED, run());

    EXPECT_EQ(3u, object->Calls().size());
    EXPECT_EQ(start, object->RefCount());
    EXPECT_EQ(childStart, child->RefCount());
}

}  // namespace
