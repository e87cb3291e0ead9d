// Mutual exclusion between processes on a file, by a bakery of member files in the directory "<path>.lck".
// A call blocks its thread while it waits. Two threads of one process exclude each other like two processes.
#pragma once

#include <cstdint>

struct FileLockToken;  // opaque; owned by the lock, given back through FileLock_Unlock

constexpr uint32_t FILE_LOCK_TRYLOCK_WAIT = 0;
constexpr uint32_t FILE_LOCK_INFINITE_WAIT = 0xFFFFFFFFu;

// readOnly false asks for an exclusive lock, true for a shared one. Waits for at most `msecMaxWaitTime`
// milliseconds, and about eight seconds more for processes that have died while they chose their ticket. Null
// without the lock: *err is then 0 when the wait ran out and otherwise an errno value, EBUSY where no ticket
// number is free and EPERM where a third user's lock directory would have to be tidied. *err is 0 with a
// token, which keeps two descriptors open.
FileLockToken *FileLock_Lock(const char *path, bool readOnly, uint32_t msecMaxWaitTime, int *err);

// 0 or an errno value. The token is gone in either case. `path` as in the lock; the token knows its place.
int FileLock_Unlock(const char *path, FileLockToken *token);
