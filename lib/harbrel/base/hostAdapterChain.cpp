#include "lib/harbrel/base/hostAdapterChain.h"

#include <cstddef>
#include <cstdlib>
#include <type_traits>

// Callers of the library read these records by offset.
static_assert(sizeof(HBL_NetworkID) == 28);
static_assert(std::is_standard_layout_v<HBL_HostAdapter>);
static_assert(offsetof(HBL_HostAdapter, next) == 4);
static_assert(offsetof(HBL_HostAdapter, net) == 4 + sizeof(void *));
static_assert(offsetof(HBL_HostAdapter, status) == 32 + sizeof(void *));
static_assert(offsetof(HBL_HostAdapter, displayName) == 36 + sizeof(void *));
static_assert(offsetof(HBL_HostAdapter, driverName) == 164 + sizeof(void *));
static_assert(offsetof(HBL_HostAdapter, deviceName) == 292 + sizeof(void *));
static_assert(sizeof(HBL_HostAdapter) == 420 + sizeof(void *));

void HBLFreeHostAdapList(HBL_HostAdapter **head) {
    while (*head != nullptr) {
        HBL_HostAdapter *const next = (*head)->next;
        free(*head);
        *head = next;
    }
}
