// A chained hash table of fixed size with three key kinds. Its walk order is part of its behaviour: buckets
// in ascending order, each chain newest first.
//
// Tables are not locked. Only a table with HASH_FLAG_ATOMIC takes concurrent inserts and value swaps; removal
// is never safe against other threads. A table without HASH_FLAG_COPYKEY keeps the caller's key pointer: the
// key must live as long as its entry. Running out of memory stops the process (lib/fatal).
#pragma once

#include <cstddef>
#include <cstdint>

struct HashTable;  // opaque

enum HashTableFlags : uint32_t {
    HASH_STRING_KEY = 0,   // compared by strcmp
    HASH_ISTRING_KEY = 1,  // compared by strcasecmp
    HASH_INT_KEY = 2,      // an integer or pointer, passed as HashTable_IntKey
    HASH_KEYTYPE_MASK = 7,
    HASH_FLAG_ATOMIC = 8,
    HASH_FLAG_COPYKEY = 16,
};

using HashTableFreeEntryFn = void (*)(void *value);
// Returns 0 to go on; anything else stops the walk and becomes its result.
using HashTableForEachCallback = int (*)(const void *key, void *value, void *clientData);

inline const void *HashTable_IntKey(uintptr_t key) {
    return reinterpret_cast<const void *>(key);
}

// `numEntries` must be a power of 2 (the process stops otherwise); freeEntryFn may be null and gets each
// value that the table lets go of.
HashTable *HashTable_Alloc(uint32_t numEntries, uint32_t flags, HashTableFreeEntryFn freeEntryFn);
// The one table at *var: made by whoever comes first, published by compare-and-swap; a loser frees its own.
HashTable *HashTable_AllocOnce(HashTable **var, uint32_t numEntries, uint32_t flags,
                               HashTableFreeEntryFn freeEntryFn);
void HashTable_Free(HashTable *table);
void HashTable_Clear(HashTable *table);
bool HashTable_Insert(HashTable *table, const void *key,
                      void *value);  // false, nothing changed, when the key exists
void *HashTable_LookupOrInsert(HashTable *table, const void *key, void *value);
bool HashTable_ReplaceOrInsert(HashTable *table, const void *key, void *value);  // true when it replaced
bool HashTable_Lookup(const HashTable *table, const void *key, void **value);    // value may be null
bool HashTable_Delete(HashTable *table, const void *key);
size_t HashTable_GetNumElements(const HashTable *table);
// The values in a new array from malloc; an empty table gives size 0 and a null array.
void HashTable_ToArray(const HashTable *table, void ***array, size_t *size);
int HashTable_ForEach(const HashTable *table, HashTableForEachCallback callback, void *clientData);
