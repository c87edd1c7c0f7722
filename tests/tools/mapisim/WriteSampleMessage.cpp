// Writes the sample mail through the simulated MAPI to the file named on the command line, for
// an independent reader to check.
#include <cstdio>

#include "tools/mapisim/SampleMessage.h"

int wmain(int argc, wchar_t** argv) {
    if (argc != 2) {
        fprintf(stderr, "usage: write_sample_message FILE.msg\n");
        return 2;
    }
    HRESULT hr = sample::WriteSampleMessage(argv[1]);
    if (FAILED(hr)) {
        fprintf(stderr, "writing the sample failed: 0x%08lX\n", static_cast<unsigned long>(hr));
        return 1;
    }
    return 0;
}
