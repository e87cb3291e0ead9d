#include "daemons/zelan-natd/natConf.h"

#include <algorithm>
#include <array>
#include <charconv>

#include "daemons/common/options.h"
#include "daemons/common/text.h"

namespace {

constexpr uint32_t MAX_PORT = 65535;
// What the library accepts for the time-out.
constexpr uint32_t MAX_TIMEOUT = 0x7fffffff;
// A subnet needs its own address, the broadcast address, the gateway's and a guest's.
constexpr int MAX_PREFIX = 30;

// Takes a value; null, or why it is refused.
using Setter = const char *(*)(std::string_view value, NatConf *conf);

// Blanks as scanf takes them.
constexpr std::string_view BLANKS = " \t\n\v\f\r";

// A whole number in the base that its prefix tells, with a sign before it: as the library takes and stores
// it.
bool ParseNumber(std::string_view text, uint32_t maximum, uint32_t *number) {
    int base = 10;
    text.remove_prefix(std::min(text.find_first_not_of(BLANKS), text.size()));
    bool negative = text.starts_with('-');
    text.remove_prefix(negative || text.starts_with('+') ? 1 : 0);
    if (text.starts_with("0x") || text.starts_with("0X")) {
        text.remove_prefix(2);
        base = 16;
    } else if (text.starts_with('0')) {
        base = 8;
    }
    const char *end = text.data() + text.size();
    auto [stop, error] = std::from_chars(text.data(), end, *number, base);
    return error == std::errc() && stop == end && *number <= maximum && (!negative || *number == 0);
}

// Takes what scanf takes for "%3u".
bool TakeOctet(std::string_view *text, uint32_t *octet) {
    constexpr size_t WIDTH = 3;
    constexpr uint32_t MAX_OCTET = 255;
    text->remove_prefix(std::min(text->find_first_not_of(BLANKS), text->size()));
    std::string_view field = text->substr(0, WIDTH);
    bool negative = field.starts_with('-');
    field.remove_prefix(negative || field.starts_with('+') ? 1 : 0);
    auto [stop, error] = std::from_chars(field.data(), field.data() + field.size(), *octet);
    text->remove_prefix(static_cast<size_t>(stop - text->data()));
    return error == std::errc() && *octet <= MAX_OCTET && (!negative || *octet == 0);
}

// An address in every form that the library takes: octets may have a sign and blanks before them.
bool ParseAddress(std::string_view text, Ipv4 *address) {
    constexpr int OCTETS = 4;
    constexpr unsigned OCTET_BITS = 8;
    *address = 0;
    for (int i = 0; i < OCTETS; i++) {
        uint32_t octet = 0;
        if (i > 0 && !text.starts_with('.')) {
            return false;
        }
        text.remove_prefix(i > 0 ? 1 : 0);
        if (!TakeOctet(&text, &octet)) {
            return false;
        }
        *address = *address << OCTET_BITS | octet;
    }
    return text.empty();
}

bool ParsePort(std::string_view text, uint16_t *port) {
    uint32_t number = 0;
    bool valid = ParseNumber(text, MAX_PORT, &number) && number != 0;
    *port = static_cast<uint16_t>(number);
    return valid;
}

const char *SetFlag(std::string_view value, bool *flag) {
    *flag = value == "1";
    return *flag || value == "0" ? nullptr : "the value must be 0 or 1";
}

const char *SetGateway(std::string_view value, NatConf *conf) {
    return ParseAddress(value, &conf->gateway) ? nullptr : "the value is no IPv4 address";
}

const char *SetMask(std::string_view value, NatConf *conf) {
    Ipv4 mask = 0;
    bool valid = ParseAddress(value, &mask) && Ipv4_Prefix(mask, &conf->prefix) && conf->prefix > 0 &&
                 conf->prefix <= MAX_PREFIX;
    return valid ? nullptr : "the value is no netmask of a subnet with guests";
}

const char *SetDevice(std::string_view value, NatConf *conf) {
    constexpr std::string_view FOLDER = "/dev/";
    bool valid = value.starts_with(FOLDER) && Options_Network(value.substr(FOLDER.size()), &conf->network);
    return valid ? nullptr : "the value is no device of a network, as /dev/zelan8";
}

const char *SetActiveFtp(std::string_view value, NatConf *conf) {
    return SetFlag(value, &conf->activeFtp);
}

const char *SetAllowAnyOui(std::string_view value, NatConf *conf) {
    return SetFlag(value, &conf->allowAnyOui);
}

const char *SetTimeout(std::string_view value, NatConf *conf) {
    return ParseNumber(value, MAX_TIMEOUT, &conf->udpTimeout) ? nullptr : "the value is no number of seconds";
}

struct KeyRule {
    std::string_view section;
    std::string_view key;
    bool required;
    Setter set;
};

constexpr std::array KEYS = {
    KeyRule{"host", "ip", true, SetGateway},
    KeyRule{"host", "netmask", true, SetMask},
    KeyRule{"host", "device", false, SetDevice},
    KeyRule{"host", "activeFTP", false, SetActiveFtp},
    KeyRule{"host", "allowAnyOUI", false, SetAllowAnyOui},
    KeyRule{"udp", "timeout", false, SetTimeout},
};

// The sections whose keys are host ports.
constexpr std::string_view INCOMING_UDP = "incomingudp";
constexpr std::string_view INCOMING_TCP = "incomingtcp";
constexpr std::array<std::string_view, 4> SECTIONS = {"host", "udp", INCOMING_UDP, INCOMING_TCP};

class Reader {
  public:
    explicit Reader(NatConf *conf) : conf_(conf) {}

