#include "apps/zelan/posix/harbrelctl/probes/guestPort.h"

#include <fcntl.h>
#include <linux/if_tun.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace {

constexpr size_t LONGEST_FRAME = 2048;
constexpr std::chrono::milliseconds REPEAT{500};

ifreq Named(const std::string &name) {
    ifreq request = {};
    name.copy(request.ifr_name, IFNAMSIZ - 1);
    return request;
}

// Plugs the interface into the switch and brings it up.
bool Plug(const char *name, const std::string &switchName) {
    const FileDescriptor control(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    ifreq up = Named(name);
    up.ifr_flags = IFF_UP;
    ifreq port = Named(switchName);
    port.ifr_ifindex = static_cast<int>(if_nametoindex(name));
    return control && ioctl(control.get(), SIOCBRADDIF, &port) == 0 &&
           ioctl(control.get(), SIOCSIFFLAGS, &up) == 0;
}

}  // namespace

GuestPort::GuestPort(const std::string &switchName, int network)
    : mac_{0x02, 0x5a, 0x4c, 0, 0, static_cast<uint8_t>(network)} {
    FileDescriptor file(open("/dev/net/tun", O_RDWR | O_NONBLOCK | O_CLOEXEC));
    ifreq request = Named("zelan-probe%d");
    request.ifr_flags = IFF_TAP | IFF_NO_PI;
    if (!file || ioctl(file.get(), TUNSETIFF, &request) != 0 || !Plug(request.ifr_name, switchName)) {
        error_ = errno;
        return;
    }
    file_ = std::move(file);
}

bool GuestPort::Ask(const Frame &frame, const IsAnswer &isAnswer, std::chrono::milliseconds patience) const {
    const auto end = std::chrono::steady_clock::now() + patience;
    auto next = std::chrono::steady_clock::now();
    while (true) {
        const auto now = std::chrono::steady_clock::now();
        if (now >= end) {
            return false;
        }
        if (now >= next) {
            (void)!write(file_.get(), frame.data(), frame.size());
            next = now + REPEAT;
        }
        const auto pause = std::chrono::duration_cast<std::chrono::milliseconds>(std::min(next, end) - now);
        pollfd ready = {file_.get(), POLLIN, 0};
        poll(&ready, 1, static_cast<int>(pause.count()) + 1);
        uint8_t bytes[LONGEST_FRAME];
        const ssize_t size = read(file_.get(), bytes, sizeof bytes);
        if (size > 0 && isAnswer({bytes, static_cast<size_t>(size)})) {
            return true;
        }
    }
}
