// The rule for early AMD family 15 processors, whose locked read-modify-write operations do not keep later
// loads behind them: there an lfence follows each of them. Heeded by every atomic operation of the
// foundation.
#pragma once

#include <atomic>
#include <type_traits>

// Set when the fence is needed. Meaningful once atomicFenceInitialized says that the test has run; clear
// before.
extern std::atomic<bool> AtomicUseFence;
extern std::atomic<bool> atomicFenceInitialized;

// Runs the test if it has not run yet. Safe from any thread.
void AtomicFence_Init();

// What the test concludes from the vendor text and register EAX of CPUID leaf 1.
bool AtomicFence_NeededBy(const char *vendor, unsigned signature);

// Belongs behind each locked read-modify-write.
inline void AtomicFence_AfterReadModifyWrite() {
#if defined(__x86_64__) || defined(__i386__)
    if (AtomicUseFence.load(std::memory_order_relaxed)) {
        __builtin_ia32_lfence();
    }
#endif
}

// Compare-and-swap and exchange of a std::atomic or std::atomic_ref, with what belongs behind them. *expected
// receives what stood there instead when the swap fails.
template <typename Atomic, typename Value>
bool AtomicFence_CompareExchange(Atomic &target, Value *expected, std::type_identity_t<Value> desired) {
    const bool swapped = target.compare_exchange_strong(*expected, desired);
    AtomicFence_AfterReadModifyWrite();
    return swapped;
}

template <typename Atomic, typename Value>
Value AtomicFence_Exchange(Atomic &target, Value value) {
    const Value old = target.exchange(value);
    AtomicFence_AfterReadModifyWrite();
    return old;
}
