#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include "addin/OfficeInterfaces.h"
#include "addin/TDConnectorCOM.h"
#include "addin/TalvornAddin.h"
#include "common/ComPtr.h"
#include "common/UniqueResource.h"
#include "server/ComServer.h"
#include "support/BuiltModule.h"
#include "support/FakeDispatch.h"
#include "support/TestFiles.h"

// This program counts the blocks `new` hands out and `delete` takes back, so that a test can see a
// class factory or an object freed without looking inside it.
namespace {

std::atomic<long> g_heapBlocks{0};

void* AllocateCounted(std::size_t size) noexcept {
    void* block = HeapAlloc(GetProcessHeap(), 0, size != 0 ? size : 1);
    if (block) {
        ++g_heapBlocks;
    }
    return block;
}

void FreeCounted(void* block) noexcept {
    if (block) {
        --g_heapBlocks;
        HeapFree(GetProcessHeap(), 0, block);
    }
}

}  // namespace

void* operator new(std::size_t size) {
    if (void* block = AllocateCounted(size)) {
        return block;
    }
    throw std::bad_alloc();
}
void* operator new[](std::size_t size) {
    if (void* block = AllocateCounted(size)) {
        return block;
    }
    throw std::bad_alloc();
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return AllocateCounted(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return AllocateCounted(size);
}
void operator delete(void* block) noexcept { FreeCounted(block); }
void operator delete[](void* block) noexcept { FreeCounted(block); }
void operator delete(void* block, std::size_t) noexcept { FreeCounted(block); }
void operator delete[](void* block, std::size_t) noexcept { FreeCounted(block); }
void operator delete(void* block, const std::nothrow_t&) noexcept { FreeCounted(block); }
void operator delete[](void* block, const std::nothrow_t&) noexcept { FreeCounted(block); }

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
    IID supported;    // an interface the class's objects answer
    IID unsupported;  // one they refuse
};

void PrintTo(const ServerClass& serverClass, std::ostream* out) { *out << serverClass.name; }

class ClassFactoryTest : public testing::TestWithParam<ServerClass> {
protected:
    ComPtr<IClassFactory> Factory() {
        ComPtr<IClassFactory> factory;
        EXPECT_EQ(GetServerClassObject(GetParam().clsid, IID_IClassFactory, factory.put_void()),
                  S_OK);
        return factory;
    }
};

TEST_P(ClassFactoryTest, AFactoryAnswersOnlyIUnknownAndIClassFactory) {
    ComPtr<IClassFactory> factory = Factory();
    ASSERT_TRUE(factory);

    ComPtr<IUnknown> unknown;
    ASSERT_EQ(factory->QueryInterface(IID_IUnknown, unknown.put_void()), S_OK);
    EXPECT_EQ(static_cast<void*>(unknown.get()), static_cast<void*>(factory.get()));

    for (const IID& refused :
         {IID_IDispatch, IID_IPersist, IID_IMarshal, IID_IRibbonExtensibility}) {
        void* out = kGarbage;
        EXPECT_EQ(factory->QueryInterface(refused, &out), E_NOINTERFACE);
        EXPECT_EQ(out, nullptr);
    }
    EXPECT_EQ(factory->QueryInterface(IID_IUnknown, nullptr), E_POINTER);
}

TEST_P(ClassFactoryTest, EveryRequestGetsAFactoryOfItsOwnThatItsLastReleaseFrees) {
    const long blocks = g_heapBlocks;
    IClassFactory* first = nullptr;
    IClassFactory* second = nullptr;
    ASSERT_EQ(
        GetServerClassObject(GetParam().clsid, IID_IClassFactory, reinterpret_cast<void**>(&first)),
        S_OK);
    ASSERT_EQ(
        GetServerClassObject(GetParam().clsid, IID_IUnknown, reinterpret_cast<void**>(&second)),
        S_OK);
    EXPECT_NE(first, second);
    EXPECT_EQ(first->AddRef(), 2u);
    EXPECT_EQ(first->Release(), 1u);
    EXPECT_EQ(first->Release(), 0u);
    EXPECT_EQ(second->Release(), 0u);
    EXPECT_EQ(g_heapBlocks, blocks);
}

TEST_P(ClassFactoryTest, AFactoryAskedForAnotherInterfaceIsFreedAtOnce) {
    const long blocks = g_heapBlocks;
    void* out = kGarbage;
    EXPECT_EQ(GetServerClassObject(GetParam().clsid, IID_IDispatch, &out), E_NOINTERFACE);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(g_heapBlocks, blocks);
}

