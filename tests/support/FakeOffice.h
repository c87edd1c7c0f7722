// The simulated Word, Excel and PowerPoint of tools/officesim holding the small real packages of
// tests/capture/office/samples/: a new document holds the host's sample ("sample.docx", ...), and
// an edit swaps in another sample as if the user had changed the document.
#pragma once

#include <cstdint>
#include <string>

#include "officesim/FakeOfficeHost.h"

class FakeOffice : public FakeOfficeHost {
public:
    // `hostKind` is kHostWord, kHostExcel or kHostPowerPoint.
    explicit FakeOffice(int32_t hostKind);

    // Replaces the content with the bytes of a file in tests/capture/office/samples/. Marks the
    // document unsaved; no file changes.
    void Edit(const std::wstring& sample);

    // The path of a file in tests/capture/office/samples/, and the host's own sample
    // ("sample.docx", ...) and its edited twin ("sample-revised.docx", ...).
    static std::wstring SamplePath(const std::wstring& sample);
    std::wstring Sample() const;
    std::wstring RevisedSample() const;
};
