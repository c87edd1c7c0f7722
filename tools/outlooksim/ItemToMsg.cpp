// Writes an item text file as an Outlook message file, the way the simulated Outlook's SaveAs
// does: itemtomsg.exe <item file> <message file>. Needs the simulated mapi32.dll beside it.
#include <windows.h>

#include <cstdio>
#include <stdexcept>

#include "common/Variant.h"
#include "outlooksim/FakeOutlook.h"
#include "outlooksim/ItemText.h"

namespace {

HRESULT SaveAs(IDispatch& item, const wchar_t* path) {
    DISPID id = DISPID_UNKNOWN;
    LPOLESTR name = const_cast<LPOLESTR>(L"SaveAs");
    HRESULT hr = item.GetIDsOfNames(IID_NULL, &name, 1, LOCALE_USER_DEFAULT, &id);
    if (FAILED(hr)) {
        return hr;
    }
    Variant argument(path);
    DISPPARAMS params{&argument, nullptr, 1, 0};
    return item.Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_METHOD, &params, nullptr,
                       nullptr, nullptr);
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: itemtomsg.exe <item file> <message file>\n");
        return 2;
    }
    if (FAILED(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED))) {
        return 1;
    }
    HRESULT hr = E_FAIL;
    try {
        FakeOutlook outlook;
        hr = SaveAs(outlook.SelectItemText(outlooksim::ReadItemTextFile(argv[1])), argv[2]);
        if (FAILED(hr)) {
            std::fprintf(stderr, "itemtomsg: SaveAs failed: 0x%08lX\n",
                         static_cast<unsigned long>(hr));
        }
    } catch (const std::exception& error) {
        std::fprintf(stderr, "itemtomsg: %s\n", error.what());
    }
    CoUninitialize();
    return SUCCEEDED(hr) ? 0 : 1;
}
