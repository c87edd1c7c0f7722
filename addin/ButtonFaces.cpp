#include "addin/ButtonFaces.h"

#include <olectl.h>
#include <windows.h>

#include <cstring>
#include <vector>

#include "addin/Ribbon.h"
#include "common/Automation.h"
#include "common/ComError.h"
#include "common/ComPtr.h"
#include "common/LogFile.h"
#include "common/UniqueResource.h"
#include "common/Variant.h"

namespace {

constexpr int kFaceSize = 16;

struct GlobalTraits {
    using Type = HGLOBAL;
    static Type Invalid() noexcept { return nullptr; }
    static void Close(Type h) noexcept { ::GlobalFree(h); }
};
using UniqueGlobal = UniqueResource<GlobalTraits>;

struct GdiObjectTraits {
    using Type = HGDIOBJ;
    static Type Invalid() noexcept { return nullptr; }
    static void Close(Type h) noexcept { ::DeleteObject(h); }
};
using UniqueGdiObject = UniqueResource<GdiObjectTraits>;

// The clipboard, open while the object lives.
class OpenClipboardScope {
public:
    OpenClipboardScope() noexcept : m_open(::OpenClipboard(nullptr) != FALSE) {}
    ~OpenClipboardScope() {
        if (m_open) {
            ::CloseClipboard();
        }
    }
    OpenClipboardScope(const OpenClipboardScope&) = delete;
    OpenClipboardScope& operator=(const OpenClipboardScope&) = delete;
    bool IsOpen() const noexcept { return m_open; }

private:
    bool m_open;
};

struct SavedFormat {
    UINT format;
    std::vector<char> bytes;
};

// Memory-based formats are copied; GDI handles and owner-drawn content cannot be, and the
// synthesized formats come back by themselves.
bool IsMemoryFormat(UINT format) noexcept {
    switch (format) {
    case CF_BITMAP:
    case CF_PALETTE:
    case CF_METAFILEPICT:
    case CF_ENHMETAFILE:
    case CF_OWNERDISPLAY:
    case CF_DSPBITMAP:
    case CF_DSPMETAFILEPICT:
    case CF_DSPENHMETAFILE:
        return false;
    default:
        return true;
    }
}

// The open clipboard's memory formats.
std::vector<SavedFormat> SaveClipboard() {
    std::vector<SavedFormat> saved;
    for (UINT format = ::EnumClipboardFormats(0); format; format = ::EnumClipboardFormats(format)) {
        if (!IsMemoryFormat(format)) {
            continue;
        }
        HANDLE data = ::GetClipboardData(format);
        const SIZE_T size = data ? ::GlobalSize(data) : 0;
        const void* bytes = size ? ::GlobalLock(data) : nullptr;
        if (!bytes) {
            continue;
        }
        SavedFormat copy{format, std::vector<char>(static_cast<const char*>(bytes),
                                                   static_cast<const char*>(bytes) + size)};
        ::GlobalUnlock(data);
        saved.push_back(std::move(copy));
    }
    return saved;
}

UniqueGlobal GlobalCopy(const void* bytes, size_t size) {
    UniqueGlobal memory(::GlobalAlloc(GMEM_MOVEABLE, size));
    void* target = memory ? ::GlobalLock(memory.get()) : nullptr;
    if (!target) {
        return UniqueGlobal();
    }
    std::memcpy(target, bytes, size);
    ::GlobalUnlock(memory.get());
    return memory;
}

// Puts `bytes` on the open clipboard under `format`; the clipboard owns them once it took them.
bool Offer(UINT format, const std::vector<char>& bytes) {
    UniqueGlobal memory = GlobalCopy(bytes.data(), bytes.size());
    if (!memory || !::SetClipboardData(format, memory.get())) {
        return false;
    }
    memory.release();
    return true;
}

// A packed 32-bit DIB of 16 x 16 pixels from `pixels` (top row first, BGRA).
std::vector<char> PackedDib(const std::vector<RGBQUAD>& pixels) {
    BITMAPINFOHEADER header{};
    header.biSize = sizeof header;
    header.biWidth = kFaceSize;
    header.biHeight = -kFaceSize;
    header.biPlanes = 1;
    header.biBitCount = 32;
    header.biCompression = BI_RGB;
    std::vector<char> dib(sizeof header + pixels.size() * sizeof(RGBQUAD));
    std::memcpy(dib.data(), &header, sizeof header);
    std::memcpy(dib.data() + sizeof header, pixels.data(), pixels.size() * sizeof(RGBQUAD));
    return dib;
}

// The face and the mask (white where the face is transparent) of picture `bitmap`.
HRESULT DrawFace(HBITMAP bitmap, std::vector<char>& face, std::vector<char>& mask) {
    UniqueGdiObject small(
        ::CopyImage(bitmap, IMAGE_BITMAP, kFaceSize, kFaceSize, LR_CREATEDIBSECTION));
    if (!small) {
        return HRESULT_FROM_WIN32(::GetLastError());
    }
    BITMAPINFO info{};
    info.bmiHeader.biSize = sizeof info.bmiHeader;
    info.bmiHeader.biWidth = kFaceSize;
    info.bmiHeader.biHeight = -kFaceSize;
    info.bmiHeader.biPlanes = 1;
    info.bmiHeader.biBitCount = 32;
    info.bmiHeader.biCompression = BI_RGB;
    std::vector<RGBQUAD> pixels(kFaceSize * kFaceSize);
    HDC screen = ::GetDC(nullptr);
    const int rows = ::GetDIBits(screen, static_cast<HBITMAP>(small.get()), 0, kFaceSize,
                                 pixels.data(), &info, DIB_RGB_COLORS);
    ::ReleaseDC(nullptr, screen);
    if (rows != kFaceSize) {
        return E_FAIL;
    }
    std::vector<RGBQUAD> maskPixels(pixels.size());
    for (size_t i = 0; i < pixels.size(); ++i) {
        const bool transparent = pixels[i].rgbReserved < 128;
        const BYTE shade = transparent ? 255 : 0;
        maskPixels[i] = RGBQUAD{shade, shade, shade, 0};
        pixels[i].rgbReserved = 0;
    }
    face = PackedDib(pixels);
    mask = PackedDib(maskPixels);
    return S_OK;
}

HRESULT Paste(IDispatch* button, const wchar_t* imageName) {
    Variant picture;
    HRESULT hr = LoadRibbonImage(imageName, &picture);
    if (FAILED(hr)) {
        return hr;
    }
    ComPtr<IPicture> image;
    hr = picture.vt == VT_DISPATCH && picture.pdispVal
             ? picture.pdispVal->QueryInterface(IID_IPicture, image.put_void())
             : E_UNEXPECTED;
    OLE_HANDLE handle = 0;
    if (SUCCEEDED(hr)) {
        hr = image->get_Handle(&handle);
    }
    if (FAILED(hr)) {
        return hr;
    }
    std::vector<char> face;
    std::vector<char> mask;
    hr = DrawFace(reinterpret_cast<HBITMAP>(static_cast<UINT_PTR>(handle)), face, mask);
    if (FAILED(hr)) {
        return hr;
    }

    std::vector<SavedFormat> saved;
    {
        OpenClipboardScope clipboard;
        if (!clipboard.IsOpen()) {
            return HRESULT_FROM_WIN32(::GetLastError());
        }
        saved = SaveClipboard();
        ::EmptyClipboard();
        if (!Offer(::RegisterClipboardFormatW(L"Toolbar Button Face"), face) ||
            !Offer(::RegisterClipboardFormatW(L"Toolbar Button Mask"), mask)) {
            hr = E_OUTOFMEMORY;
        }
    }
    if (SUCCEEDED(hr)) {
        hr = CallMethodNoThrow(button, L"PasteFace");
    }
    // The user's content goes back whatever came of the paste.
    OpenClipboardScope clipboard;
    if (clipboard.IsOpen()) {
        ::EmptyClipboard();
        for (const SavedFormat& format : saved) {
            Offer(format.format, format.bytes);
        }
    } else {
        LogError(L"Failed to restore the clipboard! hr = 0x%08X\n",
                 HRESULT_FROM_WIN32(::GetLastError()));
    }
    return hr;
}

}  // namespace

HRESULT PasteButtonFace(IDispatch* button, const wchar_t* imageName) noexcept {
    if (!button || !imageName) {
        return E_POINTER;
    }
    try {
        return Paste(button, imageName);
    } catch (...) {
        return HResultFromCaughtException();
    }
}
