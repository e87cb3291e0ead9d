// The answer to a link dump. Handed on in a buffer of its own size, so that a read beyond it shows.
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "lib/harbrel/base/hostAdapterChain.h"
#include "lib/harbrel/hostadapters/discovery.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::vector<uint8_t> datagram(data, data + size);
    uint32_t count = 0;
    HBL_HostAdapter *head = nullptr;
    HBLParseLinkDump(datagram.data(), datagram.size(), 1, &count, &head);
    for (const HBL_HostAdapter *adapter = head; adapter != nullptr; adapter = adapter->next) {
        count--;
    }
    if (count != 0) {
        abort();
    }
    HBLFreeHostAdapList(&head);
    return 0;
}
