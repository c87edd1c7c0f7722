#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "addin/OfficeInterfaces.h"
#include "addin/Ribbon.h"
#include "addin/TalvornAddin.h"
#include "common/ComPtr.h"
#include "server/ComServer.h"
#include "support/RegistrySandbox.h"

// An add-in object as a host gets it, from the class factory through its first face, with the
// machine-wide settings it needs to start.
class AddinTest : public testing::Test {
protected:
    AddinTest() { m_registry.SetMachineNumber(L"MultiProcess", 0); }

    static ComPtr<IDTExtensibility2> NewAddin() {
        ComPtr<IClassFactory> factory;
        ComPtr<IDTExtensibility2> addin;
        EXPECT_EQ(GetServerClassObject(CLSID_TalvornAddin, IID_IClassFactory, factory.put_void()),
                  S_OK);
        if (factory) {
            EXPECT_EQ(factory->CreateInstance(nullptr, IID_IDTExtensibility2, addin.put_void()),
                      S_OK);
        }
        return addin;
    }

    CTalvornAddin& Addin() { return *static_cast<CTalvornAddin*>(m_addin.get()); }

    // Calls back like a host: arguments in their natural order, handed over last to first.
    static HRESULT Callback(IDispatch* addin, DISPID id, std::vector<VARIANT> args = {},
                            VARIANT* result = nullptr) {
        std::reverse(args.begin(), args.end());
        DISPPARAMS params{args.data(), nullptr, static_cast<UINT>(args.size()), 0};
        return addin->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_METHOD, &params, result,
                             nullptr, nullptr);
    }
    HRESULT Callback(DISPID id, std::vector<VARIANT> args = {}, VARIANT* result = nullptr) {
        return Callback(m_addin.get(), id, std::move(args), result);
    }

    RegistrySandbox m_registry;
    ComPtr<IDTExtensibility2> m_addin = NewAddin();
};
