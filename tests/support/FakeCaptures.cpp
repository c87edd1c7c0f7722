#include "support/FakeCaptures.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <exception>
#include <ostream>

#include "common/ComPtr.h"
#include "common/HostKind.h"
#include "handoff/StagingArea.h"
#include "support/TestFiles.h"

namespace {

constexpr char kStagedContent[] = "staged by FakeCaptures\r\n";

const wchar_t* OfficeFileName(int32_t hostKind) {
    switch (hostKind) {
    case kHostExcel:
        return L"Kalkulation.xlsx";
    case kHostPowerPoint:
        return L"Vortrag.pptx";
    default:
        return L"Angebot.docx";
    }
}

bool CopyPath(PathBuffer& buffer, const std::wstring& path) {
    if (path.size() >= buffer.size()) {
        ADD_FAILURE() << "FakeCaptures: staged path too long: " << ToUtf8(path);
        return false;
    }
    std::copy(path.begin(), path.end(), buffer.begin());
    buffer[path.size()] = L'\0';
    return true;
}

}  // namespace

std::ostream& operator<<(std::ostream& out, FakeCaptures::Routine routine) {
    switch (routine) {
    case FakeCaptures::Routine::SaveOfficeDocument:
        return out << "SaveOfficeDocument";
    case FakeCaptures::Routine::GetOutlookDocumentCount:
        return out << "GetOutlookDocumentCount";
    case FakeCaptures::Routine::SaveOutlookDocument:
        return out << "SaveOutlookDocument";
    case FakeCaptures::Routine::SaveOutlookItem:
        return out << "SaveOutlookItem";
    case FakeCaptures::Routine::GetAttachmentList:
        return out << "GetAttachmentList";
    case FakeCaptures::Routine::ChooseAttachments:
        return out << "ChooseAttachments";
    case FakeCaptures::Routine::SaveAttachments:
        return out << "SaveAttachments";
    }
    return out << "?";
}

void FakeCaptures::SetStatus(Routine routine, HRESULT status) {
    std::erase_if(m_statuses, [&](const auto& scripted) { return scripted.first == routine; });
    m_statuses.emplace_back(routine, status);
}

std::vector<FakeCaptures::Routine> FakeCaptures::Routines() const {
    std::vector<Routine> routines;
    for (const Call& call : m_calls) {
        routines.push_back(call.routine);
    }
    return routines;
}

std::optional<HRESULT> FakeCaptures::ScriptedStatus(Routine routine) const {
    for (const auto& [scripted, status] : m_statuses) {
        if (scripted == routine) {
            return status;
        }
    }
    return std::nullopt;
}

FakeCaptures::Call& FakeCaptures::Record(Routine routine, IDispatch* application, IDispatch* item) {
    Call call;
    call.routine = routine;
    call.application = application;
    call.item = item;
    m_calls.push_back(call);
    return m_calls.back();
}

bool FakeCaptures::Stage(const std::wstring& name, std::wstring& path) {
    wchar_t buffer[MAX_PATH];
    if (!CreateStagingFolder(buffer, MAX_PATH)) {
        ADD_FAILURE() << "FakeCaptures: no staging folder";
        return false;
    }
    StagedFile staged;
    staged.folder = buffer;
    staged.folder.pop_back();
    staged.id = staged.folder.substr(staged.folder.rfind(L'\\') + 1);
    staged.path = staged.folder + L"\\" + name;
    try {
        WriteFileBytes(staged.path, kStagedContent);
    } catch (const std::exception& error) {
        ADD_FAILURE() << "FakeCaptures: " << error.what();
        return false;
    }
    if (m_blocked.count(m_staged.size()) &&
        !CreateDirectoryW((staged.folder + L"\\" + staged.id + L".xml").c_str(), nullptr)) {
        ADD_FAILURE() << "FakeCaptures: cannot block the hand-off of " << ToUtf8(staged.path);
    }
    path = staged.path;
    m_staged.push_back(std::move(staged));
    return true;
}

HRESULT FakeCaptures::SaveOfficeDocument(int32_t hostKind, IDispatch* application, PathBuffer& path,
                                         PropertyMap& map, int32_t majorVersion) {
    ComPtr<IDispatch> heldApplication(application);
    Call& call = Record(Routine::SaveOfficeDocument, application);
    call.hostKind = hostKind;
    call.majorVersion = majorVersion;
    HRESULT status = ScriptedStatus(Routine::SaveOfficeDocument).value_or(S_OK);
    if (FAILED(status)) {
        return status;
    }
    std::wstring name = OfficeFileName(hostKind);
    std::wstring staged;
    if (!Stage(name, staged) || !CopyPath(path, staged)) {
        return E_FAIL;
    }
    map.Add(L"MSO_TITLE", name.substr(0, name.rfind(L'.')).c_str());
    map.Add(L"FILE_SIZE", std::to_wstring(sizeof kStagedContent - 1).c_str());
    return status;
}

