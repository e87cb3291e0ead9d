// Forwards whose ports other programs had when their NAT daemons were started, and which are taken up once
// the ports are free. The daemons cannot do so themselves, having given up all privileges.
#pragma once

#include <chrono>
#include <map>
#include <vector>

#include "lib/misc/owners.h"

class AwaitedForwards {
  public:
    using Clock = std::chrono::steady_clock;

    // A NAT daemon has come, which may wait for ports; one has gone, which needs none any more.
    void Expect(Clock::time_point now);
    void Forget(int network) { held_.erase(network); }

    // When to look next; never while nobody waits.
    Clock::time_point due() const { return due_; }

    // Takes up what has become free, each with a line in the log. While something is left it is looked for
    // less and less often.
    void Look(Clock::time_point now);

  private:
    Clock::time_point due_ = Clock::time_point::max();
    Clock::duration pause_ = {};
    std::map<int, std::vector<FileDescriptor>> held_;  // by network
};
