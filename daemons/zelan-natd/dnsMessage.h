// Messages of DNS, as far as the gateway looks at them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

// What becomes of a message of a guest. The numbers are the result codes of the protocol.
enum class DnsVerdict : uint8_t {
    PASS_ON = 0,
    FORMAT_ERROR = 1,
    SERVER_FAILURE = 2,
    NOT_IMPLEMENTED = 4,
    REFUSED = 5,
    IGNORE = 255,  // no question at all: to answer it could make two servers talk for ever
};

// The name servers take the host for the asker, which may be allowed more than a guest should be: passed on
// is a plain query with one question, no update, notification or transfer of a zone.
DnsVerdict DnsMessage_Judge(std::string_view message);

// The answer to a message of a guest that carries a verdict and no records.
std::string DnsMessage_Answer(std::string_view question, DnsVerdict verdict);

// Over TCP a message travels with its length before it. How many bytes the one at the front is known to have,
// its length included: those of the length as long as they are not all there.
size_t DnsMessage_SizeOnStream(std::string_view bytes);
inline constexpr size_t DNS_LENGTH_SIZE = 2;

// Whether a message is the answer to a question, by its flag and its number.
bool DnsMessage_IsAnswerTo(std::string_view message, std::string_view question);
