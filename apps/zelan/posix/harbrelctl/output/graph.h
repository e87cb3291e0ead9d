// A picture in the language of Graphviz; pure.
#pragma once

#include <string>
#include <vector>

#include "apps/zelan/posix/harbrelctl/output/networks.h"

std::string GraphText(const Host &host, const std::vector<NetworkView> &views);
