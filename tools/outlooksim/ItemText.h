// The readable item text format: one Outlook item (a mail, contact, appointment...) as a short
// UTF-8 text file, from which the simulated Outlook builds a real MAPI message. One setting a
// line, "key = value"; blank lines and lines starting with # are ignored. Keys:
//
//   class = IPM.Note                          the message class (required)
//   PR_SUBJECT = Angebot für Q3               a fixed property by its usual name (the list is
//                                             kNamedTags in ItemText.cpp); its type is the tag's
//   0x0E060040 = 2024-05-14T09:30:00Z         a fixed property by its full hexadecimal tag
//   Appointment 0x8208 text = Raum 2.14       a named property: set, numeric id, type. Sets:
//                                             Appointment, Task, Address, Common, Log. Types:
//                                             text, i32, i16, bool, double, time, binary
//   To = Max Beispiel | SMTP | max@example.com
//   CC = Ina Kopie | EX | /o=Muster/ou=.../cn=ina.kopie | ina.kopie@example.net
//                                             a recipient (To, CC or BCC): display name, address
//                                             type, e-mail address, optionally PR_SMTP_ADDRESS
//   attachment = Preise.txt | Preise: 42 EUR  an attachment by value: file name and content
//   hidden attachment = logo.png | ...        the same with PR_ATTACHMENT_HIDDEN set, as a
//                                             formatted body's inline picture has it
//   addressbook = 00000000DCA7... | Erika Muster | erika.muster@example.org |
//   /o=Muster/.../cn=erika
//                                             an Exchange user the session's address book
//                                             resolves: entry id, display name, SMTP address and
//                                             optionally the Exchange distinguished name
//
// Values: texts as written, with \n, \t and \\ for a line break, a tab and a backslash; integers
// in decimal or 0x hexadecimal; booleans true or false (or 1, 0); doubles as C writes them;
// date-times in UTC as 2024-05-14T09:30:00Z (or a date alone, 2024-05-14, for midnight);
// binaries as hexadecimal digits, spaces allowed. An Exchange sender is PR_SENDER_ADDRTYPE = EX
// with PR_SENDER_ENTRYID naming an addressbook line. Unless given, PR_DISPLAY_TO, PR_DISPLAY_CC
// and PR_DISPLAY_BCC are the recipients' display names joined with "; ", as a store makes them.
//
// A malformed line is refused with a std::runtime_error whose text starts with "line N:".
#pragma once

#include <windows.h>
#include <mapidefs.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace outlooksim {

struct ItemProperty {
    // The full tag of a fixed property; for a named one PROP_TAG(type, 0) until it is resolved.
    ULONG tag = 0;
    std::optional<GUID> set;  // the property set of a named property
    LONG namedId = 0;
    std::wstring text;        // PT_UNICODE, PT_STRING8
    int64_t integer = 0;      // PT_LONG, PT_I2, PT_BOOLEAN, PT_SYSTIME (a FILETIME)
    double number = 0;        // PT_DOUBLE
    std::vector<BYTE> bytes;  // PT_BINARY
};

struct ItemRecipient {
    LONG type = MAPI_TO;
    std::wstring displayName;
    std::wstring addressType;
    std::wstring emailAddress;
    std::wstring smtpAddress;  // empty: no PR_SMTP_ADDRESS
};

struct ItemAttachment {
    std::wstring fileName;
    std::string content;  // UTF-8, as written
    bool hidden = false;  // PR_ATTACHMENT_HIDDEN
};

struct AddressBookEntry {
    std::vector<BYTE> entryId;
    std::wstring displayName;
    std::wstring smtpAddress;
    std::wstring exchangeAddress;  // the Exchange distinguished name, PR_EMAIL_ADDRESS
};

struct ItemDescription {
    std::wstring messageClass;
    std::vector<ItemProperty> properties;
    std::vector<ItemRecipient> recipients;
    std::vector<ItemAttachment> attachments;
    std::vector<AddressBookEntry> addressBook;
};

// Parses the text; throws std::runtime_error("line N: ...") for a malformed line.
ItemDescription ParseItemText(const std::wstring& text);

// Writes the class, properties (named ones created), recipients and attachments into `message`
// without saving it. Returns the first failure.
HRESULT WriteItem(const ItemDescription& item, IMessage* message);

// A UTF-8 item file as text (a byte order mark is skipped); throws std::runtime_error when the
// file cannot be read.
std::wstring ReadItemTextFile(const std::wstring& path);

// The Exchange distinguished name an address-book entry gets when its text gives none.
std::wstring ExchangeAddressFor(const std::wstring& smtpAddress);

}  // namespace outlooksim
