// Which address of a network its DHCP server takes.
#pragma once

#include "daemons/common/ipv4.h"
#include "daemons/zelan-dhcpd/dhcpSyntax.h"

struct ServerAddress {
    Ipv4 address = 0;
    int prefix = 0;
};

// Picks an address of the first subnet declared in a dhcpd.conf that nobody else is to have: not in a range,
// not named anywhere in the file (fixed addresses, routers, name servers), and neither the host's own nor the
// gateway's usual one. The highest such address, as those below are what people give to machines by hand.
// False, with the reason, when there is none; whether the file is sound is for the server to say.
bool ServerAddress_Choose(const std::vector<DhcpStatement> &statements, ServerAddress *chosen,
                          const char **reason);
