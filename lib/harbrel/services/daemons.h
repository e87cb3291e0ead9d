// The library's whole contract with the five daemons: PID files, argument vectors, status pipe, SIGKILL.
// Nothing here tests whether the library is loaded or takes the database lock: the exported functions do.
#pragma once

#include <cstdint>

// vnet is a network's number, service an HBLServiceId. Failures are false, with their reason in the log.

// *path receives a new text that the caller frees; *displayName, which is not wanted when null, a constant.
bool HBLGetPidFilename(uint32_t vnet, uint32_t service, char **path, const char **displayName);
// The pid, or 0 if there is none. *openFailed must start false and is set only if the file cannot be opened.
int32_t HBLExtractPidFromFile(const char *path, bool *openFailed);
uint32_t HBLServiceStatus(uint32_t vnet, uint32_t service);  // one of the three HBL_SERVICE_STATUS values
// Kills the daemon and removes its PID file, without waiting for its end. True also when nothing runs; false
// when the PID file names no process or the process is not ours to signal.
bool HBLServiceStop(uint32_t vnet, uint32_t service);
// Blocks until the process that it starts has ended. True once the daemon has reported, whatever the value.
bool HBLServiceStart(uint32_t vnet, uint32_t service);
// Stops the daemon if it runs, and starts it again if its option is configured; one that does not run is
// started with `force` only. Both out-parameters may be null. *restarted tells whether it was started, and
// stays untouched when nothing was tried and when anything fails.
bool HBLRestartService(uint32_t vnet, uint32_t service, bool *wasRunning, bool *restarted, bool force);
