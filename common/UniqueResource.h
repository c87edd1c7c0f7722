// Move-only owners for the handle kinds the add-in uses. Each kind names its invalid value and its
// close function once; put() frees the old value before handing out its address, so a handle
// received through an out-parameter never leaks.
#pragma once

#include <windows.h>

#include <cstdio>
#include <utility>

template <class Traits>
class UniqueResource {
public:
    using Type = typename Traits::Type;

    UniqueResource() noexcept : m_value(Traits::Invalid()) {}
    explicit UniqueResource(Type value) noexcept : m_value(value) {}
    UniqueResource(const UniqueResource&) = delete;
    UniqueResource& operator=(const UniqueResource&) = delete;
    UniqueResource(UniqueResource&& other) noexcept : m_value(other.release()) {}
    UniqueResource& operator=(UniqueResource&& other) noexcept {
        if (this != &other) {
            reset(other.release());
        }
        return *this;
    }
    ~UniqueResource() { reset(); }

    Type get() const noexcept { return m_value; }
    bool is_valid() const noexcept { return m_value != Traits::Invalid(); }
    explicit operator bool() const noexcept { return is_valid(); }

    void reset(Type value = Traits::Invalid()) noexcept {
        Type old = std::exchange(m_value, value);
        if (old != Traits::Invalid()) {
            Traits::Close(old);
        }
    }
    Type release() noexcept { return std::exchange(m_value, Traits::Invalid()); }
    Type* put() noexcept {
        reset();
        return &m_value;
    }

private:
    Type m_value;
};

struct KernelHandleTraits {
    using Type = HANDLE;
    static Type Invalid() noexcept { return nullptr; }
    static void Close(Type h) noexcept { ::CloseHandle(h); }
};

// CreateFileW and FindFirstFileW report failure as INVALID_HANDLE_VALUE, not null.
struct FileHandleTraits {
    using Type = HANDLE;
    static Type Invalid() noexcept { return INVALID_HANDLE_VALUE; }
    static void Close(Type h) noexcept { ::CloseHandle(h); }
};

struct FindHandleTraits {
    using Type = HANDLE;
    static Type Invalid() noexcept { return INVALID_HANDLE_VALUE; }
    static void Close(Type h) noexcept { ::FindClose(h); }
};

struct RegKeyTraits {
    using Type = HKEY;
    static Type Invalid() noexcept { return nullptr; }
    static void Close(Type h) noexcept { ::RegCloseKey(h); }
};

struct StdioFileTraits {
    using Type = FILE*;
    static Type Invalid() noexcept { return nullptr; }
    static void Close(Type f) noexcept { ::fclose(f); }
};

struct ModuleTraits {
    using Type = HMODULE;
    static Type Invalid() noexcept { return nullptr; }
    static void Close(Type h) noexcept { ::FreeLibrary(h); }
};

using UniqueHandle = UniqueResource<KernelHandleTraits>;
using UniqueFileHandle = UniqueResource<FileHandleTraits>;
using UniqueFindHandle = UniqueResource<FindHandleTraits>;
using UniqueHKey = UniqueResource<RegKeyTraits>;
using UniqueStdioFile = UniqueResource<StdioFileTraits>;
using UniqueHModule = UniqueResource<ModuleTraits>;
