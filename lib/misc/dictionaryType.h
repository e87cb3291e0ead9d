// The value types that dictionaries and preferences share.
#pragma once

// Types of a dictionary value; an entry read from a file starts as DICT_ANY and is converted by its first
// typed read.
enum DictionaryType : int {
    DICT_ANY = 0,
    DICT_STRING = 1,
    DICT_BOOL = 2,
    DICT_LONG = 3,
    DICT_DOUBLE = 4,
    DICT_TRISTATE = 5,
    DICT_INT64 = 6,
};
