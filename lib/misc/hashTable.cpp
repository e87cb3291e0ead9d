#include "lib/misc/hashTable.h"

#include <strings.h>

#include <atomic>
#include <bit>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <unordered_map>

#include "lib/fatal/memory.h"
#include "lib/fatal/panic.h"
#include "lib/misc/atomicFence.h"

namespace {

// The unreduced hash stands beside the key, so that a walk along a chain compares keys only where they are
// all but certain to be equal.
struct Entry {
    Entry *next;
    const void *key;
    void *value;
    Entry *previous;  // in the chain of a table that is not atomic
    uint32_t hash;
};

constexpr uint32_t INTEGER_HASH_FACTOR = 48271;

// The buckets never grow, since the order of a walk hangs on them, so the chains of a large table are long.
// From this many entries per bucket on, keys are looked up in an index by unreduced hash beside the buckets.
constexpr uint64_t INDEXED_CHAIN_LENGTH = 4;
using EntryIndex = std::unordered_multimap<uint32_t, Entry *>;

}  // namespace

struct HashTable {
    uint32_t numEntries;
    uint32_t numBits;
    uint32_t keyType;
    bool atomic;
    bool copyKey;
    HashTableFreeEntryFn freeEntryFn;
    std::unique_ptr<Entry *[]> buckets;
    uint64_t numElements;
    std::unique_ptr<EntryIndex>
        index;  // null in a small table, and in an atomic one, whose readers take no lock
};

