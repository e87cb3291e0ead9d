// What a process inherits from whoever happened to start it, and a daemon must not live with: limits of a
// login, a umask, a priority, an environment, privileges that it never uses.
#pragma once

// Gives the process the same standing whatever the starter had: fixed resource limits, umask 022, priority 0,
// an environment of PATH alone, and no privileges by exec. What cannot be had costs a line in the log and
// nothing else.
void StartersLegacy_Shed();