TEST_P(ClassFactoryTest, CreateInstanceRefusesAMissingOutParameterAndAggregation) {
    ComPtr<IClassFactory> factory = Factory();
    ASSERT_TRUE(factory);
    ComPtr<FakeDispatch> outer = FakeDispatch::Create();
    const LONG live = LiveObjectCount();
    const long blocks = g_heapBlocks;

    EXPECT_EQ(factory->CreateInstance(nullptr, GetParam().supported, nullptr), E_POINTER);

    void* out = kGarbage;
    EXPECT_EQ(factory->CreateInstance(outer.get(), IID_IUnknown, &out), CLASS_E_NOAGGREGATION);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(outer->RefCount(), 1u);

    EXPECT_EQ(LiveObjectCount(), live);
    EXPECT_EQ(g_heapBlocks, blocks);
}

TEST_P(ClassFactoryTest, AnObjectThatRefusesTheInterfaceIsDestroyedUncounted) {
    ComPtr<IClassFactory> factory = Factory();
    ASSERT_TRUE(factory);
    const LONG live = LiveObjectCount();
    const long blocks = g_heapBlocks;

    void* out = kGarbage;
    EXPECT_EQ(factory->CreateInstance(nullptr, GetParam().unsupported, &out), E_NOINTERFACE);
    EXPECT_EQ(out, nullptr);

    EXPECT_EQ(LiveObjectCount(), live);
    EXPECT_EQ(g_heapBlocks, blocks);
}

TEST_P(ClassFactoryTest, ObjectsHoldTheServerFromCreationToTheirFinalRelease) {
    ComPtr<IClassFactory> factory = Factory();
    ASSERT_TRUE(factory);
    const LONG live = LiveObjectCount();
    ASSERT_EQ(CanUnloadServer(), S_OK) << "an earlier test left objects or locks behind";

    IUnknown* first = nullptr;
    IUnknown* second = nullptr;
    ASSERT_EQ(
        factory->CreateInstance(nullptr, GetParam().supported, reinterpret_cast<void**>(&first)),
        S_OK);
    ASSERT_EQ(factory->CreateInstance(nullptr, IID_IUnknown, reinterpret_cast<void**>(&second)),
              S_OK);
    EXPECT_NE(first, second);
    EXPECT_EQ(LiveObjectCount(), live + 2);
    EXPECT_EQ(CanUnloadServer(), S_FALSE);

    // Only the final Release of an object counts, not every Release.
    EXPECT_EQ(first->AddRef(), 2u);
    EXPECT_EQ(first->Release(), 1u);
    EXPECT_EQ(LiveObjectCount(), live + 2);

    EXPECT_EQ(first->Release(), 0u);
    EXPECT_EQ(LiveObjectCount(), live + 1);
    EXPECT_EQ(CanUnloadServer(), S_FALSE);
    EXPECT_EQ(second->Release(), 0u);
    EXPECT_EQ(LiveObjectCount(), live);
    EXPECT_EQ(CanUnloadServer(), S_OK);
}

INSTANTIATE_TEST_SUITE_P(BothClasses, ClassFactoryTest,
                         testing::Values(ServerClass{"Addin", CLSID_TalvornAddin,
                                                     IID_IRibbonExtensibility, IID_IClassFactory},
                                         ServerClass{"Connector", CLSID_TDConnectorCOM,
                                                     IID_IDispatch, IID_IRibbonExtensibility}),
                         [](const testing::TestParamInfo<ServerClass>& info) {
                             return std::string(info.param.name);
                         });

TEST(ServerClassObject, AnUnknownClassOrAMissingOutParameterIsRefused) {
    void* out = kGarbage;
    EXPECT_EQ(GetServerClassObject(kUnknownClsid, IID_IClassFactory, &out),
              CLASS_E_CLASSNOTAVAILABLE);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(GetServerClassObject(CLSID_TalvornAddin, IID_IClassFactory, nullptr), E_POINTER);
}

