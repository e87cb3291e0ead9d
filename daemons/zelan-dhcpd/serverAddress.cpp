#include "daemons/zelan-dhcpd/serverAddress.h"

#include <algorithm>
#include <set>
#include <vector>

namespace {

// What the generated files give to the host's interface and to the gateway, counted from the subnet's own.
constexpr Ipv4 HOST_OFFSET = 1;
constexpr Ipv4 GATEWAY_OFFSET = 2;

struct Range {
    Ipv4 begin;
    Ipv4 end;
};

struct Declarations {
    bool hasSubnet = false;
    Ipv4Subnet subnet;
    std::vector<Range> ranges;
    std::set<Ipv4> named;
};

// The words of the file without comments, texts in quotation marks and punctuation.
std::vector<std::string_view> Words(std::string_view text) {
    constexpr std::string_view ENDS_OF_WORDS = " \t\r\n\f\v;{},()=#\"";
    std::vector<std::string_view> words;
    while (!text.empty()) {
        size_t length = 0;
        if (text.front() == '#') {
            length = std::min(text.find('\n'), text.size());
        } else if (text.front() == '"') {
            length = std::min(text.find('"', 1), text.size() - 1) + 1;
        } else if (ENDS_OF_WORDS.find(text.front()) != std::string_view::npos) {
            length = 1;
        } else {
            length = std::min(text.find_first_of(ENDS_OF_WORDS), text.size());
            words.push_back(text.substr(0, length));
        }
        text.remove_prefix(length);
    }
    return words;
}

// The address at a place of the list; false when there is none.
bool AddressAt(const std::vector<std::string_view> &words, size_t place, Ipv4 *address) {
    return place < words.size() && Ipv4_Parse(words[place], address);
}

void ReadSubnet(const std::vector<std::string_view> &words, size_t place, Declarations *found) {
    Ipv4 address = 0;
    Ipv4 mask = 0;
    int prefix = 0;
    if (!found->hasSubnet && AddressAt(words, place + 1, &address) && AddressAt(words, place + 3, &mask) &&
        Ipv4_Prefix(mask, &prefix)) {
        found->hasSubnet = true;
        found->subnet = {address, prefix};
    }
}

// "range A B", "range A", or either with a word about BOOTP before it.
void ReadRange(const std::vector<std::string_view> &words, size_t place, Declarations *found) {
    Ipv4 begin = 0;
    Ipv4 end = 0;
    size_t first = AddressAt(words, place + 1, &begin) ? place + 1 : place + 2;
    if (AddressAt(words, first, &begin) && AddressAt(words, first + 1, &end)) {
        found->ranges.push_back({std::min(begin, end), std::max(begin, end)});
    }
}

Declarations ReadDeclarations(std::string_view configuration) {
    Declarations found;
    std::vector<std::string_view> words = Words(configuration);
    for (size_t place = 0; place < words.size(); place++) {
        Ipv4 address = 0;
        if (words[place] == "subnet") {
            ReadSubnet(words, place, &found);
        } else if (words[place] == "range") {
            ReadRange(words, place, &found);
        } else if (AddressAt(words, place, &address)) {
            found.named.insert(address);
        }
    }
    return found;
}

// The range that holds the address; null for none.
const Range *RangeOf(const std::vector<Range> &ranges, Ipv4 address) {
    auto place = std::find_if(ranges.begin(), ranges.end(), [address](const Range &range) {
        return address >= range.begin && address <= range.end;
    });
    return place == ranges.end() ? nullptr : &*place;
}

}  // namespace

bool ServerAddress_Choose(std::string_view configuration, ServerAddress *chosen, const char **reason) {
    Declarations found = ReadDeclarations(configuration);
    if (!found.hasSubnet) {
        *reason = "it declares no subnet";
        return false;
    }
    found.named.insert(found.subnet.first() + HOST_OFFSET);
    found.named.insert(found.subnet.first() + GATEWAY_OFFSET);
    for (Ipv4 address = found.subnet.last() - 1; found.subnet.HasHost(address);) {
        const Range *range = RangeOf(found.ranges, address);
        if (range != nullptr) {
            address = std::max(range->begin, found.subnet.first() + 1) - 1;
        } else if (found.named.count(address) != 0) {
            address--;
        } else {
            *chosen = {address, found.subnet.prefix};
            return true;
        }
    }
    *reason = "no address of the subnet is left for the server";
    return false;
}
