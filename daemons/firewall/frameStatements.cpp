#include "daemons/firewall/frameStatements.h"

#include <arpa/inet.h>
#include <linux/if_ether.h>
#include <linux/netfilter/nf_tables.h>

#include <bit>

#include "daemons/firewall/attributes.h"
#include "daemons/firewall/expressions.h"

namespace {

// In the messages of DHCP, which stand behind eight bytes of UDP.
constexpr uint32_t MESSAGE_OFFSET = 8;
constexpr uint32_t CLIENT_OFFSET = MESSAGE_OFFSET + 28;

// In a frame with a tag, and in one of IEEE 802.2.
constexpr uint32_t TAG_OFFSET = 14;
constexpr uint32_t LLC_OFFSET = 14;

// Version, and length in words, of the header of an IPv4 packet without options.
constexpr uint8_t PLAIN_HEADER = 0x45;

// The key is what stands in the first register and behind it.
std::string Update(const char *set, const std::string &attributes = "") {
    return Expression("dynset", AttributeText(NFTA_DYNSET_SET_NAME, set) +
                                    AttributeNumber(NFTA_DYNSET_OP, NFT_DYNSET_OP_UPDATE) +
                                    AttributeNumber(NFTA_DYNSET_SREG_KEY, FIRST) + attributes);
}

std::string Client() {
    return Meta(NFT_META_IIF) + Payload(NFT_PAYLOAD_TRANSPORT_HEADER, CLIENT_OFFSET, ETH_ALEN, SECOND);
}

}  // namespace

Statement InBridgeIsIn(const char *set) {
    return Meta(NFT_META_BRI_IIFNAME) + InSet(set, Match::IS);
}

Statement FrameIsOf(uint16_t protocol) {
    return Meta(NFT_META_PROTOCOL) + Compare(NFT_CMP_EQ, BytesOf(htons(protocol)));
}

Statement TagIsOfNoVlan() {
    constexpr uint16_t NUMBER = 0x0fff;
    constexpr uint16_t NONE = 0;
    return Payload(NFT_PAYLOAD_LL_HEADER, TAG_OFFSET, sizeof NONE) + MaskWith(BytesOf(htons(NUMBER))) +
           Compare(NFT_CMP_EQ, BytesOf(NONE));
}

Statement IsEncapsulatedEthernet() {
    constexpr uint8_t SNAP_OF_ETHERNET[6] = {0xaa, 0xaa, 0x03};
    return FrameIsOf(ETH_P_802_2) + Payload(NFT_PAYLOAD_LL_HEADER, LLC_OFFSET, sizeof SNAP_OF_ETHERNET) +
           Compare(NFT_CMP_EQ, BytesOf(SNAP_OF_ETHERNET));
}

Statement IsNoEthernetClients() {
    constexpr uint8_t REQUEST_OF_ETHERNET[3] = {1, 1, ETH_ALEN};
    return Payload(NFT_PAYLOAD_TRANSPORT_HEADER, MESSAGE_OFFSET, sizeof REQUEST_OF_ETHERNET) +
           Compare(NFT_CMP_NEQ, BytesOf(REQUEST_OF_ETHERNET));
}

Statement PortSendsNoMoreThan(uint64_t count, uint64_t unit, uint32_t burst, const char *set) {
    std::string limit = AttributeText(NFTA_EXPR_NAME, "limit") +
                        AttributeNest(NFTA_EXPR_DATA, AttributeNumber64(NFTA_LIMIT_RATE, count) +
                                                          AttributeNumber64(NFTA_LIMIT_UNIT, unit) +
                                                          AttributeNumber(NFTA_LIMIT_BURST, burst) +
                                                          AttributeNumber(NFTA_LIMIT_TYPE, NFT_LIMIT_PKTS));
    return Meta(NFT_META_IIF) + Update(set, AttributeNest(NFTA_DYNSET_EXPR, limit));
}

Statement ClientIsIn(const char *set) {
    return Client() + InSet(set, Match::IS);
}

Statement RememberClient(const char *set) {
    return Client() + Update(set);
}

Statement HasIpv4Options() {
    return Payload(NFT_PAYLOAD_NETWORK_HEADER, 0, sizeof PLAIN_HEADER) +
           Compare(NFT_CMP_NEQ, BytesOf(PLAIN_HEADER));
}

// The second of two bytes, the first of which is always the same.
Statement MarkWithPort() {
    constexpr uint32_t TO_SECOND_BYTE = std::endian::native == std::endian::little ? 8 : 16;
    constexpr uint8_t SECOND_BYTE[2] = {0, 0xff};
    constexpr uint8_t FIRST_BYTE[2] = {PLAIN_HEADER, 0};
    return Meta(NFT_META_IIF) + ShiftLeft(TO_SECOND_BYTE) +
           MaskWith(BytesOf(SECOND_BYTE), BytesOf(FIRST_BYTE)) + WriteServiceType();
}
