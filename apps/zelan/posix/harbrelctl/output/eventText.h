// One event on one line.
#pragma once

#include <ctime>
#include <string>

#include "apps/zelan/posix/harbrelctl/probes/changes.h"

std::string EventText(const Event &event, time_t moment);
std::string EventJson(const Event &event, time_t moment);
