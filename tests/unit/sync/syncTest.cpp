#include <gmock/gmock.h>
#include <poll.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <barrier>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "lib/misc/owners.h"
#include "lib/sync/syncMutex.h"
#include "lib/sync/syncWaitQ.h"

namespace {

constexpr int THREADS = 8;
constexpr int ROUNDS = 3000;
constexpr int MUTEX_ROUNDS = 200;

bool IsReadable(int fd, int milliseconds) {
    pollfd waited = {fd, POLLIN, 0};
    return poll(&waited, 1, milliseconds) == 1;
}

// Runs `body` in all threads from one starting point.
template <typename Body>
void RunThreads(Body body) {
    std::barrier start(THREADS);
    std::vector<std::thread> threads;
    for (int i = 0; i < THREADS; ++i) {
        threads.emplace_back([&] {
            start.arrive_and_wait();
            body();
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
}

// Every case runs on an anonymous queue and on a named one, in a directory of its own.
class Sync : public testing::TestWithParam<bool> {
  protected:
    Sync() {
        directory_ = testing::TempDir() + "syncXXXXXX";
        EXPECT_NE(mkdtemp(directory_.data()), nullptr);
        prefix_ = directory_ + "/queue";
    }
    ~Sync() override {
        EXPECT_TRUE(std::filesystem::is_empty(directory_)) << "a FIFO was left behind";
        std::filesystem::remove_all(directory_);
    }
    const char *Prefix() const { return GetParam() ? prefix_.c_str() : nullptr; }

    std::string directory_;
    std::string prefix_;
};
INSTANTIATE_TEST_SUITE_P(Queue, Sync, testing::Bool(),
                         [](const auto &row) { return row.param ? "Named" : "Anonymous"; });

TEST_P(Sync, WakeUpReachesAllWhoWaitAndNobodyLater) {
    SyncWaitQ queue = {};
    ASSERT_TRUE(SyncWaitQ_Init(&queue, Prefix()));
    EXPECT_TRUE(SyncWaitQ_WakeUp(&queue)) << "nobody waits";
    const FileDescriptor first(SyncWaitQ_Add(&queue));
    const FileDescriptor second(SyncWaitQ_Add(&queue));
    EXPECT_FALSE(IsReadable(first.get(), 0));
    EXPECT_TRUE(SyncWaitQ_WakeUp(&queue));
    EXPECT_TRUE(IsReadable(first.get(), 0));
    EXPECT_TRUE(IsReadable(second.get(), 0));
    FileDescriptor later(SyncWaitQ_Add(&queue));
    EXPECT_FALSE(IsReadable(later.get(), 0));
    later.reset();
    EXPECT_TRUE(SyncWaitQ_WakeUp(&queue)) << "the waiter has gone";
    EXPECT_TRUE(std::filesystem::is_empty(directory_));
    SyncWaitQ_Destroy(&queue);
}

// Every release wakes all who wait, so that a poll that times out is one that a wake-up has missed.
TEST_P(Sync, NoWaiterMissesAWakeUp) {
    SyncWaitQ queue = {};
    ASSERT_TRUE(SyncWaitQ_Init(&queue, Prefix()));
    std::atomic<bool> taken = false;
    std::atomic<int> missed = 0;
    RunThreads([&] {
        for (int i = 0; i < ROUNDS; ++i) {
            while (taken.exchange(true)) {
                const FileDescriptor wakeUp(SyncWaitQ_Add(&queue));
                if (taken.load() && !IsReadable(wakeUp.get(), 5000)) {
                    missed.fetch_add(1);
                }
            }
            if (i % 8 == 0) {
                std::this_thread::yield();  // so that others come and wait
            }
            taken.store(false);
            EXPECT_TRUE(SyncWaitQ_WakeUp(&queue));
        }
    });
    EXPECT_EQ(missed.load(), 0);
    SyncWaitQ_Destroy(&queue);
}

TEST_P(Sync, MutexKeepsThreadsApart) {
    SyncMutex mutex = {};
    ASSERT_TRUE(SyncMutex_Init(&mutex, Prefix()));
    int counter = 0;  // not atomic: the mutex is what makes it right
    RunThreads([&] {
        for (int i = 0; i < MUTEX_ROUNDS; ++i) {
            ASSERT_TRUE(SyncMutex_Lock(&mutex));
            const int before = counter;
            std::this_thread::yield();
            counter = before + 1;
            EXPECT_TRUE(SyncMutex_Unlock(&mutex));
        }
    });
    EXPECT_EQ(counter, THREADS * MUTEX_ROUNDS);
    EXPECT_TRUE(SyncMutex_Trylock(&mutex));
    EXPECT_FALSE(SyncMutex_Trylock(&mutex));
    SyncMutex_Destroy(&mutex);
}

TEST_P(Sync, RecursiveMutexIsFreeAfterAsManyReleases) {
    SyncRecMutex mutex = {};
    ASSERT_TRUE(SyncRecMutex_Init(&mutex, Prefix()));
    const auto takenElsewhere = [&] {
        bool taken = false;
        std::thread([&] { taken = SyncRecMutex_Trylock(&mutex) && SyncRecMutex_Unlock(&mutex); }).join();
        return taken;
    };
    EXPECT_TRUE(SyncRecMutex_Lock(&mutex));
    EXPECT_TRUE(SyncRecMutex_Trylock(&mutex));
    EXPECT_TRUE(SyncRecMutex_Unlock(&mutex));
    EXPECT_FALSE(takenElsewhere());
    EXPECT_TRUE(SyncRecMutex_Unlock(&mutex));
    EXPECT_TRUE(takenElsewhere());
    SyncRecMutex_Destroy(&mutex);
}

TEST(SyncMutex, SingletonIsOneForAllThreads) {
    std::atomic<SyncMutex *> storage = nullptr;
    std::atomic<int> others = 0;
    RunThreads([&] {
        SyncMutex *mutex = SyncMutex_CreateSingleton(&storage);
        others.fetch_add(mutex != storage.load() ? 1 : 0);
    });
    EXPECT_EQ(others.load(), 0);
    SyncMutex_Destroy(storage.load());
    delete storage.load();
}

[[noreturn]] void LockWithoutDescriptors() {
    SyncMutex mutex = {};
    SyncMutex_Init(&mutex, nullptr);
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

TEST(SyncDeathTest, OnlyAWaiterNeedsADescriptorAndStopsWithoutOne) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(LockWithoutDescriptors(), testing::ExitedWithCode(1),
                "uncontended\n(.|\n)*SyncWaitQ: Too many file descriptors are in use by the process.\n");
}

}  // namespace
