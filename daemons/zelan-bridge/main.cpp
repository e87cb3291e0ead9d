// zelan-bridge -s W -d PIDFILE -n N [-eNAME]...
// zelan-bridge -s W -d PIDFILE -n N -iNAME...
//
// Bridges network N to the host's adapters: to every Ethernet adapter but those of -e, or to those of -i
// alone. Adapters may come and go. The ports on the switch are TAPs, which the kernel removes when this
// process ends.
#include <linux/capability.h>
#include <sys/epoll.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "daemons/common/complain.h"
#include "daemons/common/daemon.h"
#include "daemons/common/options.h"
#include "daemons/common/switch.h"
#include "daemons/zelan-bridge/cableSet.h"

namespace {

// How long a new adapter is left alone before it is looked at: tools make an interface first and plug it into
// a bridge or rename it a moment later.
constexpr int SETTLE_MILLISECONDS = 100;

constexpr int CAPABILITIES[] = {CAP_NET_ADMIN, CAP_NET_RAW, CAP_SETUID, CAP_SETGID};

struct Arguments {
    DaemonContract contract;
    int network = -1;
    AdapterRule rule;
};

bool ReadArguments(char **argv, Arguments *arguments) {
    const char *network = nullptr;
    std::vector<const char *> excluded;
    std::vector<const char *> included;
    const OptionRule rules[] = {{"-s", &arguments->contract.statusText},
                                {"-d", &arguments->contract.pidFile},
                                {"-n", &network},
                                {"-e", nullptr, &excluded},
                                {"-i", nullptr, &included}};
    std::vector<const char *> operands;
    if (!Options_Read(argv, rules, &operands)) {
        return false;
    }
    if (!operands.empty() || (!excluded.empty() && !included.empty())) {
        Complain("usage: -s DESCRIPTOR -d PIDFILE -n NETWORK [-eADAPTER]... or [-iADAPTER]...");
        return false;
    }
    if (!Options_Number(network, SWITCH_MAX_NETWORK, &arguments->network)) {
        Complain("option -n needs a network's number from 0 to %d, not %s", SWITCH_MAX_NETWORK, network);
        return false;
    }
    arguments->rule.takesAll = included.empty();
    const std::vector<const char *> &names = included.empty() ? excluded : included;
    arguments->rule.names.assign(names.begin(), names.end());
    return Daemon_TakeContract(&arguments->contract, CAPABILITIES);
}

// One end of a cable, or the announcements (without a cable), as epoll hands it back.
enum class Source : uintptr_t { TAP = 0, ADAPTER = 1 };
constexpr uintptr_t SOURCE_MASK = 1;
constexpr uint64_t ANNOUNCEMENTS = 0;

uint64_t Tag(Cable *cable, Source source) {
    return reinterpret_cast<uintptr_t>(cable) | static_cast<uintptr_t>(source);
}

GuestTable::Time Now() {
    return std::chrono::duration_cast<GuestTable::Time>(std::chrono::steady_clock::now().time_since_epoch());
}

class FrameMover {
  public:
    explicit FrameMover(CableSet *cables) : cables_(cables) {}

    [[noreturn]] void Run();

  private:
    void Watch(int operation, int descriptor, uint32_t events, uint64_t tag);
    void Add(Cable *cable);
    void Serve(const epoll_event &event, GuestTable::Time now);
    void ServeTap(Cable *cable, bool wasHeldUp, GuestTable::Time now);

    CableSet *cables_;
    FileDescriptor epoll_;
    GuestTable guests_;
};

void FrameMover::Watch(int operation, int descriptor, uint32_t events, uint64_t tag) {
    epoll_event event = {};
    event.events = events;
    event.data.u64 = tag;
    if (epoll_ctl(epoll_.get(), operation, descriptor, &event) != 0) {
        Complain("epoll: %s", strerror(errno));
    }
}

void FrameMover::Add(Cable *cable) {
    Watch(EPOLL_CTL_ADD, cable->tap(), EPOLLIN, Tag(cable, Source::TAP));
    Watch(EPOLL_CTL_ADD, cable->adapterSocket(), EPOLLIN, Tag(cable, Source::ADAPTER));
}

// While a frame waits for room in the adapter's queue nothing more is taken from the switch.
void FrameMover::ServeTap(Cable *cable, bool wasHeldUp, GuestTable::Time now) {
    cable->MoveToAdapter(&guests_, now);
    if (cable->IsHeldUp() != wasHeldUp) {
        bool heldUp = cable->IsHeldUp();
        Watch(EPOLL_CTL_MOD, cable->tap(), heldUp ? uint32_t{0} : EPOLLIN, Tag(cable, Source::TAP));
        Watch(EPOLL_CTL_MOD, cable->adapterSocket(), heldUp ? EPOLLIN | EPOLLOUT : EPOLLIN,
              Tag(cable, Source::ADAPTER));
    }
}

void FrameMover::Serve(const epoll_event &event, GuestTable::Time now) {
    auto *cable = reinterpret_cast<Cable *>(event.data.u64 & ~SOURCE_MASK);
    if (static_cast<Source>(event.data.u64 & SOURCE_MASK) == Source::TAP) {
        ServeTap(cable, cable->IsHeldUp(), now);
        return;
    }
    if ((event.events & EPOLLOUT) != 0) {
        ServeTap(cable, true, now);
    }
    if ((event.events & ~static_cast<uint32_t>(EPOLLOUT)) != 0) {
        cable->MoveToSwitch(guests_, now);
    }
}

void FrameMover::Run() {
    constexpr int EVENT_COUNT = 64;
    std::array<epoll_event, EVENT_COUNT> events;
    epoll_.reset(epoll_create1(EPOLL_CLOEXEC));
    Watch(EPOLL_CTL_ADD, cables_->announcements(), EPOLLIN, ANNOUNCEMENTS);
    for (const auto &cable : cables_->cables()) {
        Add(cable.get());
    }
    cables_->onConnect = [this](Cable *cable) { Add(cable); };
    GuestTable::Time notedAt{0};
    for (;;) {
        int count = epoll_wait(epoll_.get(), events.data(), EVENT_COUNT,
                               cables_->HasNoted() ? SETTLE_MILLISECONDS : -1);
        GuestTable::Time now = Now();
        bool announced = false;
        for (int i = 0; i < count; i++) {
            const epoll_event &event = events[static_cast<size_t>(i)];
            if (event.data.u64 == ANNOUNCEMENTS) {
                announced = true;
            } else {
                Serve(event, now);
            }
        }
        // Last, since it may remove cables that other events speak of.
        if (announced) {
            cables_->TakeAnnouncements();
            notedAt = now;
        }
        if (cables_->HasNoted() && Now() - notedAt >= std::chrono::milliseconds(SETTLE_MILLISECONDS)) {
            cables_->TakeNoted();
        }
    }
}

}  // namespace

int main(int, char **argv) {
    Arguments arguments;
    if (!ReadArguments(argv, &arguments) ||
        !Daemon_Claim(&arguments.contract, Service::BRIDGE, arguments.network)) {
        return EXIT_FAILURE;
    }
    CleanUp cleanUp;
    CableSet cables(arguments.network, arguments.rule);
    if (!cables.Begin()) {
        Daemon_GiveUp(&arguments.contract, cleanUp);
    }
    Daemon_Detach(&arguments.contract, cleanUp);
    FrameMover(&cables).Run();
}
