// The class factory of one COM class T (CTalvornAddinCF, CTDConnectorCOMCF). Whoever creates a
// factory takes its first reference through QueryInterface. Factories do not keep the module
// loaded: only the objects they create and LockServer do.
#pragma once

#include <windows.h>
#include <unknwn.h>

#include "common/ComError.h"
#include "common/ComObject.h"
#include "common/ServerCounts.h"

template <class T>
class CClassFactory final : public ComObject<CClassFactory<T>, LiveCount::NotCounted,
                                             Implements<IClassFactory, IID_IClassFactory>> {
public:
    HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID riid, void** ppv) override {
        if (!ppv) {
            return E_POINTER;
        }
        *ppv = nullptr;
        if (outer) {
            return CLASS_E_NOAGGREGATION;
        }
        try {
            // The new object goes with this reference when QueryInterface refuses the interface.
            ComPtr<T> object = MakeComObject<T>();
            return object->QueryInterface(riid, ppv);
        } catch (...) {
            return HResultFromCaughtException();
        }
    }
    HRESULT STDMETHODCALLTYPE LockServer(BOOL lock) override {
        ::LockServer(lock != FALSE);
        return S_OK;
    }

private:
    ~CClassFactory() override = default;
};
