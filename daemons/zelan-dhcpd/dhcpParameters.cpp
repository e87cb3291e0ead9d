#include "daemons/zelan-dhcpd/dhcpParameters.h"

#include <algorithm>
#include <cctype>

namespace {

constexpr auto SOUND = DhcpVerdict::SOUND;
constexpr auto FAULTY = DhcpVerdict::FAULTY;
constexpr auto BEYOND = DhcpVerdict::BEYOND;

struct Target {
    DhcpOptions *options;
    DhcpSettings *settings;
    DhcpMeaning *meaning;
};

DhcpVerdict TakeOption(const DhcpStatement &statement, const Target &target) {
    DhcpWords words = statement.words;
    if (words.size() < 2) {
        return FAULTY;
    }
    if (words.size() > 2 && words[2].IsWord("code")) {
        return target.options->Define(words.subspan(1));
    }
    const DhcpOption *option = target.options->Find(words[1].text);
    std::string bytes;
    DhcpVerdict verdict = option == nullptr ? BEYOND : DhcpOption_Encode(*option, words.subspan(2), &bytes);
    if (verdict == SOUND) {
        target.settings->options[option->code] = {bytes, statement.line()};
    }
    return verdict;
}

DhcpVerdict TakeLeaseTime(const DhcpStatement &statement, std::optional<DhcpLeaseTime> *time) {
    int64_t seconds = 0;
    if (statement.words.size() != 2 || !Dhcp_Number(statement.words[1], 0, UINT32_MAX, &seconds)) {
        return FAULTY;
    }
    *time = {static_cast<uint32_t>(seconds), statement.line()};
    return SOUND;
}

DhcpVerdict TakeDefaultLease(const DhcpStatement &statement, const Target &target) {
    return TakeLeaseTime(statement, &target.settings->defaultLease);
}

DhcpVerdict TakeMaxLease(const DhcpStatement &statement, const Target &target) {
    return TakeLeaseTime(statement, &target.settings->maxLease);
}

DhcpVerdict TakeText(const DhcpStatement &statement, std::optional<std::string> *text) {
    if (statement.words.size() != 2 || statement.words[1].kind != DhcpTokenKind::TEXT) {
        return FAULTY;
    }
    *text = statement.words[1].text;
    return SOUND;
}

DhcpVerdict TakeBootFile(const DhcpStatement &statement, const Target &target) {
    return TakeText(statement, &target.settings->bootFile);
}

DhcpVerdict TakeServerName(const DhcpStatement &statement, const Target &target) {
    return TakeText(statement, &target.settings->serverName);
}

DhcpVerdict TakeNextServer(const DhcpStatement &statement, const Target &target) {
    Ipv4 address = 0;
    if (statement.words.size() != 2) {
        return FAULTY;
    }
    if (!Ipv4_Parse(statement.words[1].text, &address)) {
        return BEYOND;  // a name
    }
    target.settings->nextServer = address;
    return SOUND;
}

DhcpVerdict TakeAuthoritative(const DhcpStatement &statement, const Target &target) {
    target.settings->authoritative = true;
    return statement.words.size() == 1 ? SOUND : FAULTY;
}

DhcpVerdict TakeNot(const DhcpStatement &statement, const Target &target) {
    target.settings->authoritative = false;
    return statement.words.size() == 2 && statement.words[1].IsWord("authoritative") ? SOUND : FAULTY;
}

// "allow", "deny" and "ignore", of which the last two differ in what is logged.
DhcpVerdict TakePermission(const DhcpStatement &statement, const Target &target) {
    bool refused = !statement.Is("allow");
    if (statement.words.size() != 2) {
        return statement.words.size() < 2 ? FAULTY : BEYOND;
    }
    const DhcpToken &subject = statement.words[1];
    if (subject.IsWord("unknown-clients")) {
        target.settings->knownOnly = refused;
    } else if (subject.IsWord("booting")) {
        target.settings->noBooting = refused;
    } else if (subject.IsWord("bootp")) {
        target.settings->noBootp = refused;
    } else if (!subject.IsWord("client-updates") &&
               (refused || !(subject.IsWord("duplicates") || subject.IsWord("declines")))) {
        return BEYOND;
    }
    return SOUND;
}

DhcpVerdict TakeBootUnknown(const DhcpStatement &statement, const Target &target) {
    bool value = false;
    if (statement.words.size() != 2 || !Dhcp_Truth(statement.words[1], &value)) {
        return FAULTY;
    }
    target.settings->knownOnly = !value;
    return SOUND;
}

DhcpVerdict TakeUseHostNames(const DhcpStatement &statement, const Target &target) {
    bool value = false;
    if (statement.words.size() != 2 || !Dhcp_Truth(statement.words[1], &value)) {
        return FAULTY;
    }
    target.settings->labelsAsNames = value;
    return SOUND;
}

DhcpVerdict TakeLogFacility(const DhcpStatement &statement, const Target &target) {
    static constexpr const char *FACILITIES[] = {"kern",   "user",   "mail",   "daemon", "auth",   "syslog",
                                                 "lpr",    "news",   "uucp",   "cron",   "local0", "local1",
                                                 "local2", "local3", "local4", "local5", "local6", "local7"};
    if (statement.words.size() != 2) {
        return FAULTY;
    }
    for (const char *facility : FACILITIES) {
        if (statement.words[1].IsWord(facility)) {
            target.meaning->logFacility = facility;
            return SOUND;
        }
    }
    return BEYOND;
}

DhcpVerdict TakeUpdateStyle(const DhcpStatement &statement, const Target &) {
    return statement.words.size() == 2 && statement.words[1].IsWord("none") ? SOUND : BEYOND;
}

// Sets what is so anyhow.
DhcpVerdict TakeNothing(const DhcpStatement &, const Target &) {
    return SOUND;
}

// Switches something on that is off anyhow.
DhcpVerdict TakeOff(const DhcpStatement &statement, const Target &) {
    bool value = false;
    if (statement.words.size() != 2 || !Dhcp_Truth(statement.words[1], &value)) {
        return FAULTY;
    }
    return value ? BEYOND : SOUND;
}

struct Parameter {
    const char *name;
    DhcpVerdict (*take)(const DhcpStatement &statement, const Target &target);
};

constexpr Parameter PARAMETERS[] = {
    {"option", TakeOption},
    {"default-lease-time", TakeDefaultLease},
    {"max-lease-time", TakeMaxLease},
    {"filename", TakeBootFile},
    {"server-name", TakeServerName},
    {"next-server", TakeNextServer},
    {"authoritative", TakeAuthoritative},
    {"not", TakeNot},
    {"allow", TakePermission},
    {"deny", TakePermission},
    {"ignore", TakePermission},
    {"boot-unknown-clients", TakeBootUnknown},
    {"use-host-decl-names", TakeUseHostNames},
    {"log-facility", TakeLogFacility},
    {"ddns-update-style", TakeUpdateStyle},
    // Nothing is updated in any name server without an update style.
    {"ddns-updates", TakeNothing},
    {"ddns-hostname", TakeNothing},
    {"ddns-domainname", TakeNothing},
    {"ddns-rev-domainname", TakeNothing},
    {"ddns-ttl", TakeNothing},
    {"do-forward-updates", TakeNothing},
    {"update-conflict-detection", TakeNothing},
    {"update-optimization", TakeNothing},
    {"update-static-leases", TakeNothing},
    // The starter says where these files are.
    {"lease-file-name", TakeNothing},
    {"pid-file-name", TakeNothing},
    {"db-time-format", TakeNothing},
    // dnsmasq is told to do without pings, broadcasts each answer and has one lease for a client.
    {"ping-check", TakeOff},
    {"ping-timeout", TakeNothing},
    {"always-broadcast", TakeNothing},
    {"one-lease-per-client", TakeNothing},
    {"get-lease-hostnames", TakeOff},
    {"use-lease-addr-for-default-route", TakeOff},
    {"infinite-is-reserved", TakeOff},
    {"dhcp-cache-threshold", TakeNothing},
};

}  // namespace

DhcpVerdict DhcpParameter_Take(const DhcpStatement &statement, DhcpOptions *options, DhcpSettings *settings,
                               DhcpMeaning *meaning) {
    const Parameter *parameter =
        std::find_if(std::begin(PARAMETERS), std::end(PARAMETERS),
                     [&](const Parameter &candidate) { return statement.Is(candidate.name); });
    return parameter == std::end(PARAMETERS) ? BEYOND
                                             : parameter->take(statement, {options, settings, meaning});
}

DhcpVerdict DhcpParameter_TakePermit(const DhcpStatement &statement, DhcpPermits *permits) {
    bool allows = statement.Is("allow");
    if ((!allows && !statement.Is("deny")) || statement.words.size() != 2) {
        return BEYOND;
    }
    bool known = statement.words[1].IsWord("known-clients");
    if (!known && !statement.words[1].IsWord("unknown-clients")) {
        return BEYOND;
    }
    permits->hasAllowed = permits->hasAllowed || allows;
    (allows ? permits->allowed : permits->denied)[known] = true;
    return SOUND;
}
