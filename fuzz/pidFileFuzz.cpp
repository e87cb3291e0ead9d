// PID files: whatever stands there, the result is a positive number or 0.
#include "fuzz/inputFile.h"
#include "lib/harbrel/services/daemons.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const InputFile file;
    file.Write(data, size);
    bool openFailed = false;
    if (HBLExtractPidFromFile(file.Path().c_str(), &openFailed) < 0 || openFailed) {
        abort();
    }
    return 0;
}
