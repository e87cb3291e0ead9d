// A port of a switch with this program behind it as the guest. The interface ends with the object, and with
// the process too.
#pragma once

#include <chrono>
#include <functional>
#include <string>

#include "apps/zelan/posix/harbrelctl/probes/frames.h"
#include "lib/misc/owners.h"

class GuestPort {
  public:
    // The MAC address is the same each time, so that a DHCP server offers it the same address again.
    GuestPort(const std::string &switchName, int network);
    explicit operator bool() const { return static_cast<bool>(file_); }
    int error() const { return error_; }  // errno of what failed
    const Mac &mac() const { return mac_; }

    // Sends the frame every half second until `isAnswer` takes one that has come in, at most for the time
    // given.
    using IsAnswer = std::function<bool(std::span<const uint8_t> frame)>;
    bool Ask(const Frame &frame, const IsAnswer &isAnswer,
             std::chrono::milliseconds patience = std::chrono::milliseconds(3000)) const;

  private:
    FileDescriptor file_;
    Mac mac_;
    int error_ = 0;
};
