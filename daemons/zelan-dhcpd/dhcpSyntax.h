// The statements of a text in the language of ISC dhcpd, whatever they mean.
#pragma once

#include <string_view>
#include <vector>

#include "daemons/zelan-dhcpd/dhcpTokens.h"

// Words up to a semicolon, or words and a block of statements in braces.
struct DhcpStatement {
    std::vector<DhcpToken> words;  // at least one
    bool hasBody = false;
    std::vector<DhcpStatement> body;

    int line() const { return words.front().line; }
    bool Is(std::string_view keyword) const { return words.front().IsWord(keyword); }
    // The words as one text for people, cut to a length that a log line can hold.
    std::string Text() const;
};

struct DhcpFault {
    int line = 0;
    std::string reason;
};

// Reads the whole text. False, with the fault, when braces, semicolons or quotation marks do not fit
// together.
bool DhcpSyntax_Parse(std::string_view text, std::vector<DhcpStatement> *statements, DhcpFault *fault);
