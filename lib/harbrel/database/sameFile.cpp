#include "lib/harbrel/database/sameFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>

#include "lib/harbrel/files/files.h"
#include "lib/misc/owners.h"

namespace {

constexpr size_t BLOCK = 65536;

// As much as there is, up to a block.
size_t ReadAt(int file, off_t offset, std::array<char, BLOCK> *block) {
    size_t got = 0;
    ssize_t size = 0;
    while (got < BLOCK &&
           (size = pread(file, block->data() + got, BLOCK - got, offset + static_cast<off_t>(got))) > 0) {
        got += static_cast<size_t>(size);
    }
    return got;
}

bool HaveSameBytes(int left, int right, off_t size) {
    std::array<char, BLOCK> leftBlock;
    std::array<char, BLOCK> rightBlock;
    off_t offset = 0;
    while (offset < size) {
        const size_t got = ReadAt(left, offset, &leftBlock);
        if (got == 0 || ReadAt(right, offset, &rightBlock) != got ||
            !std::equal(leftBlock.begin(), leftBlock.begin() + got, rightBlock.begin())) {
            return false;
        }
        offset += static_cast<off_t>(got);
    }
    return true;
}

}  // namespace

bool NetCfgIsSameFile(const char *path, int file) {
    const FileDescriptor present(HBLOpenRegular(path, O_RDONLY | O_NOFOLLOW, 0));
    struct stat now;
    struct stat fresh;
    return present && fstat(present.get(), &now) == 0 && fstat(file, &fresh) == 0 && now.st_nlink == 1 &&
           now.st_mode == fresh.st_mode && now.st_uid == fresh.st_uid && now.st_gid == fresh.st_gid &&
           now.st_size == fresh.st_size && HaveSameBytes(present.get(), file, now.st_size);
}
