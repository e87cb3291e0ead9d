// What a dictionary holds, for the files of this folder.
#pragma once

#include <cstdint>

#include "lib/misc/dictionaryType.h"
#include "lib/unicode/unicode.h"

struct HashTable;
struct DictionaryLine;

union DictionaryValue {
    char *text;  // owned; DICT_ANY and DICT_STRING
    bool boolean;
    int32_t integer;
    double real;
    int tristate;
    int64_t integer64;
};

struct DictionaryEntry {
    char *name;  // owned
    DictionaryType type;
    DictionaryValue value;
    unsigned entryClass : 4;
    DictionaryLine *line;  // null for a default that a read has stored
    DictionaryEntry *next;
};

// Every line of the file, so that it could be written back as it was.
struct DictionaryLine {
    char *text;              // owned
    DictionaryEntry *entry;  // null for a comment, a blank line or a refused line
    DictionaryLine *next;
};

template <typename Node>
struct DictionaryList {
    Node *head;
    Node *tail;
};

struct Dictionary {
    DictionaryList<DictionaryEntry> entries;  // in file order; they own the entries
    DictionaryList<DictionaryLine> lines;
    char *fileName;    // during a load, else null
    int lineNumber;    // of the line being read, else 0
    HashTable *names;  // name without regard to case to entry
    int entryCount;
    StringEncoding encoding;  // STRING_ENCODING_UNSUPPORTED until decided
};

template <typename Node>
void Dictionary_Link(DictionaryList<Node> *list, Node *node) {
    if (list->tail != nullptr) {
        list->tail->next = node;
    } else {
        list->head = node;
    }
    list->tail = node;
}

// Null when there is no entry of that name.
DictionaryEntry *Dictionary_Find(const Dictionary *dict, const char *name);
// Adds an entry; the name is copied. No entry of that name may exist.
DictionaryEntry *Dictionary_Add(Dictionary *dict, const char *name, DictionaryType type,
                                DictionaryValue value);

// Converts an entry of type DICT_ANY in place. A text that is not of the type posts a warning and leaves a
// value that serves.
void Dictionary_Convert(DictionaryEntry *entry, DictionaryType type);
