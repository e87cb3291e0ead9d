// The standing that dnsmasq is started with.
#pragma once

#include "daemons/confinement/ownUser.h"

// Changes to the user for good, without other groups, and puts all files out of reach but the programs and
// libraries of the host, what the C library reads, and its standard output, the only file to write. dnsmasq
// insists on CAP_NET_ADMIN, which it needs for clients that it does not answer by broadcast; it gets one in a
// user namespace that owns nothing, so that it holds for no interface, and no other capability. Where the
// kernel makes no user namespaces it gets the real one, after a line in the log. False after a line in the
// log. The process must have one thread and CAP_SYS_ADMIN, CAP_SETUID and CAP_SETGID.
bool Powerless_Become(const OwnUser &user);
