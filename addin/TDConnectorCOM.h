// The connector automation object ("Talvorn.DorvaneConnectorDX2COM"), through which the connector
// side hands files to the hand-off writer, opens the settings and info dialogs and deletes
// archived mail. Any automation client in any process may create it; its methods are known by name
// only (no type library):
//   Run(files) -> Boolean                  one path, or an array of paths
//   DisplaySettings() -> Boolean           True when the user changed and saved the settings
//   DisplayInfo()
//   DeleteMail(names, values) -> Boolean   two arrays of equal length, or
//   DeleteMail(name, value[, name, value...])
// Wrong arguments answer DISP_E_BADPARAMCOUNT, DISP_E_TYPEMISMATCH or DISP_E_PARAMNOTOPTIONAL with
// puArgErr; refusals answer DISP_E_EXCEPTION with an English description in EXCEPINFO.
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
