#include "daemons/firewall/flowObjects.h"

#include <arpa/inet.h>
#include <linux/netfilter.h>
#include <linux/netfilter/nf_tables.h>
#include <linux/netfilter/nfnetlink_cttimeout.h>
#include <netinet/in.h>

#include <algorithm>

#include "daemons/firewall/attributes.h"

namespace {

// The longest that a kernel with a thousand ticks a second can count.
constexpr uint32_t LONGEST_TIMEOUT = 2147483;
// A guest that sends where nobody answers must not fill the host's memory with flows.
constexpr uint32_t UNANSWERED_TIMEOUT = 30;
constexpr uint16_t FTP_PORT = 21;

uint32_t Seconds(uint32_t configured) {
    return configured == 0 ? LONGEST_TIMEOUT : std::min(configured, LONGEST_TIMEOUT);
}

}  // namespace

std::string FlowObjects_TimeoutChain(uint32_t seconds) {
    return "udp-" + std::to_string(Seconds(seconds));
}

void FlowObjects_AddTimeout(NftTransaction *transaction, uint32_t seconds) {
    std::string name = FlowObjects_TimeoutChain(seconds);
    uint16_t family = NFPROTO_IPV4;
    uint8_t protocol = IPPROTO_UDP;
    std::string policy =
        AttributeNumber(CTA_TIMEOUT_UDP_UNREPLIED, std::min(Seconds(seconds), UNANSWERED_TIMEOUT)) +
        AttributeNumber(CTA_TIMEOUT_UDP_REPLIED, Seconds(seconds));
    transaction->AddObject(NFT_OBJECT_CT_TIMEOUT, name,
                           Attribute(NFTA_CT_TIMEOUT_L3PROTO, BytesOf(htons(family))) +
                               Attribute(NFTA_CT_TIMEOUT_L4PROTO, BytesOf(protocol)) +
                               AttributeNest(NFTA_CT_TIMEOUT_DATA, policy));
    transaction->AddChain({.name = name.c_str()});
    transaction->AddRule(name, {IsProtocol(IPPROTO_UDP), UseObject(NFT_OBJECT_CT_TIMEOUT, name)});
}

void FlowObjects_AddFtp(NftTransaction *transaction) {
    uint16_t family = NFPROTO_IPV4;
    uint8_t protocol = IPPROTO_TCP;
    transaction->AddObject(NFT_OBJECT_CT_HELPER, FTP_CHAIN,
                           AttributeText(NFTA_CT_HELPER_NAME, "ftp") +
                               Attribute(NFTA_CT_HELPER_L3PROTO, BytesOf(htons(family))) +
                               Attribute(NFTA_CT_HELPER_L4PROTO, BytesOf(protocol)));
    transaction->AddChain({.name = FTP_CHAIN});
    transaction->AddRule(FTP_CHAIN, {IsForTcpPort(FTP_PORT), UseObject(NFT_OBJECT_CT_HELPER, FTP_CHAIN)});
}
