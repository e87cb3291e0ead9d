#include "apps/zelan/posix/harbrelctl/execution/interrupts.h"

namespace {

volatile sig_atomic_t caught = 0;

void Remember(int number) {
    caught = number;
}

}  // namespace

// A handler, not a mask and not SIG_IGN: daemons that are started meanwhile inherit those two.
DeferInterrupts::DeferInterrupts() : former_{} {
    struct sigaction action = {};
    action.sa_handler = Remember;
    action.sa_flags = SA_RESTART;
    for (size_t index = 0; index < SIGNALS.size(); index++) {
        sigaction(SIGNALS[index], &action, &former_[index]);
    }
}

DeferInterrupts::~DeferInterrupts() {
    for (size_t index = 0; index < SIGNALS.size(); index++) {
        sigaction(SIGNALS[index], &former_[index], nullptr);
    }
    if (caught != 0) {
        const int number = caught;
        caught = 0;
        raise(number);
    }
}
