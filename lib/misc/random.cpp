#include "lib/misc/random.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "lib/misc/owners.h"

bool Random_Crypto(size_t size, void *buffer) {
    const FileDescriptor source(open("/dev/urandom", O_RDONLY | O_CLOEXEC));
    if (!source) {
        return false;
    }
    char *rest = static_cast<char *>(buffer);
    while (size > 0) {
        const ssize_t received = read(source.get(), rest, size);
        if (received < 0 && errno == EINTR) {
            continue;
        }
        if (received <= 0) {
            return false;
        }
        rest += received;
        size -= static_cast<size_t>(received);
    }
    return true;
}
