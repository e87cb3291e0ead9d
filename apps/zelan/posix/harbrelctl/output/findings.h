// What the doctor has found.
#pragma once

#include <string>
#include <vector>

#include "apps/zelan/posix/harbrelctl/output/table.h"
#include "apps/zelan/posix/harbrelctl/probes/finding.h"

std::string FindingsText(const std::vector<Finding> &findings, size_t examined);
std::string FindingsJson(const std::vector<Finding> &findings, const std::vector<int> &examined);
