#include "support/FakeOffice.h"

#include "support/TestFiles.h"

FakeOffice::FakeOffice(int32_t hostKind) : FakeOfficeHost(hostKind, std::string()) {
    ReplaceContent(ReadFileBytes(SamplePath(Sample())));
}

void FakeOffice::Edit(const std::wstring& sample) {
    ReplaceContent(ReadFileBytes(SamplePath(sample)));
}

std::wstring FakeOffice::SamplePath(const std::wstring& sample) {
    return TestSourcePath(L"capture/office/samples/" + sample);
}

std::wstring FakeOffice::Sample() const { return std::wstring(L"sample.") + Extension(); }

std::wstring FakeOffice::RevisedSample() const {
    return std::wstring(L"sample-revised.") + Extension();
}
