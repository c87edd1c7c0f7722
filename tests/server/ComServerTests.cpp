#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <new>
#include <string>
#include <vector>

#include "addin/OfficeInterfaces.h"
#include "addin/TDConnectorCOM.h"
#include "addin/TalvornAddin.h"
#include "common/ComPtr.h"
#include "common/UniqueResource.h"
#include "common/ServerCounts.h"
#include "server/ComServer.h"
#include "support/BuiltModule.h"
#include "officesim/FakeDispatch.h"
#include "support/TestFiles.h"

// Blocks `new` hands out less those `delete` takes back, so that a test sees a class factory or
// an object freed without looking inside it. Only the change across one call is meaningful. The
// library's nothrow `new` comes here too.
namespace {
std::atomic<long> g_heapBlocks{0};
}  // namespace

void* operator new(std::size_t size) {
    void* block = HeapAlloc(GetProcessHeap(), 0, size != 0 ? size : 1);
    if (!block) {
        throw std::bad_alloc();
    }
    ++g_heapBlocks;
    return block;
}
void operator delete(void* block) noexcept {
    if (block) {
        --g_heapBlocks;
        HeapFree(GetProcessHeap(), 0, block);
    }
}
void operator delete(void* block, std::size_t) noexcept { operator delete(block); }

namespace {

// {0B0A6A3C-55E1-4F5B-9C1E-2D5C3A7E9F10}: registered by nobody.
constexpr CLSID kUnknownClsid = {
    0x0B0A6A3C, 0x55E1, 0x4F5B, {0x9C, 0x1E, 0x2D, 0x5C, 0x3A, 0x7E, 0x9F, 0x10}};

// A pointer value no call may leave behind in an out-parameter it refuses.
void* const kGarbage = reinterpret_cast<void*>(0x1234);

// --- The class factories of both classes, through the server unit the DLL exports wrap.

struct ServerClass {
    const char* name;
    CLSID clsid;
    std::vector<IID> identity;    // interfaces its objects answer with their identity
    std::vector<IID> secondFace;  // interfaces they answer with a second face
    IID unsupported;              // one they refuse
};

void PrintTo(const ServerClass& serverClass, std::ostream* out) { *out << serverClass.name; }

class ClassFactoryTest : public testing::TestWithParam<ServerClass> {};

// Each request gets a factory of its own, each CreateInstance an object of its own; only objects
// handed out count, until their final Release; every face answers IUnknown with the identity and
// all faces share one count; whatever is refused or finally released is freed.
TEST_P(ClassFactoryTest, HandsOutFactoriesAndObjectsThatTheirLastReleaseFrees) {
    const ServerClass& row = GetParam();
    ComPtr<FakeDispatch> outer = FakeDispatch::Create();
    const LONG live = LiveObjectCount();
    const long blocks = g_heapBlocks;
    void* out = kGarbage;
    EXPECT_EQ(GetServerClassObject(row.clsid, IID_IDispatch, &out), E_NOINTERFACE);
    EXPECT_EQ(out, nullptr);
    ComPtr<IClassFactory> factory;
    ComPtr<IClassFactory> second;
    ASSERT_EQ(GetServerClassObject(row.clsid, IID_IClassFactory, factory.put_void()), S_OK);
    ASSERT_EQ(GetServerClassObject(row.clsid, IID_IUnknown, second.put_void()), S_OK);
    EXPECT_NE(factory.get(), second.get());
    second.reset();

    out = kGarbage;
    EXPECT_EQ(factory->CreateInstance(outer.get(), IID_IUnknown, &out), CLASS_E_NOAGGREGATION);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(outer->RefCount(), 1u);
    out = kGarbage;
    EXPECT_EQ(factory->CreateInstance(nullptr, row.unsupported, &out), E_NOINTERFACE);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(factory->CreateInstance(nullptr, IID_IUnknown, nullptr), E_POINTER);
    EXPECT_EQ(LiveObjectCount(), live);

    IUnknown* first = nullptr;
    ComPtr<IUnknown> other;
    ASSERT_EQ(
        factory->CreateInstance(nullptr, row.identity.back(), reinterpret_cast<void**>(&first)),
        S_OK);
    ASSERT_EQ(factory->CreateInstance(nullptr, IID_IUnknown, other.put_void()), S_OK);
    factory.reset();
    EXPECT_NE(first, other.get());
    EXPECT_EQ(LiveObjectCount(), live + 2);
    other.reset();
    EXPECT_EQ(LiveObjectCount(), live + 1);
    for (bool identity : {true, false}) {
        for (const IID& iid : identity ? row.identity : row.secondFace) {
            IUnknown* face = nullptr;
            ASSERT_EQ(first->QueryInterface(iid, reinterpret_cast<void**>(&face)), S_OK);
            EXPECT_EQ(face == first, identity);
            void* back = nullptr;
            ASSERT_EQ(face->QueryInterface(IID_IUnknown, &back), S_OK);
            EXPECT_EQ(back, first);
            EXPECT_EQ(first->Release(), 2u);
            EXPECT_EQ(face->Release(), 1u);
        }
    }
    EXPECT_EQ(first->QueryInterface(IID_IUnknown, nullptr), E_POINTER);
    ComPtr<IDispatch> dispatch;
    ASSERT_EQ(first->QueryInterface(IID_IDispatch, dispatch.put_void()), S_OK);
    UINT typeInfos = 99;
    EXPECT_EQ(dispatch->GetTypeInfoCount(&typeInfos), S_OK);
    EXPECT_EQ(typeInfos, 0u) << "an object without type information";
    dispatch.reset();
    EXPECT_EQ(first->Release(), 0u);
    EXPECT_EQ(LiveObjectCount(), live);
    EXPECT_EQ(g_heapBlocks, blocks);
}

const ServerClass kClasses[] = {{"Addin",
                                 CLSID_TalvornAddin,
                                 {IID_IUnknown, IID_IDispatch, IID_IDTExtensibility2},
                                 {IID_IRibbonExtensibility},
                                 IID_IClassFactory},
                                {"Connector",
                                 CLSID_TDConnectorCOM,
                                 {IID_IUnknown, IID_IDispatch},
                                 {},
                                 IID_IRibbonExtensibility}};
INSTANTIATE_TEST_SUITE_P(BothClasses, ClassFactoryTest, testing::ValuesIn(kClasses),
                         [](const testing::TestParamInfo<ServerClass>& info) {
                             return std::string(info.param.name);
                         });

// --- The built DLL, loaded as COM loads it: its exports and its imports.

class AddinModuleTest : public testing::Test {
protected:
    void SetUp() override {
        m_module.reset(LoadLibraryW(BuiltAddinPath().c_str()));
        ASSERT_TRUE(m_module) << "cannot load " << ToUtf8(BuiltAddinPath()) << ", error "
                              << GetLastError();
    }
    template <class Function>
    Function Export(const char* name) {
        return reinterpret_cast<Function>(
            reinterpret_cast<void*>(GetProcAddress(m_module.get(), name)));
    }

