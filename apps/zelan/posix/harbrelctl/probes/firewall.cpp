#include "apps/zelan/posix/harbrelctl/probes/firewall.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>

namespace {

using Json = nlohmann::json;

std::string Text(const Json &object, const char *key) {
    const auto found = object.is_object() ? object.find(key) : object.end();
    return found != object.end() && found->is_string() ? found->get<std::string>() : "";
}

const Json &Member(const Json &object, const char *key) {
    static const Json nothing;
    const auto found = object.is_object() ? object.find(key) : object.end();
    return found != object.end() ? *found : nothing;
}

using ChainName = std::array<std::string, 3>;  // family, table, chain

ChainName NameOf(const Json &object, const char *chain) {
    return {Text(object, "family"), Text(object, "table"), Text(object, chain)};
}

bool IsOurTable(const std::string &table) {
    return table == "zelan" || table.starts_with("zelan-") || table.starts_with("zelan_");
}

bool CarriesIpv4(const std::string &family) {
    return family == "ip" || family == "inet";
}

void TakePrefix(const Json &right, DropRule *rule) {
    const Json &prefix = Member(right, "prefix");
    const std::string address = right.is_string() ? right.get<std::string>() : Text(prefix, "addr");
    const unsigned length = prefix.is_object() ? prefix.value("len", 32U) : 32U;
    const std::optional<uint32_t> number = ParseAddress(address);
    if (number) {
        rule->subnets.push_back({*number & MaskOf(length), MaskOf(length)});
    } else {
        rule->others = true;
    }
}

// One condition of a rule.
void TakeMatch(const Json &match, DropRule *rule) {
    const Json &left = Member(match, "left");
    const Json &right = Member(match, "right");
    const std::string meta = Text(Member(left, "meta"), "key");
    const std::string field = Text(Member(left, "payload"), "field");
    const bool plain = Text(match, "op") == "==";
    if (plain && (meta == "iifname" || meta == "oifname" || meta == "iif" || meta == "oif") &&
        right.is_string()) {
        rule->interfaces.push_back(right.get<std::string>());
    } else if (plain && (field == "saddr" || field == "daddr")) {
        TakePrefix(right, rule);
    } else {
        rule->others = true;
    }
}

struct Verdict {
    bool drops = false;
    bool accepts = false;
    std::string jump;
};

Verdict TakeExpressions(const Json &expressions, DropRule *rule) {
    Verdict verdict;
    for (const Json &expression : expressions) {
        if (!expression.is_object() || expression.empty()) {
            continue;
        }
        const std::string kind = expression.begin().key();
        if (kind == "match") {
            TakeMatch(expression.begin().value(), rule);
        } else if (kind == "drop" || kind == "reject") {
            verdict.drops = true;
            rule->rule += (rule->rule.empty() ? "" : " ") + kind;
        } else if (kind == "accept") {
            verdict.accepts = true;
        } else if (kind == "jump" || kind == "goto") {
            verdict.jump = Text(expression.begin().value(), "target");
        } else if (kind != "counter" && kind != "log") {
            rule->others = true;
        }
    }
    return verdict;
}

std::string Describe(const DropRule &rule, const std::string &verdict) {
    std::string text;
    for (const std::string &interface : rule.interfaces) {
        text += "interface " + interface + " ";
    }
    for (const Subnet &subnet : rule.subnets) {
        text += SubnetText(subnet) + " ";
    }
    return text + verdict;
}

// What the ruleset says, in two passes: chains first, then rules.
struct Ruleset {
    std::set<ChainName> onTheWay;  // base chains of the forward hook and what they call
    std::map<ChainName, std::string> policies;
    std::vector<std::pair<ChainName, Json>> rules;
};

Ruleset Sort(const Json &list) {
    Ruleset ruleset;
    for (const Json &item : list) {
        const Json &chain = Member(item, "chain");
        const Json &rule = Member(item, "rule");
        const ChainName name = chain.is_object() ? NameOf(chain, "name") : NameOf(rule, "chain");
        if (!CarriesIpv4(name[0]) || IsOurTable(name[1])) {
            continue;
        }
        if (Text(chain, "hook") == "forward") {
            ruleset.onTheWay.insert(name);
            ruleset.policies[name] = Text(chain, "policy");
        } else if (rule.is_object()) {
            ruleset.rules.emplace_back(name, Member(rule, "expr"));
        }
    }
    return ruleset;
}

void FollowJumps(Ruleset *ruleset) {
    for (bool grown = true; grown;) {
        grown = false;
        for (const auto &[name, expressions] : ruleset->rules) {
            DropRule unused;
            const Verdict verdict = TakeExpressions(expressions, &unused);
            if (!verdict.jump.empty() && ruleset->onTheWay.contains(name)) {
                grown = ruleset->onTheWay.insert({name[0], name[1], verdict.jump}).second || grown;
            }
        }
    }
}

std::string Place(const ChainName &name) {
    return "table " + name[0] + " " + name[1] + " chain " + name[2];
}

// What a program prints.
std::string OutputOf(const char *command) {
    const std::unique_ptr<FILE, int (*)(FILE *)> pipe(popen(command, "re"), pclose);
    std::string text;
    char part[4096];
    for (size_t size = 0; pipe != nullptr && (size = fread(part, 1, sizeof part, pipe.get())) > 0;) {
        text.append(part, size);
    }
    return text;
}

}  // namespace

