// The connector automation object as automation clients reach it: by name through IDispatch, with
// arguments in every form a script or a typed client sends, wrong ones included.
#include <gtest/gtest.h>
#include <windows.h>
#include <oleauto.h>

#include <functional>
#include <string>
#include <vector>

#include "addin/ConnectorRequests.h"
#include "addin/TDConnectorCOM.h"
#include "common/Automation.h"
#include "common/ComPtr.h"
#include "common/Variant.h"
#include "outlooksim/FakeOutlook.h"
#include "support/ConnectorRecord.h"
#include "support/RegistrySandbox.h"
#include "support/TestFiles.h"
#include "support/WindowWatcher.h"

namespace {

// Outlook's class, as Outlook registers it.
constexpr CLSID kOutlookClsid = {
    0x0006F03A, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};

// A SAFEARRAY of VARIANTs holding texts, as a script builds one with Array(...).
Variant ScriptArray(const std::vector<std::wstring>& texts) {
    Variant array;
    SAFEARRAY* elements = SafeArrayCreateVector(VT_VARIANT, 0, static_cast<ULONG>(texts.size()));
    for (LONG i = 0; i < static_cast<LONG>(texts.size()); ++i) {
        Variant text(texts[static_cast<size_t>(i)].c_str());
        SafeArrayPutElement(elements, &i, &text);
    }
    array.vt = VT_ARRAY | VT_VARIANT;
    array.parray = elements;
    return array;
}

Variant Omitted() {
    Variant missing;
    missing.vt = VT_ERROR;
    missing.scode = DISP_E_PARAMNOTFOUND;
    return missing;
}

Variant Null() {
    Variant null;
    null.vt = VT_NULL;
    return null;
}

struct Outcome {
    HRESULT hr;
    Variant result;
    UINT argError = 99;
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
    Outcome Call(const wchar_t* name, std::vector<VARIANT*> arguments,
                 WORD flags = DISPATCH_METHOD | DISPATCH_PROPERTYGET) {
        Outcome outcome{};
        LPOLESTR names[] = {const_cast<LPOLESTR>(name)};
        DISPID id = DISPID_UNKNOWN;
        outcome.hr = m_connector->GetIDsOfNames(IID_NULL, names, 1, LOCALE_USER_DEFAULT, &id);
        if (FAILED(outcome.hr)) {
            return outcome;
        }
        // DISPPARAMS holds the last argument first; the copies share the callers' contents.
        std::vector<VARIANTARG> values;
        for (auto argument = arguments.rbegin(); argument != arguments.rend(); ++argument) {
            values.push_back(**argument);
        }
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

// --- Wrong calls: each answers its automation error, with the position of the argument at fault,
// and leaves the result empty.

struct WrongCall {
    const char* name;
    const wchar_t* method;
    std::function<std::vector<Variant>()> arguments;
    HRESULT hr;
    UINT argError;  // 99: not set
    WORD flags = DISPATCH_METHOD;
};

class ConnectorWrongCallTest : public ConnectorAutomationTest,
                               public testing::WithParamInterface<WrongCall> {};

TEST_P(ConnectorWrongCallTest, AnswersTheAutomationError) {
    const WrongCall& row = GetParam();
    std::vector<Variant> arguments = row.arguments();
    std::vector<VARIANT*> pointers;
    for (Variant& argument : arguments) {
        pointers.push_back(&argument);
    }
    Outcome outcome = Call(row.method, pointers, row.flags);
    EXPECT_EQ(outcome.hr, row.hr);
    EXPECT_EQ(outcome.argError, row.argError);
    EXPECT_EQ(outcome.result.vt, VT_EMPTY);
}

std::vector<Variant> Args() { return {}; }
template <class... Rest>
std::vector<Variant> Args(Variant first, Rest... rest) {
    std::vector<Variant> all;
    all.push_back(std::move(first));
    (all.push_back(std::move(rest)), ...);
    return all;
}

const WrongCall kWrongCalls[] = {
    {"RunWithoutFile", L"Run", [] { return Args(); }, DISP_E_BADPARAMCOUNT, 99},
    {"RunWithTwoFiles", L"RUN", [] { return Args(Variant(L"a"), Variant(L"b")); },
     DISP_E_BADPARAMCOUNT, 99},
    {"RunOmitted", L"run", [] { return Args(Omitted()); }, DISP_E_PARAMNOTOPTIONAL, 0},
    {"RunNull", L"Run", [] { return Args(Null()); }, DISP_E_TYPEMISMATCH, 0},
    {"RunEmpty", L"Run", [] { return Args(Variant()); }, DISP_E_TYPEMISMATCH, 0},
    {"RunNothing", L"Run", [] { return Args(Variant(static_cast<IDispatch*>(nullptr))); },
     DISP_E_TYPEMISMATCH, 0},
    {"RunArrayWithNull", L"Run",
     [] {
         Variant array = ScriptArray({L"C:\\a.txt", L""});
         LONG second = 1;
         Variant null = Null();
         SafeArrayPutElement(array.parray, &second, &null);
         return Args(std::move(array));
     },
     DISP_E_TYPEMISMATCH, 0},
    {"RunAsPropertyPut", L"Run", [] { return Args(Variant(L"a")); }, DISP_E_MEMBERNOTFOUND, 99,
     DISPATCH_PROPERTYPUT},
    {"DisplayInfoWithArgument", L"DisplayInfo", [] { return Args(Variant(1)); },
     DISP_E_BADPARAMCOUNT, 99},
    {"DisplaySettingsWithArgument", L"displaysettings", [] { return Args(Variant(true)); },
     DISP_E_BADPARAMCOUNT, 99},
    {"DeleteMailNameOnly", L"DeleteMail", [] { return Args(Variant(L"PR_ENTRYID")); },
     DISP_E_BADPARAMCOUNT, 99},
    {"DeleteMailOddPairs", L"DeleteMail",
     [] { return Args(Variant(L"PR_ENTRYID"), Variant(L"00"), Variant(L"PR_STORE_ENTRYID")); },
     DISP_E_BADPARAMCOUNT, 99},
    {"DeleteMailNamesWithoutValues", L"DeleteMail",
     [] { return Args(ScriptArray({L"PR_ENTRYID"}), Variant(L"00")); }, DISP_E_TYPEMISMATCH, 0},
    {"DeleteMailNullValue", L"DeleteMail", [] { return Args(Variant(L"PR_ENTRYID"), Null()); },
     DISP_E_TYPEMISMATCH, 0},
    {"Unknown", L"Archive", [] { return Args(); }, DISP_E_UNKNOWNNAME, 99},
};
INSTANTIATE_TEST_SUITE_P(Calls, ConnectorWrongCallTest, testing::ValuesIn(kWrongCalls),
                         [](const testing::TestParamInfo<WrongCall>& info) {
                             return std::string(info.param.name);
                         });

// --- Run

TEST(ConnectorHostKindTest, OfficeProcessesAreTheirHostsAndEveryOtherProgramIsSeven) {
    EXPECT_EQ(HostKindOfProcess(L"outlook.exe"), 1);
    EXPECT_EQ(HostKindOfProcess(L"WINWORD.EXE"), 2);
    EXPECT_EQ(HostKindOfProcess(L"Excel.exe"), 3);
    EXPECT_EQ(HostKindOfProcess(L"POWERPNT.EXE"), 4);
    EXPECT_EQ(HostKindOfProcess(L"cscript.exe"), 7);
    EXPECT_EQ(HostKindOfProcess(L"WINWORD.EXE.bak"), 7);
}

TEST_F(ConnectorAutomationTest, RunHandsAForeignAndAStagedFileByReferenceToTheConnector) {
    m_registry.SetMachineTargets({StorageTarget(L"Angebote", L"42", L"7")});
    ConnectorRecord record;
    const std::wstring foreign = TempDirectory() + L"Bericht.txt";
    WriteFileBytes(foreign, "foreign");
    const std::wstring folder = TempDirectory() + L"td_temp_inbox\\td_data_77\\";
    CreateDirectoryW((TempDirectory() + L"td_temp_inbox").c_str(), nullptr);
    CreateDirectoryW(folder.c_str(), nullptr);
    WriteFileBytes(folder + L"Staged.docx", "staged");

    Variant files = ScriptArray({foreign, folder + L"Staged.docx"});
    Variant byReference;
    byReference.vt = VT_BYREF | VT_VARIANT;
    byReference.pvarVal = &files;
    Outcome outcome = Call(L"Run", {&byReference});
    byReference.vt = VT_EMPTY;  // the reference is not its to clear

    ASSERT_EQ(outcome.hr, S_OK) << ToUtf8(outcome.description);
    EXPECT_EQ(outcome.result.vt, VT_BOOL);
    EXPECT_EQ(outcome.result.boolVal, VARIANT_TRUE);
    std::vector<std::wstring> urls = record.WaitForUrls(1);
    ASSERT_EQ(urls.size(), 1u);
    // The staged file follows the foreign one into the folder made for it (kept as it is).
    const std::wstring url = urls[0];
    EXPECT_EQ(url.rfind(L"talvorn:\\\\di$appid=42$configid=7$startapp=7$files=td_data_", 0), 0u)
        << ToUtf8(url);
    const std::wstring fresh =
        url.substr(url.find(L"td_data_"), url.find(L',') - url.find(L"td_data_"));
    EXPECT_EQ(url.substr(url.find(L',') + 1), fresh);
    const std::string handOff =
        ReadFileBytes(TempDirectory() + L"td_temp_inbox\\" + fresh + L"\\" + fresh + L".xml");
    EXPECT_TRUE(Contains(handOff, "Staged.docx</path>")) << handOff;
}

TEST_F(ConnectorAutomationTest, RunRefusesAMissingFileBeforeWritingAnything) {
    ConnectorRecord record;
    const std::wstring missing = TempDirectory() + L"fehlt.txt";
    Variant file(missing.c_str());
    Outcome outcome = Call(L"Run", {&file});
    EXPECT_EQ(outcome.hr, DISP_E_EXCEPTION);
    EXPECT_EQ(outcome.scode, HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND));
    EXPECT_NE(outcome.description.find(missing), std::wstring::npos) << ToUtf8(outcome.description);
    EXPECT_FALSE(DirectoryExists(TempDirectory() + L"td_temp_inbox"));
    EXPECT_TRUE(record.Urls().empty());
}

// --- DisplaySettings

TEST_F(ConnectorAutomationTest, DisplaySettingsIsRefusedWhenSettingsAreLocked) {
    m_registry.SetMachineNumber(L"Nosettings", 1);
    WindowWatcher watcher;  // no window is expected
    Outcome outcome = Call(L"DisplaySettings", {});
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
    Outcome outcome = Call(L"DisplaySettings", {});
    watcher.Verify();
    ASSERT_EQ(outcome.hr, S_OK) << ToUtf8(outcome.description);
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

// --- DisplayInfo

TEST_F(ConnectorAutomationTest, DisplayInfoNamesTheCallingProgramAsTheHost) {
    WindowWatcher watcher;
    watcher.Expect(L"Info").Click(IDOK);
    Outcome outcome = Call(L"DisplayInfo", {});
    watcher.Verify();
    EXPECT_EQ(outcome.hr, S_OK);
    EXPECT_EQ(outcome.result.vt, VT_EMPTY);
    ASSERT_EQ(watcher.Seen().size(), 1u);
    bool named = false;
    for (const WindowWatcher::Control& control : watcher.Seen()[0].controls) {
        named =
            named || control.text.find(L"Anwendung: connector_tests.exe\r\n") != std::wstring::npos;
    }
    EXPECT_TRUE(named);
}

// --- DeleteMail

class ConnectorDeleteMailTest : public ConnectorAutomationTest {
protected:
    // Outlook's ProgID as an installed Outlook leaves it in the classes root.
    void RegisterOutlookProgId() {
        wchar_t clsid[40] = {};
        StringFromGUID2(kOutlookClsid, clsid, 40);
        SetText(HKEY_CLASSES_ROOT, L"Outlook.Application\\CLSID", nullptr, clsid);
    }
    // The running object table is COM's: the client's apartment.
    ConnectorDeleteMailTest() { m_com = CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED); }
    ~ConnectorDeleteMailTest() override {
        RegDeleteTreeW(HKEY_CLASSES_ROOT, L"Outlook.Application");
        if (SUCCEEDED(m_com)) {
            CoUninitialize();
        }
    }

    HRESULT m_com;
};

TEST_F(ConnectorDeleteMailTest, FailsClearlyWhenOutlookIsNotRunning) {
    RegisterOutlookProgId();
    Variant name(L"PR_ENTRYID");
    Variant value(L"0000");
    Outcome outcome = Call(L"DeleteMail", {&name, &value});
    EXPECT_EQ(outcome.hr, DISP_E_EXCEPTION);
    EXPECT_TRUE(FAILED(outcome.scode));
    EXPECT_EQ(outcome.description, L"Outlook is not running: the mail cannot be deleted.");
}

// Both argument forms delete the item named by its identifiers from the running Outlook.
TEST_F(ConnectorDeleteMailTest, DeletesTheArchivedItemFromTheRunningOutlook) {
    RegisterOutlookProgId();
    FakeOutlook outlook;
    outlook.SelectItemText(L"class = IPM.Note\nPR_SUBJECT = Erste\n");
    outlook.SelectItemText(L"class = IPM.Note\nPR_SUBJECT = Zweite\n");
    const RefCountList before = outlook.RefCounts();
    DWORD cookie = 0;
    ASSERT_EQ(
        RegisterActiveObject(&outlook.Application(), kOutlookClsid, ACTIVEOBJECT_STRONG, &cookie),
        S_OK);
    BStr store;
    ASSERT_EQ(GetTextPropertyNoThrow(&outlook.Folder(), L"StoreID", &store), S_OK);
    for (size_t index : {size_t{1}, size_t{0}}) {
        BStr entry;
        ASSERT_EQ(GetTextPropertyNoThrow(&outlook.Item(index), L"EntryID", &entry), S_OK);
        Outcome outcome;
        if (index == 1) {
            Variant names = ScriptArray({L"PR_ENTRYID", L"PR_STORE_ENTRYID", L"OTL_MSG_SUBJECT"});
            Variant values = ScriptArray({entry.c_str(), store.c_str(), L"Zweite"});
            outcome = Call(L"DeleteMail", {&names, &values});
        } else {
            Variant entryName(L"PR_ENTRYID"), entryValue(entry.c_str());
            Variant storeName(L"PR_STORE_ENTRYID"), storeValue(store.c_str());
            outcome = Call(L"DeleteMail", {&entryName, &entryValue, &storeName, &storeValue});
        }
        ASSERT_EQ(outcome.hr, S_OK) << ToUtf8(outcome.description);
        EXPECT_EQ(outcome.result.vt, VT_BOOL);
        EXPECT_EQ(outcome.result.boolVal, VARIANT_TRUE);
    }
    EXPECT_TRUE(outlook.FolderItems().empty());
    EXPECT_EQ(RevokeActiveObject(cookie, nullptr), S_OK);
    // Every reference the object took is back; the items have left the folder and the selection.
    RefCountList expected = before;
    for (auto& [name, count] : expected) {
        count -= name.rfind(L"item ", 0) == 0 ? 2 : 0;
    }
    EXPECT_EQ(outlook.RefCounts(), expected);
}

}  // namespace
