// How long to wait.
#pragma once

#include <chrono>

// The time until then as poll takes it: in milliseconds, rounded up, 0 for what is past, and without end for
// the end of time.
int Deadline_Milliseconds(std::chrono::steady_clock::time_point deadline);