    // Takes one line; null, or why it is refused.
    const char *TakeLine(std::string_view line);
    // What is wrong with the file as a whole; null for nothing.
    const char *Finish() const;

  private:
    const char *TakeSection(std::string_view line);
    const char *TakeValue(std::string_view key, std::string_view value);
    const char *TakeForward(std::string_view key, std::string_view value);

    NatConf *conf_;
    std::string_view section_;
    std::array<bool, KEYS.size()> seen_ = {};
};

const char *Reader::TakeLine(std::string_view line) {
    if (line.find('\0') != std::string_view::npos) {
        return "there is a zero byte in the line";
    }
    line = Text_Trim(line);
    if (line.empty() || line.front() == '#') {
        return nullptr;
    }
    if (line.front() == '[') {
        return TakeSection(line);
    }
    size_t sign = line.find('=');
    if (sign == std::string_view::npos) {
        return "the line is neither a section nor of the form key = value";
    }
    if (section_.empty()) {
        return "the line stands before the first section";
    }
    std::string_view key = Text_Trim(line.substr(0, sign));
    std::string_view value = Text_Trim(line.substr(sign + 1));
    bool isForward = section_ == INCOMING_UDP || section_ == INCOMING_TCP;
    return isForward ? TakeForward(key, value) : TakeValue(key, value);
}

const char *Reader::TakeSection(std::string_view line) {
    if (line.back() != ']') {
        return "the name of the section does not end";
    }
    auto found = std::find(SECTIONS.begin(), SECTIONS.end(), Text_Trim(line.substr(1, line.size() - 2)));
    if (found == SECTIONS.end()) {
        return "there is no such section";
    }
    section_ = *found;
    return nullptr;
}

const char *Reader::TakeValue(std::string_view key, std::string_view value) {
    for (size_t i = 0; i < KEYS.size(); i++) {
        if (KEYS[i].section == section_ && KEYS[i].key == key) {
            if (seen_[i]) {
                return "the key stands twice";
            }
            seen_[i] = true;
            return KEYS[i].set(value, conf_);
        }
    }
    return "there is no such key in this section";
}

const char *Reader::TakeForward(std::string_view key, std::string_view value) {
    PortForward forward;
    forward.tcp = section_ == INCOMING_TCP;
    size_t colon = std::min(value.find(':'), value.size());
    if (!ParsePort(key, &forward.hostPort)) {
        return "the key is no port of the host";
    }
    if (!ParseAddress(value.substr(0, colon), &forward.guest) || colon == value.size() ||
        !ParsePort(value.substr(colon + 1), &forward.guestPort)) {
        return "the value is no address and port, as 192.168.8.50:80";
    }
    for (const PortForward &other : conf_->forwards) {
        if (other.tcp == forward.tcp && other.hostPort == forward.hostPort) {
            return "the port is forwarded twice";
        }
    }
    conf_->forwards.push_back(forward);
    return nullptr;
}

const char *Reader::Finish() const {
    for (size_t i = 0; i < KEYS.size(); i++) {
        if (KEYS[i].required && !seen_[i]) {
            return "the gateway's ip or netmask is missing";
        }
    }
    return conf_->subnet().HasHost(conf_->gateway) ? nullptr : "the gateway's ip is no host of its subnet";
}

}  // namespace

bool NatConf_Parse(std::string_view text, NatConf *conf, NatConfFault *fault) {
    *conf = NatConf();
    Reader reader(conf);
    std::string_view line;
    for (int number = 1; Text_TakeLine(&text, &line); number++) {
        const char *reason = reader.TakeLine(line);
        if (reason != nullptr) {
            *fault = {number, reason};
            return false;
        }
    }
    const char *reason = reader.Finish();
    if (reason != nullptr) {
        *fault = {0, reason};
    }
    return reason == nullptr;
}
