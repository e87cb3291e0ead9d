#include "daemons/zelan-dhcpd/dhcpOptions.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstring>
#include <string_view>

#include "daemons/common/ipv4.h"

namespace {

struct NamedOption {
    const char *name;
    DhcpOption option;
};

// RFC 2132 and its successors, under the names of dhcp-options(5), by code. Those are missing that the
// protocol itself needs and those with a structure of their own.
constexpr NamedOption STANDARD[] = {
    {"subnet-mask", {1, "I"}},
    {"time-offset", {2, "l"}},
    {"routers", {3, "IA"}},
    {"time-servers", {4, "IA"}},
    {"ien116-name-servers", {5, "IA"}},
    {"domain-name-servers", {6, "IA"}},
    {"log-servers", {7, "IA"}},
    {"cookie-servers", {8, "IA"}},
    {"lpr-servers", {9, "IA"}},
    {"impress-servers", {10, "IA"}},
    {"resource-location-servers", {11, "IA"}},
    {"host-name", {12, "t"}},
    {"boot-size", {13, "S"}},
    {"merit-dump", {14, "t"}},
    {"domain-name", {15, "t"}},
    {"swap-server", {16, "I"}},
    {"root-path", {17, "t"}},
    {"extensions-path", {18, "t"}},
    {"ip-forwarding", {19, "f"}},
    {"non-local-source-routing", {20, "f"}},
    {"policy-filter", {21, "IIA"}},
    {"max-dgram-reassembly", {22, "S"}},
    {"default-ip-ttl", {23, "B"}},
    {"path-mtu-aging-timeout", {24, "L"}},
    {"path-mtu-plateau-table", {25, "SA"}},
    {"interface-mtu", {26, "S"}},
    {"all-subnets-local", {27, "f"}},
    {"broadcast-address", {28, "I"}},
    {"perform-mask-discovery", {29, "f"}},
    {"mask-supplier", {30, "f"}},
    {"router-discovery", {31, "f"}},
    {"router-solicitation-address", {32, "I"}},
    {"static-routes", {33, "IIA"}},
    {"trailer-encapsulation", {34, "f"}},
    {"arp-cache-timeout", {35, "L"}},
    {"ieee802-3-encapsulation", {36, "f"}},
    {"default-tcp-ttl", {37, "B"}},
    {"tcp-keepalive-interval", {38, "L"}},
    {"tcp-keepalive-garbage", {39, "f"}},
    {"nis-domain", {40, "t"}},
    {"nis-servers", {41, "IA"}},
    {"ntp-servers", {42, "IA"}},
    {"netbios-name-servers", {44, "IA"}},
    {"netbios-dd-server", {45, "IA"}},
    {"netbios-node-type", {46, "B"}},
    {"netbios-scope", {47, "t"}},
    {"font-servers", {48, "IA"}},
    {"x-display-manager", {49, "IA"}},
    {"vendor-class-identifier", {60, "X"}},
    {"nisplus-domain", {64, "t"}},
    {"nisplus-servers", {65, "IA"}},
    {"tftp-server-name", {66, "t"}},
    {"bootfile-name", {67, "t"}},
    {"mobile-ip-home-agent", {68, "IA"}},
    {"smtp-server", {69, "IA"}},
    {"pop-server", {70, "IA"}},
    {"nntp-server", {71, "IA"}},
    {"www-server", {72, "IA"}},
    {"finger-server", {73, "IA"}},
    {"irc-server", {74, "IA"}},
    {"streettalk-server", {75, "IA"}},
    {"streettalk-directory-assistance-server", {76, "IA"}},
    {"nds-servers", {85, "IA"}},
    {"nds-tree-name", {86, "t"}},
    {"nds-context", {87, "t"}},
    {"uap-servers", {98, "t"}},
    {"pcode", {100, "t"}},
    {"tcode", {101, "t"}},
    {"netinfo-server-address", {112, "IA"}},
    {"netinfo-server-tag", {113, "t"}},
    {"default-url", {114, "t"}},
    {"domain-search", {119, "D"}},
    {"capwap-ac-v4", {138, "IA"}},
    {"loader-configfile", {209, "t"}},
    {"loader-pathprefix", {210, "t"}},
    {"loader-reboottime", {211, "L"}},
};

// Options that the server gives values of its own, or that are no option on the wire.
bool IsReserved(int64_t code) {
    return code == 0 || code == UINT8_MAX || (code >= 50 && code <= 59) || code == 61 || code == 81 ||
           code == 82;
}

std::string Lower(std::string text) {
    for (char &letter : text) {
        letter = static_cast<char>(tolower(static_cast<unsigned char>(letter)));
    }
    return text;
}

void PutNumber(std::string *bytes, uint64_t number, unsigned size) {
    for (unsigned i = size; i-- > 0;) {
        *bytes += static_cast<char>(number >> (8 * i) & 0xffU);
    }
}

bool LooksLikeAddress(const std::string &text) {
    return text.find_first_not_of("0123456789.") == std::string::npos;
}

DhcpVerdict PutAddress(const DhcpToken &token, std::string *bytes) {
    Ipv4 address = 0;
    if (token.kind != DhcpTokenKind::WORD) {
        return DhcpVerdict::FAULTY;
    }
    if (!Ipv4_Parse(token.text, &address)) {
        // A name, which ISC dhcpd looks up.
        return LooksLikeAddress(token.text) ? DhcpVerdict::FAULTY : DhcpVerdict::BEYOND;
    }
    PutNumber(bytes, address, sizeof address);
    return DhcpVerdict::SOUND;
}

DhcpVerdict PutInteger(char format, const DhcpToken &token, std::string *bytes) {
    unsigned size = format == 'L' || format == 'l' ? 4 : format == 'S' || format == 's' ? 2 : 1;
    int64_t span = int64_t{1} << (8 * size);
    bool isSigned = islower(static_cast<unsigned char>(format)) != 0;
    int64_t number = 0;
    if (!Dhcp_Number(token, isSigned ? -span / 2 : 0, isSigned ? span / 2 - 1 : span - 1, &number)) {
        return DhcpVerdict::FAULTY;
    }
    PutNumber(bytes, static_cast<uint64_t>(number), size);
    return DhcpVerdict::SOUND;
}

DhcpVerdict PutText(char format, const DhcpToken &token, std::string *bytes) {
    if (token.kind == DhcpTokenKind::TEXT) {
        *bytes += token.text;
        return DhcpVerdict::SOUND;
    }
    if (token.kind != DhcpTokenKind::WORD) {
        return DhcpVerdict::FAULTY;
    }
    if (format == 'X') {
        return Dhcp_HexBytes(token.text, bytes) ? DhcpVerdict::SOUND : DhcpVerdict::FAULTY;
    }
    *bytes += token.text;
    return DhcpVerdict::SOUND;
}

bool PutLabels(std::string_view name, std::string *bytes) {
    constexpr size_t MAX_LABEL = 63;
    if (name.ends_with('.')) {
        name.remove_suffix(1);
    }
    for (size_t begin = 0; begin <= name.size();) {
        size_t length = std::min(name.find('.', begin), name.size()) - begin;
        if (length == 0 || length > MAX_LABEL) {
            return false;
        }
        *bytes += static_cast<char>(length);
        *bytes += name.substr(begin, length);
        begin += length + 1;
    }
    *bytes += '\0';
    return true;
}

DhcpVerdict PutDomains(DhcpWords values, std::string *bytes) {
    for (size_t i = 0; i < values.size(); i++) {
        bool isSound = i % 2 == 1 ? values[i].IsMark(',')
                                  : values[i].kind == DhcpTokenKind::TEXT && PutLabels(values[i].text, bytes);
        if (!isSound) {
            return DhcpVerdict::FAULTY;
        }
    }
    return values.size() % 2 == 1 ? DhcpVerdict::SOUND : DhcpVerdict::FAULTY;
}

DhcpVerdict PutTruth(const DhcpToken &token, std::string *bytes) {
    bool value = false;
    if (!Dhcp_Truth(token, &value)) {
        return DhcpVerdict::FAULTY;
    }
    *bytes += static_cast<char>(value);
    return DhcpVerdict::SOUND;
}

DhcpVerdict PutValue(char format, const DhcpToken &token, std::string *bytes) {
    switch (format) {
        case 'I':
            return PutAddress(token, bytes);
        case 'f':
            return PutTruth(token, bytes);
        case 't':
        case 'X':
            return PutText(format, token, bytes);
        default:
            return PutInteger(format, token, bytes);
    }
}

DhcpVerdict PutElements(std::string_view format, DhcpWords values, std::string *bytes) {
    bool isArray = format.ends_with('A');
    std::string_view element = format.substr(0, format.size() - (isArray ? 1 : 0));
    for (;;) {
        for (char letter : element) {
            if (values.empty()) {
                return DhcpVerdict::FAULTY;
            }
            DhcpVerdict verdict = PutValue(letter, values.front(), bytes);
            if (verdict != DhcpVerdict::SOUND) {
                return verdict;
            }
            values = values.subspan(1);
        }
        if (values.empty()) {
            return DhcpVerdict::SOUND;
        }
        if (!isArray || !values.front().IsMark(',')) {
            return DhcpVerdict::FAULTY;
        }
        values = values.subspan(1);
    }
}

// The format letter of a defined type; null for one that is not known here.
const char *FormatOfType(DhcpWords type) {
    struct Type {
        const char *words;
        const char *one;
        const char *array;
    };
    static constexpr Type TYPES[] = {
        {"boolean", "f", "fA"},
        {"ip-address", "I", "IA"},
        {"text", "t", nullptr},
        {"string", "X", nullptr},
        {"integer 8", "b", "bA"},
        {"integer 16", "s", "sA"},
        {"integer 32", "l", "lA"},
        {"signed integer 8", "b", "bA"},
        {"signed integer 16", "s", "sA"},
        {"signed integer 32", "l", "lA"},
        {"unsigned integer 8", "B", "BA"},
        {"unsigned integer 16", "S", "SA"},
        {"unsigned integer 32", "L", "LA"},
    };
    bool isArray = type.size() > 2 && type[0].IsWord("array") && type[1].IsWord("of");
    std::string words;
    for (const DhcpToken &word : type.subspan(isArray ? 2 : 0)) {
        words += words.empty() ? "" : " ";
        words += Lower(word.text);
    }
    for (const Type &candidate : TYPES) {
        if (words == candidate.words) {
            return isArray ? candidate.array : candidate.one;
        }
    }
    return nullptr;
}

}  // namespace

