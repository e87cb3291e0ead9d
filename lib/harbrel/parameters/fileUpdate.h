// Making a service's configuration file follow the database on a caller's request.
#pragma once

#include <cstdint>

struct FileUpdateWords {
    const char *function;  // the exported function, as it stands in the log
    const char *checking;
    const char *notStopped;
    const char *done;    // "Writing" or "Removing", network
    const char *failed;  // the same
    uint32_t service;    // the HBLServiceId whose daemon must be stopped
    bool (*isSwitchedOn)(uint32_t vnet);
    bool (*update)(uint32_t vnet);
};

// The whole exported function. Refuses unless the daemon is stopped; takes the database lock.
bool HBLApiUpdateFromConfig(const FileUpdateWords &words, const char *vnet);
