#include "lib/file/posix.h"

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "lib/fatal/memory.h"
#include "lib/misc/atomicFence.h"
#include "lib/misc/hashTable.h"
#include "lib/misc/owners.h"
#include "lib/unicode/unicode.h"

namespace {

// False when the text cannot be converted; a null text stays null.
bool ToNative(const char *text, MallocString *native) {
    native->reset(static_cast<char *>(Unicode_GetAllocBytes(text, STRING_ENCODING_CURRENT)));
    return text == nullptr || *native != nullptr;
}

// The pattern of all wrappers: convert, put errno back, call, free the copies without touching the call's
// errno.
template <typename Result, typename Call>
Result CallWithNative(const char *path, const char *secondPath, Result failure, Call call) {
    const int savedErrno = errno;
    MallocString native;
    MallocString secondNative;
    if (!ToNative(path, &native) || !ToNative(secondPath, &secondNative)) {
        errno = EINVAL;
        return failure;
    }
    errno = savedErrno;
    const Result result = call(native.get(), secondNative.get());
    const int callErrno = errno;
    native.reset();
    secondNative.reset();
    errno = callErrno;
    return result;
}

template <typename Result, typename Call>
Result CallWithNative(const char *path, Result failure, Call call) {
    return CallWithNative(path, nullptr, failure,
                          [&](const char *native, const char *) { return call(native); });
}

// The kernel's answer in UTF-8, in `resolved` or in a new text.
char *ResolvedToUtf8(const char *native, char *resolved) {
    if (!Unicode_IsBufferValid(native, -1, STRING_ENCODING_CURRENT)) {
        errno = EINVAL;
        return nullptr;
    }
    MallocString text(Unicode_AllocWithLength(native, -1, STRING_ENCODING_CURRENT));
    if (resolved == nullptr) {
        return text.release();
    }
    const size_t size = strlen(text.get()) + 1;
    if (size > PATH_MAX) {
        errno = ENAMETOOLONG;
        return nullptr;
    }
    return static_cast<char *>(memcpy(resolved, text.get(), size));
}

// A variable's value as last handed out, and the one before it, which callers may still hold.
struct EnvironmentValue {
    std::atomic<char *> present{nullptr};
    std::atomic<char *> previous{nullptr};
};

constexpr uint32_t ENVIRONMENT_BUCKETS = 128;

struct EnvironmentCache {
    HashTable *values;
};

EnvironmentCache environmentCache;

EnvironmentValue *CachedValue(const char *name) {
    HashTable *table = HashTable_AllocOnce(&environmentCache.values, ENVIRONMENT_BUCKETS,
                                           HASH_STRING_KEY | HASH_FLAG_ATOMIC | HASH_FLAG_COPYKEY, nullptr);
    void *found = nullptr;
    if (HashTable_Lookup(table, name, &found)) {
        return static_cast<EnvironmentValue *>(found);
    }
    auto fresh = std::make_unique<EnvironmentValue>();
    auto *kept = static_cast<EnvironmentValue *>(HashTable_LookupOrInsert(table, name, fresh.get()));
    if (kept == fresh.get()) {
        fresh.release();  // the table keeps it to the end of the process
    }
    return kept;
}

const char *Publish(EnvironmentValue *cached, MallocString value) {
    char *present = cached->present.load(std::memory_order_acquire);
    do {
        if (present != nullptr && strcmp(present, value.get()) == 0) {
            return present;
        }
    } while (!AtomicFence_CompareExchange(cached->present, &present, value.get()));
    free(AtomicFence_Exchange(cached->previous, present));
    return value.release();
}

}  // namespace

int Posix_Unlink(const char *path) {
    return CallWithNative(path, -1, [](const char *native) { return unlink(native); });
}

FILE *Posix_Fopen(const char *path, const char *mode) {
    return CallWithNative(path, static_cast<FILE *>(nullptr),
                          [mode](const char *native) { return fopen(native, mode); });
}

int Posix_Open(const char *path, int flags, mode_t mode) {
    return CallWithNative(path, -1, [=](const char *native) { return open(native, flags, mode); });
}

int Posix_Rename(const char *from, const char *to) {
    return CallWithNative(from, to, -1, [](const char *nativeFrom, const char *nativeTo) {
        return rename(nativeFrom, nativeTo);
    });
}

int Posix_Link(const char *from, const char *to) {
    return CallWithNative(from, to, -1, [](const char *nativeFrom, const char *nativeTo) {
        return link(nativeFrom, nativeTo);
    });
}

int Posix_Stat(const char *path, struct stat *status) {
    return CallWithNative(path, -1, [status](const char *native) { return stat(native, status); });
}

int Posix_Lstat(const char *path, struct stat *status) {
    return CallWithNative(path, -1, [status](const char *native) { return lstat(native, status); });
}

DIR *Posix_Opendir(const char *path) {
    return CallWithNative(path, static_cast<DIR *>(nullptr),
                          [](const char *native) { return opendir(native); });
}

char *Posix_Realpath(const char *path, char *resolved) {
    return CallWithNative(path, static_cast<char *>(nullptr), [resolved](const char *native) {
        const MallocString found(realpath(native, nullptr));
        return found != nullptr ? ResolvedToUtf8(found.get(), resolved) : nullptr;
    });
}

int Posix_Mkdir(const char *path, mode_t mode) {
    return CallWithNative(path, -1, [mode](const char *native) { return mkdir(native, mode); });
}

int Posix_System(const char *command) {
    return CallWithNative(command, -1, [](const char *native) { return system(native); });
}

int Posix_Execv(const char *path, char *const argv[]) {
    const int savedErrno = errno;
    std::vector<MallocString> owners;
    std::vector<char *> arguments;
    for (; argv != nullptr && *argv != nullptr; argv++) {
        if (!ToNative(*argv, &owners.emplace_back())) {
            errno = EINVAL;
            return -1;
        }
        arguments.push_back(owners.back().get());
    }
    arguments.push_back(nullptr);
    errno = savedErrno;
    return CallWithNative(path, -1, [&](const char *native) { return execv(native, arguments.data()); });
}

int Posix_Mkfifo(const char *path, mode_t mode) {
    return CallWithNative(path, -1, [mode](const char *native) { return mkfifo(native, mode); });
}

int Posix_Mknod(const char *path, mode_t mode, dev_t device) {
    return CallWithNative(path, -1, [=](const char *native) { return mknod(native, mode, device); });
}

int Posix_Access(const char *path, int mode) {
    return CallWithNative(path, -1, [mode](const char *native) { return access(native, mode); });
}

int Posix_Rmdir(const char *path) {
    return CallWithNative(path, -1, [](const char *native) { return rmdir(native); });
}

const char *Posix_Getenv(const char *name) {
    MallocString native;
    if (!ToNative(name, &native)) {
        errno = EINVAL;
        return nullptr;
    }
    const char *value = getenv(native.get());
    if (value == nullptr) {
        return nullptr;
    }
    return Publish(CachedValue(name),
                   MallocString(Unicode_AllocWithLength(value, -1, STRING_ENCODING_CURRENT)));
}