bool Dhcp_Number(const DhcpToken &token, int64_t minimum, int64_t maximum, int64_t *number) {
    std::string_view digits = token.text;
    if (token.kind != DhcpTokenKind::WORD) {
        return false;
    }
    bool isNegative = digits.starts_with('-');
    if (isNegative || digits.starts_with('+')) {
        digits.remove_prefix(1);
    }
    int base = 10;
    if (digits.starts_with("0x") || digits.starts_with("0X")) {
        base = 16;
        digits.remove_prefix(2);
    } else if (digits.size() > 1 && digits.starts_with('0')) {
        base = 8;
    }
    int64_t value = 0;
    const char *end = digits.data() + digits.size();
    auto [stop, error] = std::from_chars(digits.data(), end, value, base);
    value = isNegative ? -value : value;
    if (error != std::errc() || stop != end || digits.starts_with('-') || value < minimum ||
        value > maximum) {
        return false;
    }
    *number = value;
    return true;
}

bool Dhcp_Truth(const DhcpToken &token, bool *value) {
    *value = token.IsWord("true") || token.IsWord("on");
    return *value || token.IsWord("false") || token.IsWord("off");
}

bool Dhcp_HexBytes(const std::string &text, std::string *bytes) {
    const char *end = text.data() + text.size();
    for (const char *place = text.data();; place++) {
        unsigned value = 0;
        auto [stop, error] = std::from_chars(place, std::min(place + 2, end), value, 16);
        if (error != std::errc() || (stop != end && *stop != ':')) {
            return false;
        }
        *bytes += static_cast<char>(value);
        if (stop == end) {
            return true;
        }
        place = stop;
    }
}

