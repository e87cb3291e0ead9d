// What the files of a network leave behind when it is taken out: the library does not tell when one of its
// folders or of the former files in them cannot be removed, and does not know what a DHCP server that was
// killed had begun to write.
#pragma once

#include <string>

#include "apps/zelan/posix/harbrelctl/model/network.h"

struct Remains {
    std::string ours;     // the path of the first that is there and ours by its name; empty for none
    std::string reason;   // why it could not be removed or looked into; empty when that was not tried
    std::string foreign;  // the path of the first that is none of ours, which keeps the folders above it
};

// In the network's folder, which is there or not whether the network is or not.
Remains FindRemains(const Paths &paths, int network);

// Removes what is ours and tells what stays.
Remains RemoveRemains(const Paths &paths, int network);
