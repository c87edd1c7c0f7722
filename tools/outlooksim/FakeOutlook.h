// A stand-in for the part of Outlook's object model and MAPI session that the Outlook capture
// reaches: the Application with its ActiveExplorer and ActiveInspector, the explorer's
// CurrentFolder and Selection, the items, and the MAPI namespace whose session opens an address
// book. Used by the tests and by the simulated host. Every automation object is a FakeDispatch,
// so its user sees each call, injects failures into any member and checks reference counts.
//
// Items are real MAPI messages of the simulated mapi32.dll (the program must run with it beside
// itself): an item is loaded from a message file or built from the readable item text format
// (ItemText.h), and its MAPIOBJECT hands out that message's IMessage. Each item answers
// QueryInterface for the Outlook item interface of its message class (_MailItem for "IPM.Note"
// and the S/MIME classes, _ContactItem, _NoteItem, ... as Outlook does) and has MessageClass,
// Subject, Body, EntryID, Size, ReceivedTime, SentOn, To, CC, BCC, Importance, SenderName,
// SenderEmailAddress, SentOnBehalfOfName, Session (the namespace), MAPIOBJECT (its IMessage),
// Attachments (Count, Item(i) with FileName, DisplayName, Size and SaveAsFile(path)), Delete()
// (the item leaves the folder and the selection) and SaveAs(path[, type]), which writes the
// message as a message file (an item read from a file writes that file again). The values are
// read from the message each time, so a test may change the message meanwhile.
//
// The one folder, Explorer.CurrentFolder, has Name, FolderPath, EntryID, StoreID and Items
// (Count, Item(i)): every item added and not deleted, selected or not. The namespace's
// GetItemFromID(entry id[, store id]) finds an item of it.
//
// Windows: Application.ActiveExplorer is the explorer open from the start. Inspect(i) opens an
// item in a new inspector window, which Application.ActiveInspector then returns (Nothing
// before); the inspector is also what a ribbon control's Context is for the single-item
// commands, with CurrentItem. OpenExplorer opens a further explorer window. Every window has
// command bars of its own (CommandBars); each window opened fires NewExplorer or NewInspector on
// Application.Explorers or Application.Inspectors (Count, Item(i): the open windows opened
// since construction), and a window closed with Close fires its Close. Collections and windows
// source their events through real connection points, the old and the "_10" interface alike.
//
// The session (the namespace's MAPIOBJECT) answers IMAPISession; OpenAddressBook gives an address
// book whose OpenEntry knows the entries added with AddAddressBookEntry and opens a mail user that
// has PR_SMTP_ADDRESS, PR_DISPLAY_NAME, PR_ADDRTYPE ("EX") and PR_EMAIL_ADDRESS (the Exchange
// distinguished name).
//
// Not modelled: other folders and stores, events of items and folders, item creation, and every
// other session or address-book method (they answer MAPI_E_NO_SUPPORT).
#pragma once

#include <windows.h>
#include <mapidefs.h>

#include <memory>
#include <string>
#include <vector>

#include "officesim/FakeCommandBars.h"
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
    FakeDispatch& Folder() const;     // Explorer.CurrentFolder
    // Application.ActiveInspector: the inspector opened last and still open, or null.
    FakeEventSource* Inspector() const;

    // Adds an item to the end of the selection and returns its automation object.
    // From the item text format; throws std::runtime_error naming the line of a malformed text.
    FakeDispatch& SelectItemText(const std::wstring& text);
    // From a message file, read into memory (the file is not kept open or changed).
    FakeDispatch& SelectMessageFile(const std::wstring& path);
    // The same, with the item put into the folder only when `select` is false.
    FakeDispatch& AddItemText(const std::wstring& text, bool select);
    FakeDispatch& AddMessageFile(const std::wstring& path, bool select);

    size_t ItemCount() const;
    FakeDispatch& Item(size_t index) const;  // counted from 0, in the order added, deleted ones too
    // The item's message, as its MAPIOBJECT hands it out (not AddRef'd).
    IMessage* Message(size_t index) const;
    // The indexes of the items still in the folder, in the folder's order.
    std::vector<size_t> FolderItems() const;
    // What the item's Delete does: it leaves the folder and the selection.
    void Delete(size_t index);
    // Opens the item in a new inspector and returns it (the Context of an item's ribbon).
    FakeEventSource& Inspect(size_t index);

    enum class WindowKind { Explorer, Inspector };
    // Opens a new explorer window (it has CommandBars, nothing else) and returns its number.
    size_t OpenExplorer();
    // Windows opened since construction, counted from 0 per kind in the order opened, closed
    // ones too.
    size_t WindowCount(WindowKind kind) const;
    FakeEventSource& Window(WindowKind kind, size_t index) const;
    FakeCommandBars& WindowBars(WindowKind kind, size_t index) const;
    // Closes an open window: its Close fires, then it leaves its collection.
    void CloseWindow(WindowKind kind, size_t index);
    // The command bars of the explorer open from the start.
    FakeCommandBars& ExplorerBars() const;
    // Application.Explorers and Application.Inspectors.
    FakeEventSource& Explorers() const;
    FakeEventSource& Inspectors() const;

    // An Exchange user the address book resolves: OpenEntry(entryId) opens a mail user whose
    // PR_SMTP_ADDRESS is `smtpAddress` (and whose PR_EMAIL_ADDRESS is a distinguished name made
    // from it). Item texts add theirs with "addressbook" lines.
    void AddAddressBookEntry(const std::vector<BYTE>& entryId, const std::wstring& displayName,
                             const std::wstring& smtpAddress);

    // The Application, explorer, selection, namespace, window collections, windows and every
    // item, with the session, address book and mail user objects the simulated Outlook handed
    // out.
    RefCountList RefCounts() const;
    // Session, address-book and mail-user objects still referenced by anybody but this Outlook.
    ULONG LiveMapiObjects() const;

private:
    struct State;
    std::unique_ptr<State> m_state;
};
