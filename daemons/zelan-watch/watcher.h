// The one process of the host that outlives the daemons: it waits for the end of each and cleans up behind
// it.
#pragma once

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <poll.h>

#include "daemons/common/rtnetlink.h"
#include "daemons/common/service.h"
#include "daemons/common/traces.h"
#include "daemons/firewall/awaitedForwards.h"
#include "daemons/firewall/guestPorts.h"
#include "daemons/firewall/hostGuard.h"
#include "daemons/firewall/hostTable.h"
#include "daemons/zelan-watch/leftovers.h"
#include "daemons/zelan-watch/switches.h"
#include "lib/misc/owners.h"

class Watcher {
  public:
    using Clock = std::chrono::steady_clock;

    // Takes the living daemons over that a predecessor has guarded, and puts aside what is left of the dead.
    // Their connections come in by `listener`. False after a line in the log.
    bool Begin(FileDescriptor listener);

    // Returns when nothing is left to guard.
    void Run();

  private:
    // A daemon that lives, or is not yet known to be dead.
    struct Guarded {
        FileDescriptor process;  // readable once it is dead
        Traces traces;
    };

    // A daemon that is being started, or somebody who wants all cleaned up.
    struct Client {
        FileDescriptor connection;
        std::optional<Duty> duty;
        bool holds = false;  // the duty is the client's
        bool isGuarded = false;
        bool awaitsSweep = false;
        Clock::time_point patience = {};  // until when it waits for a predecessor's end
    };

    void TakeOver(const Duty &duty);
    void Guard(const Duty &duty, FileDescriptor process, Traces traces);
    void Bury(const Duty &duty);
    void BuryAllDead();

    void AcceptAll();
    void Add(FileDescriptor connection);
    void Serve(Client *client);
    bool Answer(Client *client, const std::string &request, FileDescriptor descriptor);
    bool TryClaim(Client *client);
    bool GuardFor(Client *client, FileDescriptor process);
    void Leave(Client *client);
    void RetryClaims();

    bool IsAlive(const Duty &duty) const;
    bool IsNetworkInUse(int network) const;
    bool IsAnyNetworkInUse() const;
    std::vector<int> ClosedNetworks() const;
    void KeepNetworksApart();
    void RemoveSoon();
    void RemoveNow();
    void RetryAfter(int error);
    void RemoveSomeSwitches();
    void AnswerSweeps();
    bool IsRemoving() const { return removalDue_.has_value() || !switches_.empty(); }
    bool HasNothingToDo() const;
    bool End();

    void Collect(std::vector<pollfd> *waits);
    int WaitMilliseconds() const;
    void Dispatch(const std::vector<pollfd> &waits);

    FileDescriptor listener_;
    FileDescriptor ends_;  // of the guarded daemons, together
    RtSocket requests_;
    HostGuard host_;
    std::optional<HostTable> table_;  // while a network is in use, also by daemons that do not ask for it
    AwaitedForwards forwards_;
    Guests guests_;
    GuestPorts guestPorts_;
    bool dutiesChanged_ = true;  // since the following was found out
    std::vector<int> closed_;    // networks that are kept apart, ascending
    std::map<Duty, Guarded> guarded_;
    std::vector<Client> clients_;
    size_t firstClient_ = 0;              // where they begin among what is waited for
    std::vector<UnusedSwitch> switches_;  // to be removed, a few at a time
    bool guestsRemain_ = false;
    std::optional<Clock::time_point> removalDue_;
    Clock::time_point removalLimit_ = {};
    int removalError_ = 0;  // of the last removal, an errno value
    std::chrono::milliseconds retryTime_ = {};
};
