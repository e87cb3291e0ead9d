#include "daemons/zelan-dhcpd/dnsmasqConf.h"

#include <algorithm>
#include <climits>
#include <map>

#include "daemons/zelan-dhcpd/dnsmasqValue.h"

namespace {

// What holds without a statement, in seconds.
constexpr uint32_t USUAL_DEFAULT_LEASE = 43200;
constexpr uint32_t USUAL_MAX_LEASE = 86400;
// dnsmasq makes any shorter lease as long as this one.
constexpr uint32_t SHORTEST_LEASE = 120;
constexpr uint32_t ENDLESS_LEASE = UINT32_MAX;

constexpr uint8_t OPTION_HOST_NAME = 12;
// Those for which dnsmasq has values of its own when it is told none.
constexpr uint8_t OPTIONS_OF_DNSMASQ[] = {3, 6, OPTION_HOST_NAME, 15, 28};

// A client that asks for a duration may get up to the longest one, any other gets the usual one.
struct LeaseTimes {
    uint32_t usual = 0;
    uint32_t longest = 0;

    bool operator==(const LeaseTimes &) const = default;
};

LeaseTimes TimesOf(const DhcpSettings &settings) {
    uint32_t longest = settings.maxLease ? settings.maxLease->seconds : USUAL_MAX_LEASE;
    uint32_t usual = settings.defaultLease ? settings.defaultLease->seconds : USUAL_DEFAULT_LEASE;
    return {std::min(usual, longest), longest};
}

std::string Duration(uint32_t seconds) {
    return seconds == ENDLESS_LEASE ? "infinite" : std::to_string(seconds);
}

std::string Tag(char kind, size_t number) {
    return std::string(1, kind).append(std::to_string(number));
}

// "tag:NAME," for what only holds with the tag; nothing for what holds for all.
std::string Filter(const std::string &tag) {
    return tag.empty() ? tag : std::string("tag:").append(tag).append(1, ',');
}

class Writer {
  public:
    Writer(const DhcpMeaning &meaning, const char *interface, std::string *text)
        : meaning_(meaning), interface_(interface), text_(text) {}

    DhcpProblem Write() {
        if (!meaning_.subnets.empty() && WriteServer() && WriteSubnets() && WriteHosts()) {
            return {};
        }
        return meaning_.subnets.empty() ? DhcpProblem{DhcpVerdict::FAULTY, 1, "it declares no subnet"}
                                        : problem_;
    }

  private:
    bool Refuse(int line, const char *what) {
        problem_ = {DhcpVerdict::BEYOND, line, what};
        return false;
    }

    template <typename... Parts>
    void Line(const Parts &...parts) {
        ((*text_ += parts), ...);
        *text_ += '\n';
    }

    // What the subnets must agree on, as dnsmasq has it once.
    bool HasOne(std::optional<bool> DhcpSettings::*member, const char *what, bool *value) {
        *value = (meaning_.subnets.front().settings.*member).value_or(false);
        for (const DhcpSubnet &subnet : meaning_.subnets) {
            if ((subnet.settings.*member).value_or(false) != *value) {
                return Refuse(subnet.line, what);
            }
        }
        return true;
    }

    bool WriteServer() {
        bool authoritative = false;
        bool knownOnly = false;
        bool noBootp = false;
        bool noBooting = false;
        if (!HasOne(&DhcpSettings::authoritative, "'authoritative' for some of the subnets",
                    &authoritative) ||
            !HasOne(&DhcpSettings::knownOnly, "'unknown-clients' for some of the subnets", &knownOnly) ||
            !HasOne(&DhcpSettings::noBootp, "'bootp' for some of the subnets", &noBootp) ||
            !HasOne(&DhcpSettings::noBooting, "'booting' for some of the subnets", &noBooting)) {
            return false;
        }
        if (noBooting) {
            return Refuse(meaning_.subnets.front().line, "'deny booting' for a subnet");
        }
        *text_ =
            "port=0\nbind-interfaces\nexcept-interface=lo\nno-hosts\nno-resolv\nno-ping\ndhcp-broadcast\n"
            "dhcp-no-override\npid-file\n";
        Line("interface=", interface_);
        Line("dhcp-lease-max=", std::to_string(CountAddresses()));
        *text_ += AnyClientId() ? "" : "dhcp-ignore-clid\n";
        *text_ += authoritative ? "dhcp-authoritative\n" : "";
        *text_ += knownOnly ? "dhcp-ignore=tag:!known\n" : "";
        *text_ += noBootp ? "dhcp-ignore=tag:bootp\n" : "";
        if (!meaning_.logFacility.empty()) {
            Line("log-facility=", meaning_.logFacility);
        }
        for (uint8_t code : OPTIONS_OF_DNSMASQ) {
            Line("dhcp-option=", std::to_string(code));
        }
        // Of the next server, where there is none; dnsmasq takes itself for it otherwise.
        Line("dhcp-option=255,0.0.0.0");
        return true;
    }

