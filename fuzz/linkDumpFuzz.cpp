// The answer to a link dump. Handed on in a buffer of its own size, so that a read beyond it shows.
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "lib/harbrel/base/hostAdapterChain.h"
#include "lib/harbrel/hostadapters/discovery.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::vector<uint8_t> datagram(data, data + size);
    HostAdapterChain chain;
    HBLParseLinkDump("fuzz", datagram.data(), datagram.size(), 1, &chain);
    uint32_t count = 0;
    for (const HBL_HostAdapter *adapter = chain.First(); adapter != nullptr; adapter = adapter->next) {
        count++;
    }
    if (count != chain.Count()) {
        abort();
    }
    return 0;
}
