// Reads an Outlook item's properties through Extended MAPI into the PropertyMap that travels with
// its message file: the table-driven reader over a kind's vocabulary, the collector of a mail's
// recipient addresses, and the resolver of an Exchange sender's SMTP address. No failure stops the
// capture of an item: each is logged and the property concerned is left out.
#pragma once

#include <oaidl.h>
#include <mapidefs.h>

#include "capture/outlook/ItemKinds.h"
#include "common/PropertyMap.h"

// Reads one descriptor's property from `message` and adds its text. May throw on out of memory.
void ReadProperty(IMessage* message, const PropertyDescriptor& descriptor, PropertyMap& map);

// Reads every descriptor of `table` (ended by a null name), in order. Does nothing when an argument
// is null.
void ReadPropertyTable(IMessage* message, const PropertyDescriptor* table, PropertyMap& map);

// OTL_MSG_TO_SMTP_ADDRESS: the first address with an at sign of every recipient, joined by ";".
void CollectRecipientSmtpAddresses(IMessage* message, PropertyMap& map);

// Replaces an Exchange sender's distinguished name in OTL_MSG_SENDER_EMAIL_ADDRESS by its SMTP
// address from the address book of Outlook's MAPI session. 0 when the sender is not an Exchange
// one; otherwise the first failure, after which the address stays empty.
HRESULT ResolveSenderSmtpAddress(IDispatch* application, IMessage* message, PropertyMap& map);
