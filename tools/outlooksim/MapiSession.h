// The MAPI session behind the simulated Outlook's namespace (its MAPIOBJECT): an IMAPISession
// whose OpenAddressBook gives an IAddrBook, whose OpenEntry opens the Exchange users it was given
// as IMailUser objects. A mail user answers GetProps for PR_DISPLAY_NAME, PR_ADDRTYPE ("EX"),
// PR_EMAIL_ADDRESS (the Exchange distinguished name), PR_SMTP_ADDRESS, PR_ENTRYID,
// PR_OBJECT_TYPE and PR_DISPLAY_TYPE, in MAPI buffers the caller frees with MAPIFreeBuffer.
// Every other method of the three answers MAPI_E_NO_SUPPORT.
#pragma once

#include <windows.h>
#include <mapix.h>

#include <memory>

#include "common/ComPtr.h"
#include "officesim/FakeOfficeHost.h"
#include "outlooksim/ItemText.h"

namespace outlooksim {

struct Directory;

class SimulatedSession {
public:
    SimulatedSession();
    ~SimulatedSession();
    SimulatedSession(const SimulatedSession&) = delete;
    SimulatedSession& operator=(const SimulatedSession&) = delete;

    // A reference to the session for the simulated Outlook's own objects to hold; these do not
    // count as live.
    ComPtr<IMAPISession> Share();
    void AddEntry(AddressBookEntry entry);

    // The session and every address book and mail user still alive.
    RefCountList RefCounts() const;
    // References to the session beyond this object's own, and the address books and mail users
    // still alive.
    ULONG LiveObjects() const;

private:
    std::shared_ptr<Directory> m_directory;
    ComPtr<IMAPISession> m_session;
    ULONG m_shared = 0;
};

}  // namespace outlooksim
