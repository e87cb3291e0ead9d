#include "daemons/common/ipv4.h"

#include <arpa/inet.h>

#include <bit>
#include <cctype>
#include <cstring>

namespace {

constexpr int FIELDS = 4;
constexpr unsigned FIELD_BITS = 8;

// Takes one field from the front of the text.
bool TakeField(std::string_view *text, uint32_t *field) {
    constexpr size_t MAX_DIGITS = 3;
    constexpr uint32_t MAX_FIELD = 255;
    size_t digits = 0;
    *field = 0;
    while (digits < text->size() && isdigit(static_cast<unsigned char>((*text)[digits])) != 0) {
        if (digits == MAX_DIGITS) {
            return false;
        }
        *field = *field * 10 + static_cast<uint32_t>((*text)[digits] - '0');
        digits++;
    }
    text->remove_prefix(digits);
    return digits > 0 && *field <= MAX_FIELD;
}

}  // namespace

bool Ipv4_Parse(std::string_view text, Ipv4 *address) {
    Ipv4 value = 0;
    for (int i = 0; i < FIELDS; i++) {
        uint32_t field = 0;
        if (i > 0) {
            if (text.empty() || text.front() != '.') {
                return false;
            }
            text.remove_prefix(1);
        }
        if (!TakeField(&text, &field)) {
            return false;
        }
        value = value << FIELD_BITS | field;
    }
    if (!text.empty()) {
        return false;
    }
    *address = value;
    return true;
}

std::string Ipv4_Text(Ipv4 address) {
    const in_addr wire = {htonl(address)};
    char text[INET_ADDRSTRLEN];
    return inet_ntop(AF_INET, &wire, text, sizeof text);
}

Ipv4 Ipv4_OfWire(const char *bytes) {
    Ipv4 address = 0;
    memcpy(&address, bytes, sizeof address);
    return ntohl(address);
}

Ipv4 Ipv4_Mask(int prefix) {
    return prefix == 0 ? 0 : ~Ipv4{0} << (32 - prefix);
}

bool Ipv4_Prefix(Ipv4 mask, int *prefix) {
    int ones = std::countl_one(mask);
    if (mask != Ipv4_Mask(ones)) {
        return false;
    }
    *prefix = ones;
    return true;
}
