#include "apps/zelan/posix/harbrelctl/execution/remains.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string_view>
#include <vector>

#include "lib/misc/owners.h"

namespace {

constexpr std::string_view FOLDERS[] = {"dhcpd", "nat"};
constexpr std::string_view FILES[] = {"dhcpd.conf",       "dhcpd.conf.bak", "dhcpd.leases", "dhcpd.leases~",
                                      "dhcpd.leases.new", "nat.conf",       "nat.conf.bak"};

bool IsOurFolder(std::string_view name) {
    return std::find(std::begin(FOLDERS), std::end(FOLDERS), name) != std::end(FOLDERS);
}

bool IsOurFile(std::string_view name) {
    // ISC dhcpd writes a file of leases anew under such a name, with the time of day behind it.
    constexpr std::string_view UNFINISHED = "dhcpd.leases.";
    return std::find(std::begin(FILES), std::end(FILES), name) != std::end(FILES) ||
           (name.starts_with(UNFINISHED) && name.size() > UNFINISHED.size() &&
            name.find_first_not_of("0123456789", UNFINISHED.size()) == name.npos);
}

// A folder, held while it is looked at.
struct Place {
    FileDescriptor folder;
    std::string path;
};

Place OpenBelow(int folder, const std::string &path, const std::string &name) {
    constexpr int FLAGS = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
    return {FileDescriptor(openat(folder, name.c_str(), FLAGS)), path + "/" + name};
}

std::vector<std::string> NamesIn(const Place &place) {
    std::vector<std::string> names;
    const int again = openat(place.folder.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const Directory entries(again >= 0 ? fdopendir(again) : nullptr);
    while (const dirent *entry = entries != nullptr ? readdir(entries.get()) : nullptr) {
        const std::string_view name = entry->d_name;
        if (name != "." && name != "..") {
            names.emplace_back(name);
        }
    }
    return names;
}

class Walk {
  public:
    explicit Walk(bool removes) : removes_(removes) {}

    // A network's folder at depth 0, one of its services' at depth 1.
    void Visit(const Place &above, const std::string &name, int depth) {
        const Place place = OpenBelow(above.folder.get(), above.path, name);
        if (!place.folder) {
            const bool isNoFolder = errno == ENOTDIR || errno == ELOOP;
            isNoFolder ? Keep(place.path) : Note(place.path, errno);
            return;
        }
        const size_t keptBefore = kept_;
        for (const std::string &entry : NamesIn(place)) {
            if (depth == 0 && IsOurFolder(entry)) {
                Visit(place, entry, depth + 1);
            } else if (depth == 1 && IsOurFile(entry)) {
                Take(place, entry, 0);
            } else {
                Keep(place.path + "/" + entry);
            }
        }
        if (kept_ == keptBefore) {
            Take(above, name, AT_REMOVEDIR);
        }
    }

    const Remains &remains() const { return remains_; }

  private:
    void Take(const Place &place, const std::string &name, int flags) {
        if (!removes_ || unlinkat(place.folder.get(), name.c_str(), flags) != 0) {
            Note(place.path + "/" + name, removes_ ? errno : 0);
        }
    }

    // What is gone is no news, nor is what follows from the first.
    void Note(const std::string &path, int error) {
        if (error != ENOENT && remains_.ours.empty()) {
            remains_.ours = path;
            remains_.reason = error != 0 ? strerror(error) : "";
        }
    }

    void Keep(const std::string &path) {
        kept_++;
        remains_.foreign = remains_.foreign.empty() ? path : remains_.foreign;
    }

    bool removes_;
    size_t kept_ = 0;
    Remains remains_;
};

Remains WalkThrough(const Paths &paths, int network, bool removes) {
    Walk walk(removes);
    const Place networks = {FileDescriptor(open(paths.networks.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)),
                            paths.networks};
    if (networks.folder) {
        walk.Visit(networks, NetworkName(network), 0);
    }
    return walk.remains();
}

}  // namespace

Remains FindRemains(const Paths &paths, int network) {
    return WalkThrough(paths, network, false);
}

Remains RemoveRemains(const Paths &paths, int network) {
    return WalkThrough(paths, network, true);
}
