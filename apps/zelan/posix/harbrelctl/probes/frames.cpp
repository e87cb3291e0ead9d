#include "apps/zelan/posix/harbrelctl/probes/frames.h"

#include <net/ethernet.h>
#include <netinet/in.h>

#include <algorithm>

namespace {

constexpr size_t ETHERNET = 14;
constexpr size_t IP = 20;
constexpr size_t UDP = 8;
constexpr uint16_t DHCP_SERVER = 67;
constexpr uint16_t DHCP_CLIENT = 68;
constexpr uint16_t DNS = 53;
constexpr uint16_t OUR_PORT = 50053;
constexpr size_t BOOTP = 236;
constexpr std::array<uint8_t, 4> DHCP_COOKIE = {99, 130, 83, 99};

void Put16(Frame *frame, unsigned value) {
    frame->push_back(static_cast<uint8_t>(value >> 8U));
    frame->push_back(static_cast<uint8_t>(value));
}

void Put32(Frame *frame, uint32_t value) {
    Put16(frame, value >> 16U);
    Put16(frame, value & 0xffffU);
}

void Put(Frame *frame, std::span<const uint8_t> bytes) {
    for (const uint8_t byte : bytes) {
        frame->push_back(byte);
    }
}

// 0 behind the end.
unsigned Get16(std::span<const uint8_t> bytes, size_t offset) {
    return offset + 2 <= bytes.size() ? bytes[offset] * 256U + bytes[offset + 1] : 0;
}

uint32_t Get32(std::span<const uint8_t> bytes, size_t offset) {
    return Get16(bytes, offset) << 16U | Get16(bytes, offset + 2);
}

// Of whole words.
uint16_t Checksum(std::span<const uint8_t> bytes) {
    uint32_t sum = 0;
    for (size_t offset = 0; offset < bytes.size(); offset += 2) {
        sum += Get16(bytes, offset);
    }
    while (sum > 0xffff) {
        sum = (sum >> 16U) + (sum & 0xffffU);
    }
    return static_cast<uint16_t>(~sum);
}

Frame Ethernet(const Mac &to, const Mac &from, unsigned type) {
    Frame frame;
    Put(&frame, to);
    Put(&frame, from);
    Put16(&frame, type);
    return frame;
}

Frame IpPacket(const Place &from, const Place &to, uint8_t protocol, const Frame &payload) {
    Frame header = {0x45, 0};
    Put16(&header, static_cast<unsigned>(IP + payload.size()));
    Put32(&header, 0);
    header.push_back(64);
    header.push_back(protocol);
    Put16(&header, 0);
    Put32(&header, from.address);
    Put32(&header, to.address);
    const uint16_t sum = Checksum(header);
    header[10] = static_cast<uint8_t>(sum >> 8U);
    header[11] = static_cast<uint8_t>(sum);
    Frame frame = Ethernet(to.mac, from.mac, ETHERTYPE_IP);
    Put(&frame, header);
    Put(&frame, payload);
    return frame;
}

// Without a checksum, which UDP allows.
Frame UdpPacket(const Place &from, uint16_t fromPort, const Place &to, uint16_t toPort, const Frame &data) {
    Frame datagram;
    Put16(&datagram, fromPort);
    Put16(&datagram, toPort);
    Put16(&datagram, static_cast<unsigned>(UDP + data.size()));
    Put16(&datagram, 0);
    Put(&datagram, data);
    return IpPacket(from, to, IPPROTO_UDP, datagram);
}

// What an IP packet of the protocol carries; empty for anything else.
std::span<const uint8_t> IpPayload(std::span<const uint8_t> frame, uint8_t protocol) {
    if (frame.size() < ETHERNET + IP || Get16(frame, 12) != ETHERTYPE_IP || frame[ETHERNET + 9] != protocol) {
        return {};
    }
    const size_t header = (frame[ETHERNET] & 0x0fU) * 4U;
    const bool fits = header >= IP && ETHERNET + header < frame.size();
    return fits ? frame.subspan(ETHERNET + header) : std::span<const uint8_t>();
}

std::span<const uint8_t> UdpData(std::span<const uint8_t> frame, uint16_t from, uint16_t to) {
    const std::span<const uint8_t> datagram = IpPayload(frame, IPPROTO_UDP);
    const bool fits = datagram.size() > UDP && Get16(datagram, 0) == from && Get16(datagram, 2) == to;
    return fits ? datagram.subspan(UDP) : std::span<const uint8_t>();
}

}  // namespace

