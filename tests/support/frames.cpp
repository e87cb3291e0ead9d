#include "tests/support/frames.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <netinet/in.h>
#include <poll.h>

#include <algorithm>
#include <array>
#include <cstdint>

#include "tests/support/conversation.h"

namespace {

constexpr char TEST_PROTOCOL[] = "\x88\xb5";
constexpr char TAG_PROTOCOL[] = "\x81\0";
constexpr size_t MINIMAL_FRAME = 60;

std::string Tags(const std::vector<int> &tags) {
    std::string bytes;
    for (const int tag : tags) {
        bytes.append(TAG_PROTOCOL, 2);
        bytes.push_back(static_cast<char>(tag >> 8));
        bytes.push_back(static_cast<char>(tag));
    }
    return bytes;
}

int IndexOf(const Machine *machine, const std::string &link) {
    const std::string command = "cat /sys/class/net/" + link + "/ifindex";
    return std::stoi((machine != nullptr ? machine->Run(command) : RunShell(command)).output);
}

}  // namespace

std::string FromHex(std::string digits) {
    std::erase_if(digits, [](char letter) { return letter == ':' || letter == ' '; });
    std::string bytes;
    for (size_t i = 0; i < digits.size(); i += 2) {
        bytes += static_cast<char>(std::stoi(digits.substr(i, 2), nullptr, 16));
    }
    return bytes;
}

std::string TestFrame::Bytes() const {
    std::string bytes = FromHex(to) + FromHex(from) + Tags(tags);
    bytes.append(TEST_PROTOCOL).append(text);
    bytes.resize(std::max(bytes.size() + 1, MINIMAL_FRAME));
    return bytes;
}

FrameEar::FrameEar(const Machine *machine, const std::string &link)
    : socket_(SocketOn(machine, SOCK_RAW, AF_PACKET)) {
    sockaddr_ll address = {};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(ETH_P_ALL);
    address.sll_ifindex = IndexOf(machine, link);
    EXPECT_EQ(0, bind(socket_.get(), reinterpret_cast<sockaddr *>(&address), sizeof address));
}

bool FrameEar::HearUntil(const std::string &text) {
    pollfd wait = {socket_.get(), POLLIN, 0};
    while (!HasHeard(text) && poll(&wait, 1, static_cast<int>(CONDITION_DEADLINE.count())) > 0) {
        std::array<char, 2048> block;
        sockaddr_ll sender = {};
        socklen_t size = sizeof sender;
        const ssize_t got = recvfrom(socket_.get(), block.data(), block.size(), 0,
                                     reinterpret_cast<sockaddr *>(&sender), &size);
        const std::string frame(block.data(), got > 0 ? static_cast<size_t>(got) : 0);
        const size_t place = frame.find(TEST_PROTOCOL, 2 * ETH_ALEN);
        if (sender.sll_pkttype != PACKET_OUTGOING && place != std::string::npos) {
            heard_.insert(frame.c_str() + place + 2);
        }
    }
    return HasHeard(text);
}

void SendFrames(const Machine *machine, const std::string &link, const std::vector<std::string> &frames) {
    FileDescriptor handle = SocketOn(machine, SOCK_RAW, AF_PACKET);
    sockaddr_ll target = {};
    target.sll_family = AF_PACKET;
    target.sll_ifindex = IndexOf(machine, link);
    for (const std::string &frame : frames) {
        ASSERT_EQ(static_cast<ssize_t>(frame.size()),
                  sendto(handle.get(), frame.data(), frame.size(), 0, reinterpret_cast<sockaddr *>(&target),
                         sizeof target));
    }
}

std::string DhcpRequest::Bytes() const {
    using std::string_literals::operator""s;
    constexpr size_t SIZE = 254;  // as the lengths and the checksum in the headers have it
    in_addr wanted = {};
    EXPECT_EQ(1, inet_pton(AF_INET, address.c_str(), &wanted));
    std::string message = "\1\1"s + static_cast<char>(macSize) + "\0ask!"s + std::string(20, '\0') +
                          FromHex(mac) + std::string(202, '\0') + FromHex("638253633501033204") +
                          std::string(reinterpret_cast<const char *>(&wanted), sizeof wanted);
    if (!clientId.empty()) {
        message += "\x3d"s + static_cast<char>(clientId.size()) + clientId;
    }
    message += '\xff';
    message.resize(SIZE);
    return std::string(6, '\xff') +
           FromHex(mac + "08004500011a00000000401179d400000000ffffffff0044004301060000") + message;
}

std::string RouterAdvertisement(const std::vector<int> &tags) {
    return FromHex("333300000001020000000001") + Tags(tags) +
           FromHex(
               "86dd6000000000303aff fe80000000000000 0000000000000001 ff02000000000000 0000000000000001"
               "860039c740000708 0000000000000000"                                      // for 1800 s
               "030440c000015180 0000384000000000 20010db800010000 0000000000000000");  // on-link, auto
}
