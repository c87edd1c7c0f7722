// The Outlook item kinds the capture recognises, and for each kind the fixed vocabulary of
// properties that travels with its message file: which MAPI property each OTL_... name is read
// from and how its value becomes text. The message class of an item picks its kind by a
// whole-string comparison without regard to case; a class that is merely derived from a known one
// (IPM.Note.Receipt) is not recognised.
#pragma once

#include <windows.h>

#include <cstdint>

// How a property is read and rendered: the MAPI property types, and one marker of this program's.
enum PropertyFormat : uint32_t {
    kFormatInteger16 = 0x0002,
    kFormatInteger = 0x0003,
    kFormatDouble = 0x0005,
    kFormatBoolean = 0x000B,
    kFormatText = 0x001F,
    kFormatDateTime = 0x0040,
    // Read as a MAPI time (0x0040) and rendered without the time of day.
    kFormatDateOnly = 0x0041,
    kFormatBinary = 0x0102,
};

// One property of a kind's vocabulary. A fixed property has its full tag and no property set; a
// named one has the set and its numeric id, and tag 1, which is not used.
struct PropertyDescriptor {
    const wchar_t* name;  // null ends a table
    uint32_t format;
    uint32_t tag;
    const GUID* propertySet;
    uint32_t namedId;
    uint32_t exportFlag;
};

enum class ItemKind {
    Mail,
    SignedMail,
    Contact,
    Note,
    Journal,
    Appointment,
    Meeting,
    Task,
    TaskRequest,
};

// A recognised message class: its kind, the Outlook item interface the item is reached through
// (its IID and its name as the log lines spell it), the word for the kind in the MAPIOBJECT log
// line, and the kind's property table (null for the signed mails, which are not read through MAPI).
struct ItemClass {
    const wchar_t* messageClass;
    ItemKind kind;
    const IID* itemInterface;
    const wchar_t* interfaceName;
    const wchar_t* kindWord;
    const PropertyDescriptor* table;
};

// The class entry for `messageClass`, in the order of recognition, or null when it is none of them.
const ItemClass* FindItemClass(const wchar_t* messageClass) noexcept;

// The automation interface of Outlook's Application object.
extern const IID kIidOutlookApplication;
