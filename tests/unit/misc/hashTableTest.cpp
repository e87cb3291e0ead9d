#include "lib/misc/hashTable.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "lib/misc/atomicFence.h"
#include "lib/misc/owners.h"

namespace {

using testing::ElementsAre;

struct TableFreer {
    void operator()(HashTable *table) const { HashTable_Free(table); }
};
using Table = std::unique_ptr<HashTable, TableFreer>;

Table MakeTable(uint32_t numEntries, uint32_t flags, HashTableFreeEntryFn freeEntryFn = nullptr) {
    return Table(HashTable_Alloc(numEntries, flags, freeEntryFn));
}

void *Value(uintptr_t number) {
    return reinterpret_cast<void *>(number);
}

std::vector<uintptr_t> Walk(const HashTable *table) {
    void **array = nullptr;
    size_t size = 0;
    HashTable_ToArray(table, &array, &size);
    MallocBlock<void *> owner(array);
    std::vector<uintptr_t> values;
    for (size_t i = 0; i < size; i++) {
        values.push_back(reinterpret_cast<uintptr_t>(array[i]));
    }
    return values;
}

std::vector<uintptr_t> freedValues;

void RecordFreed(void *value) {
    freedValues.push_back(reinterpret_cast<uintptr_t>(value));
}

}  // namespace

// The bucket numbers behind these orders were worked out apart from the code under test.
TEST(HashTable, WalksByBucketAndNewestFirst) {
    // Bucket 3 holds beta and e-acute, 5 alpha, 6 delta and zeta, 7 gamma and epsilon.
    const char *const STRINGS[] = {"alpha", "beta", "gamma", "delta", "epsilon", "zeta", "\xC3\xA9"};
    const Table strings = MakeTable(8, HASH_STRING_KEY);
    const Table numbers = MakeTable(4, HASH_INT_KEY);
    for (uintptr_t i = 1; i <= 7; i++) {
        ASSERT_TRUE(HashTable_Insert(strings.get(), STRINGS[i - 1], Value(i)));
        ASSERT_TRUE(HashTable_Insert(numbers.get(), HashTable_IntKey(i), Value(i)));
    }
    EXPECT_THAT(Walk(strings.get()), ElementsAre(7, 2, 1, 6, 4, 5, 3));
    EXPECT_THAT(Walk(numbers.get()), ElementsAre(5, 4, 2, 1, 7, 6, 3));
}

TEST(HashTable, FindsKeysInTheTablesOwnSenseOfEquality) {
    for (const uint32_t flags : {HASH_STRING_KEY, HASH_ISTRING_KEY}) {
        Table table = MakeTable(16, flags | HASH_FLAG_COPYKEY);
        std::string key = "eth0";
        HashTable_Insert(table.get(), key.c_str(), Value(5));
        key = "ETH0";  // the table has its own copy
        const bool found = flags == HASH_ISTRING_KEY;
        void *value = nullptr;
        EXPECT_EQ(HashTable_Lookup(table.get(), key.c_str(), &value), found);
        EXPECT_EQ(value, found ? Value(5) : nullptr);
        EXPECT_EQ(HashTable_Insert(table.get(), key.c_str(), Value(6)), !found);
        EXPECT_TRUE(HashTable_Delete(table.get(), "eth0"));
    }
}

TEST(HashTable, LetsGoOfExactlyTheValuesThatLeave) {
    freedValues.clear();
    Table table = MakeTable(4, HASH_INT_KEY, RecordFreed);
    HashTable_Insert(table.get(), HashTable_IntKey(1), Value(10));
    EXPECT_FALSE(HashTable_Insert(table.get(), HashTable_IntKey(1), Value(11)));
    EXPECT_EQ(HashTable_LookupOrInsert(table.get(), HashTable_IntKey(1), Value(12)), Value(10));
    EXPECT_EQ(HashTable_LookupOrInsert(table.get(), HashTable_IntKey(2), Value(20)), Value(20));
    EXPECT_TRUE(freedValues.empty());

    EXPECT_TRUE(HashTable_ReplaceOrInsert(table.get(), HashTable_IntKey(1), Value(13)));
    EXPECT_FALSE(HashTable_ReplaceOrInsert(table.get(), HashTable_IntKey(3), Value(30)));
    EXPECT_THAT(freedValues, ElementsAre(10));

    EXPECT_TRUE(HashTable_Delete(table.get(), HashTable_IntKey(2)));
    EXPECT_EQ(HashTable_GetNumElements(table.get()), 2u);
    HashTable_Clear(table.get());
    EXPECT_EQ(HashTable_GetNumElements(table.get()), 0u);
    void *unset = nullptr;
    void **array = &unset;
    size_t size = 9;
    HashTable_ToArray(table.get(), &array, &size);
    EXPECT_TRUE(array == nullptr && size == 0);
    EXPECT_THAT(freedValues, testing::UnorderedElementsAre(10, 20, 13, 30));
}

