// The grammar of one line:  name = value # comment
#pragma once

#include "lib/misc/owners.h"

struct DictionaryAssignment {
    MallocString name;  // null, like the value, when the line is no assignment
    MallocString value;
};

// The value comes with its "|xx" decoded.
DictionaryAssignment DictionaryLine_Split(const char *line);

// Behind the blanks (space and tab) at `text`.
const char *DictionaryLine_SkipBlanks(const char *text);
