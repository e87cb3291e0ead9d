#include "daemons/common/file.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstring>

#include "lib/misc/owners.h"

namespace {

void SyncFolderOf(const std::string &path) {
    const size_t slash = path.rfind('/');
    const std::string folder = slash == std::string::npos ? "." : path.substr(0, slash + 1);
    const FileDescriptor names(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (names) {
        fsync(names.get());  // without it the former file may be there after a loss of power
    }
}

}  // namespace

bool File_Read(const char *path, std::string *text) {
    constexpr size_t MAX_SIZE = 4 * 1024 * 1024;
    FileDescriptor file(open(path, O_RDONLY | O_CLOEXEC));
    std::array<char, 4096> block;
    ssize_t size = file ? 0 : -1;
    text->clear();
    while (file && (size = read(file.get(), block.data(), block.size())) > 0) {
        text->append(block.data(), static_cast<size_t>(size));
        if (text->size() > MAX_SIZE) {
            errno = EFBIG;
            return false;
        }
    }
    return size == 0;
}

bool File_Write(const char *path, const char *text) {
    FileDescriptor file(open(path, O_WRONLY | O_CLOEXEC));
    auto size = static_cast<ssize_t>(strlen(text));
    return file && write(file.get(), text, static_cast<size_t>(size)) == size;
}

std::string File_Unfinished(const std::string &path) {
    return path + ".new";
}

std::string File_Absolute(const char *path) {
    char folder[PATH_MAX];
    if (*path == '/' || getcwd(folder, sizeof folder) == nullptr) {
        return path;
    }
    return std::string(folder) + "/" + path;
}

bool File_Replace(const char *path, const std::string &text) {
    const std::string temporary = File_Unfinished(path);
    FileDescriptor file(open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0644));
    if (file && write(file.get(), text.data(), text.size()) == static_cast<ssize_t>(text.size()) &&
        fsync(file.get()) == 0 && rename(temporary.c_str(), path) == 0) {
        SyncFolderOf(temporary);
        return true;
    }
    int error = errno;
    unlink(temporary.c_str());
    errno = error;
    return false;
}
