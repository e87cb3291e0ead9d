// A plan for people.
#pragma once

#include <string>

#include "apps/zelan/posix/harbrelctl/plan/plan.h"

std::string ChangesText(const Plan &plan);  // the records, removed and added
std::string PlanText(const Plan &plan);