namespace {

// Readers of an atomic table walk it while others insert: the head of a chain and the values are shared, the
// rest of an entry is fixed before the entry is published.
Entry *LoadHead(const HashTable *table, uint32_t bucket) {
    return std::atomic_ref(table->buckets[bucket]).load(std::memory_order_acquire);
}

void *LoadValue(Entry *entry) {
    return std::atomic_ref(entry->value).load(std::memory_order_acquire);
}

uint32_t HashString(const char *key) {
    uint32_t hash = 0;
    for (; *key != '\0'; key++) {
        hash = std::rotl(hash ^ static_cast<unsigned char>(*key), 5);
    }
    return hash;
}

uint32_t HashStringIgnoringCase(const char *key) {
    uint32_t hash = 0;
    for (; *key != '\0'; key++) {
        hash = std::rotl(hash ^ static_cast<uint32_t>(tolower(static_cast<unsigned char>(*key))), 5);
    }
    return hash;
}

uint32_t HashInteger(const void *key) {
    const uint64_t number = reinterpret_cast<uintptr_t>(key);
    return (static_cast<uint32_t>(number >> 32) ^ static_cast<uint32_t>(number)) * INTEGER_HASH_FACTOR;
}

uint32_t HashKey(const HashTable *table, const void *key) {
    switch (table->keyType) {
        case HASH_STRING_KEY:
            return HashString(static_cast<const char *>(key));
        case HASH_ISTRING_KEY:
            return HashStringIgnoringCase(static_cast<const char *>(key));
        case HASH_INT_KEY:
            return HashInteger(key);
        default:
            PanicNotReached();
    }
}

bool KeysEqual(const HashTable *table, const void *key, const void *other) {
    switch (table->keyType) {
        case HASH_STRING_KEY:
            return strcmp(static_cast<const char *>(key), static_cast<const char *>(other)) == 0;
        case HASH_ISTRING_KEY:
            return strcasecmp(static_cast<const char *>(key), static_cast<const char *>(other)) == 0;
        case HASH_INT_KEY:
            return key == other;
        default:
            PanicNotReached();
    }
}

// A table with one bucket has no bits to fold by.
uint32_t ReduceToBucket(const HashTable *table, uint32_t hash) {
    if (table->numBits == 0) {
        return 0;
    }
    const uint32_t mask = (1u << table->numBits) - 1;
    while (hash > mask) {
        hash = (hash >> table->numBits) ^ (hash & mask);
    }
    return hash;
}

Entry *FindInChain(const HashTable *table, Entry *entry, const void *key, uint32_t hash) {
    while (entry != nullptr && (entry->hash != hash || !KeysEqual(table, entry->key, key))) {
        entry = entry->next;
    }
    return entry;
}

Entry *FindInIndex(const HashTable *table, const void *key, uint32_t hash) {
    const auto [first, last] = table->index->equal_range(hash);
    for (auto at = first; at != last; ++at) {
        if (KeysEqual(table, at->second->key, key)) {
            return at->second;
        }
    }
    return nullptr;
}

Entry *FindFrom(const HashTable *table, Entry *head, const void *key, uint32_t hash) {
    return table->index != nullptr ? FindInIndex(table, key, hash) : FindInChain(table, head, key, hash);
}

Entry *Find(const HashTable *table, const void *key) {
    if (table->numEntries == 0) {
        return nullptr;
    }
    const uint32_t hash = HashKey(table, key);
    return FindFrom(table, LoadHead(table, ReduceToBucket(table, hash)), key, hash);
}

void IndexNewEntry(HashTable *table, Entry *added) {
    if (table->index != nullptr) {
        table->index->emplace(added->hash, added);
        return;
    }
    if (table->atomic || table->numElements < INDEXED_CHAIN_LENGTH * table->numEntries) {
        return;
    }
    table->index = std::make_unique<EntryIndex>();
    for (uint32_t bucket = 0; bucket < table->numEntries; bucket++) {
        for (Entry *entry = table->buckets[bucket]; entry != nullptr; entry = entry->next) {
            table->index->emplace(entry->hash, entry);
        }
    }
}

void Unlink(HashTable *table, const Entry *doomed) {
    Entry **link = &table->buckets[ReduceToBucket(table, doomed->hash)];
    if (doomed->previous != nullptr) {
        link = &doomed->previous->next;
    }
    while (*link != doomed) {  // only an atomic table has to walk
        link = &(*link)->next;
    }
    *link = doomed->next;
    if (!table->atomic && doomed->next != nullptr) {
        doomed->next->previous = doomed->previous;
    }
}

void TakeFromIndex(HashTable *table, const Entry *doomed) {
    if (table->index != nullptr) {
        auto at = table->index->equal_range(doomed->hash).first;
        while (at->second != doomed) {
            ++at;
        }
        table->index->erase(at);
    }
}

bool OwnsKeys(const HashTable *table) {
    return table->copyKey && table->keyType != HASH_INT_KEY;
}

Entry *NewEntry(const HashTable *table, const void *key, void *value, uint32_t hash) {
    Entry *entry = static_cast<Entry *>(Mem_Alloc(sizeof(Entry)));
    entry->key = OwnsKeys(table) ? Mem_Strdup(static_cast<const char *>(key)) : key;
    entry->value = value;
    entry->previous = nullptr;
    entry->hash = hash;
    return entry;
}

void FreeKey(const HashTable *table, const Entry *entry) {
    if (OwnsKeys(table)) {
        free(const_cast<void *>(entry->key));
    }
}

void FreeEntry(const HashTable *table, Entry *entry) {
    FreeKey(table, entry);
    if (table->freeEntryFn != nullptr) {
        table->freeEntryFn(entry->value);
    }
    free(entry);
}

bool PublishHead(HashTable *table, uint32_t bucket, Entry *expected, Entry *entry) {
    std::atomic_ref head(table->buckets[bucket]);
    if (!table->atomic) {
        head.store(entry, std::memory_order_relaxed);
        return true;
    }
    return AtomicFence_CompareExchange(head, &expected, entry);
}

void CountNewElement(HashTable *table) {
    std::atomic_ref count(table->numElements);
    if (table->atomic) {
        count.fetch_add(1, std::memory_order_relaxed);
        AtomicFence_AfterReadModifyWrite();
    } else {
        count.store(count.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
    }
}

// The entry that holds the key already, or null when a new entry was added.
Entry *FindOrAdd(HashTable *table, const void *key, void *value) {
    if (table->numEntries == 0) {
        PanicInconsistent();
    }
    const uint32_t hash = HashKey(table, key);
    const uint32_t bucket = ReduceToBucket(table, hash);
    Entry *added = nullptr;
    for (;;) {
        Entry *head = LoadHead(table, bucket);
        Entry *present = FindFrom(table, head, key, hash);
        if (present != nullptr) {
            if (added != nullptr) {  // lost the race; the value stays the caller's
                FreeKey(table, added);
                free(added);
            }
            return present;
        }
        if (added == nullptr) {
            added = NewEntry(table, key, value, hash);
        }
        added->next = head;
        if (PublishHead(table, bucket, head, added)) {
            if (!table->atomic && head != nullptr) {
                head->previous = added;
            }
            CountNewElement(table);
            IndexNewEntry(table, added);
            return nullptr;
        }
    }
}

void *ExchangeValue(const HashTable *table, Entry *entry, void *value) {
    std::atomic_ref shared(entry->value);
    if (!table->atomic) {
        void *old = shared.load(std::memory_order_relaxed);
        shared.store(value, std::memory_order_relaxed);
        return old;
    }
    return AtomicFence_Exchange(shared, value);
}

}  // namespace

HashTable *HashTable_Alloc(uint32_t numEntries, uint32_t flags, HashTableFreeEntryFn freeEntryFn) {
    if ((numEntries & (numEntries - 1)) != 0) {
        Panic("%s only takes powers of 2 \n", __func__);
    }
    AtomicFence_Init();
    return new HashTable{
        .numEntries = numEntries,
        .numBits = numEntries != 0 ? static_cast<uint32_t>(std::countr_zero(numEntries)) : 0,
        .keyType = flags & HASH_KEYTYPE_MASK,
        .atomic = (flags & HASH_FLAG_ATOMIC) != 0,
        .copyKey = (flags & HASH_FLAG_COPYKEY) != 0,
        .freeEntryFn = freeEntryFn,
        .buckets = std::make_unique<Entry *[]>(numEntries),
        .numElements = 0,
        .index = nullptr,
    };
}

HashTable *HashTable_AllocOnce(HashTable **var, uint32_t numEntries, uint32_t flags,
                               HashTableFreeEntryFn freeEntryFn) {
    std::atomic_ref published(*var);
    HashTable *table = published.load(std::memory_order_acquire);
    if (table != nullptr) {
        return table;
    }
    HashTable *created = HashTable_Alloc(numEntries, flags, freeEntryFn);
    if (AtomicFence_CompareExchange(published, &table, created)) {
        return created;
    }
    HashTable_Free(created);
    return table;
}

void HashTable_Free(HashTable *table) {
    HashTable_Clear(table);
    delete table;
}

void HashTable_Clear(HashTable *table) {
    table->numElements = 0;
    table->index.reset();
    for (uint32_t bucket = 0; bucket < table->numEntries; bucket++) {
        while (table->buckets[bucket] != nullptr) {
            Entry *entry = table->buckets[bucket];
            table->buckets[bucket] = entry->next;
            FreeEntry(table, entry);
        }
    }
}

bool HashTable_Insert(HashTable *table, const void *key, void *value) {
    return FindOrAdd(table, key, value) == nullptr;
}

void *HashTable_LookupOrInsert(HashTable *table, const void *key, void *value) {
    Entry *present = FindOrAdd(table, key, value);
    return present != nullptr ? LoadValue(present) : value;
}

bool HashTable_ReplaceOrInsert(HashTable *table, const void *key, void *value) {
    Entry *present = FindOrAdd(table, key, value);
    if (present == nullptr) {
        return false;
    }
    void *old = ExchangeValue(table, present, value);
    if (table->freeEntryFn != nullptr) {
        table->freeEntryFn(old);
    }
    return true;
}

bool HashTable_Lookup(const HashTable *table, const void *key, void **value) {
    Entry *present = Find(table, key);
    if (present == nullptr) {
        return false;
    }
    if (value != nullptr) {
        *value = LoadValue(present);
    }
    return true;
}

bool HashTable_Delete(HashTable *table, const void *key) {
    Entry *doomed = Find(table, key);
    if (doomed == nullptr) {
        return false;
    }
    Unlink(table, doomed);
    TakeFromIndex(table, doomed);
    table->numElements--;
    FreeEntry(table, doomed);
    return true;
}

size_t HashTable_GetNumElements(const HashTable *table) {
    return __atomic_load_n(&table->numElements, __ATOMIC_RELAXED);
}

// The array keeps to the count that it was made for, whatever is inserted meanwhile.
void HashTable_ToArray(const HashTable *table, void ***array, size_t *size) {
    const size_t capacity = HashTable_GetNumElements(table);
    *array = nullptr;
    *size = 0;
    if (capacity == 0) {
        return;
    }
    void **values = static_cast<void **>(Mem_Alloc(capacity * sizeof(void *)));
    size_t count = 0;
    for (uint32_t bucket = 0; bucket < table->numEntries; bucket++) {
        for (Entry *entry = LoadHead(table, bucket); entry != nullptr && count < capacity;
             entry = entry->next) {
            values[count++] = LoadValue(entry);
        }
    }
    *array = values;
    *size = count;
}

int HashTable_ForEach(const HashTable *table, HashTableForEachCallback callback, void *clientData) {
    for (uint32_t bucket = 0; bucket < table->numEntries; bucket++) {
        Entry *next = nullptr;
        for (Entry *entry = LoadHead(table, bucket); entry != nullptr; entry = next) {
            next = entry->next;  // the callback may delete the entry
            const int result = callback(entry->key, LoadValue(entry), clientData);
            if (result != 0) {
                return result;
            }
        }
    }
    return 0;
}
