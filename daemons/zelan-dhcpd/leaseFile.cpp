#include "daemons/zelan-dhcpd/leaseFile.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <ctime>

#include "daemons/common/complain.h"

namespace {

constexpr mode_t NEW_FILE = 0644;

// The folder is looked up once; no link in it is followed.
struct Place {
    FileDescriptor folder;
    std::string name;
    const char *path;
};

bool Fail(const char *path) {
    Complain("%s: %s", path, strerror(errno));
    return false;
}

bool OpenPlace(const char *path, Place *place) {
    std::string whole = path;
    size_t slash = whole.rfind('/');
    std::string folder = slash == std::string::npos ? "." : whole.substr(0, slash + 1);
    place->folder.reset(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    place->name = slash == std::string::npos ? whole : whole.substr(slash + 1);
    place->path = path;
    return place->folder || Fail(path);
}

bool ReadAll(int file, std::string *text) {
    constexpr size_t MAX_SIZE = 64 * 1024 * 1024;
    std::array<char, 65536> block;
    ssize_t size = 0;
    while ((size = read(file, block.data(), block.size())) > 0 && text->size() < MAX_SIZE) {
        text->append(block.data(), static_cast<size_t>(size));
    }
    errno = size > 0 ? EFBIG : errno;
    return size == 0;
}

// Opens the lease file, made if need be; only a plain one under no other name counts.
FileDescriptor OpenFile(const Place &place) {
    constexpr int FLAGS = O_RDONLY | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
    FileDescriptor file(openat(place.folder.get(), place.name.c_str(), FLAGS, NEW_FILE));
    struct stat status = {};
    if (!file || fstat(file.get(), &status) != 0) {
        Fail(place.path);
        return {};
    }
    // dhcpd keeps the file it had before under a second name.
    if (!S_ISREG(status.st_mode) || status.st_nlink > 2) {
        Complain("%s: no file of leases", place.path);
        return {};
    }
    return file;
}

bool Own(int file, const OwnUser &owner) {
    struct stat status = {};
    return fstat(file, &status) == 0 && ((status.st_uid == owner.user && status.st_gid == owner.group) ||
                                         fchown(file, owner.user, owner.group) == 0);
}

// Puts a new file in the place of the old one once it is whole on the disk. Empty after a line in the log.
FileDescriptor Replace(const Place &place, const std::string &text, const OwnUser &owner) {
    constexpr int FLAGS = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
    std::string temporary = place.name + ".new";
    unlinkat(place.folder.get(), temporary.c_str(), 0);
    FileDescriptor file(openat(place.folder.get(), temporary.c_str(), FLAGS, NEW_FILE));
    if (file && write(file.get(), text.data(), text.size()) == static_cast<ssize_t>(text.size()) &&
        Own(file.get(), owner) && fsync(file.get()) == 0 &&
        renameat(place.folder.get(), temporary.c_str(), place.folder.get(), place.name.c_str()) == 0 &&
        fsync(place.folder.get()) == 0) {
        return file;
    }
    Fail(place.path);
    unlinkat(place.folder.get(), temporary.c_str(), 0);
    return {};
}

std::vector<DhcpLease> Merge(const LeasePlan &plan, std::vector<DhcpLease> found) {
    std::vector<DhcpLease> leases = plan.fixed;
    std::copy_if(found.begin(), found.end(), std::back_inserter(leases), [&](const DhcpLease &lease) {
        return std::none_of(plan.fixed.begin(), plan.fixed.end(),
                            [&](const DhcpLease &fixed) { return fixed.address == lease.address; });
    });
    return leases;
}

}  // namespace

FileDescriptor LeaseFile_Prepare(const char *path, const LeasePlan &plan) {
    Place place;
    std::string text;
    FileDescriptor file = OpenPlace(path, &place) ? OpenFile(place) : FileDescriptor();
    if (!file) {
        return {};
    }
    if (!ReadAll(file.get(), &text)) {
        Fail(path);
        return {};
    }
    LeaseFormat found = Leases_FormatOf(text);
    if (found == LeaseFormat::FOREIGN) {
        Complain("%s: neither the leases of dnsmasq nor those of ISC dhcpd", path);
        return {};
    }
    if (found == plan.format || found == LeaseFormat::EMPTY) {
        return Own(file.get(), plan.owner) || Fail(path) ? std::move(file) : FileDescriptor();
    }
    int64_t now = time(nullptr);
    std::vector<DhcpLease> leases = Merge(plan, Leases_Read(found, text, now));
    file = Replace(place, Leases_Write(plan.format, leases, now), plan.owner);
    if (file) {
        Tell("%s: %zu leases taken over from the other server", path, leases.size());
    }
    return file;
}
