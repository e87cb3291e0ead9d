#include "lib/err/errText.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "lib/fatal/memory.h"
#include "lib/misc/hashTable.h"
#include "lib/string/utf8.h"

namespace {

constexpr uint32_t ERROR_TEXT_BUCKETS = 2048;
constexpr size_t ERROR_TEXT_BUFFER_SIZE = 2048;

struct ErrorText {
    int number;
    char *text;
};

// Both tables point to the same records, which live to the end of the process.
struct ErrorTextCache {
    HashTable *byNumber;
    HashTable *byText;  // keyed by the address of the text
};

ErrorTextCache errorTextCache;

HashTable *TextsByNumber() {
    return HashTable_AllocOnce(&errorTextCache.byNumber, ERROR_TEXT_BUCKETS, HASH_INT_KEY | HASH_FLAG_ATOMIC,
                               nullptr);
}

HashTable *TextsByAddress() {
    return HashTable_AllocOnce(&errorTextCache.byText, ERROR_TEXT_BUCKETS, HASH_INT_KEY | HASH_FLAG_ATOMIC,
                               nullptr);
}

const void *NumberKey(int errorNumber) {
    return HashTable_IntKey(static_cast<uintptr_t>(static_cast<intptr_t>(errorNumber)));
}

// The copy may end in a character that the system cut at the end of its buffer.
ErrorText *MakeRecord(int errorNumber) {
    char buffer[ERROR_TEXT_BUFFER_SIZE];
    const char *systemText = strerror_r(errorNumber, buffer, sizeof buffer);
    ErrorText *record = static_cast<ErrorText *>(Mem_Alloc(sizeof(ErrorText)));
    record->number = errorNumber;
    record->text = Mem_CopyText(systemText, Utf8_LengthWithoutCutCharacter(systemText, strlen(systemText)));
    return record;
}

void FreeRecord(ErrorText *record) {
    free(record->text);
    free(record);
}

ErrorText *CachedRecord(int errorNumber) {
    void *cached = nullptr;
    if (HashTable_Lookup(TextsByNumber(), NumberKey(errorNumber), &cached)) {
        return static_cast<ErrorText *>(cached);
    }
    ErrorText *record = MakeRecord(errorNumber);
    ErrorText *winner =
        static_cast<ErrorText *>(HashTable_LookupOrInsert(TextsByNumber(), NumberKey(errorNumber), record));
    if (winner != record) {
        FreeRecord(record);
    }
    return winner;
}

}  // namespace

// A hit registers the address too: the thread that made the record may not have come that far.
const char *Err_ErrnoText(int errorNumber) {
    const int savedErrno = errno;
    ErrorText *record = CachedRecord(errorNumber);
    HashTable_Insert(TextsByAddress(), record->text, record);
    errno = savedErrno;
    return record->text;
}

const char *Err_LastErrnoText() {
    return Err_ErrnoText(errno);
}

int Err_TextToErrno(const char *text) {
    void *cached = nullptr;
    if (!HashTable_Lookup(TextsByAddress(), text, &cached)) {
        return -1;
    }
    return static_cast<ErrorText *>(cached)->number;
}

const char *Err_LocalText([[maybe_unused]] int errorNumber) {
    return nullptr;
}
