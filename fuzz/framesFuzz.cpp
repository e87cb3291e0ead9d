// What a network sends to the editor's probe of it, which any guest there can forge.
#include <cstdlib>

#include "apps/zelan/posix/harbrelctl/probes/frames.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    constexpr size_t NUMBER_SIZE = 4;
    if (size < NUMBER_SIZE) {
        return 0;
    }
    uint32_t number = 0;
    for (size_t i = 0; i < NUMBER_SIZE; i++) {
        number = number << 8U | data[i];
    }
    const Frame frame(data + NUMBER_SIZE, data + size);
    const auto question = static_cast<uint16_t>(number);
    (void)DhcpOffer(frame, number);
    (void)ArpReply(frame, number);
    if (DnsAnswer(frame, question).value_or(0) > 15 || (IsEchoReply(frame, question) && frame.size() < 42)) {
        abort();
    }
    return 0;
}
