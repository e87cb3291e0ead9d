#include "apps/zelan/posix/harbrelctl/output/editText.h"

#include <sstream>

namespace {

std::string ForwardLine(const Forward &forward) {
    return std::string("forward ") + (forward.tcp ? "tcp " : "udp ") + std::to_string(forward.hostPort) +
           " " + AddressText(forward.guest) + ":" + std::to_string(forward.guestPort) +
           (forward.note.empty() ? "" : " " + forward.note) + "\n";
}

// "tcp 8888 192.168.8.10:80 what it is for".
std::string TakeForward(std::istringstream *words, NetworkConfig *config) {
    std::string protocol, port, target;
    *words >> protocol >> port >> target >> std::ws;
    Forward forward;
    forward.tcp = protocol == "tcp";
    const size_t colon = target.find(':');
    const auto host = ParseNumber(port, UINT16_MAX);
    const auto guest = ParseAddress(target.substr(0, colon));
    const auto guestPort =
        ParseNumber(colon == std::string::npos ? "" : target.substr(colon + 1), UINT16_MAX);
    if ((!forward.tcp && protocol != "udp") || host.value_or(0) == 0 || !guest ||
        guestPort.value_or(0) == 0) {
        return "a forward is: forward tcp|udp PORT ADDRESS:PORT [NOTE]";
    }
    forward.hostPort = static_cast<uint16_t>(*host);
    forward.guest = *guest;
    forward.guestPort = static_cast<uint16_t>(*guestPort);
    std::getline(*words, forward.note);
    for (const Forward &other : config->forwards) {
        if (other.tcp == forward.tcp && other.hostPort == forward.hostPort) {
            return protocol + " port " + port + " stands here twice";
        }
    }
    config->forwards.push_back(forward);
    return "";
}

// "02:00:00:00:00:01 192.168.8.10".
std::string TakeReservation(std::istringstream *words, NetworkConfig *config) {
    std::string mac, address;
    *words >> mac >> address;
    const auto standard = StandardMac(mac);
    const auto number = ParseAddress(address);
    if (!standard || !number) {
        return "a reservation is: reserve MAC ADDRESS";
    }
    for (const Reservation &other : config->reservations) {
        if (other.mac == *standard) {
            return *standard + " stands here twice";
        }
    }
    config->reservations.push_back({*standard, *number});
    return "";
}

std::string TakeLine(const std::string &line, NetworkConfig *config) {
    std::istringstream words(line);
    std::string first;
    words >> first;
    if (first.empty() || first.starts_with('#')) {
        return "";
    }
    if (first == "forward") {
        return TakeForward(&words, config);
    }
    return first == "reserve" ? TakeReservation(&words, config) : Assign(first, config);
}

// What the text has no word for stays as it is.
bool IsInText(Field field) {
    for (const KeyRow &key : Keys()) {
        if (field == key.field || field == key.second) {
            return true;
        }
    }
    return false;
}

}  // namespace

std::string EditText(int network, const NetworkConfig &config) {
    std::string text = "# " + NetworkName(network) + "; a key in a comment is at its default\n";
    for (const KeyRow &key : Keys()) {
        const std::string value = KeyValue(key, network, config);
        text += std::string(KeyIsStored(key, config) ? "" : "#") + key.name + "=" + value + "\n";
    }
    text += "\n# forward tcp|udp PORT ADDRESS:PORT [NOTE]\n";
    for (const Forward &forward : config.forwards) {
        text += ForwardLine(forward);
    }
    text += "\n# reserve MAC ADDRESS\n";
    for (const Reservation &tie : config.reservations) {
        text += "reserve " + tie.mac + " " + AddressText(tie.address) + "\n";
    }
    return text;
}

std::string ReadEditText(const std::string &text, NetworkConfig *config) {
    for (int field = 0; field < FIELD_COUNT; field++) {
        if (IsInText(static_cast<Field>(field))) {
            config->stored[field].reset();
        }
    }
    config->forwards.clear();
    config->reservations.clear();
    std::istringstream lines(text);
    std::string errors;
    int number = 0;
    for (std::string line; std::getline(lines, line);) {
        number++;
        const std::string error = TakeLine(line, config);
        errors += error.empty() ? "" : "line " + std::to_string(number) + ": " + error + "\n";
    }
    return errors;
}
