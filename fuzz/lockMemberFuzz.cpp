// The member file of a lock: as text, and as a file of the right size in a lock directory.
#include <cstring>

#include "fuzz/inputFile.h"
#include "lib/file/fileLockInternal.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const InputFile file;
    char text[FILE_LOCK_MEMBER_SIZE + 1] = {};
    memcpy(text, data, size < FILE_LOCK_MEMBER_SIZE ? size : FILE_LOCK_MEMBER_SIZE);
    file.Write(reinterpret_cast<const uint8_t *>(text), FILE_LOCK_MEMBER_SIZE);
    FileLockValues member = {};
    char buffer[FILE_LOCK_MEMBER_SIZE + 1];
    const std::string folder = std::filesystem::path(file.Path()).parent_path();
    const int error = FileLockMemberValues(folder.c_str(), "input", buffer, FILE_LOCK_MEMBER_SIZE, &member);
    if (error == 0) {
        FileLockMachineIDMatch(FileLockGetMachineID(), member.machineID);
        FileLockMachineIDMatch("uuid=1", member.machineID);
        FileLockValidOwner(member.executionID, member.payload);
    } else if (std::filesystem::exists(file.Path())) {
        abort();  // a broken member is to be deleted
    }
    return 0;
}