    // One Ethernet address has one lease, however many names a client gives itself, unless hosts are told by
    // such names.
    bool AnyClientId() const {
        return std::any_of(meaning_.hosts.begin(), meaning_.hosts.end(),
                           [](const DhcpHost &host) { return !host.clientId.empty(); });
    }

    int CountAddresses() const {
        uint64_t count = meaning_.hosts.size();
        for (const DhcpSubnet &subnet : meaning_.subnets) {
            for (const DhcpRange &range : subnet.ranges) {
                count += uint64_t{range.last} - range.first + 1;
            }
        }
        return static_cast<int>(std::clamp<uint64_t>(count, 1, INT_MAX));
    }

    bool WriteSubnets() {
        bool someBootp = false;
        bool allBootp = true;
        for (size_t i = 0; i < meaning_.subnets.size(); i++) {
            const DhcpSubnet &subnet = meaning_.subnets[i];
            // The tag keeps apart what only one of several subnets has.
            tag_ = meaning_.subnets.size() > 1 ? Tag('s', i) : "";
            if (!WriteRanges(subnet) || !WriteSettings(tag_, subnet.settings, subnet.settings, subnet.line)) {
                return false;
            }
            for (const DhcpRange &range : subnet.ranges) {
                someBootp = someBootp || range.forBootp;
                allBootp = allBootp && range.forBootp;
            }
            bool onFirstWire =
                subnet.sharedNetwork != 0 && subnet.sharedNetwork == meaning_.subnets.front().sharedNetwork;
            if (i > 0 && onFirstWire) {
                Line("shared-network=", interface_, ",", Ipv4_Text(subnet.subnet.first() + 1));
            }
        }
        *text_ += someBootp ? "bootp-dynamic\n" : "";
        return !someBootp || allBootp ||
               Refuse(meaning_.subnets.front().line, "'dynamic-bootp' for some of the ranges");
    }

    bool CheckTimes(const DhcpSettings &settings, int line) {
        LeaseTimes times = TimesOf(settings);
        if (times.usual >= SHORTEST_LEASE && times.longest >= SHORTEST_LEASE) {
            return true;
        }
        const std::optional<DhcpLeaseTime> &guilty =
            settings.defaultLease && settings.defaultLease->seconds == times.usual ? settings.defaultLease
                                                                                   : settings.maxLease;
        return Refuse(guilty ? guilty->line : line, "a lease time below 120 seconds");
    }

    bool WriteRanges(const DhcpSubnet &subnet) {
        if (!CheckTimes(subnet.settings, subnet.line)) {
            return false;
        }
        for (const DhcpRange &range : subnet.ranges) {
            std::string filter = range.known ? (*range.known ? "tag:known," : "tag:!known,") : "";
            WriteRange(subnet, filter, Ipv4_Text(range.first).append(1, ',').append(Ipv4_Text(range.last)));
        }
        // For the fixed addresses that are in no range.
        if (subnet.ranges.empty() || !meaning_.hosts.empty()) {
            WriteRange(subnet, "", Ipv4_Text(subnet.subnet.first()).append(",static"));
        }
        return true;
    }

    void WriteRange(const DhcpSubnet &subnet, const std::string &filter, const std::string &addresses) {
        LeaseTimes times = TimesOf(subnet.settings);
        std::string place = tag_.empty() ? "" : std::string("set:").append(tag_).append(1, ',');
        place.append(addresses).append(1, ',').append(Ipv4_Text(Ipv4_Mask(subnet.subnet.prefix)));
        place.append(1, ',').append(Ipv4_Text(subnet.subnet.last())).append(1, ',');
        if (times.usual == times.longest) {
            Line("dhcp-range=", filter, place, Duration(times.usual));
            return;
        }
        if (!matchesDuration_) {
            matchesDuration_ = true;
            Line("dhcp-match=set:asked,51");
        }
        Line("dhcp-range=", filter, "tag:asked,", place, Duration(times.longest));
        Line("dhcp-range=", filter, "tag:!asked,", place, Duration(times.usual));
    }

    // The options of `own` for what has the tag, and the boot settings, which are one whole with those that
    // hold there anyhow.
    bool WriteSettings(const std::string &tag, const DhcpSettings &own, const DhcpSettings &all, int line) {
        std::string filter = Filter(tag);
        std::string text;
        for (const auto &[code, value] : own.options) {
            if (!DnsmasqValue_OfOption(code, value.bytes, &text)) {
                return Refuse(value.line, "an option with such a value");
            }
            Line("dhcp-option=", filter, std::to_string(code), ",", text);
        }
        return !(own.bootFile || own.serverName || own.nextServer) || WriteBoot(filter, all, line);
    }

