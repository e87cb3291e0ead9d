// Ctrl-C and its kin wait while a change is being carried out, so that they find the old state or the new
// one.
#pragma once

#include <array>
#include <csignal>

class DeferInterrupts {
  public:
    DeferInterrupts();
    // A signal that came meanwhile ends the process here, with its usual status.
    ~DeferInterrupts();
    DeferInterrupts(DeferInterrupts &&) = delete;

  private:
    static constexpr std::array<int, 4> SIGNALS = {SIGINT, SIGTERM, SIGHUP, SIGQUIT};
    std::array<struct sigaction, SIGNALS.size()> former_;
};
