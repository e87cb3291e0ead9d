#include "daemons/common/address.h"

#include <arpa/inet.h>

#include <cerrno>

namespace {

constexpr uint8_t WHOLE_ADDRESS = 32;

rtmsg RouteHeader(int prefix) {
    rtmsg header = {};
    header.rtm_family = AF_INET;
    header.rtm_dst_len = static_cast<uint8_t>(prefix);
    return header;
}

}  // namespace

int Address_Add(RtSocket *socket, int link, Ipv4 address, int prefix) {
    Ipv4Subnet subnet = {address, prefix};
    ifaddrmsg header = {};
    header.ifa_family = AF_INET;
    header.ifa_prefixlen = static_cast<uint8_t>(prefix);
    header.ifa_index = static_cast<unsigned>(link);
    RtRequest request(RTM_NEWADDR, NLM_F_CREATE | NLM_F_EXCL, &header, sizeof header);
    request.Put32(IFA_LOCAL, htonl(address));
    request.Put32(IFA_BROADCAST, htonl(subnet.last()));
    return socket->Do(&request);
}

int Address_LinkOfNew(const nlmsghdr *message) {
    return message->nlmsg_type == RTM_NEWADDR
               ? static_cast<int>(static_cast<const ifaddrmsg *>(NLMSG_DATA(message))->ifa_index)
               : 0;
}

int Address_ForEach(RtSocket *socket, const std::function<void(int)> &visit) {
    ifaddrmsg header = {};
    header.ifa_family = AF_INET;
    RtRequest request(RTM_GETADDR, NLM_F_DUMP, &header, sizeof header);
    return socket->Ask(&request, [&visit](const nlmsghdr *message) {
        int link = Address_LinkOfNew(message);
        if (link != 0) {
            visit(link);
        }
    });
}

int Route_AddDefault(RtSocket *socket, Ipv4 gateway) {
    rtmsg header = RouteHeader(0);
    header.rtm_table = RT_TABLE_MAIN;
    header.rtm_protocol = RTPROT_STATIC;
    header.rtm_scope = RT_SCOPE_UNIVERSE;
    header.rtm_type = RTN_UNICAST;
    RtRequest request(RTM_NEWROUTE, NLM_F_CREATE | NLM_F_EXCL, &header, sizeof header);
    request.Put32(RTA_GATEWAY, htonl(gateway));
    return socket->Do(&request);
}

bool Route_IsUnknown(RtSocket *socket, Ipv4 address) {
    rtmsg header = RouteHeader(WHOLE_ADDRESS);
    header.rtm_flags = RTM_F_FIB_MATCH;
    RtRequest request(RTM_GETROUTE, 0, &header, sizeof header);
    request.Put32(RTA_DST, htonl(address));
    int matched = -1;
    int error = socket->Ask(&request, [&matched](const nlmsghdr *message) {
        matched = static_cast<const rtmsg *>(NLMSG_DATA(message))->rtm_dst_len;
    });
    return error == ENETUNREACH || (error == 0 && matched == 0);
}
