// Ports of the host that are forwarded to guests.
//
// A socket holds each on behalf of its forward. The packets never reach it: it keeps other programs, and
// other networks' forwards, from a port that would not hear anything, and shows an administrator who has it.
#pragma once

#include "daemons/firewall/natShare.h"
#include "lib/misc/owners.h"

// The first port that a program without privileges can take.
inline constexpr uint16_t FIRST_UNPRIVILEGED_PORT = 1024;

// A socket that holds the port at every address; empty with errno.
FileDescriptor HostPort_Hold(const HostPort &port);

// "TCP" or "UDP".
const char *HostPort_Protocol(const HostPort &port);
