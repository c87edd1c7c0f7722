// A stand-in for the part of Outlook's object model and MAPI session that the Outlook capture
// reaches: the Application with its ActiveExplorer, the explorer's Selection, the selected items,
// and the MAPI namespace whose session opens an address book. Used by the tests and by the
// simulated host. Every automation object is a FakeDispatch, so its user sees each call, injects
// failures into any member and checks reference counts.
//
// Items are real MAPI messages of the simulated mapi32.dll (the program must run with it beside
// itself): an item is loaded from a message file or built from the readable item text format
// (ItemText.h), and its MAPIOBJECT hands out that message's IMessage. Each item answers
// QueryInterface for the Outlook item interface of its message class (_MailItem for "IPM.Note"
// and the S/MIME classes, _ContactItem, _NoteItem, ... as Outlook does) and has MessageClass,
// Subject, Body, EntryID, Size, ReceivedTime, SentOn, To, CC, BCC, Importance, SenderName,
// SenderEmailAddress, Session (the namespace), MAPIOBJECT (its IMessage) and SaveAs(path[, type]),
// which writes the message as a message file (an item read from a file writes that file again).
// The values are read from the message each time, so a test may change the message meanwhile.
//
// The session (the namespace's MAPIOBJECT) answers IMAPISession; OpenAddressBook gives an address
// book whose OpenEntry knows the entries added with AddAddressBookEntry and opens a mail user that
// has PR_SMTP_ADDRESS, PR_DISPLAY_NAME, PR_ADDRTYPE ("EX") and PR_EMAIL_ADDRESS (the Exchange
// distinguished name).
//
// Not modelled: folders, stores, inspectors, events, item creation or deletion, and every other
// session or address-book method (they answer MAPI_E_NO_SUPPORT).
#pragma once

#include <windows.h>
#include <mapidefs.h>

#include <memory>
#include <string>
#include <vector>

#include "officesim/FakeDispatch.h"
#include "officesim/FakeOfficeHost.h"

class FakeOutlook {
public:
    // An Outlook whose Application has Name "Outlook" and the given Version, with an explorer and
    // an empty selection. Opens a message session of the simulated MAPI for its items.
    explicit FakeOutlook(std::wstring version = L"16.0.0.5000");
    ~FakeOutlook();
    FakeOutlook(const FakeOutlook&) = delete;
    FakeOutlook& operator=(const FakeOutlook&) = delete;

    FakeDispatch& Application() const;
    FakeDispatch& Explorer() const;   // Application.ActiveExplorer
    FakeDispatch& Selection() const;  // Explorer.Selection: Count, Item(i) counted from 1
    FakeDispatch& Namespace() const;  // Application.GetNamespace("MAPI"), and every item's Session

    // Adds an item to the end of the selection and returns its automation object.
    // From the item text format; throws std::runtime_error naming the line of a malformed text.
    FakeDispatch& SelectItemText(const std::wstring& text);
    // From a message file, read into memory (the file is not kept open or changed).
    FakeDispatch& SelectMessageFile(const std::wstring& path);

    size_t ItemCount() const;
    FakeDispatch& Item(size_t index) const;  // counted from 0
    // The item's message, as its MAPIOBJECT hands it out (not AddRef'd).
    IMessage* Message(size_t index) const;

    // An Exchange user the address book resolves: OpenEntry(entryId) opens a mail user whose
    // PR_SMTP_ADDRESS is `smtpAddress` (and whose PR_EMAIL_ADDRESS is a distinguished name made
    // from it). Item texts add theirs with "addressbook" lines.
    void AddAddressBookEntry(const std::vector<BYTE>& entryId, const std::wstring& displayName,
                             const std::wstring& smtpAddress);

    // The Application, explorer, selection, namespace and every item, with the session, address
    // book and mail user objects the simulated Outlook handed out.
    RefCountList RefCounts() const;
    // Session, address-book and mail-user objects still referenced by anybody but this Outlook.
    ULONG LiveMapiObjects() const;

private:
    struct State;
    std::unique_ptr<State> m_state;
};
