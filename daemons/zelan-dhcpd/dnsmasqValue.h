// Values in dnsmasq's words, so that it takes them for nothing else.
#pragma once

#include <cstdint>
#include <string>

// The bytes of an option as dnsmasq wants that option's value: addresses, a text or names where it knows the
// option as one with such a value, else bytes. False when it would send other bytes than these.
bool DnsmasqValue_OfOption(uint8_t code, const std::string &bytes, std::string *text);

// Hexadecimal bytes between colons. One alone has no colon, and is a decimal number with a letter instead,
// which dnsmasq understands in options only.
std::string DnsmasqValue_OfBytes(const std::string &bytes);

// Whether the text means itself between quotation marks.
bool DnsmasqValue_IsPlain(const std::string &text);
