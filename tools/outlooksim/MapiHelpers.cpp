#include "outlooksim/MapiHelpers.h"

namespace outlooksim {

const IID kIidMessage = {0x00020307, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
const CLSID kClsidMailMessage = {0x00020D0B, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};

MsgSession OpenMsgSession() {
    LPMSGSESS session = nullptr;
    if (FAILED(OpenIMsgSession(MAPIGetDefaultMalloc(), 0, &session))) {
        return nullptr;
    }
    return MsgSession(session);
}

std::string Narrow(const std::wstring& text, UINT codePage) {
    const int size = static_cast<int>(text.size());
    const int bytes =
        WideCharToMultiByte(codePage, 0, text.c_str(), size, nullptr, 0, nullptr, nullptr);
    std::string narrow(static_cast<size_t>(bytes > 0 ? bytes : 0), '\0');
    WideCharToMultiByte(codePage, 0, text.c_str(), size, narrow.data(), bytes, nullptr, nullptr);
    return narrow;
}

std::wstring Wide(const std::string& text, UINT codePage) {
    const int size = static_cast<int>(text.size());
    const int chars = MultiByteToWideChar(codePage, 0, text.c_str(), size, nullptr, 0);
    std::wstring wide(static_cast<size_t>(chars > 0 ? chars : 0), L'\0');
    MultiByteToWideChar(codePage, 0, text.c_str(), size, wide.data(), chars);
    return wide;
}

std::wstring HexText(const BYTE* bytes, size_t count) {
    static const wchar_t digits[] = L"0123456789ABCDEF";
    std::wstring text;
    for (size_t i = 0; i < count; ++i) {
        text += digits[bytes[i] >> 4];
        text += digits[bytes[i] & 0x0F];
    }
    return text;
}

}  // namespace outlooksim
