// dhcpd.conf as the DHCP daemon reads it: refused with a line and a reason, or told to dnsmasq in lines that
// no text of the configuration can begin or end.
#include <cctype>
#include <cstdlib>

#include "daemons/zelan-dhcpd/dnsmasqConf.h"
#include "daemons/zelan-dhcpd/leases.h"
#include "daemons/zelan-dhcpd/serverAddress.h"

namespace {

void Require(bool condition) {
    if (!condition) {
        abort();
    }
}

void ReadAsLeases(std::string_view text) {
    for (LeaseFormat format : {LeaseFormat::DNSMASQ, LeaseFormat::ISC}) {
        std::vector<DhcpLease> leases = Leases_Read(format, text, 0);
        std::string written = Leases_Write(LeaseFormat::ISC, leases, 1);
        Require(Leases_Read(LeaseFormat::ISC, written, 0).size() == leases.size());
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    std::string_view text(reinterpret_cast<const char *>(data), size);
    std::vector<DhcpStatement> statements;
    DhcpFault fault;
    ReadAsLeases(text);
    if (!DhcpSyntax_Parse(text, &statements, &fault)) {
        Require(fault.line > 0 && !fault.reason.empty());
        return 0;
    }
    ServerAddress chosen;
    const char *reason = nullptr;
    Require(ServerAddress_Choose(statements, &chosen, &reason) || reason != nullptr);
    DhcpMeaning meaning;
    std::string conf;
    DhcpProblem problem = DhcpMeaning_Read(statements, &meaning);
    if (problem.verdict == DhcpVerdict::SOUND) {
        problem = DnsmasqConf_Write(meaning, "zelan8", &conf);
    }
    if (problem.verdict != DhcpVerdict::SOUND) {
        Require(problem.line > 0 && !problem.text.empty());
        return 0;
    }
    for (char letter : conf) {
        Require(letter == '\n' || isprint(static_cast<unsigned char>(letter)) != 0);
    }
    return 0;
}
