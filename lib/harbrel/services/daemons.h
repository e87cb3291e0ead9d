// The library's whole contract with the five daemons: PID files, argument vectors, status pipe, SIGKILL.
// Nothing here tests whether the library is loaded or takes the database lock: the exported functions do.
#pragma once

#include <cstdint>

// *path receives a new text that the caller frees; displayName may be null.
bool HBLGetPidFilename(uint32_t vnet, uint32_t service, char **path, const char **displayName);
// The pid, or 0 if there is none. *openFailed must start false and is set only if the file cannot be opened.
int32_t HBLExtractPidFromFile(const char *path, bool *openFailed);
uint32_t HBLServiceStatus(uint32_t vnet, uint32_t service);  // one of the three HBL_SERVICE_STATUS values
bool HBLServiceStop(uint32_t vnet, uint32_t service);
bool HBLServiceStart(uint32_t vnet, uint32_t service);
// Both out-parameters may be null.
bool HBLRestartService(uint32_t vnet, uint32_t service, bool *wasRunning, bool *restarted, bool force);
