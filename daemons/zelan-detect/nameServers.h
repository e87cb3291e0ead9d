// The host's name servers, as /etc/resolv.conf lists them.
#pragma once

#include <string>

#include "lib/misc/owners.h"

class NameServers {
  public:
    // Begins to watch the file. False after a line in the log.
    bool Open();

    // Takes the notices that are waiting.
    void TakeNotices();

    // The addresses in their order, divided by commas; "none" without any.
    std::string Read() const;

    int notices() const { return notices_.get(); }

  private:
    void WatchFolders();

    FileDescriptor notices_;
};
