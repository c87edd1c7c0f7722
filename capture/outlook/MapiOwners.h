// Owners for what Extended MAPI hands out: buffers (freed with MAPIFreeBuffer, which also frees
// every buffer allocated "more" on them), row sets (each row's values, then the set) and message
// sessions (CloseIMsgSession). MAPI's objects themselves (messages, tables, sessions, address
// books, storages) are COM objects and live in ComPtr.
#pragma once

#include <windows.h>
#include <imessage.h>
#include <mapidefs.h>
#include <mapix.h>

#include <utility>

#include "common/UniqueResource.h"

// IID_IMessage, which the MAPI headers declare without a definition this module could link.
inline constexpr IID kIidMessage = {0x00020307, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};

// One MAPI buffer, seen as a T.
template <class T>
class MapiBuffer {
public:
    MapiBuffer() noexcept = default;
    MapiBuffer(const MapiBuffer&) = delete;
    MapiBuffer& operator=(const MapiBuffer&) = delete;
    ~MapiBuffer() { reset(); }

    T* get() const noexcept { return m_p; }
    T* operator->() const noexcept { return m_p; }
    explicit operator bool() const noexcept { return m_p != nullptr; }

    void reset() noexcept {
        if (T* old = std::exchange(m_p, nullptr)) {
            MAPIFreeBuffer(old);
        }
    }
    T** put() noexcept {
        reset();
        return &m_p;
    }
    void** put_void() noexcept { return reinterpret_cast<void**>(put()); }

private:
    T* m_p = nullptr;
};

// The rows QueryRows hands out: every row's value array is a buffer of its own.
class RowSet {
public:
    RowSet() noexcept = default;
    RowSet(const RowSet&) = delete;
    RowSet& operator=(const RowSet&) = delete;
    ~RowSet() { reset(); }

    SRowSet* get() const noexcept { return m_rows; }
    SRowSet* operator->() const noexcept { return m_rows; }

    void reset() noexcept {
        if (SRowSet* old = std::exchange(m_rows, nullptr)) {
            for (ULONG i = 0; i < old->cRows; ++i) {
                MAPIFreeBuffer(old->aRow[i].lpProps);
            }
            MAPIFreeBuffer(old);
        }
    }
    SRowSet** put() noexcept {
        reset();
        return &m_rows;
    }

private:
    SRowSet* m_rows = nullptr;
};

struct MsgSessionTraits {
    using Type = LPMSGSESS;
    static Type Invalid() noexcept { return nullptr; }
    static void Close(Type session) noexcept { ::CloseIMsgSession(session); }
};
using UniqueMsgSession = UniqueResource<MsgSessionTraits>;
