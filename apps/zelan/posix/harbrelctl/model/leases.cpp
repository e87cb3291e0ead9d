#include "apps/zelan/posix/harbrelctl/model/leases.h"

#include <algorithm>
#include <cctype>
#include <fstream>
#include <map>
#include <sstream>

namespace {

// Without the closing semicolon and quotes.
std::string Bare(std::string word) {
    std::erase_if(word, [](char character) { return character == ';' || character == '"'; });
    return word;
}

// "4 2026/11/23 07:00:00;", in UTC, or "never;".
std::optional<time_t> IscTime(std::istringstream *words) {
    std::string weekday, date, clock;
    *words >> weekday >> date >> clock;
    tm parts = {};
    const std::string moment = date + " " + Bare(clock);
    if (strptime(moment.c_str(), "%Y/%m/%d %H:%M:%S", &parts) == nullptr) {
        return std::nullopt;
    }
    return timegm(&parts);
}

// A guest gives itself any name it likes; only what a host name may have gets further.
std::string HostName(std::string name) {
    for (char &character : name) {
        const bool plain = isalnum(static_cast<unsigned char>(character)) != 0 || character == '-' ||
                           character == '.' || character == '_';
        character = plain ? character : '?';
    }
    return name;
}

struct IscLease {
    Lease lease;
    bool active = true;
};

void TakeIscStatement(const std::string &line, IscLease *entry) {
    std::istringstream words(line);
    std::string keyword, word;
    words >> keyword;
    if (keyword == "starts") {
        entry->lease.from = IscTime(&words);
    } else if (keyword == "ends") {
        entry->lease.until = IscTime(&words);
    } else if (keyword == "hardware" && words >> word >> word) {
        entry->lease.mac = StandardMac(Bare(word)).value_or("");
    } else if (keyword == "client-hostname" && words >> word) {
        entry->lease.name = HostName(Bare(word));
    } else if (keyword == "binding" && words >> word >> word) {
        entry->active = Bare(word) == "active";
    }
}

// A later entry of an address replaces the one before.
std::map<uint32_t, Lease> IscLeases(std::istringstream *text) {
    std::map<uint32_t, Lease> leases;
    std::optional<IscLease> entry;
    for (std::string line; std::getline(*text, line);) {
        if (line.starts_with("lease ")) {
            std::istringstream words(line.substr(6));
            std::string address;
            words >> address;
            const std::optional<uint32_t> number = ParseAddress(address);
            entry = number ? std::optional<IscLease>(IscLease()) : std::nullopt;
            if (entry) {
                entry->lease.address = *number;
            }
        } else if (line.starts_with("}") && entry) {
            leases.erase(entry->lease.address);
            if (entry->active) {
                leases[entry->lease.address] = entry->lease;
            }
            entry.reset();
        } else if (entry) {
            TakeIscStatement(line, &*entry);
        }
    }
    return leases;
}

// "1764000000 52:54:00:12:34:56 192.168.8.130 guest 01:52:..": expiry (0 for never), MAC, address, name or
// "*", client identifier.
std::map<uint32_t, Lease> ListedLeases(std::istringstream *text) {
    std::map<uint32_t, Lease> leases;
    for (std::string line; std::getline(*text, line);) {
        std::istringstream words(line);
        int64_t until = 0;
        std::string mac, address, name;
        if (!(words >> until >> mac >> address >> name)) {
            continue;
        }
        const std::optional<uint32_t> number = ParseAddress(address);
        if (!number) {
            continue;
        }
        Lease lease;
        lease.address = *number;
        lease.mac = StandardMac(mac).value_or("");
        lease.name = name == "*" ? "" : HostName(name);
        lease.until = until > 0 ? std::optional<time_t>(until) : std::nullopt;
        leases[*number] = lease;
    }
    return leases;
}

}  // namespace

std::vector<Lease> ParseLeases(std::string_view text, time_t now) {
    const bool isc = text.starts_with("lease ") || text.find("\nlease ") != std::string_view::npos;
    std::istringstream stream{std::string(text)};
    std::vector<Lease> leases;
    for (const auto &[address, lease] : isc ? IscLeases(&stream) : ListedLeases(&stream)) {
        if (!lease.until || *lease.until > now) {
            leases.push_back(lease);
        }
    }
    return leases;
}

std::vector<Lease> ReadLeases(const Host &host, int network) {
    std::ifstream file(host.paths.Leases(network));
    std::stringstream text;
    text << file.rdbuf();
    std::vector<Lease> leases = ParseLeases(text.view(), time(nullptr));
    const std::vector<Reservation> &ties = host.config.networks[network].reservations;
    for (Lease &lease : leases) {
        lease.reserved =
            std::find(ties.begin(), ties.end(), Reservation{lease.mac, lease.address}) != ties.end();
    }
    return leases;
}