    bool WriteBoot(const std::string &filter, const DhcpSettings &settings, int line) {
        constexpr size_t MAX_FILE = 127;
        constexpr size_t MAX_NAME = 63;
        if (!settings.nextServer) {
            return Refuse(line, "'filename' or 'server-name' without 'next-server'");
        }
        std::string file = settings.bootFile.value_or("");
        std::string name = settings.serverName.value_or("");
        if (!DnsmasqValue_IsPlain(file) || !DnsmasqValue_IsPlain(name) || file.size() > MAX_FILE ||
            name.size() > MAX_NAME) {
            return Refuse(line, "'filename' or 'server-name' with such a text");
        }
        auto quoted = [](const std::string &text) {
            return text.empty() ? text : std::string(1, '"').append(text).append(1, '"');
        };
        Line("dhcp-boot=", filter, quoted(file), ",", quoted(name), ",", Ipv4_Text(*settings.nextServer));
        return true;
    }

    const DhcpSubnet *SubnetOf(Ipv4 address) const {
        auto place = std::find_if(meaning_.subnets.begin(), meaning_.subnets.end(),
                                  [&](const DhcpSubnet &subnet) { return subnet.subnet.Contains(address); });
        return place == meaning_.subnets.end() ? nullptr : &*place;
    }

    bool WriteHosts() {
        for (const DhcpHost &host : meaning_.hosts) {
            for (Ipv4 address : host.addresses) {
                holders_[address]++;
            }
        }
        for (size_t i = 0; i < meaning_.hosts.size(); i++) {
            const DhcpHost &host = meaning_.hosts[i];
            bool isAnybody = !host.hardware.empty() || !host.clientId.empty();
            if (isAnybody && !WriteHost(host, Tag('h', i))) {
                return false;
            }
        }
        return true;
    }

    // The one address of the host in the subnets, 0 for none.
    bool ChooseAddress(const DhcpHost &host, Ipv4 *chosen) {
        *chosen = 0;
        for (Ipv4 address : host.addresses) {
            bool isServed = SubnetOf(address) != nullptr;
            if (isServed && *chosen != 0) {
                return Refuse(host.line, "a host with several fixed addresses");
            }
            *chosen = isServed ? address : *chosen;
        }
        return *chosen == 0 || holders_[*chosen] == 1 ||
               Refuse(host.line, "a fixed address of several hosts");
    }

    bool WriteHost(const DhcpHost &host, const std::string &tag) {
        Ipv4 address = 0;
        if (host.clientId.size() == 1) {
            return Refuse(host.line, "a client identifier of one byte");
        }
        if (!ChooseAddress(host, &address)) {
            return false;
        }
        const DhcpSubnet *subnet = address != 0 ? SubnetOf(address) : &meaning_.subnets.front();
        DhcpSettings own = host.settings;
        DhcpSettings all = subnet->settings;
        all.Overlay(own);
        if (all.labelsAsNames.value_or(false) && all.options.count(OPTION_HOST_NAME) == 0) {
            own.options[OPTION_HOST_NAME] = {host.label, host.line};
        }
        std::string line = host.hardware;
        if (!host.clientId.empty()) {
            line.append(line.empty() ? "id:" : ",id:").append(DnsmasqValue_OfBytes(host.clientId));
        }
        line.append(",set:").append(tag);
        if (address != 0) {
            line.append(1, ',').append(Ipv4_Text(address));
        }
        LeaseTimes times = TimesOf(all);
        if (times != TimesOf(subnet->settings)) {
            if (times.usual != times.longest) {
                return Refuse(host.line, "a host with a default and another longest lease time of its own");
            }
            line.append(1, ',').append(Duration(times.usual));
        }
        Line("dhcp-host=", line, all.noBooting.value_or(false) ? ",ignore" : "");
        return CheckTimes(all, host.line) && WriteSettings(tag, own, all, host.line);
    }

    const DhcpMeaning &meaning_;
    const char *interface_;
    std::string *text_;
    std::string tag_;  // of the subnet that is being written
    bool matchesDuration_ = false;
    std::map<Ipv4, int> holders_;  // how many hosts have a fixed address
    DhcpProblem problem_;
};

}  // namespace

DhcpProblem DnsmasqConf_Write(const DhcpMeaning &meaning, const char *interface, std::string *text) {
    text->clear();
    return Writer(meaning, interface, text).Write();
}