HRESULT FakeCaptures::GetOutlookDocumentCount(IDispatch* application) {
    ComPtr<IDispatch> heldApplication(application);
    Record(Routine::GetOutlookDocumentCount, application);
    return ScriptedStatus(Routine::GetOutlookDocumentCount)
        .value_or(m_selected > 0 ? m_selected : kNothingSelected);
}

HRESULT FakeCaptures::SaveOutlookDocument(IDispatch* application, PathBuffer* paths,
                                          PropertyMap* maps, int32_t count) {
    ComPtr<IDispatch> heldApplication(application);
    Record(Routine::SaveOutlookDocument, application).count = count;
    HRESULT status = ScriptedStatus(Routine::SaveOutlookDocument).value_or(S_OK);
    if (FAILED(status)) {
        return status;
    }
    for (int32_t i = 0; i < count; ++i) {
        std::wstring subject = L"Mail " + std::to_wstring(i + 1);
        std::wstring staged;
        if (!Stage(subject + L".msg", staged) || !CopyPath(paths[i], staged)) {
            return E_FAIL;
        }
        maps[i].Add(L"OTL_MSG_SUBJECT", subject.c_str());
    }
    return status;
}

HRESULT FakeCaptures::SaveOutlookItem(IDispatch* application, IDispatch* item, int32_t majorVersion,
                                      PathBuffer& path, PropertyMap& map) {
    ComPtr<IDispatch> heldApplication(application);
    ComPtr<IDispatch> heldItem(item);
    Record(Routine::SaveOutlookItem, application, item).majorVersion = majorVersion;
    HRESULT status = ScriptedStatus(Routine::SaveOutlookItem).value_or(S_OK);
    if (FAILED(status)) {
        return status;
    }
    std::wstring staged;
    if (!Stage(L"Offene Mail.msg", staged) || !CopyPath(path, staged)) {
        return E_FAIL;
    }
    map.Add(L"OTL_MSG_SUBJECT", L"Offene Mail");
    return status;
}

HRESULT FakeCaptures::GetAttachmentList(IDispatch* application, IDispatch* item,
                                        AttachmentList& attachments) {
    ComPtr<IDispatch> heldApplication(application);
    ComPtr<IDispatch> heldItem(item);
    Record(Routine::GetAttachmentList, application, item);
    HRESULT status = ScriptedStatus(Routine::GetAttachmentList).value_or(S_OK);
    if (FAILED(status)) {
        return status;
    }
    for (size_t i = 0; i < m_attachments.size(); ++i) {
        PropertyMap record;
        record.Add(L"OTL_ATTACHMENT_NAME", m_attachments[i].c_str());
        record.Add(L"OTL_ATTACHMENT_SIZE", std::to_wstring(sizeof kStagedContent - 1).c_str());
        record.Add(L"OTL_ATTACHMENT_HIDDEN", L"0");
        record.Add(L"OTL_ATTACHMENT_KEY", std::to_wstring(i + 1).c_str());
        attachments.push_back(std::move(record));
    }
    return status;
}

int FakeCaptures::ChooseAttachments(AttachmentList& attachments) {
    Record(Routine::ChooseAttachments, nullptr).count = static_cast<int32_t>(attachments.size());
    int chosen = 0;
    for (size_t i = 0; i < attachments.size(); ++i) {
        if (!m_choice || std::find(m_choice->begin(), m_choice->end(), i) != m_choice->end()) {
            attachments[i].Add(L"OTL_ATTACHMENT_SELECTED", L"1");
            ++chosen;
        }
    }
    return chosen;
}

HRESULT FakeCaptures::SaveAttachments(IDispatch* application, IDispatch* item,
                                      const AttachmentList& attachments, FileList& files) {
    ComPtr<IDispatch> heldApplication(application);
    ComPtr<IDispatch> heldItem(item);
    Record(Routine::SaveAttachments, application, item).count =
        static_cast<int32_t>(attachments.size());
    HRESULT status = ScriptedStatus(Routine::SaveAttachments).value_or(S_OK);
    if (FAILED(status)) {
        return status;
    }
    for (const PropertyMap& record : attachments) {
        const PropertyEntry* name = record.Find(L"OTL_ATTACHMENT_NAME");
        if (!record.Find(L"OTL_ATTACHMENT_SELECTED") || !name) {
            continue;
        }
        std::wstring staged;
        if (!Stage(name->value, staged)) {
            return E_FAIL;
        }
        files.push_back(staged);
    }
    return status;
}