Frame DhcpDiscover(const Mac &mac, uint32_t transaction) {
    Frame data = {1, 1, 6, 0};  // request, Ethernet
    Put32(&data, transaction);
    Put16(&data, 0);
    Put16(&data, 0x8000);  // answer by broadcast: the address is not taken up
    data.resize(28, 0);
    Put(&data, mac);
    data.resize(BOOTP, 0);
    Put(&data, DHCP_COOKIE);
    Put(&data, std::array<uint8_t, 4>{53, 1, 1, 255});  // DISCOVER
    return UdpPacket({mac, 0}, DHCP_CLIENT, {BROADCAST_MAC, 0xffffffff}, DHCP_SERVER, data);
}

std::optional<uint32_t> DhcpOffer(std::span<const uint8_t> frame, uint32_t transaction) {
    const std::span<const uint8_t> data = UdpData(frame, DHCP_SERVER, DHCP_CLIENT);
    if (data.size() < BOOTP || data[0] != 2 || Get32(data, 4) != transaction) {
        return std::nullopt;
    }
    return Get32(data, 16);
}

Frame ArpRequest(const Place &from, uint32_t address) {
    Frame frame = Ethernet(BROADCAST_MAC, from.mac, ETHERTYPE_ARP);
    Put(&frame, std::array<uint8_t, 8>{0, 1, 8, 0, 6, 4, 0, 1});
    Put(&frame, from.mac);
    Put32(&frame, from.address);
    Put(&frame, Mac());
    Put32(&frame, address);
    return frame;
}

std::optional<Mac> ArpReply(std::span<const uint8_t> frame, uint32_t address) {
    if (frame.size() < ETHERNET + 28 || Get16(frame, 12) != ETHERTYPE_ARP ||
        Get16(frame, ETHERNET + 6) != 2 || Get32(frame, ETHERNET + 14) != address) {
        return std::nullopt;
    }
    Mac mac;
    std::copy_n(frame.begin() + ETHERNET + 8, mac.size(), mac.begin());
    return mac;
}

Frame DnsQuestion(const Place &from, const Place &to, uint16_t number) {
    Frame data;
    Put16(&data, number);
    Put(&data, std::array<uint8_t, 10>{1, 0, 0, 1, 0, 0, 0, 0, 0, 0});
    Put(&data, std::array<uint8_t, 15>{9, 'l', 'o', 'c', 'a', 'l', 'h', 'o', 's', 't', 0, 0, 1, 0, 1});
    return UdpPacket(from, OUR_PORT, to, DNS, data);
}

std::optional<unsigned> DnsAnswer(std::span<const uint8_t> frame, uint16_t number) {
    const std::span<const uint8_t> data = UdpData(frame, DNS, OUR_PORT);
    if (data.size() < 4 || Get16(data, 0) != number) {
        return std::nullopt;
    }
    return data[3] & 0x0fU;
}

Frame EchoRequest(const Place &from, const Place &to, uint16_t number) {
    Frame message = {8, 0, 0, 0};
    Put16(&message, number);
    Put16(&message, 1);
    const uint16_t sum = Checksum(message);
    message[2] = static_cast<uint8_t>(sum >> 8U);
    message[3] = static_cast<uint8_t>(sum);
    return IpPacket(from, to, IPPROTO_ICMP, message);
}

bool IsEchoReply(std::span<const uint8_t> frame, uint16_t number) {
    const std::span<const uint8_t> message = IpPayload(frame, IPPROTO_ICMP);
    return message.size() >= 8 && message[0] == 0 && Get16(message, 4) == number;
}
