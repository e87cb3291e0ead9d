#include "daemons/common/deadline.h"

#include <algorithm>

int Deadline_Milliseconds(std::chrono::steady_clock::time_point deadline) {
    using Clock = std::chrono::steady_clock;
    if (deadline == Clock::time_point::max()) {
        return -1;
    }
    auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
    return static_cast<int>(std::max<long>(left, 0));
}
