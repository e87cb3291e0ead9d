// The parser of the kernel's link dump, over datagrams made byte by byte.
#include <gtest/gtest.h>
#include <linux/if_arp.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <cstring>
#include <numeric>
#include <string>
#include <vector>

#include "lib/harbrel/hostadapters/discovery.h"
#include "tests/support/logCapture.h"

namespace {

constexpr uint32_t PROCESS_ID = 4711;

std::string Padded(std::string bytes) {
    bytes.resize((bytes.size() + 3) / 4 * 4);
    return bytes;
}

template <typename Header>
std::string BytesOf(const Header &header) {
    return std::string(reinterpret_cast<const char *>(&header), sizeof header);
}

std::string Attribute(uint16_t type, const std::string &payload) {
    const rtattr header{static_cast<uint16_t>(sizeof(rtattr) + payload.size()), type};
    return Padded(BytesOf(header) + payload);
}

// With its terminator, as the kernel sends it.
std::string Name(const std::string &name) {
    return Attribute(IFLA_IFNAME, name + std::string(1, '\0'));
}

std::string Message(const std::string &body, uint16_t type = RTM_NEWLINK, uint32_t sequence = 1,
                    uint32_t process = PROCESS_ID) {
    const nlmsghdr header{static_cast<uint32_t>(sizeof(nlmsghdr) + body.size()), type, 0, sequence, process};
    return Padded(BytesOf(header) + body);
}

std::string LinkBody(const std::string &attributes, uint16_t hardware = ARPHRD_ETHER,
                     unsigned flags = IFF_UP | IFF_RUNNING) {
    ifinfomsg link{};
    link.ifi_type = hardware;
    link.ifi_index = 2;
    link.ifi_flags = flags;
    return BytesOf(link) + attributes;
}

std::string Link(const std::string &name) {
    return Message(LinkBody(Name(name)));
}

// A message whose header claims another length than it has.
std::string WithLength(std::string message, uint32_t length) {
    memcpy(message.data(), &length, sizeof length);
    return message;
}

// The adapters found, as "eth0:1 eth1:2" with the status behind each name.
std::string Parse(const std::string &datagram) {
    // A buffer of its own, one byte off, so that a sanitizer sees a read behind the end or an aligned one.
    std::vector<char> bytes(datagram.size() + 1);
    memcpy(bytes.data() + 1, datagram.data(), datagram.size());
    HostAdapterChain chain;
    HBLParseLinkDump("HBLCreateHostAdapList", bytes.data() + 1, datagram.size(), PROCESS_ID, &chain);
    std::string found;
    uint32_t walked = 0;
    for (const HBL_HostAdapter *adapter = chain.First(); adapter != nullptr; adapter = adapter->next) {
        EXPECT_EQ(1u, adapter->version);
        EXPECT_STREQ(adapter->displayName, adapter->deviceName);
        EXPECT_STREQ("", adapter->driverName);
        found.append(found.empty() ? "" : " ").append(adapter->deviceName);
        found.append(":").append(std::to_string(adapter->status));
        walked++;
    }
    EXPECT_EQ(walked, chain.Count());
    return found;
}

TEST(LinkDump, DatagramIsReadWholeAndStaysQueued) {
    const auto reading = [](int size, int read, const char *then) {
        return "Test - Reading " + std::to_string(size) + " bytes from netlink socket\nTest - " +
               std::to_string(read) + " bytes read from netlink socket\nTest - " + then + "\n";
    };
    const char *finished = "Finished reading from netlink socket";
    const char *growing = "Increasing buffer size to read";
    const std::pair<size_t, std::string> cases[] = {
        {0, reading(1000, 0, "No data to read from netlink socket")},
        {999, reading(1000, 999, finished)},
        {1000, reading(1000, 1000, growing) + reading(2000, 1000, finished)},
        {2500, reading(1000, 1000, growing) + reading(2000, 2000, growing) + reading(3000, 2500, finished)},
    };
    LogCapture log(HBL_MAX_LOG_MASK);
    for (const auto &[size, lines] : cases) {
        int ends[2];
        ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_DGRAM, 0, ends));
        const FileDescriptor kernel(ends[0]), reader(ends[1]);
        std::string sent(size, 'x');
        std::iota(sent.begin(), sent.end(), '\0');
        ASSERT_EQ(static_cast<ssize_t>(size), send(kernel.get(), sent.data(), size, 0));
        MallocBlock<void> datagram;
        size_t length = 77;
        EXPECT_TRUE(HBLPeekLinkDump("Test", reader.get(), &datagram, &length));
        EXPECT_EQ(sent, std::string(static_cast<const char *>(datagram.get()), length));
        EXPECT_EQ(lines, log.Take());
        EXPECT_EQ(static_cast<ssize_t>(size), recv(reader.get(), datagram.get(), length, 0))
            << "stays queued";
    }
}