std::string Dhcp_HexText(const std::string &bytes) {
    constexpr char DIGITS[] = "0123456789abcdef";
    constexpr unsigned BASE = sizeof DIGITS - 1;
    std::string text;
    for (char byte : bytes) {
        auto value = static_cast<unsigned char>(byte);
        text += text.empty() ? "" : ":";
        text += DIGITS[value / BASE];
        text += DIGITS[value % BASE];
    }
    return text;
}

DhcpVerdict DhcpOptions::Define(DhcpWords words) {
    constexpr size_t TYPE_PLACE = 4;
    int64_t code = 0;
    if (words.size() <= TYPE_PLACE || words[0].kind != DhcpTokenKind::WORD ||
        !Dhcp_Number(words[2], 0, UINT8_MAX, &code) || !words[3].IsMark('=')) {
        return DhcpVerdict::FAULTY;
    }
    const char *format = FormatOfType(words.subspan(TYPE_PLACE));
    if (format == nullptr || IsReserved(code)) {
        return DhcpVerdict::BEYOND;
    }
    own_[Lower(words[0].text)] = {static_cast<uint8_t>(code), format};
    return DhcpVerdict::SOUND;
}

const DhcpOption *DhcpOptions::Find(const std::string &name) {
    constexpr std::string_view UNKNOWN = "unknown-";
    std::string key = Lower(name);
    auto own = own_.find(key);
    if (own != own_.end()) {
        return &own->second;
    }
    for (const NamedOption &standard : STANDARD) {
        if (key == standard.name) {
            return &standard.option;
        }
    }
    int64_t code = 0;
    if (key.starts_with(UNKNOWN) &&
        Dhcp_Number({DhcpTokenKind::WORD, key.substr(UNKNOWN.size()), 0}, 0, UINT8_MAX, &code) &&
        !IsReserved(code)) {
        return &(own_[key] = {static_cast<uint8_t>(code), "X"});
    }
    return nullptr;
}

DhcpVerdict DhcpOption_Encode(const DhcpOption &option, DhcpWords values, std::string *bytes) {
    bytes->clear();
    if (!values.empty() && values.front().IsMark('=')) {
        // An expression; one that is just a text means that text.
        bool isText = values.size() == 2 && values[1].kind == DhcpTokenKind::TEXT &&
                      (strcmp(option.format, "t") == 0 || strcmp(option.format, "X") == 0);
        if (!isText) {
            return DhcpVerdict::BEYOND;
        }
        values = values.subspan(1);
    }
    DhcpVerdict verdict = strcmp(option.format, "D") == 0 ? PutDomains(values, bytes)
                                                          : PutElements(option.format, values, bytes);
    bool hasUsualLength = !bytes->empty() && bytes->size() <= UINT8_MAX;
    return verdict == DhcpVerdict::SOUND && !hasUsualLength ? DhcpVerdict::BEYOND : verdict;
}
