// The words of a text in the language of ISC dhcpd, which its configuration and its lease file share.
#pragma once

#include <string>
#include <string_view>

enum class DhcpTokenKind {
    WORD,   // a run of other characters: keywords, names, numbers, addresses, hexadecimal bytes
    TEXT,   // what stood in quotation marks, its escapes resolved; any bytes
    MARK,   // one of ; { } ( ) , =
    END,    // of the whole text
    FAULT,  // the text says why
};

struct DhcpToken {
    DhcpTokenKind kind = DhcpTokenKind::END;
    std::string text;
    int line = 0;  // counted from 1

    bool IsMark(char mark) const { return kind == DhcpTokenKind::MARK && text[0] == mark; }
    // Whether it is this keyword, whose case does not count.
    bool IsWord(std::string_view keyword) const;
};

class DhcpTokens {
  public:
    // The text must outlive the object.
    explicit DhcpTokens(std::string_view text) : rest_(text) {}

    DhcpToken Next();

  private:
    void SkipBlanksAndComments();
    char Take();
    DhcpToken TakeText();

    std::string_view rest_;
    int line_ = 1;
};
