// The connector automation object ("Talvorn.DorvaneConnectorDX2COM"), through which the connector
// side hands files to the hand-off writer, opens the settings and info dialogs and deletes
// archived mail. Its methods "Run", "DisplaySettings", "DisplayInfo" and "DeleteMail" are known
// by name; this build does not carry them out yet and answers E_NOTIMPL.
#pragma once

#include <oaidl.h>

#include "common/ComObject.h"

// {6BD2E17D-9699-4A1A-B817-5D42E0FF39E5}
inline constexpr CLSID CLSID_TDConnectorCOM = {
    0x6BD2E17D, 0x9699, 0x4A1A, {0xB8, 0x17, 0x5D, 0x42, 0xE0, 0xFF, 0x39, 0xE5}};

class CTDConnectorCOM final
    : public ComObject<CTDConnectorCOM, LiveCount::Counted, Implements<IDispatch, IID_IDispatch>> {
public:
    CTDConnectorCOM() = default;

    HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID riid, LPOLESTR* names, UINT count, LCID lcid,
                                            DISPID* ids) override;
    HRESULT STDMETHODCALLTYPE Invoke(DISPID id, REFIID riid, LCID lcid, WORD flags,
                                     DISPPARAMS* params, VARIANT* result, EXCEPINFO* excep,
                                     UINT* argError) override;

private:
    ~CTDConnectorCOM() override = default;
};
