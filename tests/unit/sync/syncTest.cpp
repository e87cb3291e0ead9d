#include <gtest/gtest.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <barrier>
#include <cstdarg>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <stop_token>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "lib/misc/owners.h"
#include "lib/sync/syncMutex.h"
#include "lib/sync/syncWaitQ.h"
#include "tests/support/tempFolder.h"

namespace {

constexpr int THREADS = 8;
constexpr int ROUNDS = 2000;

// Run once where a waiter is about to get its descriptor, which is behind its look at the sequence number.
thread_local std::function<void()> atNextDescriptor;

void RunAtNextDescriptor() {
    if (const auto run = std::exchange(atNextDescriptor, nullptr)) {
        run();
    }
}

bool IsReadable(const FileDescriptor &fd, int milliseconds = 0) {
    pollfd waited = {fd.get(), POLLIN, 0};
    return poll(&waited, 1, milliseconds) == 1 && (waited.revents & POLLIN) != 0;
}

// Runs `body` in so many threads from one starting point.
template <typename Body>
void RunThreads(int count, Body body) {
    std::barrier start(count);
    std::vector<std::jthread> threads;
    for (int i = 0; i < count; ++i) {
        threads.emplace_back([&] {
            start.arrive_and_wait();
            body();
        });
    }
}

// Every case runs on an anonymous queue and on a named one, in a directory of its own.
class Sync : public testing::TestWithParam<bool> {
  protected:
    ~Sync() override { EXPECT_FALSE(FifoIsThere()); }
    const char *Prefix() const { return GetParam() ? prefix_.c_str() : nullptr; }
    bool FifoIsThere() const { return !std::filesystem::is_empty(directory_.Path()); }

