// Frames that no ordinary program would send.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "lib/misc/owners.h"
#include "tests/support/netns.h"

// The bytes of two digits each, whatever stands between them.
std::string FromHex(std::string digits);

// Puts whole Ethernet frames on a machine's interface; with null on the host's. Failure fails the test.
void SendFrames(const Machine *machine, const std::string &link, const std::vector<std::string> &frames);
inline void SendFrame(const Machine *machine, const std::string &link, const std::string &frame) {
    SendFrames(machine, link, {frame});
}

// A router advertisement to all, from fe80::1, that offers a default route and the prefix 2001:db8:1::/64;
// with tags, as the numbers of VLANs from the outside in.
std::string RouterAdvertisement(const std::vector<int> &tags = {});

// A DHCP client's request for an address that it says it had before, as from 0.0.0.0 to all.
struct DhcpRequest {
    std::string mac;      // of the frame and in the message
    std::string address;  // dotted
    std::string clientId = "";
    int macSize = 6;  // as the message has it

    std::string Bytes() const;
};

// An Ethernet frame of a protocol set aside for local experiments. Addresses are as in "02:00:00:00:00:01", a
// tag as the numbers of VLANs from the outside in.
struct TestFrame {
    std::string to;
    std::string from;
    std::vector<int> tags;
    std::string text;

    std::string Bytes() const;
};

// Hears what arrives at a machine's interface, or with null the host's, from now on; not what it sends.
class FrameEar {
  public:
    FrameEar(const Machine *machine, const std::string &link);

    // Listens until a frame with this text arrives; false when none does.
    bool HearUntil(const std::string &text);
    bool HasHeard(const std::string &text) const { return heard_.count(text) != 0; }

  private:
    FileDescriptor socket_;
    std::set<std::string> heard_;
};
