#include "daemons/zelan-dhcpd/server.h"

#include <unistd.h>

namespace {

const char *FindFirst(const char *const (&places)[3]) {
    for (const char *place : places) {
        if (access(place, X_OK) == 0) {
            return place;
        }
    }
    return nullptr;
}

}  // namespace

const char *Server_FindDnsmasq() {
    return FindFirst({"/usr/sbin/dnsmasq", "/usr/local/sbin/dnsmasq", "/usr/bin/dnsmasq"});
}

const char *Server_FindDhcpd() {
    return FindFirst({"/usr/sbin/dhcpd", "/usr/local/sbin/dhcpd", "/usr/bin/dhcpd"});
}
