// What a process inherits from whoever happened to start it, and a daemon must not live with: limits of a
// login, a umask, a priority, an environment, privileges that it never uses.
#pragma once

#include <span>

// Gives the process the same standing whatever the starter had: fixed resource limits, umask 022, priority 0,
// an environment of PATH alone, no privileges by exec, and of the capabilities (CAP_) only these, now and
// ever after. What cannot be had costs a line in the log and nothing else.
void StartersLegacy_Shed(std::span<const int> capabilities);
