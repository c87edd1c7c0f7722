// The connector automation object reached by name through IDispatch, as an automation client in
// any process reaches it. Wine's cscript drives the archiving and the refusals a script meets
// (connector.vbs); these cases cover the argument forms a script cannot send and the dialogs and
// the running Outlook it cannot watch.
#include <gtest/gtest.h>
#include <windows.h>
#include <oleauto.h>

#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "addin/ConnectorRequests.h"
#include "addin/TDConnectorCOM.h"
#include "common/Automation.h"
#include "common/Variant.h"
#include "outlooksim/FakeOutlook.h"
#include "support/RegistrySandbox.h"
#include "support/WindowWatcher.h"

namespace {

constexpr CLSID kOutlookClsid = {
    0x0006F03A, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};

// What a script's Array(...) arrives as: a SAFEARRAY of VARIANTs.
Variant ScriptArray(const std::vector<std::wstring>& texts) {
    Variant array;
    array.vt = VT_ARRAY | VT_VARIANT;
    array.parray = SafeArrayCreateVector(VT_VARIANT, 0, static_cast<ULONG>(texts.size()));
    for (LONG i = 0; i < static_cast<LONG>(texts.size()); ++i) {
        Variant text(texts[static_cast<size_t>(i)].c_str());
        SafeArrayPutElement(array.parray, &i, &text);
    }
    return array;
}

// Null, or with VT_ERROR an omitted optional argument.
Variant Special(VARTYPE type) {
    Variant value;
    value.vt = type;
    value.scode = DISP_E_PARAMNOTFOUND;
    return value;
}

template <class... Values>
std::vector<Variant> Args(Values... values) {
    std::vector<Variant> all;
    (all.push_back(std::move(values)), ...);
    return all;
}

struct Outcome {
    HRESULT hr = S_OK;
    Variant result;
    UINT argError = 99;  // untouched
    std::wstring description;
    HRESULT scode = S_OK;
};

class ConnectorAutomationTest : public testing::Test {
protected:
    ConnectorAutomationTest() { m_connector.Attach(MakeComObject<CTDConnectorCOM>().Detach()); }
    ~ConnectorAutomationTest() override {
        EXPECT_EQ(m_connector->Release(), 0u) << "the object holds no reference to itself";
        m_connector.Detach();
    }

    // Calls `name` with `arguments` in their natural order, as a script does.
    Outcome Call(const wchar_t* name, std::vector<Variant> arguments = {},
                 WORD flags = DISPATCH_METHOD | DISPATCH_PROPERTYGET) {
        Outcome outcome;
        LPOLESTR names[] = {const_cast<LPOLESTR>(name)};
        DISPID id = DISPID_UNKNOWN;
        outcome.hr = m_connector->GetIDsOfNames(IID_NULL, names, 1, LOCALE_USER_DEFAULT, &id);
        if (FAILED(outcome.hr)) {
            return outcome;
        }
        // The last argument first; the copies share the arguments' contents.
        std::vector<VARIANTARG> values(arguments.rbegin(), arguments.rend());
        DISPPARAMS params{values.data(), nullptr, static_cast<UINT>(values.size()), 0};
        EXCEPINFO info{};
        outcome.hr = m_connector->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, flags, &params,
                                         &outcome.result, &info, &outcome.argError);
        if (info.bstrDescription) {
            outcome.description = info.bstrDescription;
            outcome.scode = info.scode;
            EXPECT_STREQ(info.bstrSource, L"Talvorn.DorvaneConnectorDX2COM");
        }
        SysFreeString(info.bstrSource);
        SysFreeString(info.bstrDescription);
        return outcome;
    }

    RegistrySandbox m_registry;
    ComPtr<IDispatch> m_connector;
};

// Each wrong call answers its automation error, with the position of the argument at fault
// counted from the last, and leaves the result empty.
struct WrongCall {
    const char* name;
    const wchar_t* method;
    std::function<std::vector<Variant>()> arguments;
    HRESULT hr;
    UINT argError;
    WORD flags = DISPATCH_METHOD;
};

void PrintTo(const WrongCall& row, std::ostream* out) { *out << row.name; }

class ConnectorWrongCallTest : public ConnectorAutomationTest,
                               public testing::WithParamInterface<WrongCall> {};

