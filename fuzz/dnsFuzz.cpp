// A guest's bytes at the gateway's DNS port: as one datagram, and as a stream of messages. What is passed on
// is one plain question; what is answered gets an answer to itself that is no question.
#include <cstdlib>

#include "daemons/zelan-natd/dnsMessage.h"

static void Require(bool condition) {
    if (!condition) {
        abort();
    }
}

static void Judge(const std::string &message) {
    DnsVerdict verdict = DnsMessage_Judge(message);
    if (verdict == DnsVerdict::IGNORE) {
        return;
    }
    if (verdict == DnsVerdict::PASS_ON) {
        Require((static_cast<unsigned char>(message[2]) & 0xf8) == 0 && message[4] == 0 && message[5] == 1);
        verdict = DnsVerdict::SERVER_FAILURE;
    }
    std::string answer = DnsMessage_Answer(message, verdict);
    Require(answer.size() <= message.size() && DnsMessage_IsAnswerTo(answer, message) &&
            DnsMessage_Judge(answer) == DnsVerdict::IGNORE);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    std::string bytes(reinterpret_cast<const char *>(data), size);
    Judge(bytes);
    while (bytes.size() >= DNS_LENGTH_SIZE && bytes.size() >= DnsMessage_SizeOnStream(bytes)) {
        size_t end = DnsMessage_SizeOnStream(bytes);
        Judge(bytes.substr(DNS_LENGTH_SIZE, end - DNS_LENGTH_SIZE));
        bytes.erase(0, end);
    }
    return 0;
}
