// The DHCP options that a configuration can name, and the bytes that its values stand for.
#pragma once

#include <cstdint>
#include <map>
#include <span>
#include <string>

#include "daemons/zelan-dhcpd/dhcpTokens.h"

using DhcpWords = std::span<const DhcpToken>;

// What the reader makes of a piece of configuration.
enum class DhcpVerdict {
    SOUND,
    FAULTY,  // no server would take it
    BEYOND,  // perhaps sound, but not among what is known here
};

// `format` has one letter for each value of one element:
//   I address   L S B unsigned and l s b signed number of 32, 16 and 8 bits   f truth value
//   t text   X text or hexadecimal bytes   D domain names for a search list
// and A at its end when there may be several elements between commas.
struct DhcpOption {
    uint8_t code = 0;
    const char *format = "";
};

// Those of a configuration: the standard ones and its own definitions.
class DhcpOptions {
  public:
    // Takes a definition "NAME code N = TYPE", the words behind "option".
    DhcpVerdict Define(DhcpWords words);

    // Finds "NAME" or "unknown-N"; null for an unknown name.
    const DhcpOption *Find(const std::string &name);

  private:
    std::map<std::string, DhcpOption> own_;
};

// The bytes of an option on the wire for the words behind its name. BEYOND also for one that is empty or
// longer than the 255 bytes of a single option.
DhcpVerdict DhcpOption_Encode(const DhcpOption &option, DhcpWords values, std::string *bytes);

// Converts a number as ISC dhcpd reads one: decimal, octal behind 0, hexadecimal behind 0x, a sign before it.
bool Dhcp_Number(const DhcpToken &token, int64_t minimum, int64_t maximum, int64_t *number);

// Converts "true", "on", "false" and "off".
bool Dhcp_Truth(const DhcpToken &token, bool *value);

// Converts hexadecimal bytes between colons.
bool Dhcp_HexBytes(const std::string &text, std::string *bytes);

// And back, each with two digits in lower case.
std::string Dhcp_HexText(const std::string &bytes);
