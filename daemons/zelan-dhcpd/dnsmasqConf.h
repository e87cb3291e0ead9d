// A dhcpd.conf in dnsmasq's words.
#pragma once

#include <string>

#include "daemons/zelan-dhcpd/dhcpMeaning.h"

// Writes the configuration of a dnsmasq that does what the meaning says on one interface and nothing else: no
// name service, no boot files, no pings, and no option that the meaning does not have, but for the two
// renewal times (58 and 59), which dnsmasq always sends. The problem is SOUND, or BEYOND with the statement
// for which dnsmasq has no words.
DhcpProblem DnsmasqConf_Write(const DhcpMeaning &meaning, const char *interface, std::string *text);
