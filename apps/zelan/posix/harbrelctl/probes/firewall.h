// Firewalls of others, as far as they may drop what networks of ours send through the host.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "apps/zelan/posix/harbrelctl/model/address.h"

struct DropRule {
    std::string place;  // "table inet filter chain forward"
    std::string rule;   // as text; "policy drop" for that
    // What the rule names; without any it meets everything.
    std::vector<std::string> interfaces;  // may end in "*"
    std::vector<Subnet> subnets;
    std::vector<DropRule> accepted;  // that the chain lets through before
    bool others = false;  // it asks for more than this program follows, so that it may meet nothing of ours
};

// Rules and policies that drop on the way of forwarded packets, out of what "nft -j list ruleset" prints.
// Tables of ours are left out. Pure.
std::vector<DropRule> ParseDropRules(std::string_view json);

// The same out of lines as "-P FORWARD DROP" and "-A FORWARD -i eth0 -j DROP". Pure.
std::vector<DropRule> ParseLegacyRules(const std::string &lines);

// Whether the rule meets packets from or to a network with these interfaces and this subnet.
bool Meets(const DropRule &rule, const std::vector<std::string> &interfaces, const Subnet &subnet);

// Of this host, nft and legacy iptables; firewalld speaks through them.
std::vector<DropRule> ReadDropRules();
