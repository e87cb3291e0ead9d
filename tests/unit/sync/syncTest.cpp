#include <fcntl.h>
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
#include "tests/support/command.h"
#include "tests/support/tempFolder.h"

namespace {

constexpr int THREADS = 8;
constexpr int ROUNDS = 500;

// Run once where a waiter is about to get its descriptor, which is behind its look at the sequence number.
thread_local std::function<void()> atNextDescriptor;

void RunAtNextDescriptor() {
    if (const auto run = std::exchange(atNextDescriptor, nullptr)) {
        run();
    }
}

// What poll tells of the descriptor within the time.
int Events(const FileDescriptor &fd, int milliseconds) {
    pollfd waited = {fd.get(), POLLIN, 0};
    return poll(&waited, 1, milliseconds) == 1 ? waited.revents : 0;
}

bool IsReadable(const FileDescriptor &fd) {
    return (Events(fd, 0) & POLLIN) != 0;
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
    Sync() {
        const std::string prefix = directory_ / "queue";
        EXPECT_TRUE(SyncRecMutex_Init(&recursive_, GetParam() ? prefix.c_str() : nullptr));
    }
    ~Sync() override {
        SyncRecMutex_Destroy(&recursive_);
        EXPECT_FALSE(FifoIsThere());
    }
    FileDescriptor Wait() { return FileDescriptor(SyncWaitQ_Add(&queue_)); }
    bool FifoIsThere() const { return !std::filesystem::is_empty(directory_.Path()); }

    TempFolder directory_;
    SyncRecMutex recursive_ = {};
    SyncMutex &mutex_ = recursive_.mutex;
    SyncWaitQ &queue_ = mutex_.queue;
};
INSTANTIATE_TEST_SUITE_P(Queue, Sync, testing::Bool(),
                         [](const auto &row) { return row.param ? "Named" : "Anonymous"; });

TEST_P(Sync, WakeUpReachesAllWhoWaitAndNobodyLater) {
    EXPECT_TRUE(SyncWaitQ_WakeUp(&queue_)) << "nobody waits";
    const FileDescriptor first = Wait();
    const FileDescriptor second = Wait();
    EXPECT_FALSE(IsReadable(first));
    EXPECT_TRUE(SyncWaitQ_WakeUp(&queue_));
    EXPECT_TRUE(IsReadable(first) && IsReadable(second));
    FileDescriptor later = Wait();
    EXPECT_FALSE(IsReadable(later));
    later.reset();
    EXPECT_EQ(FifoIsThere(), GetParam());
    sigset_t before, after;
    pthread_sigmask(SIG_SETMASK, nullptr, &before);
    EXPECT_TRUE(SyncWaitQ_WakeUp(&queue_)) << "the waiter has gone";
    pthread_sigmask(SIG_SETMASK, nullptr, &after);
    EXPECT_EQ(sigismember(&before, SIGPIPE), sigismember(&after, SIGPIPE));
    EXPECT_FALSE(FifoIsThere());
}

TEST_P(Sync, AWaiterWhomAWakeUpRacesPastIsWokenAtOnce) {
    const FileDescriptor early = Wait();
    atNextDescriptor = [&] { EXPECT_TRUE(SyncWaitQ_WakeUp(&queue_)); };
    const FileDescriptor late = Wait();
    EXPECT_FALSE(atNextDescriptor) << "the wake-up has come in between";
    EXPECT_TRUE(IsReadable(early) && IsReadable(late));
    EXPECT_FALSE(FifoIsThere());
}

// Whenever a waiter comes, the wake-up under way or the next one reaches it: one alone, whom nobody else's
// arrival helps, and several, who may take each other's place of waiting away.
TEST_P(Sync, WaitersAmongConstantWakeUpsMissNone) {
    std::jthread waker([&](const std::stop_token &finished) {
        while (!finished.stop_requested()) {
            EXPECT_TRUE(SyncWaitQ_WakeUp(&queue_));
        }
    });
    for (const int waiters : {1, THREADS}) {
        RunThreads(waiters, [&] {
            for (int i = 0; i < ROUNDS && !HasFailure(); ++i) {
                // The kernel may tell of the writer's hang-up a moment before it tells of the byte.
                EXPECT_NE(Events(Wait(), 20000), 0);
            }
        });
    }
}

TEST_P(Sync, MutexKeepsThreadsApart) {
    int counter = 0;  // not atomic: the mutex is what makes it right
    RunThreads(THREADS, [&] {
        for (int i = 0; i < ROUNDS; ++i) {
            ASSERT_TRUE(SyncMutex_Lock(&mutex_));
            counter++;
            if (i % 8 == 0) {
                std::this_thread::yield();  // so that others come and wait
            }
            EXPECT_TRUE(SyncMutex_Unlock(&mutex_));
        }
    });
    EXPECT_EQ(counter, THREADS * ROUNDS);
    EXPECT_TRUE(SyncMutex_Trylock(&mutex_));
    EXPECT_FALSE(SyncMutex_Trylock(&mutex_));
}

TEST_P(Sync, RecursiveMutexIsFreeAfterAsManyReleases) {
    EXPECT_TRUE(SyncRecMutex_Lock(&recursive_) && SyncRecMutex_Trylock(&recursive_));
    for (const bool free : {false, true}) {
        EXPECT_TRUE(SyncRecMutex_Unlock(&recursive_));
        RunThreads(1, [&] {
            EXPECT_EQ(SyncRecMutex_Trylock(&recursive_) && SyncRecMutex_Unlock(&recursive_), free);
        });
    }
}

TEST_P(Sync, OnlyAWaiterNeedsADescriptorAndStopsWithoutOne) {
    const auto lockWithoutDescriptors = [&] {
        dup2(STDERR_FILENO, STDOUT_FILENO);  // where the stop writes; the death test reads standard error
        setbuf(stdout, nullptr);  // a leak checker that finds no descriptors ends before buffers are written
        const rlimit none = {1, 1};
        setrlimit(RLIMIT_NOFILE, &none);
        if (SyncMutex_Lock(&mutex_) && SyncMutex_Unlock(&mutex_) && SyncMutex_Lock(&mutex_)) {
            fputs("uncontended\n", stderr);
        }
        SyncMutex_Lock(&mutex_);
        _exit(0);
    };
    EXPECT_EXIT(lockWithoutDescriptors(), testing::ExitedWithCode(1),
                "uncontended\n(.|\n)*SyncWaitQ: Too many file descriptors are in use by the process.\n");
}

TEST(SyncWaitQ, FileInPlaceOfTheFifoFailsTheWait) {
    const TempFolder directory;
    SyncWaitQ queue;
    ASSERT_TRUE(SyncWaitQ_Init(&queue, (directory / "queue").c_str()));
    WriteFileText(directory / "queue.0", "");
    EXPECT_EQ(SyncWaitQ_Add(&queue), -1) << "it would be readable at once and for ever";
    EXPECT_FALSE(SyncWaitQ_WakeUp(&queue));
    EXPECT_EQ(ReadFileText(directory / "queue.0"), "");
    SyncWaitQ_Destroy(&queue);
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

}  // namespace

// The two calls by which a waiter gets its descriptor, in place of the C library's.
extern "C" int fcntl(int fd, int command, ...) {
    long argument = 0;
    if (command != F_GETFD && command != F_GETFL) {
        va_list args;
        va_start(args, command);
        argument = va_arg(args, long);
        va_end(args);
    }
    RunAtNextDescriptor();
    return static_cast<int>(syscall(SYS_fcntl, fd, command, argument));
}

extern "C" int mkfifo(const char *path, mode_t mode) noexcept {
    RunAtNextDescriptor();
    return mknod(path, mode | S_IFIFO, 0);
}
