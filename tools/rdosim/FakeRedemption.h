// A stand-in for the third-party MAPI library the Outlook capture reaches by automation only,
// through the ProgID "Redemption.RDOSession". It has two halves:
//
// - rdosim.dll, a real in-process COM server that registers the ProgID, a CLSID of the
//   simulator's own and InprocServer32 (DllRegisterServer/DllUnregisterServer, so regsvr32 or a
//   test's private registry can hold it). Its class object is whatever class factory the hosting
//   process installed with the export RdoSimInstallFactory (a COM interface, so nothing but COM
//   crosses the module boundary); without one, DllGetClassObject answers
//   CLASS_E_CLASSNOTAVAILABLE.
// - FakeRedemption (this header, a static library), which installs that factory and builds each
//   new session over a FakeOutlook: the session's MAPIOBJECT must be put to the Outlook
//   namespace's MAPIOBJECT before anything else works (as with the real library);
//   GetFolderFromID(entry id[, store id]) gives the folder the Outlook explorer shows, whose
//   Items (Count, Item(i) and _Item(i) counted from 1) are the Outlook folder's items as mails;
//   GetMessageFromID(entry id[, store id]) gives one mail. A mail reads its values from the item's
//   MAPI message (EntryID, Subject, Size, MessageClass, SentOnBehalfOfName, ReceivedTime, SentOn,
//   To, CC, BCC, SenderName, SenderEmailAddress, Importance), SaveAs(path, 9) writes it as a
//   Unicode message file, GetDecryptedMessage gives the mail itself (the simulated S/MIME items
//   keep their content in plain MAPI properties), Attachments lists its MAPI attachments
//   (FileName, Size, Hidden from PR_ATTACHMENT_HIDDEN, SaveAsFile(path) writing the data), and
//   Delete removes the item from the Outlook folder.
//
// Every object is a FakeDispatch, so a test reaches each one to inject failures and check
// reference counts. RefCounts counts the double's own reference too: an object nobody else holds
// shows 1. A session keeps the MAPIOBJECT put into it (and its recorded calls a copy) until this
// FakeRedemption goes, so Outlook's LiveMapiObjects counts it until then. Not modelled: stores
// other than the one Outlook shows, searching, creating items, real decryption, events.
//
// Using it: the program needs rdosim.dll beside it (talvorn_rdosim_beside) as well as the
// simulated mapi32.dll, and a COM apartment on the calling thread. Wine's COM reads classes from
// the prefix's machine-wide key only (HKLM\Software\Classes, past any RegOverridePredefKey of
// HKEY_CLASSES_ROOT, HKEY_LOCAL_MACHINE or HKEY_CURRENT_USER), so Register writes there when the
// classes root is not overridden, and the registration is shared by every process of the prefix:
// test cases that register or unregister it hold the ctest RESOURCE_LOCK rdosim_registration
// (talvorn_test(... PROPERTIES RESOURCE_LOCK rdosim_registration)), as does hostsim's run.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "officesim/FakeDispatch.h"
#include "officesim/FakeOfficeHost.h"

class FakeOutlook;

class FakeRedemption {
public:
    // Installs the factory into rdosim.dll (loaded from beside the program) for the lifetime of
    // this object. The DLL must also be registered for the ProgID to resolve; see Register.
    explicit FakeRedemption(FakeOutlook& outlook);
    ~FakeRedemption();
    FakeRedemption(const FakeRedemption&) = delete;
    FakeRedemption& operator=(const FakeRedemption&) = delete;

    // Writes the ProgID, CLSID and InprocServer32 keys for rdosim.dll beside the program into
    // HKEY_CLASSES_ROOT as the process sees it (rdosim.dll's DllRegisterServer; under an
    // overridden classes root the keys land there, where Wine's COM does not look); Unregister
    // removes them, so that the library reads as not installed.
    static HRESULT Register();
    static HRESULT Unregister();

    // Sessions created so far, in order (the product makes one per use).
    size_t SessionCount() const;
    FakeDispatch& Session(size_t index) const;
    // Called with each new session before it is handed out, so a test can script it (inject a
    // failure into GetFolderFromID, say) before the product's first call.
    void OnNewSession(std::function<void(FakeDispatch& session)> script);
    // The mail object the folder hands out for the Outlook item at `index` (created on first use).
    FakeDispatch& Mail(size_t index) const;

    // Every object handed out and its reference count, for comparing before and after.
    RefCountList RefCounts() const;

private:
    struct State;
    std::unique_ptr<State> m_state;
};
