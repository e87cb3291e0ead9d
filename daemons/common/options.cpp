#include "daemons/common/options.h"

#include <charconv>
#include <cstring>

#include "daemons/common/complain.h"
#include "daemons/common/switch.h"

namespace {

// The rule for an argument: the exact name, or for a list the longest part before the attached text.
const OptionRule *FindRule(const char *argument, std::span<const OptionRule> rules) {
    for (const OptionRule &rule : rules) {
        bool found = rule.list != nullptr ? strncmp(argument, rule.name, strlen(rule.name)) == 0
                                          : strcmp(argument, rule.name) == 0;
        if (found) {
            return &rule;
        }
    }
    return nullptr;
}

bool TakeAttached(const OptionRule &rule, const char *argument) {
    const char *text = argument + strlen(rule.name);
    if (*text == '\0') {
        Complain("option %s needs a name attached to it", rule.name);
        return false;
    }
    rule.list->push_back(text);
    return true;
}

bool TakeSeparate(const OptionRule &rule, const char *next) {
    if (next == nullptr) {
        Complain("option %s needs an argument", rule.name);
        return false;
    }
    if (*rule.value != nullptr) {
        Complain("option %s is given twice", rule.name);
        return false;
    }
    *rule.value = next;
    return true;
}

}  // namespace

bool Options_Read(char **argv, std::span<const OptionRule> rules, std::vector<const char *> *operands) {
    for (char **argument = argv + 1; *argument != nullptr; argument++) {
        const OptionRule *rule = FindRule(*argument, rules);
        if (rule == nullptr && **argument == '-') {
            Complain("unknown option %s", *argument);
            return false;
        }
        if (rule == nullptr) {
            operands->push_back(*argument);
        } else if (rule->list != nullptr) {
            if (!TakeAttached(*rule, *argument)) {
                return false;
            }
        } else if (!TakeSeparate(*rule, argument[1])) {
            return false;
        } else {
            argument++;
        }
    }
    for (const OptionRule &rule : rules) {
        if (rule.value != nullptr && *rule.value == nullptr) {
            Complain("option %s is missing", rule.name);
            return false;
        }
    }
    return true;
}

bool Options_Number(std::string_view text, int maximum, int *number) {
    int value = 0;
    const char *end = text.data() + text.size();
    auto [stop, error] = std::from_chars(text.data(), end, value);
    if (error != std::errc() || stop != end || value < 0 || value > maximum) {
        return false;
    }
    *number = value;
    return true;
}

bool Options_Network(std::string_view name, int *network) {
    constexpr std::string_view PREFIX = "zelan";
    constexpr std::string_view LONGEST = "zelan255";
    return name.size() <= LONGEST.size() && name.starts_with(PREFIX) &&
           Options_Number(name.substr(PREFIX.size()), SWITCH_MAX_NETWORK, network);
}
