// Lets the host forward packets between the routers' uplinks and its adapters.
//
// The switch for that is the adapter's own (net.ipv4.conf.<adapter>.forwarding); the one for the whole host
// (net.ipv4.ip_forward) is never touched. Where it is on already, nothing is changed at all. Adapters whose
// switch was turned on are noted, so that it can be turned off again, and so that the host's table keeps them
// from forwarding anything but the guests' packets.
#pragma once

#include <string>
#include <vector>

// The indexes of the noted adapters.
std::vector<int> HostForwarding_Noted();

// Whether what comes in by an interface, or by any, is forwarded.
bool HostForwarding_IsOn(const std::string &name);
bool HostForwarding_IsOnForAll();

// Lets packets come in by an interface. False with errno.
bool HostForwarding_TurnOn(const std::string &name);

// Call the following with HostEdit held (hostFiles.h).
//
// Notes an adapter that is about to be turned on. False after a line in the log.
bool HostForwarding_Note(int link, const std::string &name);
// Turns the noted adapters off again, unless somebody has turned the host's switch on in the meantime and so
// relies on it, and forgets them.
void HostForwarding_TakeBack();
// Forgets them and leaves them on.
void HostForwarding_Forget();
