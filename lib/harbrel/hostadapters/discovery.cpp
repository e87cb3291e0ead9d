#include "lib/harbrel/hostadapters/discovery.h"

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <strings.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>

#include "lib/err/errText.h"
#include "lib/harbrel/base/hblLog.h"
#include "lib/misc/owners.h"

namespace {

constexpr char FUNCTION[] = "HBLCreateHostAdapList";
constexpr size_t BUFFER_STEP = 1000;  // bytes: the first buffer, and what each growth adds to the last result
constexpr char OWN_ADAPTER_PREFIX[] = "zelan";

struct LinkDumpRequest {
    nlmsghdr header;
    rtgenmsg body;
    uint8_t padding[15];
};
static_assert(sizeof(LinkDumpRequest) == 32);

bool SendLinkDumpRequest(int netlinkSocket) {
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
        HBLLog(LOG_ERR, FUNCTION, "Failure in sending request message on netlink socket: %s",
               Err_LastErrnoText());
        return false;
    }
    return true;
}

bool GrowBuffer(MallocBlock<void> *buffer, size_t size) {
    void *const grown = realloc(buffer->get(), size);
    if (grown == nullptr) {
        HBLLog(LOG_ERR, FUNCTION, "Memory reallocation failure for Host adapters");
        return false;
    }
    static_cast<void>(buffer->release());
    buffer->reset(grown);
    return true;
}

// Reads the first datagram whole without taking it off the queue. *length is 0 when there was no data.
bool PeekDatagram(int netlinkSocket, MallocBlock<void> *buffer, size_t *length) {
    size_t size = BUFFER_STEP;
    buffer->reset(malloc(size));
    if (*buffer == nullptr) {
        HBLLog(LOG_ERR, FUNCTION, "Memory allocation failure for Host adapters");
        return false;
    }
    for (;;) {
        HBLLog(LOG_INFO2, FUNCTION, "Reading %zu bytes from netlink socket", size);
        const ssize_t received = recv(netlinkSocket, buffer->get(), size, MSG_PEEK);
        if (received == -1) {
            HBLLog(LOG_ERR, FUNCTION, "Failed while reading data from netlink socket:  %s",
                   Err_LastErrnoText());
            return false;
        }
        *length = static_cast<size_t>(received);
        HBLLog(LOG_INFO, FUNCTION, "%zu bytes read from netlink socket", *length);
        if (*length == 0) {
            HBLLog(LOG_INFO2, FUNCTION, "No data to read from netlink socket");
            return true;
        }
        if (*length < size) {
            HBLLog(LOG_INFO2, FUNCTION, "Finished reading from netlink socket");
            return true;
        }
        HBLLog(LOG_INFO2, FUNCTION, "Increasing buffer size to read");
        size = *length + BUFFER_STEP;
        if (!GrowBuffer(buffer, size)) {
            return false;
        }
    }
}

}  // namespace

bool HBLCreateHostAdapList(uint32_t *count, HBL_HostAdapter **head) {
    const auto processId = static_cast<uint32_t>(getpid());
    const FileDescriptor netlinkSocket(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE));
    if (!netlinkSocket) {
        HBLLog(LOG_ERR, FUNCTION, "Failure in creating netlink socket, error: %s", Err_LastErrnoText());
        return false;
    }
    MallocBlock<void> buffer;
    size_t length = 0;
    if (!SendLinkDumpRequest(netlinkSocket.get()) || !PeekDatagram(netlinkSocket.get(), &buffer, &length)) {
        return false;
    }
    HBLParseLinkDump(buffer.get(), length, processId, count, head);
    return true;
}

bool HBLIsOwnAdapterName(const char *name) {
    return strncasecmp(name, OWN_ADAPTER_PREFIX, sizeof OWN_ADAPTER_PREFIX - 1) == 0;
}
