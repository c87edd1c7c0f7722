// MAPI's memory functions and small utilities: buffers from MAPIAllocateBuffer own the buffers
// linked to them with MAPIAllocateMore and free them with themselves; HexFromBin; the default
// IMalloc; OpenStreamOnFile.
#include <windows.h>
#include <objidl.h>
#include <shlwapi.h>

#include <mapicode.h>
#include <mapidefs.h>
#include <mapix.h>

#include <atomic>
#include <unordered_set>

#include "common/ComObject.h"
#include "tools/mapisim/MapiSim.h"
#include "tools/mapisim/SimModel.h"

namespace {

// Every buffer starts with this header; a buffer from MAPIAllocateBuffer heads the list of its
// linked buffers. The size keeps the caller's memory 16-byte aligned, as HeapAlloc's is.
struct alignas(16) BlockHeader {
    BlockHeader* root;  // null for a buffer from MAPIAllocateBuffer
    BlockHeader* nextLinked;
};
static_assert(sizeof(BlockHeader) % 16 == 0);

// The live buffers, as the caller sees them: a pointer that is not here is never dereferenced,
// so a buffer freed twice or a pointer from elsewhere is reported, not a crash.
SRWLOCK g_blocks = SRWLOCK_INIT;
std::unordered_set<void*>* g_live = new std::unordered_set<void*>;  // outlives every caller
ULONG g_badFrees = 0;

BlockHeader* HeaderOf(void* p) {
    return reinterpret_cast<BlockHeader*>(static_cast<BYTE*>(p) - sizeof(BlockHeader));
}

void* NewBlock(ULONG size, BlockHeader* root) {
    void* raw = HeapAlloc(GetProcessHeap(), 0, sizeof(BlockHeader) + size);
    if (!raw) {
        return nullptr;
    }
    auto* header = static_cast<BlockHeader*>(raw);
    header->root = root;
    header->nextLinked = nullptr;
    try {
        g_live->insert(header + 1);
    } catch (...) {
        HeapFree(GetProcessHeap(), 0, raw);
        return nullptr;
    }
    if (root) {
        header->nextLinked = root->nextLinked;
        root->nextLinked = header;
    }
    return header + 1;
}

void DeleteBlock(BlockHeader* header) {
    g_live->erase(header + 1);
    HeapFree(GetProcessHeap(), 0, header);
}

// The allocator MAPIGetDefaultMalloc hands out: the process heap, for the life of the module. It
// is one static object that counts no references: AddRef and Release answer 1 and no Release
// ends it.
class DefaultMalloc final
    : public ComObject<DefaultMalloc, LiveCount::NotCounted, Implements<IMalloc, IID_IMalloc>> {
public:
    ULONG STDMETHODCALLTYPE AddRef() noexcept override { return 1; }
    ULONG STDMETHODCALLTYPE Release() noexcept override { return 1; }
    void* STDMETHODCALLTYPE Alloc(SIZE_T cb) override { return HeapAlloc(GetProcessHeap(), 0, cb); }
    void* STDMETHODCALLTYPE Realloc(void* pv, SIZE_T cb) override {
        if (!pv) {
            return Alloc(cb);
        }
        if (cb == 0) {
            Free(pv);
            return nullptr;
        }
        return HeapReAlloc(GetProcessHeap(), 0, pv, cb);
    }
    void STDMETHODCALLTYPE Free(void* pv) override {
        if (pv) {
            HeapFree(GetProcessHeap(), 0, pv);
        }
    }
    SIZE_T STDMETHODCALLTYPE GetSize(void* pv) override {
        return pv ? HeapSize(GetProcessHeap(), 0, pv) : static_cast<SIZE_T>(-1);
    }
    int STDMETHODCALLTYPE DidAlloc(void* pv) override { return pv ? -1 : 0; }
    void STDMETHODCALLTYPE HeapMinimize() override {}
};

DefaultMalloc g_defaultMalloc;

MapiSimCallHook g_callHook = nullptr;
thread_local int t_callDepth = 0;

}  // namespace

mapisim::SimCall::SimCall(const wchar_t* name) noexcept {
    if (t_callDepth++ == 0 && g_callHook) {
        m_status = g_callHook(name);
    }
}

mapisim::SimCall::~SimCall() { --t_callDepth; }

