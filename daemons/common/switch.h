// The switch of a network: the Linux bridge zelan-sw<N>, to which the daemons and the guests attach.
//
// Whichever daemon needs it first makes it. It goes with its last user: every daemon holds a SwitchUse for as
// long as it lives, and the watcher of the last one removes the switch once no guest is attached either. The
// kernel takes 24 to 40 ms for that, so that nothing that somebody waits for does it.
#pragma once

#include "daemons/common/link.h"
#include "daemons/common/rtnetlink.h"
#include "lib/misc/owners.h"

inline constexpr int SWITCH_MAX_NETWORK = 255;

// Serialises the making and the removal of one network's switch and ports between all daemons of the host.
class SwitchLock {
  public:
    explicit SwitchLock(int network);
    bool held() const { return static_cast<bool>(file_); }

  private:
    FileDescriptor file_;
};

// Says that a living daemon needs the network's switch. Kept across fork, and across exec for a daemon that
// is a foreign program; it ends with the last process that has the descriptor.
class SwitchUse {
  public:
    // Call with the network's SwitchLock held. False after a line in the log.
    bool Begin(int network);
    // Lets the descriptor survive an exec.
    void KeepAcrossExec();

  private:
    FileDescriptor file_;
};

// Finds the network's switch or makes it, and returns its index; 0 after a line in the log. Call with the
// lock and the use held.
int Switch_Ensure(RtSocket *socket, int network);

// Two joined interfaces, the first a port of the switch, the second for a daemon's own purposes.
struct SwitchPort {
    int portIndex = 0;
    int peerIndex = 0;  // 0 when the peer stands in another namespace
};

// Makes two joined interfaces without IPv6; the first is up, the second left down for whom it is made to
// configure. What a dead predecessor has left under one of the names is waited for briefly
// and then removed; an interface of anybody else is never touched. False after a line in the log. Call with
// the network's lock held.
bool Switch_MakePair(RtSocket *socket, const VethPlan &plan, SwitchPort *port);

// Makes the switch if need be and such a pair on it. With `peerNamespace` (a descriptor of a network
// namespace) the peer stands in there; with -1 it is the host's own interface on the network. False after a
// line in the log. Call with the lock and the use held.
bool Switch_MakePort(RtSocket *socket, int network, const char *portName, const char *peerName,
                     int peerNamespace, SwitchPort *port);

// For watchers: waits until daemons have stopped coming and going for a moment, so that a sweep over many
// networks is not slowed by removals, then removes the interfaces that are marked dead.
void Switch_RemoveDeadLinks(RtSocket *socket);

// For watchers: removes the network's switch unless a living daemon uses it. While guests are attached it
// waits for them to leave, or for a daemon to take the switch into use again.
void Switch_RemoveWhenUnused(RtSocket *socket, int network);