TEST(ServerLock, LocksHoldTheServerBeyondTheFactoryThatTookThem) {
    ASSERT_EQ(CanUnloadServer(), S_OK) << "an earlier test left objects or locks behind";
    const LONG locks = ServerLockCount();
    {
        ComPtr<IClassFactory> factory;
        ASSERT_EQ(GetServerClassObject(CLSID_TalvornAddin, IID_IClassFactory, factory.put_void()),
                  S_OK);
        // Holding a factory alone does not keep the server.
        EXPECT_EQ(CanUnloadServer(), S_OK);
        EXPECT_EQ(factory->LockServer(TRUE), S_OK);
        EXPECT_EQ(factory->LockServer(TRUE), S_OK);
        EXPECT_EQ(ServerLockCount(), locks + 2);
    }
    EXPECT_EQ(CanUnloadServer(), S_FALSE);

    ComPtr<IClassFactory> other;
    ASSERT_EQ(GetServerClassObject(CLSID_TDConnectorCOM, IID_IClassFactory, other.put_void()),
              S_OK);
    EXPECT_EQ(other->LockServer(FALSE), S_OK);
    EXPECT_EQ(ServerLockCount(), locks + 1);
    EXPECT_EQ(CanUnloadServer(), S_FALSE);
    EXPECT_EQ(other->LockServer(FALSE), S_OK);
    EXPECT_EQ(ServerLockCount(), locks);
    EXPECT_EQ(CanUnloadServer(), S_OK);
}

// --- The built DLL: its exports, as COM and regsvr32 reach them, and its imports.

using DllGetClassObjectFn = HRESULT(STDAPICALLTYPE*)(REFCLSID, REFIID, void**);
using DllCanUnloadNowFn = HRESULT(STDAPICALLTYPE*)();

class AddinModuleTest : public testing::Test {
protected:
    void SetUp() override {
        m_module.reset(LoadLibraryW(BuiltAddinPath().c_str()));
        ASSERT_TRUE(m_module) << "cannot load " << ToUtf8(BuiltAddinPath()) << ", error "
                              << GetLastError();
        m_getClassObject = reinterpret_cast<DllGetClassObjectFn>(
            reinterpret_cast<void*>(GetProcAddress(m_module.get(), "DllGetClassObject")));
        m_canUnloadNow = reinterpret_cast<DllCanUnloadNowFn>(
            reinterpret_cast<void*>(GetProcAddress(m_module.get(), "DllCanUnloadNow")));
        ASSERT_NE(m_getClassObject, nullptr);
        ASSERT_NE(m_canUnloadNow, nullptr);
    }

    UniqueHModule m_module;
    DllGetClassObjectFn m_getClassObject = nullptr;
    DllCanUnloadNowFn m_canUnloadNow = nullptr;
};

TEST_F(AddinModuleTest, DllGetClassObjectHandsOutFactoriesOfTheTwoClassesOnly) {
    EXPECT_EQ(m_getClassObject(CLSID_TalvornAddin, IID_IClassFactory, nullptr), E_POINTER);

    void* out = kGarbage;
    EXPECT_EQ(m_getClassObject(kUnknownClsid, IID_IClassFactory, &out), CLASS_E_CLASSNOTAVAILABLE);
    EXPECT_EQ(out, nullptr);
    out = kGarbage;
    EXPECT_EQ(m_getClassObject(CLSID_TalvornAddin, IID_IDispatch, &out), E_NOINTERFACE);
    EXPECT_EQ(out, nullptr);

    for (const CLSID& clsid : {CLSID_TalvornAddin, CLSID_TDConnectorCOM}) {
        ComPtr<IClassFactory> factory;
        ASSERT_EQ(m_getClassObject(clsid, IID_IClassFactory, factory.put_void()), S_OK);
        ComPtr<IUnknown> object;
        EXPECT_EQ(factory->CreateInstance(nullptr, IID_IDispatch, object.put_void()), S_OK);
    }
}

TEST_F(AddinModuleTest, DllCanUnloadNowWaitsForObjectsAndLocks) {
    ASSERT_EQ(m_canUnloadNow(), S_OK);
    ComPtr<IClassFactory> factory;
    ASSERT_EQ(m_getClassObject(CLSID_TalvornAddin, IID_IClassFactory, factory.put_void()), S_OK);
    EXPECT_EQ(m_canUnloadNow(), S_OK);

    ComPtr<IDTExtensibility2> addin;
    ASSERT_EQ(factory->CreateInstance(nullptr, IID_IDTExtensibility2, addin.put_void()), S_OK);
    EXPECT_EQ(m_canUnloadNow(), S_FALSE);
    addin.reset();
    EXPECT_EQ(m_canUnloadNow(), S_OK);

    EXPECT_EQ(factory->LockServer(TRUE), S_OK);
    factory.reset();
    EXPECT_EQ(m_canUnloadNow(), S_FALSE);
    ASSERT_EQ(m_getClassObject(CLSID_TDConnectorCOM, IID_IClassFactory, factory.put_void()), S_OK);
    EXPECT_EQ(factory->LockServer(FALSE), S_OK);
    EXPECT_EQ(m_canUnloadNow(), S_OK);
}

struct MappedViewTraits {
    using Type = const void*;
    static Type Invalid() noexcept { return nullptr; }
    static void Close(Type view) noexcept { UnmapViewOfFile(view); }
};