TEST(LinkDump, ListsEthernetAdaptersInTheKernelsOrder) {
    const std::string loopback = Message(LinkBody(Name("lo"), ARPHRD_LOOPBACK));
    const std::string down = Message(LinkBody(Name("hbltest1"), ARPHRD_ETHER, IFF_UP));
    const std::string done = Message(std::string(4, '\0'), NLMSG_DONE);
    EXPECT_EQ("hbltest0:1 hbltest1:2 ZELAN8:1",
              Parse(loopback + Link("hbltest0") + down + Link("ZELAN8") + done + Link("hbltest2")));
    // The request's own sequence number or process is enough.
    const auto answer = [](const char *name, uint32_t sequence, uint32_t process) {
        return Message(LinkBody(Name(name)), RTM_NEWLINK, sequence, process);
    };
    EXPECT_EQ("hbltest0:1 hbltest1:1",
              Parse(answer("hbltest0", 2, PROCESS_ID) + answer("hbltest2", 2, 1) + answer("hbltest1", 1, 1)));
    EXPECT_EQ("", Parse(""));
}

TEST(LinkDump, EndsAtErrorAndAtMalformedMessageWithWhatWasFound) {
    const std::pair<const char *, std::string> cases[] = {
        {"error", Message(std::string(20, '\0'), NLMSG_ERROR)},
        {"length below a header", WithLength(Link("hbltest1"), 15)},
        {"length of zero", WithLength(Link("hbltest1"), 0)},
        {"length above what is left", WithLength(Link("hbltest1"), 4096)},
        {"no room for a link", Message(std::string(8, '\0'))},
    };
    for (const auto &[what, second] : cases) {
        EXPECT_EQ("hbltest0:1", Parse(Link("hbltest0") + second + Link("hbltest2"))) << what;
    }
    for (const size_t kept : {12, 36}) {  // within the header, and within the message
        EXPECT_EQ("hbltest0:1", Parse(Link("hbltest0") + Link("hbltest1").substr(0, kept))) << kept;
    }
}

TEST(LinkDump, TakesTheLastNameAndStopsAtABrokenAttribute) {
    const std::string zeroLength(4, '\0');
    std::string tooLong = Name("hbltest1");
    tooLong[0] = 120;
    const struct {
        const char *what;
        std::string attributes;
        const char *found;
    } cases[] = {
        {"other attributes around",
         Attribute(IFLA_MTU, "abcd") + Name("hbltest0") + Attribute(IFLA_QDISC, "x"), "hbltest0:1"},
        {"two names", Name("hbltest0") + Name("hbltest1"), "hbltest1:1"},
        {"no terminator", Attribute(IFLA_IFNAME, "hbltest0"), "hbltest0:1"},
        {"attribute of length zero before", zeroLength + Name("hbltest0"), ""},
        {"attribute of length zero behind", Name("hbltest0") + zeroLength, "hbltest0:1"},
        {"attribute longer than the message", Name("hbltest0") + tooLong, "hbltest0:1"},
        {"name without text", Attribute(IFLA_IFNAME, ""), ""},
        {"no attribute", "", ""},
    };
    LogCapture log;
    for (const auto &row : cases) {
        EXPECT_EQ(row.found, Parse(Message(LinkBody(row.attributes)))) << row.what;
        const bool skipped = log.Take() == "HBLCreateHostAdapList - Skipping adapter without name\n";
        EXPECT_EQ(*row.found == '\0', skipped) << row.what;
    }
}

TEST(LinkDump, DropsNameOf16CharactersAndKeepsAdapterWithoutDriverAnswer) {
    LogCapture log;
    EXPECT_EQ("hbl456789012345:1", Parse(Link("hbl4567890123456") + Link("hbl456789012345")));
    EXPECT_EQ(
        "HBLCreateHostAdapList - Interface name hbl4567890123456 is longer than allowed 16 characters\n"
        "HBLCreateHostAdapList - Ioctl on socket for querying driver name for adapter: hbl456789012345 "
        "failed, error: No such device\n",
        log.Take());
}

}  // namespace
