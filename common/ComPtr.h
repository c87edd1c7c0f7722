// Owner of one COM interface pointer. Copying AddRefs, moving does not; the destructor releases.
// put() releases the old pointer before handing out its address for an out-parameter.
#pragma once

#include <unknwn.h>

#include <utility>

template <class T>
class ComPtr {
public:
    ComPtr() noexcept = default;
    ComPtr(std::nullptr_t) noexcept {}
    // Shares the pointer: AddRefs it. Use Attach() to adopt a reference already owned.
    explicit ComPtr(T* p) noexcept : m_p(p) {
        if (m_p) {
            m_p->AddRef();
        }
    }
    ComPtr(const ComPtr& other) noexcept : ComPtr(other.m_p) {}
    ComPtr(ComPtr&& other) noexcept : m_p(std::exchange(other.m_p, nullptr)) {}
    ComPtr& operator=(const ComPtr& other) noexcept {
        ComPtr(other).swap(*this);
        return *this;
    }
    ComPtr& operator=(ComPtr&& other) noexcept {
        ComPtr(std::move(other)).swap(*this);
        return *this;
    }
    ~ComPtr() { reset(); }

    T* get() const noexcept { return m_p; }
    T* operator->() const noexcept { return m_p; }
    explicit operator bool() const noexcept { return m_p != nullptr; }

    void reset() noexcept {
        if (T* old = std::exchange(m_p, nullptr)) {
            old->Release();
        }
    }
    void Attach(T* p) noexcept {
        reset();
        m_p = p;
    }
    T* Detach() noexcept { return std::exchange(m_p, nullptr); }
    T** put() noexcept {
        reset();
        return &m_p;
    }
    void** put_void() noexcept { return reinterpret_cast<void**>(put()); }
    void swap(ComPtr& other) noexcept { std::swap(m_p, other.m_p); }

    // Hands out an AddRef'd copy through an out-parameter.
    HRESULT copy_to(T** out) const noexcept {
        if (!out) {
            return E_POINTER;
        }
        *out = m_p;
        if (m_p) {
            m_p->AddRef();
        }
        return S_OK;
    }

    template <class U>
    HRESULT query_to(U** out) const noexcept {
        return query_to(__uuidof(U), out);
    }
    // For interfaces whose headers declare no UUID to go with them (the MAPI interfaces): the
    // caller names the IID, and vouches that it is U's.
    template <class U>
    HRESULT query_to(REFIID iid, U** out) const noexcept {
        if (!out) {
            return E_POINTER;
        }
        *out = nullptr;
        if (!m_p) {
            return E_POINTER;
        }
        return m_p->QueryInterface(iid, reinterpret_cast<void**>(out));
    }

private:
    T* m_p = nullptr;
};
