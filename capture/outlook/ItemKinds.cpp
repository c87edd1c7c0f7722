#include "capture/outlook/ItemKinds.h"

#include "capture/CaptureTypes.h"

namespace {

constexpr GUID kPsetidAppointment = {0x00062002, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
constexpr GUID kPsetidTask = {0x00062003, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
constexpr GUID kPsetidAddress = {0x00062004, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
constexpr GUID kPsetidCommon = {0x00062008, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
constexpr GUID kPsetidLog = {0x0006200A, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};

constexpr IID OutlookIid(unsigned long data1) {
    return {data1, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
}

constexpr IID kIidMailItem = OutlookIid(0x00063034);
constexpr IID kIidContactItem = OutlookIid(0x00063021);
constexpr IID kIidNoteItem = OutlookIid(0x00063025);
constexpr IID kIidJournalItem = OutlookIid(0x00063022);
constexpr IID kIidAppointmentItem = OutlookIid(0x00063033);
constexpr IID kIidMeetingItem = OutlookIid(0x00063062);
constexpr IID kIidTaskItem = OutlookIid(0x00063035);
constexpr IID kIidTaskRequestItem = OutlookIid(0x00063036);
constexpr IID kIidTaskRequestUpdateItem = OutlookIid(0x00063037);
constexpr IID kIidTaskRequestAcceptItem = OutlookIid(0x00063038);
constexpr IID kIidTaskRequestDeclineItem = OutlookIid(0x00063039);

constexpr uint32_t kNamed = 1;

// Fixed and named descriptors; every OTL_... value is exported, the internal identifiers are not.
constexpr PropertyDescriptor Fixed(const wchar_t* name, uint32_t format, uint32_t tag,
                                   uint32_t exportFlag = 1) {
    return {name, format, tag, nullptr, 0, exportFlag};
}
constexpr PropertyDescriptor Named(const wchar_t* name, uint32_t format, const GUID& set,
                                   uint32_t id) {
    return {name, format, kNamed, &set, id, 1};
}
constexpr PropertyDescriptor kEnd = {nullptr, 0, 0, nullptr, 0, 0};

// Every table begins with the item's own identifiers, which the connector needs to find the item
// again (deleting an archived mail) but which are not shown as properties.
constexpr PropertyDescriptor kEntryId = Fixed(kEntryIdName, kFormatBinary, 0x0FFF0102, 0);
constexpr PropertyDescriptor kStoreEntryId = Fixed(kStoreEntryIdName, kFormatBinary, 0x0FFB0102, 0);

constexpr PropertyDescriptor kMailTable[] = {
    kEntryId,
    kStoreEntryId,
    Fixed(L"PR_SENDER_ENTRYID", kFormatBinary, 0x0C190102, 0),
    Fixed(L"PR_SENDER_ADDRTYPE", kFormatText, 0x0C1E001F, 0),
    Fixed(L"OTL_MSG_BCC", kFormatText, 0x0E02001F),                   // PR_DISPLAY_BCC
    Fixed(L"OTL_MSG_CC", kFormatText, 0x0E03001F),                    // PR_DISPLAY_CC
    Fixed(L"OTL_MSG_IMPORTANCE", kFormatInteger, 0x00170003),         // PR_IMPORTANCE
    Fixed(L"OTL_MSG_SUBJECT", kFormatText, 0x0037001F),               // PR_SUBJECT
    Fixed(L"OTL_MSG_TO", kFormatText, 0x0E04001F),                    // PR_DISPLAY_TO
    Fixed(L"OTL_MSG_SENDERNAME", kFormatText, 0x0C1A001F),            // PR_SENDER_NAME
    Fixed(L"OTL_MSG_SENDER_EMAIL_ADDRESS", kFormatText, 0x0C1F001F),  // PR_SENDER_EMAIL_ADDRESS
    // "RECIEVE" is how the connector's configurations know these names.
    Fixed(L"OTL_MSG_RECIEVEDATE", kFormatDateOnly, 0x0E060040),  // PR_MESSAGE_DELIVERY_TIME
    Fixed(L"OTL_MSG_RECIEVEDATETIME", kFormatDateTime, 0x0E060040),
    kEnd,
};

constexpr PropertyDescriptor kContactTable[] = {
    kEntryId,
    kStoreEntryId,
    Fixed(L"OTL_CONTACT_BIRTHDAY", kFormatDateTime, 0x3A420040),  // PR_BIRTHDAY
    Fixed(L"OTL_CONTACT_HOMETEL", kFormatText, 0x3A09001F),       // PR_HOME_TELEPHONE_NUMBER
    Fixed(L"OTL_CONTACT_OFFICETEL", kFormatText, 0x3A08001F),     // PR_BUSINESS_TELEPHONE_NUMBER
    Fixed(L"OTL_CONTACT_HANDYTEL", kFormatText, 0x3A1C001F),      // PR_MOBILE_TELEPHONE_NUMBER
    Named(L"OTL_CONTACT_BUSINESSADDRESS", kFormatText, kPsetidAddress, 0x801B),
    Named(L"OTL_CONTACT_BUSINESSADDRESSCOUNTRY", kFormatText, kPsetidAddress, 0x8049),
    Named(L"OTL_CONTACT_BUSINESSADDRESSPOSTALCODE", kFormatText, kPsetidAddress, 0x8048),
    Named(L"OTL_CONTACT_BUSINESSADDRESSSTATE", kFormatText, kPsetidAddress, 0x8047),
    Named(L"OTL_CONTACT_BUSINESSADDRESSSTREET", kFormatText, kPsetidAddress, 0x8045),
    // The same property as OTL_CONTACT_OFFICETEL, under the name configurations also use.
    Fixed(L"OTL_CONTACT_BUSINESSTELEPHONENUMBER", kFormatText, 0x3A08001F),
    Fixed(L"OTL_CONTACT_DEPARTMENT", kFormatText, 0x3A18001F),  // PR_DEPARTMENT_NAME
    Named(L"OTL_CONTACT_EMAIL1ADDRESS", kFormatText, kPsetidAddress, 0x8083),
    Named(L"OTL_CONTACT_EMAIL2ADDRESS", kFormatText, kPsetidAddress, 0x8093),
    Named(L"OTL_CONTACT_EMAIL3ADDRESS", kFormatText, kPsetidAddress, 0x80A3),
    Fixed(L"OTL_CONTACT_FIRSTNAME", kFormatText, 0x3A06001F),  // PR_GIVEN_NAME
    Fixed(L"OTL_CONTACT_FULLNAME", kFormatText, 0x3001001F),   // PR_DISPLAY_NAME
    Fixed(L"OTL_CONTACT_LASTNAME", kFormatText, 0x3A11001F),   // PR_SURNAME
    Fixed(L"OTL_CONTACT_JOBTITLE", kFormatText, 0x3A17001F),   // PR_TITLE
    kEnd,
};

// The two note values come from the object model's Body and Subject (see kNoteMembers in
// OutlookCapture.cpp); the tags say which MAPI properties those are.
constexpr PropertyDescriptor kNoteTable[] = {
    kEntryId,
    kStoreEntryId,
    Fixed(L"OTL_STICKYNOTE_BODY", kFormatText, 0x1000001F),     // PR_BODY
    Fixed(L"OTL_STICKYNOTE_SUBJECT", kFormatText, 0x0037001F),  // PR_SUBJECT
    kEnd,
};

constexpr PropertyDescriptor kActivityTable[] = {
    kEntryId,
    kStoreEntryId,
    Fixed(L"OTL_ACTIVITY_SUBJECT", kFormatText, 0x0037001F),
    Named(L"OTL_ACTIVITY_START", kFormatDateOnly, kPsetidLog, 0x8706),
    Named(L"OTL_ACTIVITY_STARTDATETIME", kFormatDateTime, kPsetidLog, 0x8706),
    Named(L"OTL_ACTIVITY_END", kFormatDateOnly, kPsetidLog, 0x8708),
    Named(L"OTL_ACTIVITY_ENDDATETIME", kFormatDateTime, kPsetidLog, 0x8708),
    Named(L"OTL_ACTIVITY_DURATION", kFormatInteger, kPsetidLog, 0x8707),
    Named(L"OTL_ACTIVITY_ENTRY", kFormatText, kPsetidLog, 0x8700),
    Named(L"OTL_ACTIVITY_ENTRYTYPE", kFormatText, kPsetidLog, 0x8712),
    kEnd,
};

// The appointment's vocabulary; a meeting's is the same without its attendees.
#define APPOINTMENT_PROPERTIES                                                               \
    kEntryId, kStoreEntryId, Fixed(L"OTL_APPOINTMENT_SUBJECT", kFormatText, 0x0037001F),     \
        Fixed(L"OTL_APPOINTMENT_STARTDATE", kFormatDateOnly, 0x00600040),                    \
        Fixed(L"OTL_APPOINTMENT_STARTDATETIME", kFormatDateTime, 0x00600040),                \
        Fixed(L"OTL_APPOINTMENT_ENDDATE", kFormatDateOnly, 0x00610040),                      \
        Fixed(L"OTL_APPOINTMENT_ENDDATETIME", kFormatDateTime, 0x00610040),                  \
        Fixed(L"OTL_APPOINTMENT_SENDER", kFormatText, 0x0C1A001F),                           \
        Named(L"OTL_APPOINTMENT_BUSYSTATUS", kFormatInteger, kPsetidAppointment, 0x8205),    \
        Named(L"OTL_APPOINTMENT_LOCATION", kFormatText, kPsetidAppointment, 0x8208),         \
        Named(L"OTL_APPOINTMENT_DURATION", kFormatInteger, kPsetidAppointment, 0x8213),      \
        Named(L"OTL_APPOINTMENT_RECURRING", kFormatBoolean, kPsetidAppointment, 0x8223),     \
        Named(L"OTL_APPOINTMENT_RECURRINGTYPE", kFormatInteger, kPsetidAppointment, 0x8231), \
        Named(L"OTL_APPOINTMENT_RECURRINGPATTERN", kFormatText, kPsetidAppointment, 0x8232)

constexpr PropertyDescriptor kAppointmentTable[] = {
    APPOINTMENT_PROPERTIES,
    Named(L"OTL_APPOINTMENT_ATTENDEE", kFormatText, kPsetidAppointment, 0x823B),
    kEnd,
};

constexpr PropertyDescriptor kMeetingTable[] = {
    APPOINTMENT_PROPERTIES,
    kEnd,
};

constexpr PropertyDescriptor kTaskTable[] = {
    kEntryId,
    kStoreEntryId,
    Fixed(L"OTL_TASK_SUBJECT", kFormatText, 0x0037001F),
    Fixed(L"OTL_TASK_SENDER", kFormatText, 0x0C1A001F),
    Named(L"OTL_TASK_STARTDATE", kFormatDateOnly, kPsetidTask, 0x8104),
    Named(L"OTL_TASK_STARTDATETIME", kFormatDateTime, kPsetidTask, 0x8104),
    Named(L"OTL_TASK_DUEDATE", kFormatDateOnly, kPsetidTask, 0x8105),
    Named(L"OTL_TASK_DUEDATETIME", kFormatDateTime, kPsetidTask, 0x8105),
    Named(L"OTL_TASK_COMMONSTART", kFormatDateOnly, kPsetidCommon, 0x8516),
    Named(L"OTL_TASK_COMMONSTARTDATETIME", kFormatDateTime, kPsetidCommon, 0x8516),
    Named(L"OTL_TASK_COMMONEND", kFormatDateOnly, kPsetidCommon, 0x8517),
    Named(L"OTL_TASK_COMMONENDDATETIME", kFormatDateTime, kPsetidCommon, 0x8517),
    Named(L"OTL_TASK_PERCENTCOMPLETE", kFormatDouble, kPsetidTask, 0x8102),
    Named(L"OTL_TASK_COMPLETE", kFormatBoolean, kPsetidTask, 0x811C),
    Named(L"OTL_TASK_TOTALWORK", kFormatInteger, kPsetidTask, 0x8111),
    Named(L"OTL_TASK_ACTUALWORK", kFormatInteger, kPsetidTask, 0x8110),
    Named(L"OTL_TASK_STATUS", kFormatInteger, kPsetidTask, 0x8101),
    Named(L"OTL_TASK_RECURRING", kFormatBoolean, kPsetidTask, 0x8126),
    kEnd,
};

constexpr PropertyDescriptor kTaskRequestTable[] = {
    kEntryId,
    kStoreEntryId,
    Fixed(L"OTL_TASK_SUBJECT", kFormatText, 0x0037001F),
    Fixed(L"OTL_TASK_SENDER", kFormatText, 0x0C1A001F),
    kEnd,
};

#undef APPOINTMENT_PROPERTIES

// In the order of comparison.
constexpr ItemClass kItemClasses[] = {
    {L"IPM.Note", ItemKind::Mail, &kIidMailItem, L"Outlook::_MailItem", L"mail", kMailTable},
    {L"IPM.Note.SMIME", ItemKind::SignedMail, nullptr, nullptr, nullptr, nullptr},
    {L"IPM.Note.SMIME.MultipartSigned", ItemKind::SignedMail, nullptr, nullptr, nullptr, nullptr},
    {L"IPM.Contact", ItemKind::Contact, &kIidContactItem, L"Outlook::_ContactItem", L"contact",
     kContactTable},
    {L"IPM.StickyNote", ItemKind::Note, &kIidNoteItem, L"Outlook::_NoteItem", L"note", kNoteTable},
    {L"IPM.Activity", ItemKind::Journal, &kIidJournalItem, L"Outlook::_JournalItem", L"journal",
     kActivityTable},
    {L"IPM.Appointment", ItemKind::Appointment, &kIidAppointmentItem, L"Outlook::_AppointmentItem",
     L"appointment", kAppointmentTable},
    {L"IPM.Schedule.Meeting.Request", ItemKind::Meeting, &kIidMeetingItem, L"Outlook::_MeetingItem",
     L"meeting", kMeetingTable},
    {L"IPM.Schedule.Meeting.Resp.Pos", ItemKind::Meeting, &kIidMeetingItem,
     L"Outlook::_MeetingItem", L"meeting", kMeetingTable},
    {L"IPM.Schedule.Meeting.Resp.Neg", ItemKind::Meeting, &kIidMeetingItem,
     L"Outlook::_MeetingItem", L"meeting", kMeetingTable},
    {L"IPM.Schedule.Meeting.Resp.Tent", ItemKind::Meeting, &kIidMeetingItem,
     L"Outlook::_MeetingItem", L"meeting", kMeetingTable},
    {L"IPM.Schedule.Meeting.Canceled", ItemKind::Meeting, &kIidMeetingItem,
     L"Outlook::_MeetingItem", L"meeting", kMeetingTable},
    {L"IPM.Task", ItemKind::Task, &kIidTaskItem, L"Outlook::_TaskItem", L"task", kTaskTable},
    {L"IPM.TaskRequest", ItemKind::TaskRequest, &kIidTaskRequestItem, L"Outlook::_TaskRequestItem",
     L"task request", kTaskRequestTable},
    {L"IPM.TaskRequest.Accept", ItemKind::TaskRequest, &kIidTaskRequestAcceptItem,
     L"Outlook::_TaskRequestAcceptItem", L"task request accept", kTaskRequestTable},
    {L"IPM.TaskRequest.Decline", ItemKind::TaskRequest, &kIidTaskRequestDeclineItem,
     L"Outlook::_TaskRequestDeclineItem", L"task request decline", kTaskRequestTable},
    {L"IPM.TaskRequest.Update", ItemKind::TaskRequest, &kIidTaskRequestUpdateItem,
     L"Outlook::_TaskRequestUpdateItem", L"task request update", kTaskRequestTable},
};

}  // namespace

const IID kIidOutlookApplication = OutlookIid(0x00063001);

const ItemClass* FindItemClass(const wchar_t* messageClass) noexcept {
    if (!messageClass) {
        return nullptr;
    }
    for (const ItemClass& itemClass : kItemClasses) {
        if (lstrcmpiW(messageClass, itemClass.messageClass) == 0) {
            return &itemClass;
        }
    }
    return nullptr;
}
