// A message that fails chosen IMessage methods: every call goes to an inner message, except that
// the methods named in `failures` ("CopyTo", "GetProps", "GetRecipientTable", ...) answer the
// given status instead. For injecting MAPI failures into code that takes an IMessage.
#pragma once

#include <windows.h>
#include <mapidefs.h>

#include <map>
#include <string>

#include "common/ComPtr.h"

ComPtr<IMessage> FailingMessage(IMessage* inner, std::map<std::string, HRESULT> failures);
