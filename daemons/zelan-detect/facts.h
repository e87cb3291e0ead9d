// What is known of the host's network at this moment: one text for each thing, under a key that stays the
// same while the thing exists. A change of any is one line on standard output.
#pragma once

#include <map>
#include <string>

// "link", "address", "route" or "name servers", and a key that tells things of one kind apart.
struct FactKey {
    std::string kind;
    std::string thing;

    auto operator<=>(const FactKey &) const = default;
};

using FactMap = std::map<FactKey, std::string>;

class Facts {
  public:
    // Takes the first picture without a word.
    void Begin(FactMap facts) { facts_ = std::move(facts); }

    // Writes "<kind> added: <text>" or "<kind> changed: <text>" unless the text is known.
    void Set(const FactKey &key, const std::string &text);

    // Writes "<kind> removed: <text>" unless the thing is unknown.
    void Remove(const FactKey &key);

    // Takes a whole new picture of the kinds in it and of those that vanished from it, `kept` excepted.
    void Replace(const FactMap &facts, const std::string &kept);

  private:
    FactMap facts_;
};
