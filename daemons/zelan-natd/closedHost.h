// A packet that one table of the host drops is lost, whatever another one says, so that the daemon cannot
// help where the host's own rules forward nothing by default. It can say so.
#pragma once

// Writes a line to the log for each table of the current namespace that drops forwarded packets by default.
// Rules of the legacy iptables are not seen.
void ClosedHost_Warn(int network, const char *uplink);
