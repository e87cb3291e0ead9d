#include "daemons/zelan-detect/facts.h"

#include <vector>

#include "daemons/common/complain.h"

void Facts::Set(const FactKey &key, const std::string &text) {
    auto [place, added] = facts_.try_emplace(key, text);
    if (added) {
        Tell("%s added: %s", key.kind.c_str(), text.c_str());
    } else if (place->second != text) {
        place->second = text;
        Tell("%s changed: %s", key.kind.c_str(), text.c_str());
    }
}

void Facts::Remove(const FactKey &key) {
    auto place = facts_.find(key);
    if (place != facts_.end()) {
        Tell("%s removed: %s", key.kind.c_str(), place->second.c_str());
        facts_.erase(place);
    }
}

void Facts::Replace(const FactMap &facts, const std::string &kept) {
    std::vector<FactKey> gone;
    for (const auto &[key, text] : facts_) {
        if (key.kind != kept && !facts.contains(key)) {
            gone.push_back(key);
        }
    }
    for (const FactKey &key : gone) {
        Remove(key);
    }
    for (const auto &[key, text] : facts) {
        Set(key, text);
    }
}
