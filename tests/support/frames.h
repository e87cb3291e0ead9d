// Frames that no ordinary program would send.
#pragma once

#include <string>

#include "tests/support/netns.h"

// Puts a whole Ethernet frame on a machine's interface; with null on the host's. Failure fails the test.
void SendFrame(const Machine *machine, const std::string &link, const std::string &frame);

// A router advertisement to all, from fe80::1, that offers a default route and the prefix 2001:db8:1::/64.
std::string RouterAdvertisement();
