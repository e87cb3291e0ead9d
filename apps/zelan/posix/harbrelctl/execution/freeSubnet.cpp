#include "apps/zelan/posix/harbrelctl/execution/freeSubnet.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include "lib/harbrel/harbrel.h"
#include "lib/misc/owners.h"

namespace {

constexpr int ATTEMPTS = 10;
constexpr int TICK_MILLISECONDS = 500;
constexpr uint32_t PING_SECONDS = 2;
constexpr uint32_t PING_INTERVAL = 1;

bool IsFree(const Subnet &subnet, const Config &config, const Surroundings &surroundings) {
    for (const NetworkConfig &network : config.networks) {
        const std::optional<Subnet> taken = network.NetworkSubnet();
        if (taken && Overlap(subnet, *taken)) {
            return false;
        }
    }
    return std::none_of(surroundings.subnets.begin(), surroundings.subnets.end(),
                        [&subnet](const ForeignSubnet &one) { return Overlap(subnet, one.subnet); });
}

// The library compares addresses alone, so what overlaps is passed over here.
std::optional<Subnet> AskLibrary(const Config &config, const Surroundings &surroundings) {
    for (int attempt = 0; attempt < ATTEMPTS; attempt++) {
        char address[16];
        char mask[16];
        if (!HBL_GetUnusedSubnet(address, sizeof address, mask, sizeof mask)) {
            return std::nullopt;
        }
        const std::optional<Subnet> subnet = SubnetOf(address, mask);
        if (subnet && IsFree(*subnet, config, surroundings)) {
            return subnet;
        }
    }
    return std::nullopt;
}

}  // namespace

// In a child, because the library runs a program that keeps interrupts from its caller.
std::optional<Subnet> FindFreeSubnet(const Config &config, const Surroundings &surroundings,
                                     const std::function<void()> &tick) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        return std::nullopt;
    }
    const FileDescriptor readEnd(ends[0]);
    FileDescriptor writeEnd(ends[1]);
    fflush(nullptr);
    const pid_t child = fork();
    if (child < 0) {
        return std::nullopt;
    }
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        const Subnet found = AskLibrary(config, surroundings).value_or(Subnet());
        (void)!write(writeEnd.get(), &found, sizeof found);
        _exit(EXIT_SUCCESS);
    }
    writeEnd.reset();
    pollfd answer = {readEnd.get(), POLLIN, 0};
    while (poll(&answer, 1, TICK_MILLISECONDS) == 0) {
        tick();
    }
    Subnet found;
    const bool arrived = read(readEnd.get(), &found, sizeof found) == sizeof found;
    waitpid(child, nullptr, 0);
    return arrived && found != Subnet() ? std::optional(found) : std::nullopt;
}

std::vector<int> BusyNetworks(const std::vector<int> &networks) {
    std::vector<char> busy(networks.size(), 0);
    std::vector<std::jthread> threads;
    for (size_t index = 0; index < networks.size(); index++) {
        threads.emplace_back([&busy, index, name = NetworkName(networks[index])] {
            bool available = false;
            busy[index] =
                !HBL_CheckSubnetAvailability(name.c_str(), false, PING_SECONDS, PING_INTERVAL, &available) ||
                !available;
        });
    }
    threads.clear();
    std::vector<int> result;
    for (size_t index = 0; index < networks.size(); index++) {
        if (busy[index] != 0) {
            result.push_back(networks[index]);
        }
    }
    return result;
}
