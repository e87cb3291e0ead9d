#include "daemons/zelan-natd/hostForwarding.h"

#include <fcntl.h>
#include <net/if.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <string_view>

#include "daemons/common/complain.h"
#include "daemons/common/file.h"
#include "daemons/common/text.h"

namespace {

// Holds the names of the adapters, one a line. Byte EDIT_OFFSET is locked by who reads or changes it, byte
// USE_OFFSET shared by the living daemons.
constexpr const char *NOTES_FILE = "/var/run/zelan-forwarding";
constexpr off_t EDIT_OFFSET = 0;
constexpr off_t USE_OFFSET = 1;

FileDescriptor OpenNotes() {
    FileDescriptor file(open(NOTES_FILE, O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (!file) {
        Complain("%s: %s", NOTES_FILE, strerror(errno));
    }
    return file;
}

bool Lock(const FileDescriptor &file, int command, short type, off_t offset, struct flock *lock) {
    *lock = {};
    lock->l_type = type;
    lock->l_whence = SEEK_SET;
    lock->l_start = offset;
    lock->l_len = 1;
    int result = 0;
    do {
        result = fcntl(file.get(), command, lock);
    } while (result != 0 && errno == EINTR);
    return result == 0;
}

// The notes, locked against other readers and writers for the life of the descriptor; empty on failure.
FileDescriptor OpenForEditing() {
    FileDescriptor file = OpenNotes();
    struct flock lock;
    if (file && !Lock(file, F_OFD_SETLKW, F_WRLCK, EDIT_OFFSET, &lock)) {
        Complain("lock on %s: %s", NOTES_FILE, strerror(errno));
        file.reset();
    }
    return file;
}

std::string SwitchOf(const std::string &name) {
    return "/proc/sys/net/ipv4/conf/" + name + "/forwarding";
}

bool IsOn(const std::string &name) {
    std::string text;
    return File_Read(SwitchOf(name).c_str(), &text) && text.starts_with('1');
}

}  // namespace

bool HostForwarding::Begin() {
    FileDescriptor editing = OpenForEditing();
    struct flock lock;
    file_ = editing ? OpenNotes() : FileDescriptor();
    return file_ && Lock(file_, F_OFD_SETLKW, F_RDLCK, USE_OFFSET, &lock);
}

void HostForwarding::Allow(int link) const {
    constexpr char OWN_PREFIX[] = "zelan";
    char name[IF_NAMESIZE];
    if (if_indextoname(static_cast<unsigned>(link), name) == nullptr || strcmp(name, "lo") == 0 ||
        strncmp(name, OWN_PREFIX, sizeof OWN_PREFIX - 1) == 0 || IsOn(name)) {
        return;
    }
    FileDescriptor notes = OpenForEditing();
    std::string line = std::string(name) + "\n";
    if (!notes || lseek(notes.get(), 0, SEEK_END) < 0 ||
        write(notes.get(), line.data(), line.size()) != static_cast<ssize_t>(line.size()) ||
        !File_Write(SwitchOf(name).c_str(), "1")) {
        Complain("cannot let the host forward what comes in by %s: %s", name, strerror(errno));
    }
}

bool HostForwarding::AllowOwn(const char *name) {
    return File_Write(SwitchOf(name).c_str(), "1");
}

void HostForwarding::EndWhenUnused() {
    FileDescriptor notes = OpenForEditing();
    struct flock lock;
    if (!notes || !Lock(notes, F_OFD_GETLK, F_WRLCK, USE_OFFSET, &lock) || lock.l_type != F_UNLCK) {
        return;
    }
    std::string text;
    if (File_Read(NOTES_FILE, &text) && !IsOn("all")) {
        std::string_view rest = text;
        std::string_view name;
        while (Text_TakeLine(&rest, &name)) {
            File_Write(SwitchOf(std::string(name)).c_str(), "0");
        }
    }
    (void)!ftruncate(notes.get(), 0);
}