TEST_P(ConnectorWrongCallTest, AnswersTheAutomationError) {
    Outcome outcome = Call(GetParam().method, GetParam().arguments(), GetParam().flags);
    EXPECT_EQ(outcome.hr, GetParam().hr);
    EXPECT_EQ(outcome.argError, GetParam().argError);
    EXPECT_EQ(outcome.result.vt, VT_EMPTY);
}

const WrongCall kWrongCalls[] = {
    {"RunTwoFiles", L"RUN", [] { return Args(Variant(L"a"), Variant(L"b")); }, DISP_E_BADPARAMCOUNT,
     99},
    {"RunOmitted", L"run", [] { return Args(Special(VT_ERROR)); }, DISP_E_PARAMNOTOPTIONAL, 0},
    {"RunNothing", L"Run", [] { return Args(Variant(static_cast<IDispatch*>(nullptr))); },
     DISP_E_TYPEMISMATCH, 0},
    {"RunArrayWithNull", L"Run",
     [] {
         Variant array = ScriptArray({L"C:\\a.txt", L""});
         LONG second = 1;
         Variant null = Special(VT_NULL);
         SafeArrayPutElement(array.parray, &second, &null);
         return Args(std::move(array));
     },
     DISP_E_TYPEMISMATCH, 0},
    {"RunAsPropertyPut", L"Run", [] { return Args(Variant(L"a")); }, DISP_E_MEMBERNOTFOUND, 99,
     DISPATCH_PROPERTYPUT},
    {"DisplayInfoWithArgument", L"DisplayInfo", [] { return Args(Variant(1)); },
     DISP_E_BADPARAMCOUNT, 99},
    {"DeleteMailOddPairs", L"deletemail",
     [] { return Args(Variant(L"PR_ENTRYID"), Variant(L"00"), Variant(L"PR_STORE_ENTRYID")); },
     DISP_E_BADPARAMCOUNT, 99},
    {"DeleteMailNamesWithoutValues", L"DeleteMail",
     [] { return Args(ScriptArray({L"PR_ENTRYID"}), Variant(L"00")); }, DISP_E_TYPEMISMATCH, 0},
    {"DeleteMailNullValue", L"DeleteMail",
     [] { return Args(Variant(L"PR_ENTRYID"), Special(VT_NULL), Variant(L"a"), Variant(L"b")); },
     DISP_E_TYPEMISMATCH, 2},
    {"Unknown", L"Archive", [] { return Args(); }, DISP_E_UNKNOWNNAME, 99},
};
INSTANTIATE_TEST_SUITE_P(Calls, ConnectorWrongCallTest, testing::ValuesIn(kWrongCalls),
                         [](const testing::TestParamInfo<WrongCall>& info) {
                             return std::string(info.param.name);
                         });

TEST(ConnectorHostKindTest, OfficeProcessesAreTheirHostsAndEveryOtherProgramIsSeven) {
    EXPECT_EQ(HostKindOfProcess(L"outlook.exe"), 1);
    EXPECT_EQ(HostKindOfProcess(L"POWERPNT.EXE"), 4);
    EXPECT_EQ(HostKindOfProcess(L"WINWORD.EXE.bak"), 7);
}

TEST_F(ConnectorAutomationTest, DisplaySettingsIsRefusedWithoutADialogWhenSettingsAreLocked) {
    m_registry.SetMachineNumber(L"Nosettings", 1);
    WindowWatcher watcher;  // fails on any window
    Outcome outcome = Call(L"DisplaySettings");
    EXPECT_EQ(outcome.hr, DISP_E_EXCEPTION);
    EXPECT_EQ(outcome.scode, E_ACCESSDENIED);
    EXPECT_EQ(outcome.description, L"Saving Settings are administratively disabled.");
    watcher.Verify();
}

// OK saves what the dialog holds into the per-user key and answers True; Cancel saves nothing.
class ConnectorSettingsDialogTest : public ConnectorAutomationTest,
                                    public testing::WithParamInterface<int> {};

