#include "daemons/zelan-dhcpd/leases.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdio>
#include <ctime>
#include <map>

#include "daemons/common/text.h"
#include "daemons/zelan-dhcpd/dhcpOptions.h"
#include "daemons/zelan-dhcpd/dhcpSyntax.h"

namespace {

using LeaseMap = std::map<Ipv4, DhcpLease>;

// Times after the year 9999 have no form in dhcpd's file.
bool ParseSeconds(std::string_view text, int64_t *seconds) {
    constexpr int64_t LAST = 253402300799;
    const char *end = text.data() + text.size();
    auto [stop, error] = std::from_chars(text.data(), end, *seconds);
    return error == std::errc() && stop == end && *seconds >= 0 && *seconds <= LAST;
}

// Brings a MAC address to its usual form; false for hardware of another kind.
bool ParseHardware(const std::string &text, std::string *hardware) {
    constexpr size_t MAC_LENGTH = 6;
    std::string bytes;
    bool isMac = Dhcp_HexBytes(text, &bytes) && bytes.size() == MAC_LENGTH;
    *hardware = Dhcp_HexText(bytes);
    return isMac;
}

// "END MAC ADDRESS NAME CLIENT-ID", where * stands for nothing.
bool ParseDnsmasqLine(std::string_view line, DhcpLease *lease) {
    std::string_view word[5];
    for (std::string_view &each : word) {
        if (!Text_TakeWord(&line, &each)) {
            return false;
        }
    }
    lease->hostName = word[3] == "*" ? "" : word[3];
    return ParseSeconds(word[0], &lease->end) && ParseHardware(std::string(word[1]), &lease->hardware) &&
           Ipv4_Parse(word[2], &lease->address) &&
           (word[4] == "*" || Dhcp_HexBytes(std::string(word[4]), &lease->clientId));
}

void ReadDnsmasq(std::string_view text, LeaseMap *leases) {
    std::string_view line;
    while (Text_TakeLine(&text, &line)) {
        DhcpLease lease;
        if (ParseDnsmasqLine(line, &lease)) {
            (*leases)[lease.address] = lease;
        }
    }
}

// "ends never", "ends epoch SECONDS" or "ends WEEKDAY YEAR/MONTH/DAY HOUR:MINUTE:SECOND" in UTC.
bool ParseEnd(const std::vector<DhcpToken> &words, int64_t *end) {
    if (words.size() == 2 && words[1].IsWord("never")) {
        *end = 0;
        return true;
    }
    if (words.size() == 3 && words[1].IsWord("epoch")) {
        return ParseSeconds(words[2].text, end);
    }
    tm time = {};
    if (words.size() != 4 ||
        strptime((words[2].text + " " + words[3].text).c_str(), "%Y/%m/%d %T", &time) == nullptr) {
        return false;
    }
    *end = timegm(&time);
    return *end > 0;
}

std::string BytesOf(const DhcpToken &token) {
    std::string bytes;
    return token.kind == DhcpTokenKind::TEXT ? token.text : Dhcp_HexBytes(token.text, &bytes) ? bytes : "";
}

// False for a lease that nobody holds.
bool ParseIscLease(const DhcpStatement &statement, DhcpLease *lease) {
    bool isActive = true;
    bool hasEnd = false;
    if (statement.words.size() != 2 || !Ipv4_Parse(statement.words[1].text, &lease->address)) {
        return false;
    }
    for (const DhcpStatement &member : statement.body) {
        const std::vector<DhcpToken> &words = member.words;
        if (member.Is("ends")) {
            hasEnd = ParseEnd(words, &lease->end);
        } else if (member.Is("binding") && words.size() == 3) {
            isActive = words[2].IsWord("active");
        } else if (member.Is("hardware") && words.size() == 3 && words[1].IsWord("ethernet")) {
            ParseHardware(words[2].text, &lease->hardware);
        } else if (member.Is("uid") && words.size() == 2) {
            lease->clientId = BytesOf(words[1]);
        } else if (member.Is("client-hostname") && words.size() == 2) {
            lease->hostName = words[1].text;
        }
    }
    return isActive && hasEnd && !lease->hardware.empty();
}

void ReadIsc(std::string_view text, LeaseMap *leases) {
    std::vector<DhcpStatement> statements;
    DhcpFault fault;
    if (!DhcpSyntax_Parse(text, &statements, &fault) && !statements.empty()) {
        statements.pop_back();
    }
    for (const DhcpStatement &statement : statements) {
        DhcpLease lease;
        if (!statement.Is("lease")) {
            continue;
        }
        // Each change of a lease is written behind the older ones.
        if (ParseIscLease(statement, &lease)) {
            (*leases)[lease.address] = lease;
        } else {
            leases->erase(lease.address);
        }
    }
}

std::string DnsmasqLine(const DhcpLease &lease) {
    constexpr size_t MAX_NAME = 255;
    constexpr size_t MAX_CLIENT_ID = 254;
    bool isName = !lease.hostName.empty() && lease.hostName.size() <= MAX_NAME &&
                  std::all_of(lease.hostName.begin(), lease.hostName.end(), [](char letter) {
                      return isalnum(static_cast<unsigned char>(letter)) != 0 || letter == '-' ||
                             letter == '_' || letter == '.';
                  });
    bool isClientId = !lease.clientId.empty() && lease.clientId.size() <= MAX_CLIENT_ID;
    return std::to_string(lease.end) + " " + lease.hardware + " " + Ipv4_Text(lease.address) + " " +
           (isName ? lease.hostName : "*") + " " + (isClientId ? Dhcp_HexText(lease.clientId) : "*") + "\n";
}

// Every byte but letters and digits as an octal number.
std::string Quoted(const std::string &bytes) {
    std::string text = "\"";
    char octal[5];
    for (char byte : bytes) {
        auto value = static_cast<unsigned char>(byte);
        if (value < 0x80 && isalnum(value) != 0) {
            text += byte;
        } else {
            snprintf(octal, sizeof octal, "\\%03o", value);
            text += octal;
        }
    }
    return text + "\"";
}

std::string IscTime(int64_t seconds) {
    char text[40];
    time_t value = seconds;
    tm time = {};
    gmtime_r(&value, &time);
    return strftime(text, sizeof text, "%w %Y/%m/%d %T", &time) != 0 ? text : "never";
}

std::string IscBlock(const DhcpLease &lease, int64_t now) {
    return "lease " + Ipv4_Text(lease.address) + " {\n  starts " + IscTime(now) + ";\n  ends " +
           (lease.end == 0 ? "never" : IscTime(lease.end)) + ";\n  cltt " + IscTime(now) +
           ";\n  binding state active;\n  next binding state free;\n  hardware ethernet " + lease.hardware +
           ";\n" + (lease.clientId.empty() ? "" : "  uid " + Quoted(lease.clientId) + ";\n") +
           (lease.hostName.empty() ? "" : "  client-hostname " + Quoted(lease.hostName) + ";\n") + "}\n";
}

}  // namespace

