#include "support/FakeCaptures.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <exception>
#include <ostream>

#include "common/HostKind.h"
#include "handoff/StagingArea.h"
#include "support/TestFiles.h"

std::ostream& operator<<(std::ostream& out, FakeCaptures::Routine routine) {
    static const char* const kNames[] = {
        "SaveOfficeDocument", "GetOutlookDocumentCount", "SaveOutlookDocument", "SaveOutlookItem",
        "GetAttachmentList",  "ChooseAttachments",       "SaveAttachments"};
    return out << kNames[static_cast<size_t>(routine)];
}

std::vector<FakeCaptures::Routine> FakeCaptures::Routines() const {
    std::vector<Routine> routines;
    for (const Call& call : m_calls) {
        routines.push_back(call.routine);
    }
    return routines;
}

HRESULT FakeCaptures::Record(const Call& call) {
    for (IDispatch* object : {call.application, call.item}) {
        if (object) {
            object->AddRef();
            object->Release();
        }
    }
    m_calls.push_back(call);
    auto scripted = m_statuses.find(call.routine);
    return scripted == m_statuses.end() ? S_OK : scripted->second;
}

std::wstring FakeCaptures::Stage(const std::wstring& name, PathBuffer* buffer) {
    wchar_t folder[MAX_PATH];
    if (!CreateStagingFolder(folder, MAX_PATH)) {
        ADD_FAILURE() << "FakeCaptures: no staging folder";
        return std::wstring();
    }
    StagedFile staged;
    staged.folder = folder;
    staged.folder.pop_back();
    staged.id = staged.folder.substr(staged.folder.rfind(L'\\') + 1);
    staged.path = staged.folder + L"\\" + name;
    try {
        WriteFileBytes(staged.path, "staged by FakeCaptures\r\n");
    } catch (const std::exception& error) {
        ADD_FAILURE() << "FakeCaptures: " << error.what();
        return std::wstring();
    }
    if (buffer) {
        if (staged.path.size() >= buffer->size()) {
            ADD_FAILURE() << "FakeCaptures: staged path too long: " << ToUtf8(staged.path);
            return std::wstring();
        }
        std::copy(staged.path.begin(), staged.path.end(), buffer->begin());
        (*buffer)[staged.path.size()] = L'\0';
    }
    if (m_blocked.count(m_staged.size()) &&
        !CreateDirectoryW((staged.folder + L"\\" + staged.id + L".xml").c_str(), nullptr)) {
        ADD_FAILURE() << "FakeCaptures: cannot block the hand-off of " << ToUtf8(staged.path);
    }
    m_staged.push_back(staged);
    return staged.path;
}

HRESULT FakeCaptures::SaveOfficeDocument(int32_t hostKind, IDispatch* application, PathBuffer& path,
                                         PropertyMap& map, int32_t majorVersion) {
    HRESULT status =
        Record({Routine::SaveOfficeDocument, application, nullptr, hostKind, majorVersion});
    const std::wstring name = hostKind == kHostExcel        ? L"Kalkulation.xlsx"
                              : hostKind == kHostPowerPoint ? L"Vortrag.pptx"
                                                            : L"Angebot.docx";
    if (SUCCEEDED(status)) {
        if (Stage(name, &path).empty()) {
            return E_FAIL;
        }
        map.Add(L"MSO_TITLE", name.substr(0, name.rfind(L'.')).c_str());
    }
    return status;
}

HRESULT FakeCaptures::GetOutlookDocumentCount(IDispatch* application) {
    Record({Routine::GetOutlookDocumentCount, application});
    return m_selected > 0 ? m_selected : kNothingSelected;
}

HRESULT FakeCaptures::SaveOutlookDocument(IDispatch* application, PathBuffer* paths,
                                          PropertyMap* maps, int32_t count) {
    HRESULT status = Record({Routine::SaveOutlookDocument, application});
    for (int32_t i = 0; SUCCEEDED(status) && i < count; ++i) {
        std::wstring subject = L"Mail " + std::to_wstring(i + 1);
        if (Stage(subject + L".msg", &paths[i]).empty()) {
            return E_FAIL;
        }
        maps[i].Add(L"OTL_MSG_SUBJECT", subject.c_str());
    }
    return status;
}

HRESULT FakeCaptures::SaveOutlookItem(IDispatch* application, IDispatch* item, int32_t majorVersion,
                                      PathBuffer& path, PropertyMap& map) {
    HRESULT status = Record({Routine::SaveOutlookItem, application, item, 0, majorVersion});
    if (SUCCEEDED(status)) {
        if (Stage(L"Offene Mail.msg", &path).empty()) {
            return E_FAIL;
        }
        map.Add(L"OTL_MSG_SUBJECT", L"Offene Mail");
    }
    return status;
}

HRESULT FakeCaptures::GetAttachmentList(IDispatch* application, IDispatch* item,
                                        AttachmentList& attachments) {
    HRESULT status = Record({Routine::GetAttachmentList, application, item});
    for (size_t i = 0; SUCCEEDED(status) && i < m_attachments.size(); ++i) {
        attachments.emplace_back().Add(L"OTL_ATTACHMENT_NAME", m_attachments[i].c_str());
    }
    return status;
}

int FakeCaptures::ChooseAttachments(AttachmentList& attachments) {
    Record({Routine::ChooseAttachments});
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
    HRESULT status = Record({Routine::SaveAttachments, application, item});
    for (size_t i = 0; SUCCEEDED(status) && i < attachments.size(); ++i) {
        const PropertyEntry* name = attachments[i].Find(L"OTL_ATTACHMENT_NAME");
        if (!name || !attachments[i].Find(L"OTL_ATTACHMENT_SELECTED")) {
            continue;
        }
        std::wstring staged = Stage(name->value);
        if (staged.empty()) {
            return E_FAIL;
        }
        files.push_back(staged);
    }
    return status;
}
