// nat.conf as the NAT daemon reads it: refused with a reason, or taken with values in their ranges.
#include <cstdlib>

#include "daemons/zelan-natd/natConf.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    NatConf conf;
    NatConfFault fault;
    if (!NatConf_Parse({reinterpret_cast<const char *>(data), size}, &conf, &fault)) {
        if (fault.reason.empty()) {
            abort();
        }
        return 0;
    }
    if (conf.gateway == 0 || conf.prefix < 0 || conf.prefix > 32 || conf.network > 255) {
        abort();
    }
    for (const PortForward &forward : conf.forwards) {
        if (forward.hostPort == 0 || forward.guestPort == 0) {
            abort();
        }
    }
    return 0;
}
