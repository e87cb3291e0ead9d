// The parameters of dhcpd.conf: statements without a block that set something for a scope.
#pragma once

#include "daemons/zelan-dhcpd/dhcpMeaning.h"

// Takes one into the settings of its scope, or, for what holds everywhere, into the meaning or the options.
DhcpVerdict DhcpParameter_Take(const DhcpStatement &statement, DhcpOptions *options, DhcpSettings *settings,
                               DhcpMeaning *meaning);

// Who gets the addresses of a pool: of known clients (with a host declaration) and unknown ones, those on its
// list of the admitted, if it has one, who are not on its list of the refused.
struct DhcpPermits {
    bool hasAllowed = false;
    bool allowed[2] = {};  // [1] the known ones
    bool denied[2] = {};

    bool Admits(bool known) const { return (!hasAllowed || allowed[known]) && !denied[known]; }
};

// Takes "allow" or "deny" of a pool.
DhcpVerdict DhcpParameter_TakePermit(const DhcpStatement &statement, DhcpPermits *permits);
