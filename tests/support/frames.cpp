#include "tests/support/frames.h"

#include <gtest/gtest.h>
#include <linux/if_packet.h>

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

}  // namespace

void SendFrame(const Machine *machine, const std::string &link, const std::string &frame) {
    const std::string command = "cat /sys/class/net/" + link + "/ifindex";
    FileDescriptor handle = SocketOn(machine, SOCK_RAW, AF_PACKET);
    sockaddr_ll target = {};
    target.sll_family = AF_PACKET;
    target.sll_ifindex = std::stoi((machine != nullptr ? machine->Run(command) : RunShell(command)).output);
    ASSERT_EQ(static_cast<ssize_t>(frame.size()),
              sendto(handle.get(), frame.data(), frame.size(), 0, reinterpret_cast<sockaddr *>(&target),
                     sizeof target));
}

std::string RouterAdvertisement() {
    using std::string_literals::operator""s;
    const std::string addresses = "\xfe\x80"s + std::string(13, '\0') + "\1"s +  // from fe80::1
                                  "\xff\2"s + std::string(13, '\0') + "\1"s;     // to ff02::1
    const std::string prefix = "\x20\1\x0d\xb8\0\1"s + std::string(10, '\0');
    std::string message = "\x86\0\0\0\x40\0\7\x08\0\0\0\0\0\0\0\0"s +                // for 1800 s
                          "\3\4\x40\xc0\0\1\x51\x80\0\0\x38\x40\0\0\0\0"s + prefix;  // on-link, auto
    const uint16_t sum = ChecksumOf(addresses + "\0\0\0\x30\0\0\0\x3a"s + message);
    message[2] = static_cast<char>(sum >> 8);
    message[3] = static_cast<char>(sum & 0xff);
    return "\x33\x33\0\0\0\1\2\0\0\0\0\1\x86\xdd"s + "\x60\0\0\0\0\x30\x3a\xff"s + addresses + message;
}
