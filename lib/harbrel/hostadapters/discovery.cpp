#include "lib/harbrel/hostadapters/discovery.h"

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <strings.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>

#include "lib/err/errText.h"
#include "lib/misc/owners.h"

namespace {

constexpr size_t BUFFER_STEP = 1000;  // bytes: the first buffer, and what each growth adds to the last result
constexpr char OWN_ADAPTER_PREFIX[] = "zelan";

struct LinkDumpRequest {
    nlmsghdr header;
    rtgenmsg body;
    uint8_t padding[15];
};
static_assert(sizeof(LinkDumpRequest) == 32);

bool SendLinkDumpRequest(FunctionLog log, int netlinkSocket) {
    LinkDumpRequest request{};
    request.header.nlmsg_len = sizeof request;
    request.header.nlmsg_type = RTM_GETLINK;
    request.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_ROOT | NLM_F_MATCH;
    request.header.nlmsg_seq = HBL_LINK_DUMP_SEQUENCE;
    request.body.rtgen_family = AF_UNSPEC;
    sockaddr_nl kernel{};
    kernel.nl_family = AF_NETLINK;
    if (sendto(netlinkSocket, &request, sizeof request, 0, reinterpret_cast<const sockaddr *>(&kernel),
               sizeof kernel) == -1) {
        log(LOG_ERR, "Failure in sending request message on netlink socket: %s", Err_LastErrnoText());
        return false;
    }
    return true;
}

bool GrowBuffer(FunctionLog log, MallocBlock<void> *buffer, size_t size) {
    void *const grown = realloc(buffer->get(), size);
    if (grown == nullptr) {
        log(LOG_ERR, "Memory reallocation failure for Host adapters");
        return false;
    }
    static_cast<void>(buffer->release());
    buffer->reset(grown);
    return true;
}

}  // namespace

bool HBLPeekLinkDump(FunctionLog log, int socket, MallocBlock<void> *datagram, size_t *length) {
    size_t size = BUFFER_STEP;
    datagram->reset(malloc(size));
    if (*datagram == nullptr) {
        log(LOG_ERR, "Memory allocation failure for Host adapters");
        return false;
    }
    for (;;) {
        log(LOG_INFO2, "Reading %zu bytes from netlink socket", size);
        const ssize_t received = recv(socket, datagram->get(), size, MSG_PEEK);
        if (received == -1) {
            log(LOG_ERR, "Failed while reading data from netlink socket:  %s", Err_LastErrnoText());
            return false;
        }
        *length = static_cast<size_t>(received);
        log(LOG_INFO, "%zu bytes read from netlink socket", *length);
        if (*length == 0) {
            log(LOG_INFO2, "No data to read from netlink socket");
            return true;
        }
        if (*length < size) {
            log(LOG_INFO2, "Finished reading from netlink socket");
            return true;
        }
        log(LOG_INFO2, "Increasing buffer size to read");
        size = *length + BUFFER_STEP;
        if (!GrowBuffer(log, datagram, size)) {
            return false;
        }
    }
}

bool HBLCreateHostAdapList(HostAdapterChain *list) {
    const FunctionLog log(__func__);
    const auto processId = static_cast<uint32_t>(getpid());
    const FileDescriptor netlinkSocket(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE));
    if (!netlinkSocket) {
        log(LOG_ERR, "Failure in creating netlink socket, error: %s", Err_LastErrnoText());
        return false;
    }
    MallocBlock<void> buffer;
    size_t length = 0;
    if (!SendLinkDumpRequest(log, netlinkSocket.get()) ||
        !HBLPeekLinkDump(log, netlinkSocket.get(), &buffer, &length)) {
        return false;
    }
    HBLParseLinkDump(log, buffer.get(), length, processId, list);
    return true;
}

bool HBLIsOwnAdapterName(const char *name) {
    return strncasecmp(name, OWN_ADAPTER_PREFIX, sizeof OWN_ADAPTER_PREFIX - 1) == 0;
}
