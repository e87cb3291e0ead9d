// For tests whose outcome could depend on which program serves DHCP: the fixture once with each.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "tests/support/netns.h"

// The parameter is the server that is left in place. A test whose server is not installed is skipped.
template <typename Fixture>
class WithDhcpServer : public Fixture, public testing::WithParamInterface<const char *> {
  public:
    // For INSTANTIATE_TEST_SUITE_P.
    static auto Both() { return testing::Values("dnsmasq", "dhcpd"); }
    static std::string NameOf(const testing::TestParamInfo<const char *> &server) { return server.param; }

  protected:
    void SetUp() override {
        if (access(Path(GetParam()).c_str(), X_OK) != 0) {
            GTEST_SKIP() << GetParam() << " is not installed";
        }
        const std::string other = Path(std::string(GetParam()) == "dhcpd" ? "dnsmasq" : "dhcpd");
        Must("[ ! -e " + other + " ] || mount --bind /dev/null " + other);
        Fixture::SetUp();
    }

    // Whether the parameter's program serves the network.
    static bool ItServes(const std::string &network) {
        return ReadFileText("/proc/" + std::to_string(Fixture::Pid("zelan-dhcpd-" + network)) + "/comm") ==
               std::string(GetParam()) + "\n";
    }

  private:
    static std::string Path(const std::string &server) { return "/usr/sbin/" + server; }
};
