// DNS at the gateway: guests' questions reach the host's name servers, and nothing else of theirs does.
#include <netinet/in.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <thread>
#include <vector>

#include "tests/system/natNetwork.h"

namespace {

// A query with one question for a name of one label.
std::string Query(const std::string &name, uint8_t type = 1) {
    std::string message = {'\x12', '\x34', '\1', '\0', '\0', '\1', '\0', '\0', '\0', '\0', '\0', '\0'};
    return message + static_cast<char>(name.size()) + name +
           std::string({'\0', '\0', static_cast<char>(type), '\0', '\1'});
}

std::string WithLength(const std::string &message) {
    return std::string({static_cast<char>(message.size() >> 8), static_cast<char>(message.size())}) + message;
}

// Answers with its mark behind the question, but never for the name "silence".
class NameServer {
  public:
    NameServer(const Machine *machine, const std::string &address, const std::string &mark)
        : udp_(machine, SOCK_DGRAM, {address, 53},
               [this, mark](const std::string &request, auto &) { return Answer(request, mark); }),
          tcp_(machine, SOCK_STREAM, {address, 53}, [this, mark](const std::string &request, auto &) {
              return WithLength(Answer(request.substr(2), mark));
          }) {}

    int asked() const { return asked_; }

  private:
    std::string Answer(const std::string &request, const std::string &mark) {
        asked_++;
        const bool silent = request.find("silence") != std::string::npos;
        return silent ? "" : request.substr(0, 2) + "\x81" + request.substr(3) + mark;
    }

    std::atomic<int> asked_ = 0;
    Responder udp_;
    Responder tcp_;
};

class NatDns : public NatNetwork {
  protected:
    void UseNameServer(const std::string &address) {
        WriteFileText("/etc/resolv.conf", "search example\nnameserver " + address + "\n");
    }

    // What comes back by UDP, and by TCP without the length there.
    static std::array<std::string, 2> Ask(const Machine &guest, const std::string &message) {
        const std::string byTcp = Exchange(&guest, SOCK_STREAM, {GATEWAY, 53}, WithLength(message));
        return {Exchange(&guest, SOCK_DGRAM, {GATEWAY, 53}, message),
                byTcp.substr(std::min<size_t>(2, byTcp.size()))};
    }
};

TEST_F(NatDns, GuestsQuestionsGoToTheHostsNameServers) {
    UseNameServer("127.0.0.53");
    NameServer host(nullptr, "127.0.0.53", "host");
    NameServer outside(&outside_, OUTSIDE, "outside");
    Start(Configuration());
    const std::pair<std::string, const char *> cases[] = {
        {"127.0.0.53", "host"},
        {OUTSIDE, "outside"},
        {std::string("203.0.113.77\nnameserver ") + OUTSIDE, "outside"}};
    for (const auto &[servers, answeredBy] : cases) {
        UseNameServer(servers);
        for (const std::string &answer : Ask(*guest_, Query("name"))) {
            EXPECT_TRUE(answer.ends_with(answeredBy)) << servers << ": " << answer;
        }
    }
    UseNameServer("127.0.0.9");
    for (const std::string &refusal : Ask(*guest_, Query("name"))) {
        EXPECT_EQ(2, refusal.at(3) & 0x0f) << "no server failure";
    }
}

// The name server may allow the host, from which all comes, to change and to copy zones.
TEST_F(NatDns, NothingButQueriesReachesTheNameServer) {
    UseNameServer("127.0.0.53");
    NameServer server(nullptr, "127.0.0.53", "host");
    Start(Configuration());
    std::string update = Query("zone", 6);
    update[2] = '\x28';
    for (const auto &[message, result] :
         {std::pair(update, 4), {Query("zone", 252), 5}, {update.substr(0, 15), 4}}) {
        for (const std::string &answer : Ask(*guest_, message)) {
            EXPECT_EQ(result, answer.at(3) & 0x0f);
        }
    }
    EXPECT_EQ(0, server.asked());
    // Two messages on one connection, the second one of them hidden behind a query.
    const std::string pair = WithLength(Query("name")) + WithLength(update);
    EXPECT_NE(std::string::npos, Exchange(guest_.get(), SOCK_STREAM, {GATEWAY, 53}, pair).find("host"));
    EXPECT_EQ(1, server.asked());
}

// Under its own address as well as under those of all others, the other guest's included, and with any type
// of service.
TEST_F(NatDns, OneGuestCannotKeepAnotherFromAsking) {
    UseNameServer("127.0.0.53");
    NameServer server(nullptr, "127.0.0.53", "host");
    Start(Configuration());
    Machine other("zelan-g2");
    other.ConnectToBridge("zelan-sw8", "eth0", "192.168.10.51/24");
    guest_->Run(
        "sysctl -q net.ipv4.conf.eth0.arp_ignore=1; ip address add 192.168.10.51/32 dev lo;"
        " seq -f 'address add 192.168.10.%g/24 dev eth0' 60 254 | ip -batch -");
    ASSERT_TRUE(WaitUntil(BothGuestsAreKnown));
    std::vector<FileDescriptor> held;
    std::vector<FileDescriptor> floods;
    for (int n = 51; n < 255; n += n == 51 ? 9 : 1) {
        const std::string address = "192.168.10." + std::to_string(n);
        floods.push_back(SocketUnder(guest_.get(), SOCK_DGRAM, {address, 0}));
        EXPECT_EQ(0, setsockopt(floods.back().get(), IPPROTO_IP, IP_TOS, &n, sizeof n));
        if (n > 51 && held.size() < 100) {
            held.push_back(SocketUnder(guest_.get(), SOCK_STREAM, {address, 0}));
            Connect(held.back(), {GATEWAY, 53});
        }
    }
    std::atomic<bool> enough = false;
    std::thread flooder([&] {
        const std::string question = Query("silence");
        for (size_t sent = 0; !enough; sent++) {
            SendTo(floods[sent % 2 == 0 ? 0 : sent % floods.size()], {GATEWAY, 53}, question);
            (void)!send(held[sent % held.size()].get(), "\0", 1, MSG_NOSIGNAL);
            std::this_thread::sleep_for(std::chrono::microseconds(50));
        }
    });
    EXPECT_TRUE(WaitUntil([&server] { return server.asked() >= 32; })) << "no flood";
    // Another guest may have as many under way as this one.
    WaitUntil([&server] { return server.asked() >= 64; }, SHORT);
    for (int i = 0; i < 10; i++) {
        for (const std::string &answer : Ask(other, Query("name"))) {
            EXPECT_TRUE(answer.ends_with("host")) << i;
        }
    }
    enough = true;
    flooder.join();
}

}  // namespace
