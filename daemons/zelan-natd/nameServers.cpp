#include "daemons/zelan-natd/nameServers.h"

#include <netdb.h>

#include <cstring>
#include <string>

#include "daemons/common/file.h"
#include "daemons/common/text.h"

namespace {

constexpr const char *RESOLVER_FILE = "/etc/resolv.conf";
constexpr const char *HOST_ITSELF = "127.0.0.1";
// More than any resolver asks.
constexpr size_t MAX_SERVERS = 8;

// Adds a server by its numeric address, which may be IPv6 with a scope.
void Add(const char *text, std::vector<NameServer> *servers) {
    addrinfo hints = {};
    hints.ai_socktype = SOCK_DGRAM;
    hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV;
    addrinfo *found = nullptr;
    NameServer server;
    if (servers->size() < MAX_SERVERS &&
        getaddrinfo(text, std::to_string(DNS_PORT).c_str(), &hints, &found) == 0) {
        memcpy(&server.address, found->ai_addr, found->ai_addrlen);
        server.size = found->ai_addrlen;
        servers->push_back(server);
        freeaddrinfo(found);
    }
}

bool SameFile(const struct stat &left, const struct stat &right) {
    return left.st_dev == right.st_dev && left.st_ino == right.st_ino && left.st_size == right.st_size &&
           left.st_mtim.tv_sec == right.st_mtim.tv_sec && left.st_mtim.tv_nsec == right.st_mtim.tv_nsec;
}

}  // namespace

std::vector<NameServer> NameServers_Parse(std::string_view text) {
    std::vector<NameServer> servers;
    std::string_view line;
    while (Text_TakeLine(&text, &line)) {
        std::string_view keyword;
        std::string_view address;
        if (Text_TakeWord(&line, &keyword) && keyword == "nameserver" && Text_TakeWord(&line, &address)) {
            Add(std::string(address).c_str(), &servers);
        }
    }
    if (servers.empty()) {
        Add(HOST_ITSELF, &servers);
    }
    return servers;
}

const std::vector<NameServer> &NameServers::Current() {
    struct stat now = {};
    stat(RESOLVER_FILE, &now);
    if (servers_.empty() || !SameFile(now, seen_)) {
        std::string text;
        File_Read(RESOLVER_FILE, &text);
        servers_ = NameServers_Parse(text);
        seen_ = now;
    }
    return servers_;
}
