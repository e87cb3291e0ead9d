#include <linux/ethtool.h>
#include <linux/if.h>
#include <linux/if_arp.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <linux/sockios.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>

#include "lib/err/errText.h"
#include "lib/harbrel/hostadapters/discovery.h"
#include "lib/misc/netInterface.h"
#include "lib/misc/owners.h"
#include "lib/string/str.h"

namespace {

constexpr uint32_t ADAPTER_RUNNING = 1;
constexpr uint32_t ADAPTER_NOT_RUNNING = 2;

// What is left of a datagram or a message. Nothing in it is aligned for sure, so headers are copied out.
struct Bytes {
    const char *data;
    size_t size;

    template <typename Header>
    bool ReadHeader(Header *header) const {
        if (size < sizeof *header) {
            return false;
        }
        memcpy(header, data, sizeof *header);
        return true;
    }
    Bytes From(size_t offset) const {
        const size_t skipped = std::min(offset, size);
        return {data + skipped, size - skipped};
    }
    Bytes First(size_t length) const { return {data, length}; }
};

void CopyDriverName(FunctionLog log, const ethtool_drvinfo &info, HBL_HostAdapter *adapter) {
    static_assert(sizeof info.driver < sizeof adapter->driverName);
    memcpy(adapter->driverName, info.driver, strnlen(info.driver, sizeof info.driver));
    log(LOG_INFO2, "Obtained driver name: %s for adapter: %s", adapter->driverName, adapter->displayName);
}

// A driver that does not answer leaves the name empty.
void QueryDriverName(FunctionLog log, HBL_HostAdapter *adapter) {
    ethtool_drvinfo info{};
    static_assert(sizeof info == 196);
    info.cmd = ETHTOOL_GDRVINFO;
    ifreq request{};
    Str_Strcpy(request.ifr_name, adapter->displayName, sizeof request.ifr_name);
    request.ifr_data = reinterpret_cast<char *>(&info);
    const FileDescriptor querySocket(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!querySocket) {
        log(LOG_ERR, "Error opening socket for querying driver name for adapter: %s, error: %s",
            adapter->displayName, Err_LastErrnoText());
        return;
    }
    if (NetInterface_Ioctl(querySocket.get(), SIOCETHTOOL, &request) == -1) {
        log(LOG_ERR, "Ioctl on socket for querying driver name for adapter: %s failed, error: %s",
            adapter->displayName, Err_LastErrnoText());
        return;
    }
    CopyDriverName(log, info, adapter);
}

// The last interface name among the attributes; empty when there is none.
std::string FindAdapterName(FunctionLog log, Bytes attributes) {
    std::string name;
    rtattr attribute;
    while (attributes.ReadHeader(&attribute) && attribute.rta_len >= sizeof attribute &&
           attribute.rta_len <= attributes.size) {
        if (attribute.rta_type == IFLA_IFNAME) {
            const char *const text = attributes.data + sizeof attribute;
            name.assign(text, strnlen(text, attribute.rta_len - sizeof attribute));
            log(LOG_INFO2, "Found name of adapter: %s", name.c_str());
        } else {
            log(LOG_INFO2, "Ignoring Attribute: %u", static_cast<unsigned>(attribute.rta_type));
        }
        attributes = attributes.From(RTA_ALIGN(static_cast<size_t>(attribute.rta_len)));
    }
    return name;
}

// Null when the adapter has to be skipped.
HBL_HostAdapter *MakeRecord(FunctionLog log, const std::string &name, bool running) {
    MallocBlock<HBL_HostAdapter> record(static_cast<HBL_HostAdapter *>(calloc(1, sizeof(HBL_HostAdapter))));
    if (record == nullptr) {
        log(LOG_ERR, "Memory allocation error");
        return nullptr;
    }
    record->version = 1;
    record->status = running ? ADAPTER_RUNNING : ADAPTER_NOT_RUNNING;
    if (name.size() >= IFNAMSIZ) {
        log(LOG_ERR, "Interface name %s is longer than allowed %u characters", name.c_str(),
            static_cast<unsigned>(IFNAMSIZ));
        return nullptr;
    }
    Str_Strcpy(record->displayName, name.c_str(), sizeof record->displayName);
    QueryDriverName(log, record.get());
    Str_Strcpy(record->deviceName, name.c_str(), sizeof record->deviceName);
    return record.release();
}

void ParseLinkMessage(FunctionLog log, const ifinfomsg &link, Bytes attributes, HostAdapterChain *list) {
    const bool running = (link.ifi_flags & IFF_RUNNING) != 0;
    log(LOG_INFO2, "Adapter: ifi_family: %u, ifi_type: %u, ifi_index: %u, ifi_flags: %s, ifi_change: %x",
        static_cast<unsigned>(link.ifi_family), static_cast<unsigned>(link.ifi_type),
        static_cast<unsigned>(link.ifi_index), running ? "running" : "not running", link.ifi_change);
    if (link.ifi_type != ARPHRD_ETHER) {
        log(LOG_INFO2, "Skipping non-ethernet interface: ifi_type: %u", static_cast<unsigned>(link.ifi_type));
        return;
    }
    const std::string name = FindAdapterName(log, attributes);
    if (name.empty()) {
        log(LOG_ERR, "Skipping adapter without name");
        return;
    }
    if (HBL_HostAdapter *const record = MakeRecord(log, name, running)) {
        list->Append(record);
    }
}

bool IsForThisRequest(FunctionLog log, const nlmsghdr &header, uint32_t processId) {
    if (header.nlmsg_pid == processId || header.nlmsg_seq == HBL_LINK_DUMP_SEQUENCE) {
        return true;
    }
    log(LOG_INFO2, "PID or Seq does not match: Req-pid = %u, Resp-pid = %u, Req-seq = %u, Resp-seq = %u",
        processId, header.nlmsg_pid, HBL_LINK_DUMP_SEQUENCE, header.nlmsg_seq);
    return false;
}

// False when the walk ends at this message.
bool ParseMessage(FunctionLog log, const nlmsghdr &header, Bytes body, uint32_t processId,
                  HostAdapterChain *list) {
    if (!IsForThisRequest(log, header, processId)) {
        return true;
    }
    if (header.nlmsg_type == NLMSG_ERROR) {
        return false;
    }
    if (header.nlmsg_type == NLMSG_DONE) {
        log(LOG_INFO, "Processed all adapters");
        return false;
    }
    ifinfomsg link;
    if (!body.ReadHeader(&link)) {
        return false;
    }
    ParseLinkMessage(log, link, body.From(sizeof link), list);
    return true;
}

}  // namespace

void HBLParseLinkDump(FunctionLog log, const void *datagram, size_t length, uint32_t processId,
                      HostAdapterChain *list) {
    Bytes left{static_cast<const char *>(datagram), length};
    nlmsghdr header;
    while (left.ReadHeader(&header) && header.nlmsg_len >= sizeof header && header.nlmsg_len <= left.size) {
        const Bytes body = left.First(header.nlmsg_len).From(sizeof header);
        if (!ParseMessage(log, header, body, processId, list)) {
            break;
        }
        left = left.From(NLMSG_ALIGN(static_cast<size_t>(header.nlmsg_len)));
    }
}
