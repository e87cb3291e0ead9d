// The host's name servers, as /etc/resolv.conf names them now.
#pragma once

#include <sys/socket.h>
#include <sys/stat.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

inline constexpr uint16_t DNS_PORT = 53;

struct NameServer {
    sockaddr_storage address = {};
    socklen_t size = 0;
};

// The name servers in the text of a resolv.conf; the host itself when it names none, as its own programs do.
std::vector<NameServer> NameServers_Parse(std::string_view text);

// The folder in which the list stands when its name is a link; empty when there is none.
std::string NameServers_Folder();

class NameServers {
  public:
    // The list, read again when the file has changed since the last call.
    const std::vector<NameServer> &Current();

  private:
    struct stat seen_ = {};
    std::vector<NameServer> servers_;
};
