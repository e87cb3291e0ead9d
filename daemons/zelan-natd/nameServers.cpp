#include "daemons/zelan-natd/nameServers.h"

#include <arpa/inet.h>
#include <net/if.h>
#include <netinet/in.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <tuple>

#include "daemons/common/file.h"
#include "daemons/common/text.h"
#include "lib/misc/owners.h"

namespace {

constexpr const char *RESOLVER_FILE = "/etc/resolv.conf";
constexpr const char *HOST_ITSELF = "127.0.0.1";
// More than any resolver asks.
constexpr size_t MAX_SERVERS = 8;

bool ReadIpv4(const std::string &text, NameServer *server) {
    auto *address = reinterpret_cast<sockaddr_in *>(&server->address);
    address->sin_family = AF_INET;
    address->sin_port = htons(DNS_PORT);
    server->size = sizeof *address;
    return inet_pton(AF_INET, text.c_str(), &address->sin_addr) == 1;
}

// May have a scope, as fe80::1%eth0.
bool ReadIpv6(const std::string &text, NameServer *server) {
    size_t scope = std::min(text.find('%'), text.size());
    auto *address = reinterpret_cast<sockaddr_in6 *>(&server->address);
    address->sin6_family = AF_INET6;
    address->sin6_port = htons(DNS_PORT);
    address->sin6_scope_id = scope < text.size() ? if_nametoindex(text.c_str() + scope + 1) : 0;
    server->size = sizeof *address;
    return inet_pton(AF_INET6, text.substr(0, scope).c_str(), &address->sin6_addr) == 1;
}

// Adds a server by its numeric address.
void Add(const std::string &text, std::vector<NameServer> *servers) {
    NameServer server;
    if (servers->size() < MAX_SERVERS && (ReadIpv4(text, &server) || ReadIpv6(text, &server))) {
        servers->push_back(server);
    }
}

bool SameFile(const struct stat &left, const struct stat &right) {
    auto identity = [](const struct stat &file) {
        return std::tuple(file.st_dev, file.st_ino, file.st_size, file.st_mtim.tv_sec, file.st_mtim.tv_nsec);
    };
    return identity(left) == identity(right);
}

}  // namespace

std::vector<NameServer> NameServers_Parse(std::string_view text) {
    std::vector<NameServer> servers;
    std::string_view line;
    while (Text_TakeLine(&text, &line)) {
        std::string_view keyword;
        std::string_view address;
        if (Text_TakeWord(&line, &keyword) && keyword == "nameserver" && Text_TakeWord(&line, &address)) {
            Add(std::string(address), &servers);
        }
    }
    if (servers.empty()) {
        Add(HOST_ITSELF, &servers);
    }
    return servers;
}

std::string NameServers_Folder() {
    MallocString path(realpath(RESOLVER_FILE, nullptr));
    std::string folder = path ? path.get() : "";
    return folder.substr(0, folder.rfind('/') + 1);
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
