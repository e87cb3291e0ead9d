#include "daemons/zelan-natd/ruleset.h"

#include <algorithm>

namespace {

// "No time-out": the longest that a kernel with a thousand ticks a second can count.
constexpr uint32_t LONGEST_TIMEOUT = 2147483;

// Objects that rules refer to. Both have to be set on a flow's first packet, before its address is
// translated, so that the chains of translation, which see nothing but first packets, are the place for it.
std::string Objects(const NatConf &conf, const NatFeatures &features) {
    uint32_t timeout = conf.udpTimeout == 0 ? LONGEST_TIMEOUT : std::min(conf.udpTimeout, LONGEST_TIMEOUT);
    std::string seconds = std::to_string(timeout);
    std::string text;
    if (features.udpTimeout) {
        text += "ct timeout udp-timeout { protocol udp; l3proto ip; policy = { unreplied : " + seconds +
                ", replied : " + seconds + " }; }\n";
    }
    if (conf.activeFtp && features.ftp) {
        text += "ct helper ftp { type \"ftp\" protocol tcp; l3proto ip; }\n";
    }
    return text;
}

// The rules that apply the objects to the flows that `match` selects.
std::string ApplyObjects(const NatConf &conf, const NatFeatures &features, const std::string &match) {
    std::string text;
    if (features.udpTimeout) {
        text += match + " meta l4proto udp ct timeout set \"udp-timeout\"\n";
    }
    if (conf.activeFtp && features.ftp) {
        text += match + " tcp dport 21 ct helper set \"ftp\"\n";
    }
    return text;
}

std::string Chain(const char *name, const char *hook, const std::string &rules) {
    return std::string("chain ") + name + " { type " + hook + "; policy accept;\n" + rules + "}\n";
}

// The forwards of one protocol, each as `element` writes it, as a set or a map lists them.
template <typename Element>
std::string Elements(const std::vector<PortForward> &forwards, bool tcp, Element element) {
    std::string text;
    for (const PortForward &forward : forwards) {
        if (forward.tcp == tcp) {
            text += (text.empty() ? "" : ", ") + element(forward);
        }
    }
    return text;
}

std::string ToRouter(const HostSide &side, const std::vector<PortForward> &forwards) {
    std::string text;
    for (bool tcp : {true, false}) {
        std::string ports = Elements(
            forwards, tcp, [](const PortForward &forward) { return std::to_string(forward.hostPort); });
        if (!ports.empty()) {
            text += std::string("fib daddr type local ") + (tcp ? "tcp" : "udp") + " dport { " + ports +
                    " } dnat to " + Ipv4_Text(side.router) + "\n";
        }
    }
    return text;
}

std::string ToGuests(const std::vector<PortForward> &forwards) {
    std::string text;
    for (bool tcp : {true, false}) {
        std::string targets = Elements(forwards, tcp, [](const PortForward &forward) {
            return std::to_string(forward.hostPort) + " : " + Ipv4_Text(forward.guest) + " . " +
                   std::to_string(forward.guestPort);
        });
        if (!targets.empty()) {
            text += std::string("iifname \"") + UPLINK_LINK + "\" dnat ip addr . port to " +
                    (tcp ? "tcp" : "udp") + " dport map { " + targets + " }\n";
        }
    }
    return text;
}

// A sender outside the subnet gets nothing: what the router itself answers, DNS, would leave by the uplink to
// whoever really has the address. Virtual machines and containers have locally administered MAC addresses (as
// 52:54:00 and 02:00:00) or one of the OUI 00:16:3e; any other sender is a machine that has got onto the
// switch.
std::string GuestsAllowed(const NatConf &conf) {
    const std::string in = std::string("iifname \"") + GUESTS_LINK + "\"";
    const std::string text = in + " ip saddr != " + Ipv4_Text(conf.subnet().first()) + "/" +
                             std::to_string(conf.prefix) + " drop\n";
    if (conf.allowAnyOui) {
        return text;
    }
    return text + in +
           " ether saddr & 02:00:00:00:00:00 == 00:00:00:00:00:00"
           " ether saddr & ff:ff:ff:00:00:00 != 00:16:3e:00:00:00 drop\n";
}

}  // namespace

std::string Ruleset_Host(const HostSide &side, const NatConf &conf, const std::vector<PortForward> &forwards,
                         const NatFeatures &features) {
    std::string router = Ipv4_Text(side.router);
    std::string in = std::string("iifname \"") + side.uplink + "\"";
    std::string out = std::string("oifname \"") + side.uplink + "\"";
    std::string text = "table ip zelan-natd-" + std::to_string(side.network) + " {\nflags owner;\n" +
                       Objects(conf, features);
    // The host's own connections to its forwards may go to 127.0.0.1, so that the uplink is allowed to carry
    // such addresses; none of them may come from the guests. On hosts that show bridged frames to the packet
    // filter (br_netfilter) those on a switch must not be taken for packets to the host.
    text += Chain("guard", "filter hook prerouting priority -300",
                  in + " ip daddr 127.0.0.0/8 drop\niifname \"zelan-sw*\" notrack\n");
    text += Chain("forwards", "nat hook prerouting priority -100", ToRouter(side, forwards));
    text += Chain("own-forwards", "nat hook output priority -100", ToRouter(side, forwards));
    // A network without NAT or a bridge stays closed to the guests of this one, though the host could forward
    // to it; the forwards of other networks are open to them like to everybody.
    text += Chain("separate", "filter hook forward priority 0",
                  in + " oifname \"zelan*\" ct status & dnat != dnat drop\n");
    // To a forward of their own network the guests come back through the uplink, and the host comes with any
    // of its addresses, even one of the guests' subnet: both get the uplink's, so that answers find the way.
    text += Chain("translate", "nat hook postrouting priority 100",
                  ApplyObjects(conf, features, "ip saddr " + router) + ApplyObjects(conf, features, out) +
                      "ip saddr " + router + " masquerade\n" + out + " fib saddr type local masquerade\n");
    return text + "}\n";
}

std::string Ruleset_Router(const NatConf &conf, const std::vector<PortForward> &forwards,
                           const NatFeatures &features) {
    std::string in = std::string("iifname \"") + GUESTS_LINK + "\"";
    std::string out = std::string("oifname \"") + UPLINK_LINK + "\"";
    std::string text = "table ip zelan-natd {\n" + Objects(conf, features);
    text += Chain("forwards", "nat hook prerouting priority -100", ToGuests(forwards));
    text += Chain("guard", "filter hook prerouting priority -300", GuestsAllowed(conf));
    text += Chain(
        "separate", "filter hook forward priority 0",
        "ct state established,related accept\n" + in + " " + out + " accept\nct status dnat accept\ndrop\n");
    text += Chain("translate", "nat hook postrouting priority 100",
                  ApplyObjects(conf, features, "") + out + " masquerade\n");
    return text + "}\n";
}
