// The base of every COM object of the module. A class names the interfaces it implements, each
// with the interface ids that interface pointer answers, and writes only its own methods:
//
//     class CTalvornAddin final
//         : public ComObject<CTalvornAddin, LiveCount::Counted,
//                            Implements<IDTExtensibility2, IID_IDTExtensibility2, IID_IDispatch>,
//                            Implements<IRibbonExtensibility, IID_IRibbonExtensibility>> {...};
//
// QueryInterface walks that table in order, as the shell's QISearch walks its QITAB: IUnknown
// answers with the first face, the object's identity, so that two faces deriving from IDispatch
// share one IUnknown. The reference count is a plain integer: every object lives in the host's
// single-threaded apartment. Objects of the server's own classes count as live for
// DllCanUnloadNow from construction to destruction; class factories, event sinks and fakes do not.
// IDispatch objects get GetTypeInfoCount and GetTypeInfo for an object without type information.
#pragma once

#include <oaidl.h>

#include <type_traits>
#include <utility>

#include "common/ComPtr.h"
#include "common/ServerCounts.h"

// One face of an object: the interface and the ids QueryInterface answers with it.
template <class Interface, const IID&... iids>
struct Implements {
    using Type = Interface;
    static bool Answers(REFIID riid) noexcept { return ((riid == iids) || ...); }
};

enum class LiveCount { Counted, NotCounted };

namespace com_object_detail {

template <class... Interfaces>
class Faces : public Interfaces... {};

template <class... Interfaces>
class FacesWithoutTypeInfo : public Interfaces... {
public:
    HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* count) noexcept override {
        if (!count) {
            return E_POINTER;
        }
        *count = 0;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT, LCID, ITypeInfo** info) noexcept override {
        if (!info) {
            return E_POINTER;
        }
        *info = nullptr;
        return E_FAIL;
    }
};

template <class... Interfaces>
using FacesOf = std::conditional_t<(std::is_base_of_v<IDispatch, Interfaces> || ...),
                                   FacesWithoutTypeInfo<Interfaces...>, Faces<Interfaces...>>;

}  // namespace com_object_detail

// `Identity` is the face IUnknown answers with; `Others` are the object's further faces.
template <class Derived, LiveCount liveCount, class Identity, class... Others>
class ComObject
    : public com_object_detail::FacesOf<typename Identity::Type, typename Others::Type...> {
public:
    ComObject(const ComObject&) = delete;
    ComObject& operator=(const ComObject&) = delete;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) noexcept override {
        if (!ppv) {
            return E_POINTER;
        }
        *ppv = nullptr;
        IUnknown* face = FaceFor(riid);
        if (!face) {
            return E_NOINTERFACE;
        }
        face->AddRef();
        *ppv = face;
        return S_OK;
    }
    ULONG STDMETHODCALLTYPE AddRef() noexcept override { return ++m_refCount; }
    ULONG STDMETHODCALLTYPE Release() noexcept override {
        const ULONG count = --m_refCount;
        if (count == 0) {
            static_cast<Derived*>(this)->FinalRelease();
        }
        return count;
    }

protected:
    ComObject() noexcept {
        if constexpr (liveCount == LiveCount::Counted) {
            ObjectCreated();
        }
    }
    virtual ~ComObject() {
        if constexpr (liveCount == LiveCount::Counted) {
            ObjectDestroyed();
        }
    }

    // What the final Release does. A class may hide it with its own (a fake keeps its memory to
    // report calls that come after it).
    void FinalRelease() noexcept { delete this; }
    ULONG RefCount() const noexcept { return m_refCount; }

private:
    IUnknown* FaceFor(REFIID riid) noexcept {
        if (riid == IID_IUnknown) {
            return static_cast<typename Identity::Type*>(this);
        }
        IUnknown* face = nullptr;
        // The first face that lists the id answers; the fold stops there.
        (void)(Answer<Identity>(riid, face) || ... || Answer<Others>(riid, face));
        return face;
    }
    template <class Face>
    bool Answer(REFIID riid, IUnknown*& face) noexcept {
        if (!Face::Answers(riid)) {
            return false;
        }
        face = static_cast<typename Face::Type*>(this);
        return true;
    }

    // Starts at 0: the creator's first reference is the first AddRef.
    ULONG m_refCount = 0;
};

// Creates an object of a class built on ComObject and hands out its first reference. Throws
// std::bad_alloc, or what the constructor throws.
template <class T, class... Args>
ComPtr<T> MakeComObject(Args&&... args) {
    return ComPtr<T>(new T(std::forward<Args>(args)...));
}
