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

// The address at a place of the statement; false when there is none.
bool AddressAt(const DhcpStatement &statement, size_t place, Ipv4 *address) {
    return place < statement.words.size() && statement.words[place].kind == DhcpTokenKind::WORD &&
           Ipv4_Parse(statement.words[place].text, address);
}

void ReadSubnet(const DhcpStatement &statement, Declarations *found) {
    Ipv4 address = 0;
    Ipv4 mask = 0;
    int prefix = 0;
    if (!found->hasSubnet && AddressAt(statement, 1, &address) && AddressAt(statement, 3, &mask) &&
        Ipv4_Prefix(mask, &prefix)) {
        found->hasSubnet = true;
        found->subnet = {address, prefix};
    }
}

// "range A B", "range A", or either with a word about BOOTP before it.
void ReadRange(const DhcpStatement &statement, Declarations *found) {
    Ipv4 begin = 0;
    Ipv4 end = 0;
    size_t first = AddressAt(statement, 1, &begin) ? 1 : 2;
    if (AddressAt(statement, first, &begin)) {
        end = AddressAt(statement, first + 1, &end) ? end : begin;
        found->ranges.push_back({std::min(begin, end), std::max(begin, end)});
    }
}

void ReadDeclarations(const std::vector<DhcpStatement> &statements, Declarations *found) {
    for (const DhcpStatement &statement : statements) {
        Ipv4 address = 0;
        if (statement.Is("subnet")) {
            ReadSubnet(statement, found);
        } else if (statement.Is("range")) {
            ReadRange(statement, found);
        } else {
            for (size_t place = 0; place < statement.words.size(); place++) {
                if (AddressAt(statement, place, &address)) {
                    found->named.insert(address);
                }
            }
        }
        ReadDeclarations(statement.body, found);
    }
}

// The range that holds the address; null for none.
const Range *RangeOf(const std::vector<Range> &ranges, Ipv4 address) {
    auto place = std::find_if(ranges.begin(), ranges.end(), [address](const Range &range) {
        return address >= range.begin && address <= range.end;
    });
    return place == ranges.end() ? nullptr : &*place;
}

}  // namespace

bool ServerAddress_Choose(const std::vector<DhcpStatement> &statements, ServerAddress *chosen,
                          const char **reason) {
    Declarations found;
    ReadDeclarations(statements, &found);
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
