#include "daemons/zelan-dhcpd/dnsmasqValue.h"

#include <algorithm>
#include <cctype>
#include <iterator>

#include "daemons/common/ipv4.h"
#include "daemons/zelan-dhcpd/dhcpOptions.h"

namespace {

// What "dnsmasq --help dhcp" lists with addresses and with text; these it takes in no other form.
constexpr uint8_t ADDRESS_OPTIONS[] = {1,  3,  6,  7,  9,  16, 21, 28, 32, 33, 41, 42, 44, 45,
                                       48, 49, 65, 68, 69, 70, 71, 72, 73, 74, 75, 76, 150};
constexpr uint8_t TEXT_OPTIONS[] = {12, 15, 17, 18, 40, 64, 66, 67, 100, 101};
constexpr uint8_t OPTION_DOMAIN_SEARCH = 119;

template <size_t Count>
bool IsOneOf(const uint8_t (&codes)[Count], uint8_t code) {
    return std::find(std::begin(codes), std::end(codes), code) != std::end(codes);
}

// The address of all zeroes would become the server's own.
bool PutAddresses(const std::string &bytes, std::string *text) {
    if (bytes.size() % sizeof(Ipv4) != 0) {
        return false;
    }
    for (size_t i = 0; i < bytes.size(); i += sizeof(Ipv4)) {
        const Ipv4 address = Ipv4_OfWire(bytes.data() + i);
        if (address == 0) {
            return false;
        }
        *text += text->empty() ? "" : ",";
        *text += Ipv4_Text(address);
    }
    return true;
}

// The names of a search list, which are written as labels behind their lengths.
bool PutNames(const std::string &bytes, std::string *text) {
    for (size_t i = 0; i < bytes.size(); i++) {
        bool isFirst = i == 0 || bytes[i - 1] == '\0';
        auto length = static_cast<unsigned char>(bytes[i]);
        if (length != 0) {
            *text += text->empty() ? "" : isFirst ? "," : ".";
        }
        for (std::string label = bytes.substr(i + 1, length); char letter : label) {
            if (isalnum(static_cast<unsigned char>(letter)) == 0 && letter != '-' && letter != '_') {
                return false;
            }
            *text += letter;
        }
        i += length;
    }
    return true;
}

}  // namespace

std::string DnsmasqValue_OfBytes(const std::string &bytes) {
    return bytes.size() == 1 ? std::to_string(static_cast<unsigned char>(bytes.front())).append(1, 'b')
                             : Dhcp_HexText(bytes);
}

bool DnsmasqValue_IsPlain(const std::string &text) {
    return std::all_of(text.begin(), text.end(), [](char letter) {
        return isprint(static_cast<unsigned char>(letter)) != 0 && letter != '"' && letter != '\\';
    });
}

bool DnsmasqValue_OfOption(uint8_t code, const std::string &bytes, std::string *text) {
    text->clear();
    if (IsOneOf(ADDRESS_OPTIONS, code)) {
        return PutAddresses(bytes, text);
    }
    if (code == OPTION_DOMAIN_SEARCH) {
        return PutNames(bytes, text);
    }
    if (IsOneOf(TEXT_OPTIONS, code)) {
        *text = std::string(1, '"').append(bytes).append(1, '"');
        return DnsmasqValue_IsPlain(bytes);
    }
    *text = DnsmasqValue_OfBytes(bytes);
    return true;
}
