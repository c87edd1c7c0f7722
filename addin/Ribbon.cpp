#include "addin/Ribbon.h"

#include <windows.h>
#include <gdiplus.h>
#include <olectl.h>

#include <cwchar>

#include "common/BoundedFormat.h"
#include "common/ComPtr.h"
#include "common/Messages.h"
#include "common/Registry.h"
#include "resources/resource.h"
#include "settings/TDCSettings.h"

namespace {

constexpr const wchar_t* kCallbackNames[] = {
    L"TalvornAddin.Archive",
    L"TalvornAddin.Settings",
    L"TalvornAddin.Info",
    L"TalvornAddin.GetImage",
    L"TalvornAddin.Attachment",
    L"TalvornAddin.ArchiveSingleOutlook",
    L"TalvornAddin.AttachmentSingleOutlook",
};

constexpr wchar_t kOutlookExplorer[] = L"Microsoft.Outlook.Explorer";
constexpr wchar_t kOutlookMailRead[] = L"Microsoft.Outlook.Mail.Read";
constexpr const wchar_t* kServedRibbons[] = {
    kOutlookExplorer,
    kOutlookMailRead,
    L"Microsoft.Word.Document",
    L"Microsoft.PowerPoint.Presentation",
    L"Microsoft.Excel.Workbook",
};

constexpr int kLabelCapacity = 32;
constexpr int kLongTextCapacity = 1024;

constexpr wchar_t kHead[] =
    L"<customUI xmlns=\"http://schemas.microsoft.com/office/2006/01/customui\" "
    L"loadImage=\"TalvornAddin.GetImage\"> <ribbon>   <tabs>    <tab id=\"talvornTab\"         "
    L"label=\"";
constexpr wchar_t kBetweenLabels[] = L"\">     <group id=\"talvornGroup\"            label=\"";
constexpr wchar_t kAfterGroupLabel[] = L"\">";
constexpr wchar_t kWideButtonOpening[] = L"      <button id=\"";
constexpr wchar_t kTabButtonOpening[] = L"\t\t<button id=\"";
constexpr wchar_t kAfterLabel[] = L"\"               supertip=\"";
constexpr wchar_t kAfterSupertip[] = L"\"               onAction=\"";
constexpr wchar_t kAfterSupertipInfo[] = L"\"\t\t\t\t onAction=\"";
constexpr wchar_t kAfterAction[] = L"\"/>";
constexpr wchar_t kSeparator[] = L"\t\t<separator id=\"separator1\"/>";
constexpr wchar_t kTail[] = L"     </group>    </tab>   </tabs> </ribbon></customUI>";

struct RibbonButton {
    const wchar_t* opening;
    const wchar_t* id;
    const wchar_t* afterId;  // the image, the size and the start of the label
    UINT label;
    UINT supertip;
    const wchar_t* afterSupertip;
};

constexpr RibbonButton kArchiveButton = {
    kWideButtonOpening,
    L"TLPMBTDX2_0001",
    L"\"               image=\"resource.bin\"               size=\"large\"               label=\"",
    IDS_RIBBON_ARCHIVE,
    IDS_RIBBON_ARCHIVE_TIP,
    kAfterSupertip};
constexpr RibbonButton kAttachmentsButton = {kWideButtonOpening,
                                             L"TLPMBTDX2_0004",
                                             L"\"               image=\"resource_attachment.bin\"  "
                                             L"             size=\"large\"               "
                                             L"label=\"",
                                             IDS_RIBBON_ATTACHMENTS,
                                             IDS_RIBBON_ATTACHMENTS_TIP,
                                             kAfterSupertip};
constexpr RibbonButton kSettingsButton = {kTabButtonOpening,
                                          L"TLPMBTDX2_0002",
                                          L"\"               image=\"resource_setting.bin\"        "
                                          L"       size=\"large\"\t\t\t\t label=\"",
                                          IDS_RIBBON_SETTINGS,
                                          IDS_RIBBON_SETTINGS_TIP,
                                          kAfterSupertip};
constexpr RibbonButton kInfoButton = {
    kTabButtonOpening,
    L"TLPMBTDX2_0003",
    L"\"               image=\"resource_info.bin\"               size=\"large\"\t\t\t\t label=\"",
    IDS_RIBBON_INFO,
    IDS_RIBBON_INFO_TIP,
    kAfterSupertipInfo};

std::wstring UiText(UINT id, int capacity) {
    std::wstring text(static_cast<size_t>(capacity), L'\0');
    text.resize(static_cast<size_t>(LoadUiString(id, text.data(), capacity)));
    return text;
}

void AppendButton(std::wstring& xml, const RibbonButton& button, const wchar_t* action) {
    xml += button.opening;
    xml += button.id;
    xml += button.afterId;
    xml += UiText(button.label, kLabelCapacity);
    xml += kAfterLabel;
    xml += UiText(button.supertip, kLongTextCapacity);
    xml += button.afterSupertip;
    xml += action;
    xml += kAfterAction;
}

// A GDI+ bitmap read from a file by name; GDI+ must be running while it lives.
class CGdiPlusBitmap {
public:
    explicit CGdiPlusBitmap(const wchar_t* path) noexcept {
        Gdiplus::DllExports::GdipCreateBitmapFromFile(path, &m_bitmap);
    }
    ~CGdiPlusBitmap() {
        if (m_bitmap) {
            Gdiplus::DllExports::GdipDisposeImage(m_bitmap);
        }
    }
    CGdiPlusBitmap(const CGdiPlusBitmap&) = delete;
    CGdiPlusBitmap& operator=(const CGdiPlusBitmap&) = delete;

