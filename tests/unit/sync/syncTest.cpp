#include <gtest/gtest.h>
#include <poll.h>

#include <algorithm>
#include <barrier>
#include <chrono>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "lib/misc/owners.h"
#include "lib/sync/syncMutex.h"
#include "lib/sync/syncWaitQ.h"
#include "tests/support/tempFolder.h"

namespace {

constexpr int THREADS = 8;
constexpr int ROUNDS = 3000;

bool IsReadable(const FileDescriptor &fd) {
    pollfd waited = {fd.get(), POLLIN, 0};
    return poll(&waited, 1, 0) == 1;
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

// A waiter that a wake-up has missed comes back after its five seconds only.
TEST_P(Sync, MutexKeepsThreadsApartAndNoWaiterMissesAWakeUp) {
    SyncMutex mutex = {};
    ASSERT_TRUE(SyncMutex_Init(&mutex, Prefix()));
    int counter = 0;  // not atomic: the mutex is what makes it right
    std::chrono::steady_clock::duration longest{};
    RunThreads([&] {
        for (int i = 0; i < ROUNDS; ++i) {
            const auto start = std::chrono::steady_clock::now();
            ASSERT_TRUE(SyncMutex_Lock(&mutex));
            longest = std::max(longest, std::chrono::steady_clock::now() - start);
            counter++;
            if (i % 8 == 0) {
                std::this_thread::yield();  // so that others come and wait
            }
            EXPECT_TRUE(SyncMutex_Unlock(&mutex));
        }
    });
    EXPECT_EQ(counter, THREADS * ROUNDS);
    EXPECT_LT(longest, std::chrono::seconds(5));
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

}  // namespace