TEST_P(ConnectorSettingsDialogTest, SavesWhatTheUserConfirmed) {
    const bool confirmed = GetParam() == IDOK;
    m_registry.SetMachineTargets({StorageTarget(L"Angebote", L"42", L"7")});
    WindowWatcher watcher;
    watcher.Expect(L"Einstellungen").Click(GetParam());
    Outcome outcome = Call(L"DisplaySettings");
    watcher.Verify();
    ASSERT_EQ(outcome.hr, S_OK);
    EXPECT_EQ(outcome.result.vt, VT_BOOL);
    EXPECT_EQ(outcome.result.boolVal, confirmed ? VARIANT_TRUE : VARIANT_FALSE);
    bool saved = false;
    m_registry.UserString(L"Params1", &saved);
    EXPECT_EQ(saved, confirmed);
}
INSTANTIATE_TEST_SUITE_P(Answers, ConnectorSettingsDialogTest, testing::Values(IDOK, IDCANCEL),
                         [](const testing::TestParamInfo<int>& info) {
                             return std::string(info.param == IDOK ? "Ok" : "Cancel");
                         });

TEST_F(ConnectorAutomationTest, DisplayInfoNamesTheCallingProgramAsTheHost) {
    WindowWatcher watcher;
    watcher.Expect(L"Info").Click(IDOK);
    EXPECT_EQ(Call(L"DisplayInfo").hr, S_OK);
    watcher.Verify();
    ASSERT_EQ(watcher.Seen().size(), 1u);
    bool named = false;
    for (const WindowWatcher::Control& control : watcher.Seen()[0].controls) {
        named =
            named || control.text.find(L"Anwendung: connector_tests.exe\r\n") != std::wstring::npos;
    }
    EXPECT_TRUE(named);
}

// Both argument forms delete the item their identifiers name from the Outlook running beside
// the caller, found through its ProgID as an installed Outlook registers it.
TEST_F(ConnectorAutomationTest, DeleteMailDeletesTheArchivedItemFromTheRunningOutlook) {
    wchar_t clsid[40] = {};
    StringFromGUID2(kOutlookClsid, clsid, 40);
    SetText(HKEY_CLASSES_ROOT, L"Outlook.Application\\CLSID", nullptr, clsid);
    ASSERT_EQ(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED), S_OK);
    {
        FakeOutlook outlook;
        outlook.SelectItemText(L"class = IPM.Note\n");
        outlook.SelectItemText(L"class = IPM.Note\n");
        RefCountList expected = outlook.RefCounts();
        for (auto& [name, count] : expected) {
            count -= name.rfind(L"item ", 0) == 0 ? 2 : 0;  // out of the folder and selection
        }
        DWORD cookie = 0;
        ASSERT_EQ(RegisterActiveObject(&outlook.Application(), kOutlookClsid, ACTIVEOBJECT_STRONG,
                                       &cookie),
                  S_OK);
        BStr store, first, second;
        GetTextPropertyNoThrow(&outlook.Folder(), L"StoreID", &store);
        GetTextPropertyNoThrow(&outlook.Item(0), L"EntryID", &first);
        GetTextPropertyNoThrow(&outlook.Item(1), L"EntryID", &second);
        Outcome byArrays =
            Call(L"DeleteMail", Args(ScriptArray({L"PR_ENTRYID", L"PR_STORE_ENTRYID", L"X"}),
                                     ScriptArray({second.c_str(), store.c_str(), L"Y"})));
        Outcome byPairs =
            Call(L"DeleteMail", Args(Variant(L"PR_ENTRYID"), Variant(first.c_str()),
                                     Variant(L"PR_STORE_ENTRYID"), Variant(store.c_str())));
        for (const Outcome* outcome : {&byArrays, &byPairs}) {
            EXPECT_EQ(outcome->hr, S_OK);
            EXPECT_EQ(outcome->result.vt, VT_BOOL);
            EXPECT_EQ(outcome->result.boolVal, VARIANT_TRUE);
        }
        EXPECT_TRUE(outlook.FolderItems().empty());
        EXPECT_EQ(RevokeActiveObject(cookie, nullptr), S_OK);
        EXPECT_EQ(outlook.RefCounts(), expected);
    }
    RegDeleteTreeW(HKEY_CLASSES_ROOT, L"Outlook.Application");
    CoUninitialize();
}

}  // namespace
