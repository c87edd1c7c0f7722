// The MAPI interface and property-set identifiers the simulator answers to, defined once.
#define INITGUID
#define USES_IID_IMAPIProp
#define USES_IID_IMessage
#define USES_IID_IAttachment
#define USES_IID_IMAPITable
#define USES_PS_MAPI
#define USES_PS_PUBLIC_STRINGS
#include <initguid.h>

#include <mapiguid.h>
