// Lets the host forward packets between the routers' uplinks and its adapters.
//
// The switch for that is the adapter's own (net.ipv4.conf.<adapter>.forwarding); the one for the whole host
// (net.ipv4.ip_forward) is never touched. Where it is on already, nothing is changed at all. Adapters whose
// switch was turned on are noted in a file, and the last NAT daemon's watcher turns them off again, unless
// somebody has turned the host's on in the meantime and so relies on it.
#pragma once

#include "lib/misc/owners.h"

class HostForwarding {
  public:
    // Says that a living daemon needs the host to forward: for the life of the object and of all copies that
    // fork has made of it. False after a line in the log.
    bool Begin();

    // Lets packets come in by an interface. Loopback and the interfaces of networks are left alone.
    void Allow(int link) const;

    // Lets packets come in by an interface that goes away with the daemon.
    static bool AllowOwn(const char *name);

    // For watchers: takes everything back unless another daemon is alive.
    static void EndWhenUnused();

  private:
    FileDescriptor file_;
};
