// What a dhcpd.conf says, as far as it is known here: the subnets, the ranges, the hosts, and what holds for
// them.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "daemons/common/ipv4.h"
#include "daemons/zelan-dhcpd/dhcpOptions.h"
#include "daemons/zelan-dhcpd/dhcpSyntax.h"

struct DhcpLeaseTime {
    uint32_t seconds = 0;
    int line = 0;
};

struct DhcpOptionValue {
    std::string bytes;  // on the wire
    int line = 0;
};

// What the parameters of one scope set; empty is what they leave to the scope around it.
struct DhcpSettings {
    std::map<uint8_t, DhcpOptionValue> options;  // by code
    std::optional<DhcpLeaseTime> defaultLease;
    std::optional<DhcpLeaseTime> maxLease;
    std::optional<std::string> bootFile;
    std::optional<std::string> serverName;
    std::optional<Ipv4> nextServer;
    std::optional<bool> authoritative;
    std::optional<bool> knownOnly;  // no service for clients without a host declaration
    std::optional<bool> noBooting;  // no service at all
    std::optional<bool> noBootp;
    std::optional<bool> labelsAsNames;  // a host without a name in its options is told its label

    // Puts the settings of an inner scope over these.
    void Overlay(const DhcpSettings &inner);
};

struct DhcpRange {
    Ipv4 first = 0;
    Ipv4 last = 0;
    std::optional<bool> known;  // only for clients with, or only for those without a host declaration
    bool forBootp = false;
};

struct DhcpSubnet {
    Ipv4Subnet subnet;
    int sharedNetwork = 0;  // 0 for none, else the same number for all on one wire
    std::vector<DhcpRange> ranges;
    DhcpSettings settings;  // with those of the scopes around it
    int line = 0;
};

struct DhcpHost {
    std::string label;
    std::string hardware;  // MAC address, lower case with colons; empty for none
    std::string clientId;  // bytes; empty for none
    std::vector<Ipv4> addresses;
    DhcpSettings settings;  // with those of the scopes around it, the outermost excepted
    int line = 0;
};

struct DhcpMeaning {
    DhcpSettings settings;  // of the outermost scope
    std::vector<DhcpSubnet> subnets;
    std::vector<DhcpHost> hosts;
    std::string logFacility;  // lower case; empty for none
};

// Why a configuration cannot be used: what is wrong, or for BEYOND the statement.
struct DhcpProblem {
    DhcpVerdict verdict = DhcpVerdict::SOUND;
    int line = 0;
    std::string text;
};

// The problem is SOUND when everything is understood.
DhcpProblem DhcpMeaning_Read(const std::vector<DhcpStatement> &statements, DhcpMeaning *meaning);
