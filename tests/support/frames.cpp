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

// The Internet checksum over 16-bit words.
uint16_t ChecksumOf(const std::string &bytes) {
    uint32_t sum = 0;
    for (size_t i = 0; i + 1 < bytes.size(); i += 2) {
        sum +=
            static_cast<uint32_t>(static_cast<uint8_t>(bytes[i])) << 8 | static_cast<uint8_t>(bytes[i + 1]);
    }
    while (sum > 0xffff) {
        sum = (sum & 0xffff) + (sum >> 16);
    }
    return static_cast<uint16_t>(~sum);
}

constexpr char TEST_PROTOCOL[] = "\x88\xb5";
constexpr char TAG_PROTOCOL[] = "\x81\0";
constexpr size_t MINIMAL_FRAME = 60;

std::string MacBytes(const std::string &mac) {
    std::string bytes;
    for (size_t i = 0; i < mac.size(); i += 3) {
        bytes += static_cast<char>(std::stoi(mac.substr(i, 2), nullptr, 16));
    }
    return bytes;
}

std::string Tags(const std::vector<int> &tags) {
    std::string bytes;
    for (const int tag : tags) {
        bytes.append(TAG_PROTOCOL, 2);
        bytes.push_back(static_cast<char>(tag >> 8));
        bytes.push_back(static_cast<char>(tag));
    }
    return bytes;
}

std::string Number16(size_t number) {
    return {static_cast<char>(number >> 8), static_cast<char>(number)};
}

int IndexOf(const Machine *machine, const std::string &link) {
    const std::string command = "cat /sys/class/net/" + link + "/ifindex";
    return std::stoi((machine != nullptr ? machine->Run(command) : RunShell(command)).output);
}

}  // namespace

std::string TestFrame::Bytes() const {
    std::string bytes = MacBytes(to) + MacBytes(from) + Tags(tags);
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
    in_addr wanted = {};
    EXPECT_EQ(1, inet_pton(AF_INET, address.c_str(), &wanted));
    std::string message = "\1\1"s + static_cast<char>(macSize) + "\0ask!"s + std::string(20, '\0') +
                          MacBytes(mac) + std::string(202, '\0') + "\x63\x82\x53\x63\x35\1\3\x32\4"s +
                          std::string(reinterpret_cast<const char *>(&wanted), sizeof wanted);
    if (!clientId.empty()) {
        message += "\x3d"s + static_cast<char>(clientId.size()) + clientId;
    }
    message += '\xff';
    const std::string datagram = "\0\x44\0\x43"s + Number16(message.size() + 8) + "\0\0"s + message;
    std::string header = "\x45\0"s + Number16(datagram.size() + 20) + "\0\0\0\0\x40\x11\0\0"s +
                         std::string(4, '\0') + std::string(4, '\xff');
    header.replace(10, 2, Number16(ChecksumOf(header)));
    return std::string(6, '\xff') + MacBytes(mac) + "\x08\0"s + header + datagram;
}

std::string RouterAdvertisement(const std::vector<int> &tags) {
    using std::string_literals::operator""s;
    const std::string addresses = "\xfe\x80"s + std::string(13, '\0') + "\1"s +  // from fe80::1
                                  "\xff\2"s + std::string(13, '\0') + "\1"s;     // to ff02::1
    const std::string prefix = "\x20\1\x0d\xb8\0\1"s + std::string(10, '\0');
    std::string message = "\x86\0\0\0\x40\0\7\x08\0\0\0\0\0\0\0\0"s +                // for 1800 s
                          "\3\4\x40\xc0\0\1\x51\x80\0\0\x38\x40\0\0\0\0"s + prefix;  // on-link, auto
    const uint16_t sum = ChecksumOf(addresses + "\0\0\0\x30\0\0\0\x3a"s + message);
    message[2] = static_cast<char>(sum >> 8);
    message[3] = static_cast<char>(sum & 0xff);
    return "\x33\x33\0\0\0\1\2\0\0\0\0\1"s + Tags(tags) + "\x86\xdd\x60\0\0\0\0\x30\x3a\xff"s + addresses +
           message;
}
