#include "daemons/common/capabilities.h"

#include <linux/capability.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <functional>

namespace {

uint64_t MaskOf(std::span<const int> capabilities) {
    uint64_t mask = 0;
    for (int capability : capabilities) {
        mask |= uint64_t{1} << capability;
    }
    return mask;
}

constexpr size_t WORD_BITS = 32;

// Changes each word of the sets. False with errno.
bool Change(const std::function<void(size_t, __user_cap_data_struct *)> &change) {
    __user_cap_header_struct header = {};
    header.version = _LINUX_CAPABILITY_VERSION_3;
    std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3> sets = {};
    if (syscall(SYS_capget, &header, sets.data()) != 0) {
        return false;
    }
    for (size_t word = 0; word < sets.size(); word++) {
        change(word, &sets[word]);
    }
    return syscall(SYS_capset, &header, sets.data()) == 0;
}

}  // namespace

bool Capabilities_Keep(std::span<const int> kept) {
    return Change([mask = MaskOf(kept)](size_t word, __user_cap_data_struct *set) {
        set->permitted &= static_cast<uint32_t>(mask >> (WORD_BITS * word));
        set->effective = set->permitted;
        set->inheritable = 0;
    });
}

bool Capabilities_RaiseEffective() {
    return Change([](size_t, __user_cap_data_struct *set) { set->effective = set->permitted; });
}

bool Capabilities_Inherit(int capability) {
    return Change([](size_t, __user_cap_data_struct *set) { set->inheritable = set->permitted; }) &&
           prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_RAISE, capability, 0, 0) == 0;
}

bool Capabilities_KeepForGood(std::span<const int> kept) {
    uint64_t mask = MaskOf(kept);
    int refusal = 0;
    for (int capability = 0; prctl(PR_CAPBSET_READ, capability) >= 0; capability++) {
        if ((mask >> capability & 1) == 0 && prctl(PR_CAPBSET_DROP, capability) != 0) {
            refusal = errno;
        }
    }
    // Kernels without ambient capabilities have none to clear.
    prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_CLEAR_ALL, 0, 0, 0);
    // What a starter without CAP_SETPCAP leaves in the bounding set is no reason to keep it in use.
    if (!Capabilities_Keep(kept)) {
        return false;
    }
    errno = refusal;
    return refusal == 0;
}
