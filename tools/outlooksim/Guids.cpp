// The MAPI interface identifiers the simulated Outlook's session objects answer to.
#define INITGUID
#define USES_IID_IMAPISession
#define USES_IID_IMAPIProp
#define USES_IID_IAddrBook
#define USES_IID_IMailUser
#define USES_IID_IMessage
#include <initguid.h>

#include <mapiguid.h>
