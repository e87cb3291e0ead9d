#include "daemons/firewall/natShare.h"

#include <climits>

#include "daemons/common/options.h"
#include "daemons/common/text.h"

namespace {

constexpr std::string_view ROUTER = "router";
constexpr std::string_view TIMEOUT = "udp-timeout";
constexpr std::string_view FTP = "ftp";
constexpr std::string_view FORWARD = "forward";
constexpr std::string_view KEPT = "kept";
constexpr std::string_view AWAITED = "awaited";
constexpr std::string_view TCP = "tcp";
constexpr std::string_view UDP = "udp";

std::string PortText(const HostPort &port) {
    return std::string(port.tcp ? TCP : UDP) + " " + std::to_string(port.port) + "\n";
}

bool TakePort(std::string_view *line, HostPort *port) {
    std::string_view protocol;
    std::string_view text;
    int number = 0;
    bool valid = Text_TakeWord(line, &protocol) && (protocol == TCP || protocol == UDP) &&
                 Text_TakeWord(line, &text) && Options_Number(text, UINT16_MAX, &number);
    *port = {protocol == TCP, static_cast<uint16_t>(number)};
    return valid;
}

bool TakeAddress(std::string_view *line, Ipv4 *address) {
    std::string_view text;
    return Text_TakeWord(line, &text) && Ipv4_Parse(text, address);
}

bool TakeLine(std::string_view line, NatShare *share) {
    std::string_view key;
    std::string_view value;
    Text_TakeWord(&line, &key);
    if (key == ROUTER) {
        return TakeAddress(&line, &share->router);
    }
    if (key == TIMEOUT) {
        int seconds = 0;
        bool valid = Text_TakeWord(&line, &value) && Options_Number(value, INT_MAX, &seconds);
        share->udpTimeout = static_cast<uint32_t>(seconds);
        share->ownTimeout = true;
        return valid;
    }
    if (key == FTP) {
        share->activeFtp = true;
        return true;
    }
    if (key == FORWARD) {
        return TakePort(&line, &share->forwards.emplace_back());
    }
    if (key == AWAITED) {
        return TakePort(&line, &share->awaited.emplace_back());
    }
    HostEndpoint endpoint;
    bool valid = key == KEPT && TakeAddress(&line, &endpoint.address) && TakePort(&line, &endpoint.port);
    share->kept.push_back(endpoint);
    return valid;
}

}  // namespace

std::string NatShare_Text(const NatShare &share) {
    std::string text = std::string(ROUTER) + " " + Ipv4_Text(share.router) + "\n";
    if (share.ownTimeout) {
        text += std::string(TIMEOUT) + " " + std::to_string(share.udpTimeout) + "\n";
    }
    if (share.activeFtp) {
        text += std::string(FTP) + "\n";
    }
    for (const HostPort &port : share.forwards) {
        text += std::string(FORWARD) + " " + PortText(port);
    }
    for (const HostEndpoint &endpoint : share.kept) {
        text += std::string(KEPT) + " " + Ipv4_Text(endpoint.address) + " " + PortText(endpoint.port);
    }
    for (const HostPort &port : share.awaited) {
        text += std::string(AWAITED) + " " + PortText(port);
    }
    return text;
}

bool NatShare_Parse(std::string_view text, NatShare *share) {
    *share = NatShare();
    std::string_view line;
    while (Text_TakeLine(&text, &line)) {
        if (!TakeLine(line, share)) {
            return false;
        }
    }
    return share->router != 0;
}
