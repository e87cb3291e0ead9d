#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "daemons/common/complain.h"
#include "daemons/zelan-dhcpd/powerless.h"
#include "daemons/zelan-dhcpd/server.h"

namespace {

// The text as a file without a name, to be read from its begin.
FileDescriptor FileOf(const std::string &text) {
    FileDescriptor file(memfd_create("dnsmasq.conf", MFD_CLOEXEC));
    if (!file || write(file.get(), text.data(), text.size()) != static_cast<ssize_t>(text.size()) ||
        lseek(file.get(), 0, SEEK_SET) != 0) {
        Complain("configuration of dnsmasq: %s", strerror(errno));
        return {};
    }
    return file;
}

}  // namespace

// Its standard input is its configuration, its standard output the lease file, which it opens by the name of
// that descriptor: it needs no way through the folders above, and finds no other file there. It stays in the
// foreground, as a start in the background forks twice and has nobody know the process id; it leaves its
// standard error once it is up.
Server Server_Dnsmasq(ServerStart *start, const std::string &configuration, const OwnUser &user) {
    FileDescriptor input = FileOf(configuration);
    if (!input) {
        return {};
    }
    return {.arguments = {"--keep-in-foreground", "--conf-file=-", "--dhcp-leasefile=/proc/self/fd/1"},
            .input = std::move(input),
            .output = std::move(start->leaseFile),
            .sign = ServerSign::LEAVES_STANDARD_ERROR,
            .confine = [user] { return Powerless_Become(user); }};
}
