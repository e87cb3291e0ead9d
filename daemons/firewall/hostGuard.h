// What has to follow the host's changes while a daemon needs its table: adapters that come get their switch
// for forwarding turned on while there is a NAT network; a table that somebody has removed, as by flushing
// the whole ruleset, is put back; somebody else's change of the switch for the whole host is heeded. It reads
// nothing but the kernel's announcements.
#pragma once

#include <poll.h>

#include <vector>

#include "daemons/common/rtnetlink.h"

class HostGuard {
  public:
    // Subscribes to the announcements, and catches up with what has changed while nobody followed. False
    // after a line in the log.
    bool Begin();

    // Adds what to poll for; call Serve when there is something.
    void Collect(std::vector<pollfd> *waits) const;
    // True when somebody has removed a table of ours, or may have.
    bool Serve();

  private:
    void ServeAddresses();
    bool ServeRules();

    RtSocket addresses_;
    RtSocket rules_;
    bool lossIsTold_ = false;  // but not yet by whom
};
