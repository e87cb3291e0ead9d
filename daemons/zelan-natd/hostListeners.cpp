#include "daemons/zelan-natd/hostListeners.h"

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <string>
#include <string_view>

#include "daemons/common/file.h"
#include "daemons/common/text.h"

namespace {

constexpr int HEX = 16;
constexpr size_t WORD_DIGITS = 8;

// An address as the kernel shows it: its words, each as it lies in memory, in hexadecimal digits.
template <size_t WORDS>
bool ReadWords(std::string_view text, std::array<uint32_t, WORDS> *words) {
    for (size_t i = 0; i < WORDS; i++) {
        const char *digits = text.data() + i * WORD_DIGITS;
        if (text.size() != WORDS * WORD_DIGITS ||
            std::from_chars(digits, digits + WORD_DIGITS, (*words)[i], HEX).ec != std::errc()) {
            return false;
        }
    }
    return true;
}

void TakeAddress(std::string_view text, HostListeners *listeners) {
    std::array<uint32_t, 1> ipv4 = {};
    std::array<uint32_t, 4> ipv6 = {};
    if (ReadWords(text, &ipv4) && ipv4[0] != 0) {
        listeners->addresses.push_back(ntohl(ipv4[0]));
    } else if (ReadWords(text, &ipv6) && ipv6[2] == htonl(0xffff) && ipv6[3] != 0) {
        listeners->addresses.push_back(ntohl(ipv6[3]));
    } else if (ipv4[0] == 0 && ipv6 == std::array<uint32_t, 4>()) {
        listeners->everywhere = true;
    }
}

// One socket: its number, its own address and port, the other end's, and its state.
void TakeSocket(std::string_view line, const HostPort &port, HostListeners *listeners) {
    constexpr std::string_view TCP_LISTENS = "0A";
    constexpr std::string_view UDP_OF_NOBODY = "07";
    std::string_view number;
    std::string_view own;
    std::string_view other;
    std::string_view state;
    uint32_t ownPort = 0;
    if (!Text_TakeWord(&line, &number) || !Text_TakeWord(&line, &own) || !Text_TakeWord(&line, &other) ||
        !Text_TakeWord(&line, &state) || state != (port.tcp ? TCP_LISTENS : UDP_OF_NOBODY)) {
        return;
    }
    size_t colon = std::min(own.find(':'), own.size() - 1);
    std::from_chars(own.data() + colon + 1, own.data() + own.size(), ownPort, HEX);
    if (ownPort == port.port) {
        TakeAddress(own.substr(0, colon), listeners);
    }
}

}  // namespace

HostListeners HostListeners_Of(const HostPort &port) {
    HostListeners listeners;
    for (const char *file :
         {port.tcp ? "/proc/net/tcp" : "/proc/net/udp", port.tcp ? "/proc/net/tcp6" : "/proc/net/udp6"}) {
        std::string text;
        std::string_view rest;
        std::string_view line;
        File_Read(file, &text);
        for (rest = text; Text_TakeLine(&rest, &line);) {
            TakeSocket(line, port, &listeners);
        }
    }
    return listeners;
}
