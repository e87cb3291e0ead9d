#include "daemons/firewall/statements.h"

#include <arpa/inet.h>
#include <linux/if_ether.h>
#include <linux/netfilter.h>
#include <linux/netfilter/nf_tables.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <netinet/in.h>

#include <cstddef>
#include <cstring>

#include "daemons/firewall/attributes.h"
#include "daemons/firewall/expressions.h"

namespace {

constexpr uint32_t SOURCE_OFFSET = 12;  // in the header of IPv4
constexpr uint32_t DESTINATION_OFFSET = 16;
constexpr uint32_t PORT_OFFSET = 2;  // of the destination, in the headers of TCP and UDP

// Replaces what stands in the first register by what the map has for it.
std::string ByMap(const char *map, uint32_t destination = FIRST) {
    return Expression("lookup", AttributeText(NFTA_LOOKUP_SET, map) +
                                    AttributeNumber(NFTA_LOOKUP_SREG, FIRST) +
                                    AttributeNumber(NFTA_LOOKUP_DREG, destination));
}

// Numbers in the kernel's own byte order are turned round for a comparison by size.
std::string CompareRange(uint32_t first, uint32_t last) {
    std::string turned = Expression("byteorder", AttributeNumber(NFTA_BYTEORDER_SREG, FIRST) +
                                                     AttributeNumber(NFTA_BYTEORDER_DREG, FIRST) +
                                                     AttributeNumber(NFTA_BYTEORDER_OP, NFT_BYTEORDER_HTON) +
                                                     AttributeNumber(NFTA_BYTEORDER_LEN, sizeof first) +
                                                     AttributeNumber(NFTA_BYTEORDER_SIZE, sizeof first));
    return turned + Compare(NFT_CMP_GTE, BytesOf(htonl(first))) + Compare(NFT_CMP_LTE, BytesOf(htonl(last)));
}

std::string Address(PacketEnd end) {
    return Payload(NFT_PAYLOAD_NETWORK_HEADER, end == PacketEnd::SOURCE ? SOURCE_OFFSET : DESTINATION_OFFSET,
                   sizeof(Ipv4));
}

std::string DestinationPort(uint32_t destination = FIRST) {
    return Payload(NFT_PAYLOAD_TRANSPORT_HEADER, PORT_OFFSET, sizeof(uint16_t), destination);
}

std::string Named(uint32_t key, const char *name) {
    char text[IFNAMSIZ] = {};
    strncpy(text, name, sizeof text - 1);
    return Meta(key) + Compare(NFT_CMP_EQ, BytesOf(text));
}

std::string AnyFlowBit(uint32_t key, uint32_t bits) {
    uint32_t none = 0;
    return Expression("ct", AttributeNumber(NFTA_CT_DREG, FIRST) + AttributeNumber(NFTA_CT_KEY, key)) +
           MaskWith(BytesOf(bits)) + Compare(NFT_CMP_NEQ, BytesOf(none));
}

std::string Verdict(int code, const std::string &further = "") {
    return Expression(
        "immediate",
        AttributeNumber(NFTA_IMMEDIATE_DREG, NFT_REG_VERDICT) +
            AttributeNest(
                NFTA_IMMEDIATE_DATA,
                AttributeNest(NFTA_DATA_VERDICT,
                              AttributeNumber(NFTA_VERDICT_CODE, static_cast<uint32_t>(code)) + further)));
}

// To the address in the first register, and with it the port in the second.
std::string Dnat(bool withPort) {
    constexpr uint32_t RANGE_MAP_IPS = 1;
    constexpr uint32_t RANGE_PROTO_SPECIFIED = 2;
    std::string attributes = AttributeNumber(NFTA_NAT_TYPE, NFT_NAT_DNAT) +
                             AttributeNumber(NFTA_NAT_FAMILY, NFPROTO_IPV4) +
                             AttributeNumber(NFTA_NAT_REG_ADDR_MIN, FIRST);
    if (withPort) {
        attributes += AttributeNumber(NFTA_NAT_REG_PROTO_MIN, SECOND);
    }
    return Expression(
        "nat",
        attributes + AttributeNumber(NFTA_NAT_FLAGS, RANGE_MAP_IPS | (withPort ? RANGE_PROTO_SPECIFIED : 0)));
}

}  // namespace

Statement InGroup(uint32_t group, Match match) {
    return Meta(NFT_META_IIFGROUP) + CompareFor(match, BytesOf(group));
}

Statement OutGroup(uint32_t group) {
    return Meta(NFT_META_OIFGROUP) + Compare(NFT_CMP_EQ, BytesOf(group));
}

Statement InGroupFromTo(uint32_t first, uint32_t last) {
    return Meta(NFT_META_IIFGROUP) + CompareRange(first, last);
}

Statement OutGroupFromTo(uint32_t first, uint32_t last) {
    return Meta(NFT_META_OIFGROUP) + CompareRange(first, last);
}

Statement InNamed(const char *name) {
    return Named(NFT_META_IIFNAME, name);
}

Statement OutNamed(const char *name) {
    return Named(NFT_META_OIFNAME, name);
}

Statement InIndexIsIn(const char *set) {
    return Meta(NFT_META_IIF) + InSet(set, Match::IS);
}

Statement InAndOutIndexesAreNotIn(const char *set) {
    return Meta(NFT_META_IIF) + Meta(NFT_META_OIF, SECOND) + InSet(set, Match::IS_NOT);
}

Statement IsIpv4(Match match) {
    uint8_t family = NFPROTO_IPV4;
    return Meta(NFT_META_NFPROTO) + CompareFor(match, BytesOf(family));
}