    TempFolder directory_;
    const std::string prefix_ = directory_ / "queue";
};
INSTANTIATE_TEST_SUITE_P(Queue, Sync, testing::Bool(),
                         [](const auto &row) { return row.param ? "Named" : "Anonymous"; });

TEST_P(Sync, WakeUpReachesAllWhoWaitAndNobodyLater) {
    SyncWaitQ queue = {};
    ASSERT_TRUE(SyncWaitQ_Init(&queue, Prefix()));
    EXPECT_TRUE(SyncWaitQ_WakeUp(&queue)) << "nobody waits";
    const FileDescriptor first(SyncWaitQ_Add(&queue));
    const FileDescriptor second(SyncWaitQ_Add(&queue));
    EXPECT_FALSE(IsReadable(first));
    EXPECT_TRUE(SyncWaitQ_WakeUp(&queue));
    EXPECT_TRUE(IsReadable(first));
    EXPECT_TRUE(IsReadable(second));
    FileDescriptor later(SyncWaitQ_Add(&queue));
    EXPECT_FALSE(IsReadable(later));
    later.reset();
    EXPECT_EQ(FifoIsThere(), GetParam());
    EXPECT_TRUE(SyncWaitQ_WakeUp(&queue)) << "the waiter has gone";
    EXPECT_FALSE(FifoIsThere());
    SyncWaitQ_Destroy(&queue);
}

TEST_P(Sync, AWaiterWhomAWakeUpRacesPastIsWokenAtOnce) {
    SyncWaitQ queue = {};
    ASSERT_TRUE(SyncWaitQ_Init(&queue, Prefix()));
    const FileDescriptor early(SyncWaitQ_Add(&queue));
    atNextDescriptor = [&] { EXPECT_TRUE(SyncWaitQ_WakeUp(&queue)); };
    const FileDescriptor late(SyncWaitQ_Add(&queue));
    EXPECT_FALSE(atNextDescriptor) << "the wake-up has come in between";
    EXPECT_TRUE(IsReadable(early));
    EXPECT_TRUE(IsReadable(late));
    EXPECT_FALSE(FifoIsThere());
    SyncWaitQ_Destroy(&queue);
}

// Whenever a waiter comes, the wake-up under way or the next one reaches it: one alone, whom nobody else's
// arrival helps, and several, who may take each other's place of waiting away.
TEST_P(Sync, WaitersAmongConstantWakeUpsMissNone) {
    for (const int waiters : {1, THREADS}) {
        SyncWaitQ queue = {};
        ASSERT_TRUE(SyncWaitQ_Init(&queue, Prefix()));
        std::jthread waker([&](const std::stop_token &finished) {
            while (!finished.stop_requested()) {
                EXPECT_TRUE(SyncWaitQ_WakeUp(&queue));
            }
        });
        RunThreads(waiters, [&] {
            for (int i = 0; i < ROUNDS && !HasFailure(); ++i) {
                EXPECT_TRUE(IsReadable(FileDescriptor(SyncWaitQ_Add(&queue)), 20000));
            }
        });
        waker = {};
        SyncWaitQ_Destroy(&queue);
    }
}

TEST_P(Sync, MutexKeepsThreadsApart) {
    SyncMutex mutex = {};
    ASSERT_TRUE(SyncMutex_Init(&mutex, Prefix()));
    int counter = 0;  // not atomic: the mutex is what makes it right
    RunThreads(THREADS, [&] {
        for (int i = 0; i < ROUNDS; ++i) {
            ASSERT_TRUE(SyncMutex_Lock(&mutex));
            counter++;
            if (i % 8 == 0) {
                std::this_thread::yield();  // so that others come and wait
            }
            EXPECT_TRUE(SyncMutex_Unlock(&mutex));
        }
    });
    EXPECT_EQ(counter, THREADS * ROUNDS);
    EXPECT_TRUE(SyncMutex_Trylock(&mutex));
    EXPECT_FALSE(SyncMutex_Trylock(&mutex));
    SyncMutex_Destroy(&mutex);
}

TEST_P(Sync, RecursiveMutexIsFreeAfterAsManyReleases) {
    SyncRecMutex mutex = {};
    ASSERT_TRUE(SyncRecMutex_Init(&mutex, Prefix()));
    EXPECT_TRUE(SyncRecMutex_Lock(&mutex) && SyncRecMutex_Trylock(&mutex));
    for (const bool free : {false, true}) {
        EXPECT_TRUE(SyncRecMutex_Unlock(&mutex));
        bool taken = false;
        std::thread([&] { taken = SyncRecMutex_Trylock(&mutex) && SyncRecMutex_Unlock(&mutex); }).join();
        EXPECT_EQ(taken, free);
    }
    SyncRecMutex_Destroy(&mutex);
}

TEST(SyncMutex, SingletonIsOneForAllThreads) {
    std::atomic<SyncMutex *> storage = nullptr;
    RunThreads(THREADS, [&] {
        const SyncMutex *mutex = SyncMutex_CreateSingleton(&storage);
        EXPECT_EQ(mutex, storage.load());
    });
    SyncMutex_Destroy(storage.load());
    delete storage.load();
}

[[noreturn]] void LockWithoutDescriptors(const char *prefix) {
    SyncMutex mutex = {};
    SyncMutex_Init(&mutex, prefix);
    dup2(STDERR_FILENO, STDOUT_FILENO);  // where the stop writes; the death test reads standard error
    const rlimit none = {1, 1};
    setrlimit(RLIMIT_NOFILE, &none);
    for (int i = 0; i < ROUNDS; ++i) {
        SyncMutex_Lock(&mutex);
        SyncMutex_Unlock(&mutex);
    }
    fprintf(stderr, "uncontended\n");
    SyncMutex_Lock(&mutex);
    SyncMutex_Lock(&mutex);
    _exit(0);
}

TEST_P(Sync, OnlyAWaiterNeedsADescriptorAndStopsWithoutOne) {
    EXPECT_EXIT(LockWithoutDescriptors(Prefix()), testing::ExitedWithCode(1),
                "uncontended\n(.|\n)*SyncWaitQ: Too many file descriptors are in use by the process.\n");
    EXPECT_EQ(std::filesystem::remove(prefix_ + ".0"), GetParam()) << "the FIFO that could not be opened";
}

}  // namespace

// The two calls by which a waiter gets its descriptor, in place of the C library's.
extern "C" int fcntl(int fd, int command, ...) {
    va_list args;
    va_start(args, command);
    const long argument = va_arg(args, long);
    va_end(args);
    RunAtNextDescriptor();
    return static_cast<int>(syscall(SYS_fcntl, fd, command, argument));
}

extern "C" int mkfifo(const char *path, mode_t mode) noexcept {
    RunAtNextDescriptor();
    return mknod(path, mode | S_IFIFO, 0);
}