LeaseFormat Leases_FormatOf(std::string_view text) {
    DhcpToken first = DhcpTokens(text).Next();
    bool isWord = first.kind == DhcpTokenKind::WORD;
    if (first.kind == DhcpTokenKind::END) {
        return LeaseFormat::EMPTY;
    }
    if (isWord && (first.text == "duid" || first.text.find_first_not_of("0123456789") == std::string::npos)) {
        return LeaseFormat::DNSMASQ;
    }
    for (const char *word : {"lease", "host", "group", "authoring-byte-order", "server-duid", "failover"}) {
        if (first.IsWord(word)) {
            return LeaseFormat::ISC;
        }
    }
    return LeaseFormat::FOREIGN;
}

std::vector<DhcpLease> Leases_Read(LeaseFormat format, std::string_view text, int64_t now) {
    LeaseMap all;
    if (format == LeaseFormat::DNSMASQ) {
        ReadDnsmasq(text, &all);
    } else if (format == LeaseFormat::ISC) {
        ReadIsc(text, &all);
    }
    std::vector<DhcpLease> valid;
    for (auto &[address, lease] : all) {
        if (lease.end == 0 || lease.end > now) {
            valid.push_back(std::move(lease));
        }
    }
    return valid;
}

std::string Leases_Write(LeaseFormat format, const std::vector<DhcpLease> &leases, int64_t now) {
    std::string text = format == LeaseFormat::ISC ? "authoring-byte-order little-endian;\n" : "";
    for (const DhcpLease &lease : leases) {
        text += format == LeaseFormat::ISC ? IscBlock(lease, now) : DnsmasqLine(lease);
    }
    return text;
}
