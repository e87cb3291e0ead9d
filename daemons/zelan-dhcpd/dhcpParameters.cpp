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
    if (!Dhcp_Number(statement.words[1], 0, UINT32_MAX, &seconds)) {
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
    *text = statement.words[1].text;
    return statement.words[1].kind == DhcpTokenKind::TEXT ? SOUND : FAULTY;
}

DhcpVerdict TakeBootFile(const DhcpStatement &statement, const Target &target) {
    return TakeText(statement, &target.settings->bootFile);
}

DhcpVerdict TakeServerName(const DhcpStatement &statement, const Target &target) {
    return TakeText(statement, &target.settings->serverName);
}

DhcpVerdict TakeNextServer(const DhcpStatement &statement, const Target &target) {
    Ipv4 address = 0;
    if (!Ipv4_Parse(statement.words[1].text, &address)) {
        return BEYOND;  // a name
    }
    target.settings->nextServer = address;
    return SOUND;
}

DhcpVerdict TakeAuthoritative(const DhcpStatement &, const Target &target) {
    target.settings->authoritative = true;
    return SOUND;
}

DhcpVerdict TakeNot(const DhcpStatement &statement, const Target &target) {
    target.settings->authoritative = false;
    return statement.words[1].IsWord("authoritative") ? SOUND : FAULTY;
}

// "allow", "deny" and "ignore", of which the last two differ in what is logged.
DhcpVerdict TakePermission(const DhcpStatement &statement, const Target &target) {
    bool refused = !statement.Is("allow");
    const DhcpToken &subject = statement.words[1];
    if (statement.words.size() > 2) {
        return BEYOND;
    }
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

DhcpVerdict TakeTruth(const DhcpStatement &statement, std::optional<bool> *truth) {
    bool value = false;
    if (!Dhcp_Truth(statement.words[1], &value)) {
        return FAULTY;
    }
    *truth = value;
    return SOUND;
}

DhcpVerdict TakeBootUnknown(const DhcpStatement &statement, const Target &target) {
    std::optional<bool> served;
    DhcpVerdict verdict = TakeTruth(statement, &served);
    target.settings->knownOnly = !served.value_or(true);
    return verdict;
}

DhcpVerdict TakeUseHostNames(const DhcpStatement &statement, const Target &target) {
    return TakeTruth(statement, &target.settings->labelsAsNames);
}

DhcpVerdict TakeLogFacility(const DhcpStatement &statement, const Target &target) {
    static constexpr const char *FACILITIES[] = {"kern",   "user",   "mail",   "daemon", "auth",   "syslog",
                                                 "lpr",    "news",   "uucp",   "cron",   "local0", "local1",
                                                 "local2", "local3", "local4", "local5", "local6", "local7"};
    for (const char *facility : FACILITIES) {
        if (statement.words[1].IsWord(facility)) {
            target.meaning->logFacility = facility;
            return SOUND;
        }
    }
    return BEYOND;
}

DhcpVerdict TakeUpdateStyle(const DhcpStatement &statement, const Target &) {
    return statement.words[1].IsWord("none") ? SOUND : BEYOND;
}

// Sets what is so anyhow.
DhcpVerdict TakeNothing(const DhcpStatement &, const Target &) {
    return SOUND;
}

// Switches something on that is off anyhow.
DhcpVerdict TakeOff(const DhcpStatement &statement, const Target &) {
    std::optional<bool> on;
    DhcpVerdict verdict = TakeTruth(statement, &on);
    return on.value_or(false) ? BEYOND : verdict;
}

constexpr size_t ANY = SIZE_MAX;

struct Parameter {
    const char *name;
    size_t least;  // words, with the name
    size_t most;
    DhcpVerdict (*take)(const DhcpStatement &statement, const Target &target);
};

constexpr Parameter PARAMETERS[] = {
    {"option", 2, ANY, TakeOption},
    {"default-lease-time", 2, 2, TakeDefaultLease},
    {"max-lease-time", 2, 2, TakeMaxLease},
    {"filename", 2, 2, TakeBootFile},
    {"server-name", 2, 2, TakeServerName},
    {"next-server", 2, 2, TakeNextServer},
    {"authoritative", 1, 1, TakeAuthoritative},
    {"not", 2, 2, TakeNot},
    {"allow", 2, ANY, TakePermission},
    {"deny", 2, ANY, TakePermission},
    {"ignore", 2, ANY, TakePermission},
    {"boot-unknown-clients", 2, 2, TakeBootUnknown},
    {"use-host-decl-names", 2, 2, TakeUseHostNames},
    {"log-facility", 2, 2, TakeLogFacility},
    {"ddns-update-style", 2, 2, TakeUpdateStyle},
    // Nothing is updated in any name server without an update style.
    {"ddns-updates", 1, ANY, TakeNothing},
    {"ddns-hostname", 1, ANY, TakeNothing},
    {"ddns-domainname", 1, ANY, TakeNothing},
    {"ddns-rev-domainname", 1, ANY, TakeNothing},
    {"ddns-ttl", 1, ANY, TakeNothing},
    {"do-forward-updates", 1, ANY, TakeNothing},
    {"update-conflict-detection", 1, ANY, TakeNothing},
    {"update-optimization", 1, ANY, TakeNothing},
    {"update-static-leases", 1, ANY, TakeNothing},
    // The starter says where these files are.
    {"lease-file-name", 1, ANY, TakeNothing},
    {"pid-file-name", 1, ANY, TakeNothing},
    {"db-time-format", 1, ANY, TakeNothing},
    // dnsmasq is told to do without pings, broadcasts each answer and has one lease for a client.
    {"ping-check", 2, 2, TakeOff},
    {"ping-timeout", 1, ANY, TakeNothing},
    {"always-broadcast", 1, ANY, TakeNothing},
    {"one-lease-per-client", 1, ANY, TakeNothing},
    {"get-lease-hostnames", 2, 2, TakeOff},
    {"use-lease-addr-for-default-route", 2, 2, TakeOff},
    {"infinite-is-reserved", 2, 2, TakeOff},
    {"dhcp-cache-threshold", 1, ANY, TakeNothing},
};

}  // namespace

DhcpVerdict DhcpParameter_Take(const DhcpStatement &statement, DhcpOptions *options, DhcpSettings *settings,
                               DhcpMeaning *meaning) {
    const Parameter *parameter =
        std::find_if(std::begin(PARAMETERS), std::end(PARAMETERS),
                     [&](const Parameter &candidate) { return statement.Is(candidate.name); });
    if (parameter == std::end(PARAMETERS)) {
        return BEYOND;
    }
    size_t words = statement.words.size();
    return words < parameter->least || words > parameter->most
               ? FAULTY
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
