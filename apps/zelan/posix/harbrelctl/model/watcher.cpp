#include "apps/zelan/posix/harbrelctl/model/watcher.h"

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <iterator>
#include <thread>

namespace {

constexpr int TICK_MILLISECONDS = 1000;
constexpr std::chrono::milliseconds SETTLE{50};  // changes come in flocks
constexpr uint32_t FILE_EVENTS = IN_CREATE | IN_DELETE | IN_MOVED_TO | IN_CLOSE_WRITE | IN_MODIFY;

FileDescriptor KernelSocket() {
    FileDescriptor file(socket(AF_NETLINK, SOCK_RAW | SOCK_NONBLOCK | SOCK_CLOEXEC, NETLINK_ROUTE));
    sockaddr_nl address = {};
    address.nl_family = AF_NETLINK;
    address.nl_groups = RTMGRP_LINK | RTMGRP_IPV4_IFADDR | RTMGRP_NEIGH;
    if (file && bind(file.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) {
        file.reset();
    }
    return file;
}

void Drain(const FileDescriptor &file) {
    char bytes[8192];
    while (read(file.get(), bytes, sizeof bytes) > 0) {
    }
}

}  // namespace

Watcher::Watcher(const Host &host)
    : kernel_(KernelSocket()), files_(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
    inotify_add_watch(files_.get(), host.paths.pidFiles.c_str(), FILE_EVENTS);
    inotify_add_watch(files_.get(), "/etc/orvane", FILE_EVENTS);
    Follow(host);
}

void Watcher::Follow(const Host &host) const {
    for (int network = 0; network < NETWORK_COUNT; network++) {
        if (host.config.networks[network].IsOn(FIELD_DHCP)) {
            const std::filesystem::path leases = host.paths.Leases(network);
            inotify_add_watch(files_.get(), leases.parent_path().c_str(), FILE_EVENTS);
        }
    }
}

void Watcher::Wait() const {
    pollfd sources[] = {{kernel_.get(), POLLIN, 0}, {files_.get(), POLLIN, 0}};
    poll(sources, std::size(sources), TICK_MILLISECONDS);
    std::this_thread::sleep_for(SETTLE);
    Drain(kernel_);
    Drain(files_);
}
