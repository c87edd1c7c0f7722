// Messages for the Outlook capture's tests, made through the simulated mapi32.dll: an IMessage on
// a compound file in memory, filled with fixed and named properties and recipients, and a wrapper
// that makes chosen IMessage methods fail. Programs using them run with the simulator beside them.
#pragma once

#include <windows.h>
#include <mapidefs.h>

#include <map>
#include <string>
#include <vector>

#include "common/ComPtr.h"

inline constexpr GUID kTestPsetidAppointment = {0x00062002, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
inline constexpr GUID kTestPsetidTask = {0x00062003, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
inline constexpr GUID kTestPsetidAddress = {0x00062004, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
inline constexpr GUID kTestPsetidCommon = {0x00062008, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
inline constexpr GUID kTestPsetidLog = {0x0006200A, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};

// One property to put on a test message: fixed (`set` null, `tag` its full tag) or named (`set`
// and `id`, `tag` only its type). Exactly one of the values is used, by the tag's type.
struct TestProperty {
    ULONG tag = 0;
    const GUID* set = nullptr;
    LONG id = 0;
    std::wstring text;
    LONGLONG number = 0;  // PT_LONG, PT_I2, PT_BOOLEAN, PT_SYSTIME (a FILETIME)
    double real = 0;
    std::vector<BYTE> bytes;
};

TestProperty Text(ULONG tag, std::wstring text);
TestProperty Number(ULONG tag, LONGLONG number);
TestProperty Real(ULONG tag, double value);
TestProperty Bytes(ULONG tag, std::vector<BYTE> bytes);
TestProperty Time(ULONG tag, WORD year, WORD month, WORD day, WORD hour, WORD minute);
// A named property by number in `set`; `value` gives its type and value.
TestProperty Named(const GUID& set, LONG id, TestProperty value);

struct TestRecipient {
    std::wstring name;
    std::wstring emailAddress;  // PR_EMAIL_ADDRESS
    std::wstring smtpAddress;   // PR_SMTP_ADDRESS, left out when empty
    LONG type = 1;              // MAPI_TO
};

// A message of the simulated MAPI in memory, with its own message session.
class TestMessage {
public:
    TestMessage();
    ~TestMessage();
    TestMessage(const TestMessage&) = delete;
    TestMessage& operator=(const TestMessage&) = delete;

    IMessage* get() const { return m_message.get(); }
    // Sets the properties (creating the named ones) and adds the recipients; fails the test on
    // any error.
    void Set(const std::vector<TestProperty>& properties);
    void AddRecipients(const std::vector<TestRecipient>& recipients);
    // Whether the message knows the named property (without creating it).
    bool KnowsName(const GUID& set, LONG id) const;

private:
    void* m_session = nullptr;
    ComPtr<IMessage> m_message;
};

// Forwards every call to a message, except that the methods named in `failures` ("CopyTo",
// "GetProps", "GetRecipientTable", ...) answer the given status.
ComPtr<IMessage> FailingMessage(IMessage* inner, std::map<std::string, HRESULT> failures);