// The add-in's module file mapped as the loader lays it out, so that relative addresses are
// offsets into the view, and without running any of it: its import and export directories.
class MappedImage {
public:
    explicit MappedImage(const std::wstring& path) {
        UniqueFileHandle file(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                                          OPEN_EXISTING, 0, nullptr));
        UniqueHandle section(
            file ? CreateFileMappingW(file.get(), nullptr, PAGE_READONLY | SEC_IMAGE, 0, 0, nullptr)
                 : nullptr);
        m_view.reset(section ? MapViewOfFile(section.get(), FILE_MAP_READ, 0, 0, 0) : nullptr);
        if (!m_view) {
            throw std::runtime_error("cannot map " + ToUtf8(path));
        }
        const auto* dos = At<IMAGE_DOS_HEADER>(0);
        m_nt = At<IMAGE_NT_HEADERS64>(static_cast<DWORD>(dos->e_lfanew));
        if (dos->e_magic != IMAGE_DOS_SIGNATURE || m_nt->Signature != IMAGE_NT_SIGNATURE ||
            m_nt->OptionalHeader.Magic != IMAGE_NT_OPTIONAL_HDR64_MAGIC) {
            throw std::runtime_error("not a 64-bit PE image");
        }
    }

    const IMAGE_DATA_DIRECTORY& Directory(int index) const {
        return m_nt->OptionalHeader.DataDirectory[index];
    }

    std::vector<std::string> ImportedModules() const {
        std::vector<std::string> names;
        const DWORD table = Directory(IMAGE_DIRECTORY_ENTRY_IMPORT).VirtualAddress;
        for (const auto* descriptor = At<IMAGE_IMPORT_DESCRIPTOR>(table);
             table != 0 && descriptor->Name != 0; ++descriptor) {
            names.emplace_back(At<char>(descriptor->Name));
        }
        return names;
    }

    std::vector<std::string> ExportedNames() const {
        std::vector<std::string> names;
        const DWORD table = Directory(IMAGE_DIRECTORY_ENTRY_EXPORT).VirtualAddress;
        if (table != 0) {
            const auto* directory = At<IMAGE_EXPORT_DIRECTORY>(table);
            const DWORD* nameAddresses = At<DWORD>(directory->AddressOfNames);
            for (DWORD i = 0; i < directory->NumberOfNames; ++i) {
                names.emplace_back(At<char>(nameAddresses[i]));
            }
        }
        return names;
    }

private:
    template <class T>
    const T* At(DWORD rva) const {
        return reinterpret_cast<const T*>(static_cast<const BYTE*>(m_view.get()) + rva);
    }

    UniqueResource<MappedViewTraits> m_view;
    const IMAGE_NT_HEADERS64* m_nt = nullptr;
};

std::string Lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

bool IsWindowsSystemModule(const std::string& name) {
    static const char* const kSystemModules[] = {
        "kernel32.dll", "user32.dll",  "advapi32.dll", "ole32.dll",   "oleaut32.dll",
        "shell32.dll",  "gdi32.dll",   "gdiplus.dll",  "mapi32.dll",  "msvcrt.dll",
        "ucrtbase.dll", "version.dll", "comctl32.dll", "shlwapi.dll",
    };
    const std::string lower = Lower(name);
    return lower.rfind("api-ms-win-crt-", 0) == 0 ||
           std::find(std::begin(kSystemModules), std::end(kSystemModules), lower) !=
               std::end(kSystemModules);
}

TEST(AddinModuleFile, ImportsOnlyWindowsSystemModules) {
    MappedImage module(BuiltAddinPath());
    std::vector<std::string> imports = module.ImportedModules();
    EXPECT_FALSE(imports.empty());
    for (const std::string& name : imports) {
        EXPECT_TRUE(IsWindowsSystemModule(name))
            << name
            << " is not a Windows system module: Office loads the add-in from a folder "
               "that holds nothing else";
    }
    // Delay-loaded modules would escape the check above.
    EXPECT_EQ(module.Directory(IMAGE_DIRECTORY_ENTRY_DELAY_IMPORT).VirtualAddress, 0u);
}

TEST(AddinModuleFile, ExportsTheFourServerEntryPointsAndNothingElse) {
    std::vector<std::string> exports = MappedImage(BuiltAddinPath()).ExportedNames();
    std::sort(exports.begin(), exports.end());
    EXPECT_EQ(exports, (std::vector<std::string>{"DllCanUnloadNow", "DllGetClassObject",
                                                 "DllRegisterServer", "DllUnregisterServer"}));
}

}  // namespace