// Enough entries for the index, with every third key removed and one of those added again.
TEST(HashTable, LongChainsFindTheirKeysAndKeepTheirOrder) {
    Table table = MakeTable(1, HASH_INT_KEY);
    std::vector<uintptr_t> newestFirst;
    for (uintptr_t key = 1; key <= 100; key++) {
        ASSERT_TRUE(HashTable_Insert(table.get(), HashTable_IntKey(key), Value(key)));
        newestFirst.insert(newestFirst.begin(), key);
    }
    for (uintptr_t key = 3; key <= 100; key += 3) {
        EXPECT_TRUE(HashTable_Delete(table.get(), HashTable_IntKey(key)));
        EXPECT_FALSE(HashTable_Lookup(table.get(), HashTable_IntKey(key), nullptr));
        std::erase(newestFirst, key);
    }
    EXPECT_TRUE(HashTable_Insert(table.get(), HashTable_IntKey(51), Value(51)));
    newestFirst.insert(newestFirst.begin(), 51);
    EXPECT_EQ(Walk(table.get()), newestFirst);
}

TEST(HashTable, WalkByCallbackEndsWhereTheCallbackSaysSo) {
    Table table = MakeTable(4, HASH_INT_KEY);
    for (uintptr_t key = 1; key <= 3; key++) {
        HashTable_Insert(table.get(), HashTable_IntKey(key), Value(key));
    }
    const auto countAndDelete = [](const void *key, void *, void *data) {
        const auto &[walked, visits] = *static_cast<std::pair<HashTable *, int *> *>(data);
        EXPECT_TRUE(HashTable_Delete(walked, key));
        return ++*visits == 2 ? 17 : 0;
    };
    int visits = 0;
    std::pair<HashTable *, int *> data(table.get(), &visits);
    EXPECT_EQ(HashTable_ForEach(table.get(), countAndDelete, &data), 17);
    EXPECT_EQ(HashTable_GetNumElements(table.get()), 1u);
    EXPECT_EQ(HashTable_ForEach(table.get(), countAndDelete, &data), 0);
    const Table none = MakeTable(0, HASH_INT_KEY);
    EXPECT_FALSE(HashTable_Lookup(none.get(), HashTable_IntKey(1), nullptr));
}

TEST(AtomicFence, IsNeededOnEarlyModelsOfOneFamilyOnly) {
    EXPECT_TRUE(AtomicFence_NeededBy("AuthenticAMD", 0x00000F4A)) << "family 15, model 4";
    EXPECT_TRUE(AtomicFence_NeededBy("AuthenticAMD", 0x00030FF2)) << "model 0x3F, the last affected one";
    EXPECT_FALSE(AtomicFence_NeededBy("AuthenticAMD", 0x00040F02)) << "model 0x40";
    EXPECT_FALSE(AtomicFence_NeededBy("AuthenticAMD", 0x00100F42)) << "family 16";
    EXPECT_FALSE(AtomicFence_NeededBy("GenuineIntel", 0x00000F4A));
}

TEST(HashTableDeathTest, StopsAtACountThatIsNoPowerOfTwo) {
    EXPECT_EXIT((dup2(STDERR_FILENO, STDOUT_FILENO), HashTable_Alloc(3, 0, nullptr)),
                testing::ExitedWithCode(1), "HashTable_Alloc only takes powers of 2 \n");
}
