// The argument vectors that the library starts the daemons with.
#pragma once

#include <span>
#include <string_view>
#include <vector>

// One option of a daemon. With `value` set the option takes the next argument and must come exactly once;
// with `list` set its text is attached to the name, as in -eeth1, and it may come any number of times.
struct OptionRule {
    const char *name;
    const char **value;
    std::vector<const char *> *list = nullptr;
};

// Sorts argv[1] and on into the values of the rules and the operands, all pointing into argv. False, after a
// line that names the fault, for a missing or repeated option, one without its argument, and one that no rule
// knows.
bool Options_Read(char **argv, std::span<const OptionRule> rules, std::vector<const char *> *operands);

// Converts a whole decimal text from 0 to `maximum`.
bool Options_Number(std::string_view text, int maximum, int *number);

// Converts a network's name, as in "zelan8", to its number.
bool Options_Network(std::string_view name, int *network);