    UniqueHModule m_module;
};

TEST_F(AddinModuleTest, ExportsHandOutBothClassesAndHoldTheServerForObjectsAndLocks) {
    auto getClassObject =
        Export<HRESULT(STDAPICALLTYPE*)(REFCLSID, REFIID, void**)>("DllGetClassObject");
    auto canUnloadNow = Export<HRESULT(STDAPICALLTYPE*)()>("DllCanUnloadNow");
    ASSERT_NE(getClassObject, nullptr);
    ASSERT_NE(canUnloadNow, nullptr);
    EXPECT_EQ(getClassObject(CLSID_TalvornAddin, IID_IClassFactory, nullptr), E_POINTER);
    void* out = kGarbage;
    EXPECT_EQ(getClassObject(kUnknownClsid, IID_IClassFactory, &out), CLASS_E_CLASSNOTAVAILABLE);
    EXPECT_EQ(out, nullptr);

    ASSERT_EQ(canUnloadNow(), S_OK);
    ComPtr<IClassFactory> addinFactory;
    ComPtr<IClassFactory> connectorFactory;
    ASSERT_EQ(getClassObject(CLSID_TalvornAddin, IID_IClassFactory, addinFactory.put_void()), S_OK);
    ASSERT_EQ(getClassObject(CLSID_TDConnectorCOM, IID_IClassFactory, connectorFactory.put_void()),
              S_OK);
    EXPECT_EQ(canUnloadNow(), S_OK) << "a factory alone holds the server";
    ComPtr<IDispatch> connector;
    ASSERT_EQ(connectorFactory->CreateInstance(nullptr, IID_IDispatch, connector.put_void()), S_OK);
    EXPECT_EQ(canUnloadNow(), S_FALSE);
    connector.reset();
    EXPECT_EQ(canUnloadNow(), S_OK);

    // Locks outlive the factory that took them and are counted across both classes.
    EXPECT_EQ(addinFactory->LockServer(TRUE), S_OK);
    EXPECT_EQ(addinFactory->LockServer(TRUE), S_OK);
    addinFactory.reset();
    EXPECT_EQ(connectorFactory->LockServer(FALSE), S_OK);
    EXPECT_EQ(canUnloadNow(), S_FALSE);
    EXPECT_EQ(connectorFactory->LockServer(FALSE), S_OK);
    EXPECT_EQ(canUnloadNow(), S_OK);
}

const std::string kSystemModules =
    " kernel32.dll user32.dll advapi32.dll ole32.dll oleaut32.dll shell32.dll gdi32.dll "
    "gdiplus.dll "
    "mapi32.dll msvcrt.dll ucrtbase.dll version.dll comctl32.dll shlwapi.dll ";

// Read from the loaded image, where relative addresses are offsets from the module's base.
TEST_F(AddinModuleTest, ImportsOnlyWindowsSystemModules) {
    const auto* base = reinterpret_cast<const BYTE*>(m_module.get());
    const auto* headers = reinterpret_cast<const IMAGE_NT_HEADERS*>(
        base + reinterpret_cast<const IMAGE_DOS_HEADER*>(base)->e_lfanew);
    const IMAGE_DATA_DIRECTORY* directories = headers->OptionalHeader.DataDirectory;
    // Delay-loaded modules would escape the check below.
    EXPECT_EQ(directories[IMAGE_DIRECTORY_ENTRY_DELAY_IMPORT].VirtualAddress, 0u);
    const DWORD table = directories[IMAGE_DIRECTORY_ENTRY_IMPORT].VirtualAddress;
    ASSERT_NE(table, 0u);
    for (const auto* descriptor = reinterpret_cast<const IMAGE_IMPORT_DESCRIPTOR*>(base + table);
         descriptor->Name != 0; ++descriptor) {
        std::string name = reinterpret_cast<const char*>(base + descriptor->Name);
        std::transform(name.begin(), name.end(), name.begin(),
                       [](char c) { return static_cast<char>(tolower(c)); });
        EXPECT_TRUE(kSystemModules.find(" " + name + " ") != std::string::npos ||
                    name.rfind("api-ms-win-crt-", 0) == 0)
            << name << " is not a Windows system module: Office loads the add-in from a folder "
            << "that holds nothing else";
    }
}

}  // namespace
