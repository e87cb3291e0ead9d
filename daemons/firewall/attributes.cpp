#include "daemons/firewall/attributes.h"

#include <arpa/inet.h>
#include <endian.h>
#include <linux/netlink.h>

std::string Attribute(uint16_t type, std::string_view data) {
    nlattr header = {static_cast<uint16_t>(NLA_HDRLEN + data.size()), type};
    std::string attribute = BytesOf(header);
    attribute += data;
    attribute.resize(NLA_ALIGN(attribute.size()));
    return attribute;
}

std::string AttributeNumber(uint16_t type, uint32_t value) {
    return Attribute(type, BytesOf(htonl(value)));
}

std::string AttributeNumber64(uint16_t type, uint64_t value) {
    return Attribute(type, BytesOf(htobe64(value)));
}

std::string AttributeText(uint16_t type, std::string_view text) {
    return Attribute(type, std::string(text) + '\0');
}

std::string AttributeNest(uint16_t type, std::string_view attributes) {
    return Attribute(static_cast<uint16_t>(type | NLA_F_NESTED), attributes);
}