extern "C" {

void STDAPICALLTYPE MapiSimSetCallHook(MapiSimCallHook hook) { g_callHook = hook; }

SCODE STDAPICALLTYPE MAPIAllocateBuffer(ULONG cbSize, LPVOID* lppBuffer) {
    MAPISIM_CALL(L"MAPIAllocateBuffer")
    if (!lppBuffer) {
        return MAPI_E_INVALID_PARAMETER;
    }
    mapisim::ExclusiveLock lock(g_blocks);
    *lppBuffer = NewBlock(cbSize, nullptr);
    return *lppBuffer ? S_OK : MAPI_E_NOT_ENOUGH_MEMORY;
}

SCODE STDAPICALLTYPE MAPIAllocateMore(ULONG cbSize, LPVOID lpObject, LPVOID* lppBuffer) {
    MAPISIM_CALL(L"MAPIAllocateMore")
    if (!lppBuffer) {
        return MAPI_E_INVALID_PARAMETER;
    }
    *lppBuffer = nullptr;
    if (!lpObject) {
        return MAPI_E_INVALID_PARAMETER;
    }
    mapisim::ExclusiveLock lock(g_blocks);
    if (!g_live->count(lpObject)) {
        return MAPI_E_INVALID_PARAMETER;
    }
    BlockHeader* parent = HeaderOf(lpObject);
    // A buffer linked to a linked buffer belongs to the same first buffer.
    *lppBuffer = NewBlock(cbSize, parent->root ? parent->root : parent);
    return *lppBuffer ? S_OK : MAPI_E_NOT_ENOUGH_MEMORY;
}

// Freeing a linked buffer on its own does nothing (it lives as long as the buffer it hangs on)
// and, like freeing what is not a live buffer, counts as a bad free.
ULONG STDAPICALLTYPE MAPIFreeBuffer(LPVOID lpBuffer) {
    if (!lpBuffer) {
        return S_OK;
    }
    mapisim::ExclusiveLock lock(g_blocks);
    if (!g_live->count(lpBuffer)) {
        ++g_badFrees;
        return static_cast<ULONG>(MAPI_E_INVALID_PARAMETER);
    }
    BlockHeader* header = HeaderOf(lpBuffer);
    if (header->root) {
        ++g_badFrees;
        return S_OK;
    }
    for (BlockHeader* linked = header->nextLinked; linked;) {
        BlockHeader* next = linked->nextLinked;
        DeleteBlock(linked);
        linked = next;
    }
    DeleteBlock(header);
    return S_OK;
}

// Narrow text, as the real module's: two upper-case hexadecimal digits per byte and a zero.
void STDAPICALLTYPE HexFromBin(LPBYTE lpb, int cb, LPSTR lpsz) {
    static const char kDigits[] = "0123456789ABCDEF";
    if (!lpsz) {
        return;
    }
    for (int i = 0; lpb && i < cb; ++i) {
        *lpsz++ = kDigits[lpb[i] >> 4];
        *lpsz++ = kDigits[lpb[i] & 0x0F];
    }
    *lpsz = '\0';
}

LPMALLOC STDAPICALLTYPE MAPIGetDefaultMalloc() { return &g_defaultMalloc; }

// A stream on a file. SOF_UNIQUEFILENAME makes a new file with a unique name in the folder
// `lpszFileName`, named with `lpszPrefix`. The real module's deletion of such a file when the
// stream is released is not modelled.
HRESULT STDAPICALLTYPE OpenStreamOnFile(LPALLOCATEBUFFER, LPFREEBUFFER, ULONG ulFlags,
                                        LPSTR lpszFileName, LPSTR lpszPrefix, LPSTREAM* lppStream) {
    constexpr ULONG kUniqueFileName = 0x80000000;
    if (!lppStream || !lpszFileName) {
        return MAPI_E_INVALID_PARAMETER;
    }
    *lppStream = nullptr;
    char path[MAX_PATH];
    DWORD mode = ulFlags & ~kUniqueFileName;
    if (ulFlags & kUniqueFileName) {
        if (!GetTempFileNameA(lpszFileName, lpszPrefix ? lpszPrefix : "SOF", 0, path)) {
            return HRESULT_FROM_WIN32(GetLastError());
        }
        mode |= STGM_CREATE | STGM_READWRITE;
    } else {
        lstrcpynA(path, lpszFileName, MAX_PATH);
    }
    return SHCreateStreamOnFileA(path, mode, lppStream);
}

ULONG STDAPICALLTYPE MapiSimLiveBuffers() {
    mapisim::ExclusiveLock lock(g_blocks);
    return static_cast<ULONG>(g_live->size());
}

ULONG STDAPICALLTYPE MapiSimBadFrees() {
    mapisim::ExclusiveLock lock(g_blocks);
    return g_badFrees;
}

ULONG STDAPICALLTYPE MapiSimLiveObjects() { return mapisim::g_liveObjects; }

}  // extern "C"
