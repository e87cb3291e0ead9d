// Waiting until something may have changed: interfaces and addresses of the kernel, PID files, leases, the
// database. What has changed is for the caller to find out.
#pragma once

#include <memory>

#include "apps/zelan/posix/harbrelctl/model/network.h"
#include "lib/misc/owners.h"

class Watcher {
  public:
    explicit Watcher(const Host &host);
    explicit operator bool() const { return kernel_ && files_; }
    // Follows the folders of networks that are new.
    void Follow(const Host &host) const;
    // Until something stirs, at most a second: that a process has died shows in nothing that can be waited
    // for here.
    void Wait() const;

  private:
    FileDescriptor kernel_;
    FileDescriptor files_;
};
