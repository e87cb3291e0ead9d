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

// How many words stand behind a name.
struct Range {
    size_t least;
    size_t most;
};
constexpr Range NONE = {0, 0};
constexpr Range ONE = {1, 1};
constexpr Range SOME = {1, SIZE_MAX};
constexpr Range ANY = {0, SIZE_MAX};

struct Parameter {
    const char *name;
    Range words;
    DhcpVerdict (*take)(const DhcpStatement &statement, const Target &target);
};

constexpr Parameter PARAMETERS[] = {
    {"option", SOME, TakeOption},
    {"default-lease-time", ONE, TakeDefaultLease},
    {"max-lease-time", ONE, TakeMaxLease},
    {"filename", ONE, TakeBootFile},
    {"server-name", ONE, TakeServerName},
    {"next-server", ONE, TakeNextServer},
    {"authoritative", NONE, TakeAuthoritative},
    {"not", ONE, TakeNot},
    {"allow", SOME, TakePermission},
    {"deny", SOME, TakePermission},
    {"ignore", SOME, TakePermission},
    {"boot-unknown-clients", ONE, TakeBootUnknown},
    {"use-host-decl-names", ONE, TakeUseHostNames},
    {"log-facility", ONE, TakeLogFacility},
    {"ddns-update-style", ONE, TakeUpdateStyle},
    // Nothing is updated in any name server without an update style.
    {"ddns-updates", ANY, TakeNothing},
    {"ddns-hostname", ANY, TakeNothing},
    {"ddns-domainname", ANY, TakeNothing},
    {"ddns-rev-domainname", ANY, TakeNothing},
    {"ddns-ttl", ANY, TakeNothing},
    {"do-forward-updates", ANY, TakeNothing},
    {"update-conflict-detection", ANY, TakeNothing},
    {"update-optimization", ANY, TakeNothing},
    {"update-static-leases", ANY, TakeNothing},
    // The starter says where these files are.
    {"lease-file-name", ANY, TakeNothing},
    {"pid-file-name", ANY, TakeNothing},
    {"db-time-format", ANY, TakeNothing},
    // dnsmasq is told to do without pings, broadcasts each answer and has one lease for a client.
    {"ping-check", ONE, TakeOff},
    {"ping-timeout", ANY, TakeNothing},
    {"always-broadcast", ANY, TakeNothing},
    {"one-lease-per-client", ANY, TakeNothing},
    {"get-lease-hostnames", ONE, TakeOff},
    {"use-lease-addr-for-default-route", ONE, TakeOff},
    {"infinite-is-reserved", ONE, TakeOff},
    {"dhcp-cache-threshold", ANY, TakeNothing},
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
    size_t words = statement.words.size() - 1;
    return words < parameter->words.least || words > parameter->words.most
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
