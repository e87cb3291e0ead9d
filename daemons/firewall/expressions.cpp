#include "daemons/firewall/expressions.h"

#include <linux/netfilter/nf_tables.h>

#include "daemons/firewall/attributes.h"

std::string Expression(const char *name, const std::string &attributes) {
    return AttributeNest(NFTA_LIST_ELEM,
                         AttributeText(NFTA_EXPR_NAME, name) + AttributeNest(NFTA_EXPR_DATA, attributes));
}

namespace {

std::string Value(uint16_t type, const std::string &bytes) {
    return AttributeNest(type, Attribute(NFTA_DATA_VALUE, bytes));
}

}  // namespace

std::string Meta(uint32_t key, uint32_t destination) {
    return Expression("meta",
                      AttributeNumber(NFTA_META_DREG, destination) + AttributeNumber(NFTA_META_KEY, key));
}

std::string Payload(uint32_t base, uint32_t offset, uint32_t size, uint32_t destination) {
    return Expression("payload", AttributeNumber(NFTA_PAYLOAD_DREG, destination) +
                                     AttributeNumber(NFTA_PAYLOAD_BASE, base) +
                                     AttributeNumber(NFTA_PAYLOAD_OFFSET, offset) +
                                     AttributeNumber(NFTA_PAYLOAD_LEN, size));
}

std::string Compare(uint32_t operation, const std::string &value) {
    return Expression("cmp", AttributeNumber(NFTA_CMP_SREG, FIRST) + AttributeNumber(NFTA_CMP_OP, operation) +
                                 Value(NFTA_CMP_DATA, value));
}

std::string CompareFor(Match match, const std::string &value) {
    return Compare(match == Match::IS ? NFT_CMP_EQ : NFT_CMP_NEQ, value);
}

std::string MaskWith(const std::string &mask, const std::string &toggle) {
    return Expression("bitwise",
                      AttributeNumber(NFTA_BITWISE_SREG, FIRST) + AttributeNumber(NFTA_BITWISE_DREG, FIRST) +
                          AttributeNumber(NFTA_BITWISE_LEN, static_cast<uint32_t>(mask.size())) +
                          Value(NFTA_BITWISE_MASK, mask) +
                          Value(NFTA_BITWISE_XOR, toggle.empty() ? std::string(mask.size(), '\0') : toggle));
}

std::string ShiftLeft(uint32_t bits) {
    return Expression("bitwise", AttributeNumber(NFTA_BITWISE_SREG, FIRST) +
                                     AttributeNumber(NFTA_BITWISE_DREG, FIRST) +
                                     AttributeNumber(NFTA_BITWISE_LEN, sizeof bits) +
                                     AttributeNumber(NFTA_BITWISE_OP, NFT_BITWISE_LSHIFT) +
                                     Value(NFTA_BITWISE_DATA, BytesOf(bits)));
}

std::string WriteServiceType() {
    constexpr uint32_t SIZE = 2;
    constexpr uint32_t CHECKSUM_OFFSET = 10;
    return Expression("payload", AttributeNumber(NFTA_PAYLOAD_SREG, FIRST) +
                                     AttributeNumber(NFTA_PAYLOAD_BASE, NFT_PAYLOAD_NETWORK_HEADER) +
                                     AttributeNumber(NFTA_PAYLOAD_OFFSET, 0) +
                                     AttributeNumber(NFTA_PAYLOAD_LEN, SIZE) +
                                     AttributeNumber(NFTA_PAYLOAD_CSUM_TYPE, NFT_PAYLOAD_CSUM_INET) +
                                     AttributeNumber(NFTA_PAYLOAD_CSUM_OFFSET, CHECKSUM_OFFSET));
}

std::string InSet(const char *set, Match match) {
    return Expression(
        "lookup",
        AttributeText(NFTA_LOOKUP_SET, set) + AttributeNumber(NFTA_LOOKUP_SREG, FIRST) +
            (match == Match::IS ? std::string() : AttributeNumber(NFTA_LOOKUP_FLAGS, NFT_LOOKUP_F_INV)));
}
