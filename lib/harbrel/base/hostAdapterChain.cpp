#include "lib/harbrel/base/hostAdapterChain.h"

#include <cstdlib>

void HBLFreeHostAdapList(HBL_HostAdapter **head) {
    while (*head != nullptr) {
        HBL_HostAdapter *const next = (*head)->next;
        free(*head);
        *head = next;
    }
}
