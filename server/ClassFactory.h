// The class factory of one COM class T (CTalvornAddinCF, CTDConnectorCOMCF). A new factory starts
// with a reference count of 0; whoever creates it takes the first reference through
// QueryInterface. Reference counts are plain integers: the server lives in the host's
// single-threaded apartment.
#pragma once

#include <windows.h>
#include <unknwn.h>

#include <memory>
#include <new>

#include "common/ComError.h"
#include "common/ServerCounts.h"

template <class T>
class CClassFactory final : public IClassFactory {
public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
        if (!ppv) {
            return E_POINTER;
        }
        if (riid != IID_IUnknown && riid != IID_IClassFactory) {
            *ppv = nullptr;
            return E_NOINTERFACE;
        }
        *ppv = static_cast<IClassFactory*>(this);
        AddRef();
        return S_OK;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++m_refCount; }
    ULONG STDMETHODCALLTYPE Release() override {
        ULONG count = --m_refCount;
        if (count == 0) {
            delete this;
        }
        return count;
    }

    HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID riid, void** ppv) override {
        if (!ppv) {
            return E_POINTER;
        }
        *ppv = nullptr;
        if (outer) {
            return CLASS_E_NOAGGREGATION;
        }
        try {
            // Held here until its own QueryInterface has taken the first reference; a failed
            // QueryInterface destroys it without touching the live-object count.
            std::unique_ptr<T> object(new (std::nothrow) T());
            if (!object) {
                return E_OUTOFMEMORY;
            }
            HRESULT hr = object->QueryInterface(riid, ppv);
            if (FAILED(hr)) {
                *ppv = nullptr;
                return hr;
            }
            object.release();
            ObjectCreated();
            return hr;
        } catch (...) {
            *ppv = nullptr;
            return HResultFromCaughtException();
        }
    }
    HRESULT STDMETHODCALLTYPE LockServer(BOOL lock) override {
        ::LockServer(lock != FALSE);
        return S_OK;
    }

private:
    ULONG m_refCount = 0;
};
