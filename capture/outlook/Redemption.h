// Signed and encrypted mails are read through the Redemption library, which the add-in reaches by
// automation only, through the ProgID "Redemption.RDOSession". A session is made per mail and
// attached to Outlook's own MAPI session; the mail is then looked up again in the library's view
// of the folder the user has open, since Outlook's item cannot be handed over.
#pragma once

#include <oaidl.h>

#include <cstddef>
#include <cstdint>
#include <functional>

#include "common/BoundedFormat.h"
#include "common/ComPtr.h"
#include "common/LogFile.h"
#include "common/PathBuffer.h"
#include "common/PropertyMap.h"

// Where the failures of the Redemption steps go: into the log as they happen, or, for a caller
// that reports them itself, into its text buffer (the last failure wins).
class FailureReport {
public:
    FailureReport() noexcept = default;
    FailureReport(wchar_t* buffer, size_t capacity) noexcept
        : m_buffer(buffer), m_capacity(capacity) {}

    template <class... Args>
    void operator()(FormatFor<Args...> format, const Args&... args) const noexcept {
        if (m_buffer) {
            FormatBounded(m_buffer, m_capacity, format, args...);
        } else {
            LogError(format, args...);
        }
    }

private:
    wchar_t* m_buffer = nullptr;
    size_t m_capacity = 0;
};

// A new library session attached to the MAPI session of the Outlook item `item` (an item, or
// anything else with a "Session"). When the library is not registered, the user is told so in a
// message box.
HRESULT OpenRedemptionSession(IDispatch* item, ComPtr<IDispatch>& session,
                              const FailureReport& report = {});

// A library session for `item` (as above), the library's view of the folder Outlook's active
// explorer shows, and `action` on that folder; the session lives as long as the action runs.
HRESULT RunInRedemptionFolder(IDispatch* application, IDispatch* item,
                              const std::function<HRESULT(IDispatch* folder)>& action);

// The library's mail in `folder` that is the Outlook item `item`: the first one with the same
// entry id, or else the first that agrees in subject, class, size, representing sender (or
// recipients) and received (or sent) time. E_FAIL when there is none.
HRESULT FindRDOMail(IDispatch* folder, IDispatch* item, ComPtr<IDispatch>& mail);

// Finds `item` in `folder`, has the library write it as a Unicode message file into a new staging
// folder and reads the mail's values into `map`. E_FAIL when the mail is not found, kNoMsgFileName
// when no file could be named.
HRESULT SaveRDOMailFromFolder(IDispatch* folder, IDispatch* item, PathBuffer& path,
                              int32_t itemNumber, PropertyMap& map);

// The values of a mail read through the library, by automation name, and its identifiers with the
// folder's store id.
void ReadRDOMailValues(IDispatch* mail, IDispatch* folder, PropertyMap& map);

// Stages one signed or encrypted Outlook mail the library's way: session, folder, save.
HRESULT SaveSignedMail(IDispatch* application, IDispatch* item, PathBuffer& path,
                       int32_t itemNumber, PropertyMap& map);
