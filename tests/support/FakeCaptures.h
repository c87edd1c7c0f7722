// A stand-in for the Office and Outlook capture subsystems and for the attachment choice dialog,
// so that the archive commands run without a host. It models only what the commands can see: the
// status each routine returns and, on success, files staged the way a capture stages them (a fresh
// staging folder per file, a small file in it, its path and properties handed back). The real
// hand-off writer and connector launch then work on real files. It reads nothing from the host
// objects it is given: it records them and touches each (AddRef, Release), as a capture that reads
// them would, so that a reference the command no longer owns shows up as a failure.
//
// Single-threaded, like the commands that call it.
#pragma once

#include <oaidl.h>

#include <cstdint>
#include <iosfwd>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "addin/commands/CaptureRoutines.h"

class FakeCaptures final : public CaptureRoutines, public AttachmentChooser {
public:
    enum class Routine {
        SaveOfficeDocument,
        GetOutlookDocumentCount,
        SaveOutlookDocument,
        SaveOutlookItem,
        GetAttachmentList,
        ChooseAttachments,
        SaveAttachments,
    };

    struct Call {
        Routine routine;
        // For comparing only: no reference is kept past the call.
        IDispatch* application = nullptr;
        IDispatch* item = nullptr;
        int32_t hostKind = 0;      // SaveOfficeDocument
        int32_t majorVersion = 0;  // SaveOfficeDocument, SaveOutlookItem
    };

    // One file staged by a successful routine.
    struct StagedFile {
        std::wstring folder;  // without the trailing backslash
        std::wstring id;      // the folder's name, "td_data_<tick count>"
        std::wstring path;    // the staged file
    };

    // --- Script. Every routine succeeds unless told otherwise.

    // The number of items selected in Outlook (1 at first); none makes GetOutlookDocumentCount
    // answer kNothingSelected. SaveOutlookDocument stages as many items as it has buffers for.
    void SelectItems(int32_t count) noexcept { m_selected = count; }
    // The status `routine` returns from now on. A failed status stages, lists and saves nothing.
    // GetOutlookDocumentCount is scripted with SelectItems, ChooseAttachments with Choose.
    void SetStatus(Routine routine, HRESULT status) { m_statuses[routine] = status; }
    // The file names of the attachments GetAttachmentList reports (none at first).
    void SetAttachments(std::vector<std::wstring> names) { m_attachments = std::move(names); }
    // The positions the user picks in the choice dialog (every attachment at first); no pick at
    // all is a cancelled dialog.
    void Choose(std::vector<size_t> positions) { m_choice = std::move(positions); }
    // The staged file with this number (0 for the first, counted across all routines) gets a
    // directory where its hand-off document belongs, so that writing the hand-off fails.
    void BlockHandOffOf(size_t stagedIndex) { m_blocked.insert(stagedIndex); }

    // --- Observation.

    const std::vector<Call>& Calls() const noexcept { return m_calls; }
    std::vector<Routine> Routines() const;
    const std::vector<StagedFile>& Staged() const noexcept { return m_staged; }

    // --- CaptureRoutines and AttachmentChooser.
    HRESULT SaveOfficeDocument(int32_t hostKind, IDispatch* application, PathBuffer& path,
                               PropertyMap& map, int32_t majorVersion) override;
    HRESULT GetOutlookDocumentCount(IDispatch* application) override;
    HRESULT SaveOutlookDocument(IDispatch* application, PathBuffer* paths, PropertyMap* maps,
                                int32_t count) override;
    HRESULT SaveOutlookItem(IDispatch* application, IDispatch* item, int32_t majorVersion,
                            PathBuffer& path, PropertyMap& map) override;
    HRESULT GetAttachmentList(IDispatch* application, IDispatch* item,
                              AttachmentList& attachments) override;
    HRESULT SaveAttachments(IDispatch* application, IDispatch* item,
                            const AttachmentList& attachments, FileList& files) override;
    int ChooseAttachments(AttachmentList& attachments) override;

private:
    // Records the call and answers the scripted status, S_OK when there is none.
    HRESULT Record(const Call& call);
    // Makes a staging folder holding a small file `name` and copies its path into `buffer` (if
    // any); an empty path (and a test failure) when that cannot be done.
    std::wstring Stage(const std::wstring& name, PathBuffer* buffer = nullptr);

    int32_t m_selected = 1;
    std::map<Routine, HRESULT> m_statuses;
    std::vector<std::wstring> m_attachments;
    std::optional<std::vector<size_t>> m_choice;
    std::set<size_t> m_blocked;
    std::vector<Call> m_calls;
    std::vector<StagedFile> m_staged;
};

std::ostream& operator<<(std::ostream& out, FakeCaptures::Routine routine);
