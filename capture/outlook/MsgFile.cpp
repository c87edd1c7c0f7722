#include "capture/outlook/MsgFile.h"

#include <windows.h>
#include <imessage.h>
#include <mapiutil.h>
#include <mapix.h>

#include <ctime>

#include "capture/outlook/MapiOwners.h"
#include "common/Automation.h"
#include "common/BoundedFormat.h"
#include "common/ComPtr.h"
#include "common/LogFile.h"
#include "common/Variant.h"
#include "handoff/StagingArea.h"

namespace {

constexpr CLSID kClsidMailMessage = {0x00020D0B, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
constexpr DWORD kNameRetryWait = 50;

bool IsFile(const wchar_t* path) {
    const DWORD attributes = GetFileAttributesW(path);
    // INVALID_FILE_ATTRIBUTES has the top bit set.
    return (attributes & (FILE_ATTRIBUTE_DIRECTORY | 0x80000000)) == 0;
}

// Steps 3 to 9 of writing a message file: the storage, the message session, the message on the
// storage, the copy. The owners are declared so that they go in the order storage, message,
// session.
HRESULT WriteMessageFile(IMessage* source, const wchar_t* path) {
    UniqueMsgSession session;
    ComPtr<IMessage> message;
    ComPtr<IStorage> storage;

    // Not counted: the default allocator belongs to MAPI32 for the life of the process.
    IMalloc* allocator = MAPIGetDefaultMalloc();
    HRESULT hr =
        StgCreateDocfile(path, STGM_TRANSACTED | STGM_CREATE | STGM_READWRITE, 0, storage.put());
    if (FAILED(hr)) {
        LogError(L"Failed to create compound file! hr = 0x%08X\n", hr);
        return hr;
    }
    hr = OpenIMsgSession(allocator, 0, session.put());
    if (FAILED(hr)) {
        LogError(L"Failed to open an IMessage session!\n");
        return hr;
    }
    hr = OpenIMsgOnIStg(session.get(), MAPIAllocateBuffer, MAPIAllocateMore, MAPIFreeBuffer,
                        allocator, nullptr /* support object */, storage.get(),
                        nullptr /* release callback */, 0, 0, message.put());
    if (FAILED(hr)) {
        LogError(L"Failed to open an IMessage interface on an IStorage object! hr = 0x%08X\n", hr);
        return hr;
    }
    hr = WriteClassStg(storage.get(), kClsidMailMessage);
    if (FAILED(hr)) {
        LogError(L"Failed to write the CLSID_MailMessage to the IStorage instance! hr = 0x%08X\n",
                 hr);
        return hr;
    }
    hr = source->CopyTo(0, nullptr, nullptr, 0, nullptr, &kIidMessage, message.get(), 0, nullptr);
    if (FAILED(hr)) {
        LogError(L"Failed to copy message properties! hr = 0x%08X\n", hr);
        return hr;
    }
    hr = message->SaveChanges(KEEP_OPEN_READWRITE);
    if (FAILED(hr)) {
        LogError(L"Failed to save changes to IMessage object! hr = 0x%08X\n", hr);
        return hr;
    }
    hr = storage->Commit(STGC_DEFAULT);
    if (FAILED(hr)) {
        LogError(L"Failed to save changes in storage! hr = 0x%08X\n", hr);
    }
    return hr;
}

void MarkFolderOfFileFreeToDelete(const wchar_t* path) {
    std::wstring folder(path);
    const size_t slash = folder.rfind(L'\\');
    if (slash != std::wstring::npos) {
        folder.resize(slash);
        MarkFreeToDelete(folder.c_str());
    }
}

}  // namespace

MsgNameClock SystemClock() {
    return {[] { return static_cast<uint32_t>(_time64(nullptr)); },
            [](DWORD milliseconds) { Sleep(milliseconds); }};
}

bool MakeMsgFileNameIn(const wchar_t* folder, int32_t itemNumber, const MsgNameClock& clock,
                       wchar_t* buffer, size_t capacity) {
    wchar_t number[32];
    _itow_s(itemNumber, number, 32, 10);
    wchar_t path[MAX_PATH];
    if (!FormatBounded(path, MAX_PATH, L"%sdorvane_%s_%08X.msg", folder, number, clock.now())) {
        return false;
    }
    while (IsFile(path)) {
        clock.sleep(kNameRetryWait);
        if (!FormatBounded(path, MAX_PATH, L"%sdorvane_%s_%08X.msg", folder, number, clock.now())) {
            return false;
        }
    }
    LogInfo(L"MSG file name %s\n", path);
    return CopyBounded(buffer, capacity, path);
}

bool MakeMsgFileName(wchar_t* buffer, size_t capacity, int32_t itemNumber) {
    wchar_t folder[MAX_PATH];
    if (!CreateStagingFolder(folder, MAX_PATH)) {
        LogError(L"Failed to get path of temp directory\n");
        return false;
    }
    return MakeMsgFileNameIn(folder, itemNumber, SystemClock(), buffer, capacity);
}

HRESULT SaveToMSG(IMessage* source, PathBuffer& path, int32_t itemNumber) {
    LogInfo(L"Entering SaveToMSG\n");
    wchar_t file[MAX_PATH];
    if (!MakeMsgFileName(file, MAX_PATH, itemNumber)) {
        // "oder" is how this line has always read; log searches rely on it.
        LogError(L"Failed to get path of temp directory oder tempfilename\n");
        return kNoMsgFileName;
    }
    const HRESULT hr = source ? WriteMessageFile(source, file) : E_POINTER;
    if (FAILED(hr)) {
        MarkFolderOfFileFreeToDelete(file);
    } else {
        CopyBounded(path.data(), path.size(), file);
    }
    LogInfo(L"Leave SaveToMSG\n");
    return hr;
}

HRESULT SaveToMSG_SMIME(IDispatch* mailItem, PathBuffer& path, int32_t itemNumber) {
    LogInfo(L"Entering SaveToMSG_SMIME\n");
    wchar_t file[MAX_PATH];
    if (!MakeMsgFileName(file, MAX_PATH, itemNumber)) {
        LogError(L"Failed to get path of temp directory oder tempfilename\n");
        return kNoMsgFileName;
    }
    Variant target(file);
    // Omitted, so that Outlook writes its default format.
    Variant type;
    type.vt = VT_ERROR;
    type.scode = DISP_E_PARAMNOTFOUND;
    if (FAILED(CallMethodNoThrow(mailItem, L"SaveAs", {&target, &type}))) {
        // The status shown is 0, not the failure's: deliberate, log readers know it this way.
        LogError(L"Failed to saveas smime mailitem! hr = 0x%08X\n", 0);
    }
    CopyBounded(path.data(), path.size(), file);
    LogInfo(L"Leave SaveToMSG_SMIME\n");
    return S_OK;
}