Statement AddressInSubnet(PacketEnd end, const Ipv4Subnet &subnet, Match match) {
    return Address(end) + MaskWith(BytesOf(htonl(Ipv4_Mask(subnet.prefix)))) +
           CompareFor(match, BytesOf(htonl(subnet.first())));
}

Statement AddressInSet(PacketEnd end, const char *set, Match match) {
    return Address(end) + InSet(set, match);
}

Statement AddressIsLocal(PacketEnd end) {
    uint32_t local = RTN_LOCAL;
    return Expression("fib",
                      AttributeNumber(NFTA_FIB_DREG, FIRST) +
                          AttributeNumber(NFTA_FIB_FLAGS,
                                          end == PacketEnd::SOURCE ? NFTA_FIB_F_SADDR : NFTA_FIB_F_DADDR) +
                          AttributeNumber(NFTA_FIB_RESULT, NFT_FIB_RESULT_ADDRTYPE)) +
           Compare(NFT_CMP_EQ, BytesOf(local));
}

Statement SenderIsElsewhere() {
    uint32_t noInterface = 0;
    return Expression("fib", AttributeNumber(NFTA_FIB_DREG, FIRST) +
                                 AttributeNumber(NFTA_FIB_FLAGS, NFTA_FIB_F_SADDR | NFTA_FIB_F_IIF) +
                                 AttributeNumber(NFTA_FIB_RESULT, NFT_FIB_RESULT_OIF)) +
           Compare(NFT_CMP_EQ, BytesOf(noInterface));
}

Statement VerdictByAddress(PacketEnd end, const char *map) {
    return Address(end) + ByMap(map, NFT_REG_VERDICT);
}

Statement IsProtocol(uint8_t protocol) {
    return Meta(NFT_META_L4PROTO) + Compare(NFT_CMP_EQ, BytesOf(protocol));
}

Statement IsForTcpPort(uint16_t port) {
    return IsProtocol(IPPROTO_TCP) + DestinationPort() + Compare(NFT_CMP_EQ, BytesOf(htons(port)));
}

Statement IsForUdpPort(uint16_t port) {
    return IsProtocol(IPPROTO_UDP) + DestinationPort() + Compare(NFT_CMP_EQ, BytesOf(htons(port)));
}

Statement IsFromUdpPort(uint16_t port) {
    return IsProtocol(IPPROTO_UDP) + Payload(NFT_PAYLOAD_TRANSPORT_HEADER, 0, sizeof port) +
           Compare(NFT_CMP_EQ, BytesOf(htons(port)));
}

Statement IsIcmpv6Type(uint8_t type) {
    return IsProtocol(IPPROTO_ICMPV6) + Payload(NFT_PAYLOAD_TRANSPORT_HEADER, 0, sizeof type) +
           Compare(NFT_CMP_EQ, BytesOf(type));
}

Statement IsForEndpointIn(const char *set) {
    return Address(PacketEnd::DESTINATION) + Meta(NFT_META_L4PROTO, SECOND) + DestinationPort(THIRD) +
           InSet(set, Match::IS);
}

Statement SenderMac(const uint8_t (&mask)[6], const uint8_t (&value)[6], Match match) {
    uint16_t ethernet = ARPHRD_ETHER;
    return Meta(NFT_META_IIFTYPE) + Compare(NFT_CMP_EQ, BytesOf(ethernet)) +
           Payload(NFT_PAYLOAD_LL_HEADER, offsetof(ethhdr, h_source), ETH_ALEN) + MaskWith(BytesOf(mask)) +
           CompareFor(match, BytesOf(value));
}

Statement FlowState(uint32_t bits) {
    return AnyFlowBit(NFT_CT_STATE, bits);
}

Statement FlowStatus(uint32_t bits) {
    return AnyFlowBit(NFT_CT_STATUS, bits);
}

Statement Accept() {
    return Verdict(NF_ACCEPT);
}

Statement Drop() {
    return Verdict(NF_DROP);
}

Statement Jump(const std::string &chain) {
    return Verdict(NFT_JUMP, AttributeText(NFTA_VERDICT_CHAIN, chain));
}

Statement DnatToAddressOf(const char *map) {
    return Meta(NFT_META_L4PROTO) + DestinationPort(SECOND) + ByMap(map) + Dnat(false);
}

Statement DnatToEndpointOf(const char *map) {
    return Meta(NFT_META_L4PROTO) + DestinationPort(SECOND) + ByMap(map) + Dnat(true);
}

Statement Masquerade() {
    return Expression("masq", "");
}

Statement ClearServiceType() {
    constexpr uint8_t FIRST_BYTE[2] = {0xff, 0};
    return Payload(NFT_PAYLOAD_NETWORK_HEADER, 0, sizeof FIRST_BYTE) + MaskWith(BytesOf(FIRST_BYTE)) +
           WriteServiceType();
}

Statement Untracked() {
    return Expression("notrack", "");
}

Statement UseObject(uint32_t type, const std::string &name) {
    return Expression(
        "objref", AttributeNumber(NFTA_OBJREF_IMM_TYPE, type) + AttributeText(NFTA_OBJREF_IMM_NAME, name));
}

Statement SenderHasNoMoreFlowsThan(uint32_t count, const char *set) {
    std::string limit = AttributeText(NFTA_EXPR_NAME, "connlimit") +
                        AttributeNest(NFTA_EXPR_DATA, AttributeNumber(NFTA_CONNLIMIT_COUNT, count));
    return Address(PacketEnd::SOURCE) +
           Expression("dynset", AttributeText(NFTA_DYNSET_SET_NAME, set) +
                                    AttributeNumber(NFTA_DYNSET_OP, NFT_DYNSET_OP_ADD) +
                                    AttributeNumber(NFTA_DYNSET_SREG_KEY, FIRST) +
                                    AttributeNest(NFTA_DYNSET_EXPR, limit));
}