    Gdiplus::GpBitmap* get() const noexcept { return m_bitmap; }

private:
    Gdiplus::GpBitmap* m_bitmap = nullptr;
};

class GdiPlusSession {
public:
    GdiPlusSession() noexcept {
        Gdiplus::GdiplusStartupInput input;
        m_started = Gdiplus::GdiplusStartup(&m_token, &input, nullptr) == Gdiplus::Ok;
    }
    ~GdiPlusSession() {
        if (m_started) {
            Gdiplus::GdiplusShutdown(m_token);
        }
    }
    GdiPlusSession(const GdiPlusSession&) = delete;
    GdiPlusSession& operator=(const GdiPlusSession&) = delete;

    bool started() const noexcept { return m_started; }

private:
    ULONG_PTR m_token = 0;
    bool m_started = false;
};

bool ReadInstallationFolder(wchar_t (&folder)[1025]) noexcept {
    try {
        UniqueHKey key;
        DWORD type = 0;
        return OpenRegKey(HKEY_LOCAL_MACHINE, CTDCSettings::MachineKeyPath().c_str(), KEY_READ,
                          key) == ERROR_SUCCESS &&
               ReadRegText(key.get(), kDirValue, folder, std::size(folder), &type) ==
                   ERROR_SUCCESS &&
               type == REG_SZ;
    } catch (...) {
        return false;
    }
}

}  // namespace

DISPID RibbonCallbackId(const wchar_t* name) noexcept {
    if (!name) {
        return DISPID_UNKNOWN;
    }
    for (size_t i = 0; i < std::size(kCallbackNames); ++i) {
        if (lstrcmpW(name, kCallbackNames[i]) == 0) {
            return static_cast<DISPID>(i + 1);
        }
    }
    return DISPID_UNKNOWN;
}

bool IsServedRibbon(const wchar_t* ribbonId) noexcept {
    for (const wchar_t* known : kServedRibbons) {
        if (ribbonId && wcscmp(ribbonId, known) == 0) {
            return true;
        }
    }
    return false;
}

std::optional<std::wstring> BuildRibbonXml(const wchar_t* ribbonId, const RibbonOptions& options) {
    if (!IsServedRibbon(ribbonId)) {
        return std::nullopt;
    }
    const bool singleItem = wcscmp(ribbonId, kOutlookMailRead) == 0;
    // Attachments are mail attachments: only Outlook's windows offer the button.
    const bool outlook = singleItem || wcscmp(ribbonId, kOutlookExplorer) == 0;

    const std::wstring tabLabel = UiText(IDS_RIBBON_GROUP, kLongTextCapacity);
    std::wstring xml = kHead;
    xml += tabLabel;
    xml += kBetweenLabels;
    xml += tabLabel;
    xml += kAfterGroupLabel;
    AppendButton(xml, kArchiveButton,
                 singleItem ? L"TalvornAddin.ArchiveSingleOutlook" : L"TalvornAddin.Archive");
    if (options.attachments && outlook) {
        AppendButton(
            xml, kAttachmentsButton,
            singleItem ? L"TalvornAddin.AttachmentSingleOutlook" : L"TalvornAddin.Attachment");
    }
    xml += kSeparator;
    if (!options.noSettings) {
        AppendButton(xml, kSettingsButton, L"TalvornAddin.Settings");
    }
    AppendButton(xml, kInfoButton, L"TalvornAddin.Info");
    xml += kTail;
    return xml;
}

HRESULT LoadRibbonImage(const wchar_t* imageName, VARIANT* result) noexcept {
    if (!imageName || !result) {
        return E_POINTER;
    }
    wchar_t folder[1025];
    wchar_t path[MAX_PATH];
    if (!ReadInstallationFolder(folder) ||
        !FormatBounded(path, MAX_PATH, L"%s\\%s", folder, imageName)) {
        return E_FAIL;
    }
    GdiPlusSession gdiPlus;
    if (!gdiPlus.started()) {
        return E_FAIL;
    }
    CGdiPlusBitmap bitmap(path);
    HBITMAP handle = nullptr;
    if (!bitmap.get() ||
        Gdiplus::DllExports::GdipCreateHBITMAPFromBitmap(bitmap.get(), &handle, 0) != Gdiplus::Ok) {
        return E_FAIL;
    }
    PICTDESC description{};
    description.cbSizeofstruct = sizeof description;
    description.picType = PICTYPE_BITMAP;
    description.bmp.hbitmap = handle;
    ComPtr<IPictureDisp> picture;
    // The picture owns the bitmap, so the host's final Release frees the GDI handle.
    HRESULT hr = OleCreatePictureIndirect(&description, IID_IPictureDisp, TRUE, picture.put_void());
    if (FAILED(hr)) {
        DeleteObject(handle);
        return hr;
    }
    VariantClear(result);
    result->vt = VT_DISPATCH;
    result->pdispVal = picture.Detach();
    return S_OK;
}
