// A subnet that nothing uses, found as the library finds it.
#pragma once

#include <functional>
#include <optional>

#include "apps/zelan/posix/harbrelctl/model/surroundings.h"

// `tick` is called about every half second while the library pings. Nothing when it has found none. It can be
// interrupted at any moment.
std::optional<Subnet> FindFreeSubnet(const Config &config, const Surroundings &surroundings,
                                     const std::function<void()> &tick);

// Those of the networks on whose subnets something answers; asked all at once, for about two seconds.
std::vector<int> BusyNetworks(const std::vector<int> &networks);