std::vector<DropRule> ParseDropRules(std::string_view json) {
    const Json document = Json::parse(json, nullptr, false);
    Ruleset ruleset = Sort(Member(document, "nftables"));
    FollowJumps(&ruleset);
    std::vector<DropRule> drops;
    std::map<ChainName, std::vector<DropRule>> accepted;
    for (const auto &[name, expressions] : ruleset.rules) {
        DropRule rule;
        const Verdict verdict = TakeExpressions(expressions, &rule);
        if (verdict.accepts) {
            accepted[name].push_back(rule);
        } else if (verdict.drops && ruleset.onTheWay.contains(name)) {
            rule.place = Place(name);
            rule.rule = Describe(rule, rule.rule);
            rule.accepted = accepted[name];
            drops.push_back(rule);
        }
    }
    for (const auto &[name, policy] : ruleset.policies) {
        if (policy == "drop") {
            drops.push_back({Place(name), "policy drop", {}, {}, accepted[name], false});
        }
    }
    return drops;
}

bool Meets(const DropRule &rule, const std::vector<std::string> &interfaces, const Subnet &subnet) {
    if (rule.others) {
        return false;
    }
    for (const std::string &pattern : rule.interfaces) {
        const bool prefix = pattern.ends_with("*");
        bool met = false;
        for (const std::string &name : interfaces) {
            met = met || (prefix ? name.starts_with(pattern.substr(0, pattern.size() - 1)) : name == pattern);
        }
        if (!met) {
            return false;
        }
    }
    for (const Subnet &named : rule.subnets) {
        if (!Overlap(named, subnet)) {
            return false;
        }
    }
    return std::none_of(rule.accepted.begin(), rule.accepted.end(),
                        [&](const DropRule &accepted) { return Meets(accepted, interfaces, subnet); });
}

std::vector<DropRule> ParseLegacyRules(const std::string &lines) {
    std::vector<DropRule> rules;
    std::istringstream stream(lines);
    for (std::string line; std::getline(stream, line);) {
        const bool whole = line == "-P FORWARD DROP" || line == "-A FORWARD -j DROP";
        if (whole || line.ends_with("-j DROP") || line.find("-j REJECT") != std::string::npos) {
            rules.push_back({"legacy iptables", line, {}, {}, {}, !whole});
        }
    }
    return rules;
}

std::vector<DropRule> ReadDropRules() {
    std::vector<DropRule> rules = ParseDropRules(OutputOf("nft -j list ruleset 2>/dev/null"));
    std::ifstream tables("/proc/net/ip_tables_names");
    // Without the table the question alone would load the kernel's module.
    if (std::find(std::istream_iterator<std::string>(tables), {}, "filter") !=
        std::istream_iterator<std::string>()) {
        const std::vector<DropRule> legacy =
            ParseLegacyRules(OutputOf("iptables-legacy -S FORWARD 2>/dev/null"));
        rules.insert(rules.end(), legacy.begin(), legacy.end());
    }
    return rules;
}
