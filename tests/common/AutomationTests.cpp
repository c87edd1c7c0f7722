#include <gtest/gtest.h>

#include <ostream>
#include <string>

#include "common/Automation.h"
#include "common/ComPtr.h"
#include "common/Variant.h"
#include "support/FakeDispatch.h"

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

TEST_F(AutomationTest, GetPropertyPassesIndexArgumentsInTheirNaturalOrder) {
    object->SetComputedProperty(L"Item", [](const FakeDispatch::Args& args, VARIANT* result) {
        result->vt = VT_I4;
        result->lVal = args.size() == 2 && args[0].vt == VT_I4 ? args[0].lVal * 10 : -1;
        return S_OK;
    });
    Variant index(int32_t{3});
    Variant scope(L"Anhänge");
    Variant value;

    ASSERT_EQ(S_OK, GetPropertyNoThrow(object.get(), L"Item", &value, {&index, &scope}));

    EXPECT_EQ(VT_I4, value.vt);
    EXPECT_EQ(30, value.lVal);
    ASSERT_EQ(1u, object->Calls().size());
    const FakeDispatch::CallRecord& call = object->Calls()[0];
    EXPECT_EQ(CallKind::Get, call.kind);
    ASSERT_EQ(2u, call.args.size());
    EXPECT_EQ(3, call.args[0].lVal);
    EXPECT_EQ(L"Anhänge", TextOf(call.args[1]));
}

TEST_F(AutomationTest, GetPropertyReleasesWhatTheResultHeldBefore) {
    object->SetProperty(L"Name", L"Angebot 2024.docx");
    const ULONG start = child->RefCount();
    Variant value(static_cast<IDispatch*>(child.get()));
    ASSERT_EQ(start + 1, child->RefCount());

    ASSERT_EQ(S_OK, GetPropertyNoThrow(object.get(), L"Name", &value));

    EXPECT_EQ(L"Angebot 2024.docx", TextOf(value));
    EXPECT_EQ(start, child->RefCount());
}

TEST_F(AutomationTest, GetObjectPropertyHandsOutOneReferenceOfTheHeldObject) {
    // Hosts answer with VT_DISPATCH as a rule, some collections with a plain VT_UNKNOWN.
    for (VARTYPE vt : {VT_DISPATCH, VT_UNKNOWN}) {
        SCOPED_TRACE(vt);
        Variant held;
        held.vt = vt;
        held.punkVal = static_cast<IUnknown*>(child.get());
        child->AddRef();
        object->SetProperty(L"ActiveDocument", held);
        held.Clear();
        const ULONG start = child->RefCount();
        {
            ComPtr<IDispatch> document;
            ASSERT_EQ(S_OK,
                      GetObjectPropertyNoThrow(object.get(), L"ActiveDocument", document.put()));
            EXPECT_EQ(static_cast<IDispatch*>(child.get()), document.get());
            EXPECT_EQ(start + 1, child->RefCount());
        }
        EXPECT_EQ(start, child->RefCount());
    }
}

TEST_F(AutomationTest, GetObjectPropertyRefusesValuesThatAreNoObject) {
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
    ASSERT_EQ(1u, object->Calls().size());
    EXPECT_EQ(CallKind::Put, object->Calls()[0].kind);
}

TEST_F(AutomationTest, CallMethodPassesArgumentsInTheirNaturalOrderAndReturnsTheResult) {
    object->SetMethod(L"SaveAs", [](const FakeDispatch::Args&, VARIANT* result) {
        result->vt = VT_BOOL;
        result->boolVal = VARIANT_TRUE;
        return S_OK;
    });
    Variant path(L"C:\\Ablage\\td_data_1\\Angebot.docx");
    Variant format(int32_t{16});
    Variant embedFonts(false);
    Variant result(L"stale");

    ASSERT_EQ(S_OK,
              CallMethodNoThrow(object.get(), L"SaveAs", {&path, &format, &embedFonts}, &result));

    EXPECT_EQ(VT_BOOL, result.vt);
    ASSERT_EQ(1u, object->CallCount(L"SaveAs", CallKind::Call));
    const FakeDispatch::Args& args = object->Calls()[0].args;
    ASSERT_EQ(3u, args.size());
    EXPECT_EQ(L"C:\\Ablage\\td_data_1\\Angebot.docx", TextOf(args[0]));
    EXPECT_EQ(16, args[1].lVal);
    EXPECT_EQ(VT_BOOL, args[2].vt);
}

TEST_F(AutomationTest, CallMethodLeavesTheReferencesOfObjectArgumentsAlone) {
    object->SetMethod(L"Move", [](const FakeDispatch::Args&, VARIANT*) { return S_OK; });
    const ULONG start = child->RefCount();
    Variant folder(static_cast<IDispatch*>(child.get()));

    ASSERT_EQ(S_OK, CallMethodNoThrow(object.get(), L"Move", {&folder}));
    object->ClearCalls();

    EXPECT_EQ(start + 1, child->RefCount());
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
    HRESULT Run(const wchar_t* member = L"Target") { return GetParam().run(object.get(), member); }
};

TEST_P(AutomationFailureTest, ReturnsTheNameLookupFailureWithoutACall) {
    object->FailLookup(L"Target", E_ACCESSDENIED);

    EXPECT_EQ(DISP_E_UNKNOWNNAME, Run(L"Missing"));
    EXPECT_EQ(E_ACCESSDENIED, Run());
    EXPECT_TRUE(object->Calls().empty());
}

TEST_P(AutomationFailureTest, ReturnsAFailedCallUnchanged) {
    object->FailCall(L"Target", 1, RPC_E_CALL_REJECTED);

    EXPECT_EQ(RPC_E_CALL_REJECTED, Run());
    EXPECT_EQ(S_OK, Run());
}

TEST_P(AutomationFailureTest, ReportsAnExceptionByItsErrorCode) {
    object->FailCall(L"Target", 1, kHostError, FaultStyle::Exception);
    object->FailCall(L"Target", 2, kHostError, FaultStyle::DeferredException);

    EXPECT_EQ(kHostError, Run());
    EXPECT_EQ(kHostError, Run());
}

TEST_P(AutomationFailureTest, KeepsTheExceptionWhenTheHostGaveOnlyItsOwnErrorNumber) {
    object->FailCall(L"Target", 1, kHostError, FaultStyle::ExceptionCodeOnly);

    EXPECT_EQ(DISP_E_EXCEPTION, Run());
}

TEST_P(AutomationFailureTest, KeepsTheObjectsReferenceCount) {
    const ULONG start = object->RefCount();
    object->FailCall(L"Target", 2, kHostError, FaultStyle::Exception);

    EXPECT_EQ(S_OK, Run());
    EXPECT_EQ(kHostError, Run());

    EXPECT_EQ(start, object->RefCount());
}

INSTANTIATE_TEST_SUITE_P(EntryPoints, AutomationFailureTest, testing::ValuesIn(kEntryPoints),
                         [](const testing::TestParamInfo<EntryPoint>& info) {
                             return std::string(info.param.name);
                         });

}  // namespace
