#include "lib/misc/atomicFence.h"

#include <cstring>

#if defined(__x86_64__) || defined(__i386__)
#include <cpuid.h>
#endif

constinit std::atomic<bool> AtomicUseFence{false};
constinit std::atomic<bool> atomicFenceInitialized{false};

namespace {

constexpr unsigned AFFECTED_FAMILY = 15;
constexpr unsigned FIRST_SOUND_MODEL = 64;

#if defined(__x86_64__) || defined(__i386__)
bool ThisProcessorNeedsFence() {
    unsigned highestLeaf = 0;
    unsigned vendorWords[3] = {};
    unsigned unused = 0;
    __cpuid(0, highestLeaf, vendorWords[0], vendorWords[2], vendorWords[1]);
    if (highestLeaf == 0) {
        return false;
    }
    char vendor[sizeof vendorWords + 1] = {};
    memcpy(vendor, vendorWords, sizeof vendorWords);
    unsigned signature = 0;
    unsigned registerB = 0;
    unsigned registerC = 0;
    __cpuid(1, signature, registerB, registerC, unused);
    return AtomicFence_NeededBy(vendor, signature);
}
#else
bool ThisProcessorNeedsFence() {
    return false;
}
#endif

constexpr unsigned Bits(unsigned value, unsigned first, unsigned count) {
    return (value >> first) & ((1u << count) - 1);
}

}  // namespace

bool AtomicFence_NeededBy(const char *vendor, unsigned signature) {
    if (strcmp(vendor, "AuthenticAMD") != 0) {
        return false;
    }
    const unsigned baseFamily = Bits(signature, 8, 4);
    const unsigned family = baseFamily + (baseFamily == 15 ? Bits(signature, 20, 8) : 0);
    const unsigned model = Bits(signature, 4, 4) + (Bits(signature, 16, 4) << 4);
    return family == AFFECTED_FAMILY && model < FIRST_SOUND_MODEL;
}

void AtomicFence_Init() {
    if (atomicFenceInitialized.load(std::memory_order_acquire)) {
        return;
    }
    AtomicUseFence.store(ThisProcessorNeedsFence(), std::memory_order_relaxed);
    atomicFenceInitialized.store(true, std::memory_order_release);
}
