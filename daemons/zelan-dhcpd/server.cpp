#include "daemons/zelan-dhcpd/server.h"

#include <unistd.h>

#include <climits>

#include "daemons/common/file.h"
#include "daemons/common/options.h"

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

pid_t Server_ReadPidFile(const char *path) {
    std::string text;
    int pid = 0;
    if (!File_Read(path, &text) || !Options_Number(text.substr(0, text.find('\n')), INT_MAX, &pid)) {
        return 0;
    }
    return pid;
}
