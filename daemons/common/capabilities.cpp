#include "daemons/common/capabilities.h"

#include <linux/capability.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cstdint>

namespace {

uint64_t MaskOf(std::span<const int> capabilities) {
    uint64_t mask = 0;
    for (int capability : capabilities) {
        mask |= uint64_t{1} << capability;
    }
    return mask;
}

}  // namespace

bool Capabilities_Keep(std::span<const int> kept) {
    uint64_t mask = MaskOf(kept);
    __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
    std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3> sets = {};
    if (syscall(SYS_capget, &header, sets.data()) != 0) {
        return false;
    }
    for (size_t word = 0; word < sets.size(); word++) {
        sets[word].permitted &= static_cast<uint32_t>(mask >> (32 * word));
        sets[word].effective = sets[word].permitted;
        sets[word].inheritable = 0;
    }
    return syscall(SYS_capset, &header, sets.data()) == 0;
}

bool Capabilities_KeepForGood(std::span<const int> kept) {
    uint64_t mask = MaskOf(kept);
    for (int capability = 0; prctl(PR_CAPBSET_READ, capability) >= 0; capability++) {
        if ((mask >> capability & 1) == 0 && prctl(PR_CAPBSET_DROP, capability) != 0) {
            return false;
        }
    }
    // Kernels without ambient capabilities have none to clear.
    prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_CLEAR_ALL, 0, 0, 0);
    return Capabilities_Keep(kept);
}
