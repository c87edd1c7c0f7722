#include <gtest/gtest.h>

#include <ostream>
#include <string>

#include "common/Automation.h"
#include "common/ComPtr.h"
#include "common/Variant.h"
#include "officesim/FakeDispatch.h"

namespace {

using CallKind = FakeDispatch::CallKind;
using FaultStyle = FakeDispatch::FaultStyle;

// An error the host object models raise from inside a call (an Office "command failed").
constexpr HRESULT kHostError = static_cast<HRESULT>(0x800A1066);

std::wstring TextOf(const VARIANT& value) {
    return value.vt == VT_BSTR && value.bstrVal ? value.bstrVal : L"<not a text>";
}

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

// Hosts answer with VT_DISPATCH as a rule, some collections with a plain VT_UNKNOWN.
TEST_F(AutomationTest, GetObjectPropertyHandsOutOneReferenceOfAnObjectAndNothingElse) {
    for (VARTYPE vt : {VT_DISPATCH, VT_UNKNOWN}) {
        SCOPED_TRACE(vt);
        Variant held(static_cast<IDispatch*>(child.get()));
        held.vt = vt;  // the same pointer serves as the IUnknown
        object->SetProperty(L"ActiveDocument", held);
        const ULONG start = child->RefCount();
        ComPtr<IDispatch> document;
        ASSERT_EQ(S_OK, GetObjectPropertyNoThrow(object.get(), L"ActiveDocument", document.put()));
        EXPECT_EQ(static_cast<IDispatch*>(child.get()), document.get());
        EXPECT_EQ(start + 1, child->RefCount());
    }
    object->SetProperty(L"Name", L"Angebot 2024.docx");
    object->SetProperty(L"Parent", static_cast<IDispatch*>(nullptr));
    IDispatch* result = child.get();
    EXPECT_EQ(DISP_E_TYPEMISMATCH, GetObjectPropertyNoThrow(object.get(), L"Name", &result));
    EXPECT_EQ(nullptr, result);
    result = child.get();
    EXPECT_EQ(E_POINTER, GetObjectPropertyNoThrow(object.get(), L"Parent", &result));
    EXPECT_EQ(nullptr, result);
}

TEST_F(AutomationTest, PutPropertySendsTheValueAsTheNamedPropertyPutArgument) {
    // The fake accepts a put only with the one named argument DISPID_PROPERTYPUT.
    object->SetProperty(L"Subject", L"alt");

    ASSERT_EQ(S_OK, PutPropertyNoThrow(object.get(), L"Subject", Variant(L"Rechnung 4711")));

    EXPECT_EQ(L"Rechnung 4711", TextOf(object->Value(L"Subject")));
}

// Every entry point resolves the name first and reports a failed call the same way.
struct EntryPoint {
    const char* name;
    bool method;
    HRESULT (*run)(IDispatch* object, const wchar_t* member);
};

const EntryPoint kEntryPoints[] = {
    {"GetProperty", false,
     [](IDispatch* object, const wchar_t* member) {
         Variant value;
         return GetPropertyNoThrow(object, member, &value);
     }},
    {"GetObjectProperty", false,
     [](IDispatch* object, const wchar_t* member) {
         ComPtr<IDispatch> value;
         return GetObjectPropertyNoThrow(object, member, value.put());
     }},
    {"PutProperty", false,
     [](IDispatch* object, const wchar_t* member) {
         return PutPropertyNoThrow(object, member, Variant(int32_t{2}));
     }},
    {"CallMethod", true,
     [](IDispatch* object, const wchar_t* member) {
         Variant argument(L"x");
         Variant result;
         return CallMethodNoThrow(object, member, {&argument}, &result);
     }},
};

void PrintTo(const EntryPoint& entry, std::ostream* out) { *out << entry.name; }

class AutomationFailureTest : public AutomationTest,
                              public testing::WithParamInterface<EntryPoint> {
protected:
    void SetUp() override {
        if (GetParam().method) {
            object->SetMethod(L"Target", [](const FakeDispatch::Args&, VARIANT*) { return S_OK; });
        } else {
            object->SetProperty(L"Target", static_cast<IDispatch*>(child.get()));
        }
    }
    HRESULT Run() { return GetParam().run(object.get(), L"Target"); }
};

// A failed lookup or call comes back as it came, an exception by its error code (filled in at once
// or on request), an exception without a code as DISP_E_EXCEPTION.
TEST_P(AutomationFailureTest, ReportsEveryFailureByItsOwnCodeAndKeepsTheReferenceCount) {
    const ULONG start = object->RefCount();
    object->FailCall(L"Target", 1, RPC_E_CALL_REJECTED)
        .FailCall(L"Target", 2, kHostError, FaultStyle::Exception)
        .FailCall(L"Target", 3, kHostError, FaultStyle::DeferredException)
        .FailCall(L"Target", 4, S_OK, FaultStyle::Exception);

    EXPECT_EQ(RPC_E_CALL_REJECTED, Run());
    EXPECT_EQ(kHostError, Run());
    EXPECT_EQ(kHostError, Run());
    EXPECT_EQ(DISP_E_EXCEPTION, Run());
    EXPECT_EQ(S_OK, Run());
    object->FailLookup(L"Target", E_ACCESSDENIED);
    EXPECT_EQ(E_ACCESSDENIED, Run());

    EXPECT_EQ(5u, object->Calls().size());
    EXPECT_EQ(start, object->RefCount());
}

INSTANTIATE_TEST_SUITE_P(EntryPoints, AutomationFailureTest, testing::ValuesIn(kEntryPoints),
                         [](const testing::TestParamInfo<EntryPoint>& info) {
                             return std::string(info.param.name);
                         });

}  // namespace
