// Making a service's configuration file follow the database on a caller's request.
#pragma once

#include <cstdint>

struct FileUpdate {
    const char *service;  // "DHCP"
    const char *notStopped;
    uint32_t serviceId;  // the HBLServiceId whose daemon must be stopped
    bool (*isSwitchedOn)(uint32_t vnet);
    bool (*update)(uint32_t vnet);
};

// The whole exported function of that name. Refuses unless the daemon is stopped; takes the database lock.
bool HBLApiUpdateFromConfig(const char *function, const FileUpdate &file, const char *vnet);
