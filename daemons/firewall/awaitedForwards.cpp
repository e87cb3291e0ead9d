#include "daemons/firewall/awaitedForwards.h"

#include <algorithm>

#include "daemons/common/complain.h"
#include "daemons/firewall/hostPort.h"
#include "daemons/firewall/hostTable.h"

namespace {

constexpr std::chrono::seconds FIRST_PAUSE{1};
constexpr std::chrono::seconds LONGEST_PAUSE{30};

}  // namespace

void AwaitedForwards::Expect(Clock::time_point now) {
    pause_ = FIRST_PAUSE;
    due_ = now + pause_;
}

void AwaitedForwards::Look(Clock::time_point now) {
    bool someAreLeft = false;
    for (const auto &[network, port] : HostTable_Awaited()) {
        FileDescriptor handle = HostPort_Hold(port);
        if (handle && HostTable_TakeUp(network, port)) {
            Tell("%s port %u is forwarded to network %d, now that it is free", HostPort_Protocol(port),
                 port.port, network);
            held_[network].push_back(std::move(handle));
        } else {
            someAreLeft = true;
        }
    }
    pause_ = std::min<Clock::duration>(2 * pause_, LONGEST_PAUSE);
    due_ = someAreLeft ? now + pause_ : Clock::time_point::max();
}
