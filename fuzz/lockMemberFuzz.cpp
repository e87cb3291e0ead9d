// The member file of a lock: a file of the right size in a lock directory.
#include <cstring>

#include "fuzz/inputFile.h"
#include "lib/file/fileLockInternal.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const InputFile file;
    char text[FILE_LOCK_MEMBER_SIZE] = {};
    memcpy(text, data, size < sizeof text ? size : sizeof text);
    file.Write(reinterpret_cast<const uint8_t *>(text), sizeof text);
    LockDirectory directory(std::filesystem::path(file.Path()).parent_path());
    if (directory.FindFolder() != 0 || directory.Open() != 0) {
        abort();
    }
    FileLockValues member;
    const int error = FileLockMemberValues(directory, "input", &member);
    if (error == 0) {
        FileLockMachineIDMatch(FileLockGetMachineID(), member.machineID);
        FileLockMachineIDMatch("uuid=1", member.machineID);
        FileLockValidOwner(member.executionID, member.payload);
    } else if (std::filesystem::exists(file.Path())) {
        abort();  // a broken member is to be deleted
    }
    return 0;
}
