#include "daemons/zelan-dhcpd/dhcpTokens.h"

#include <strings.h>

#include <algorithm>
#include <cctype>

namespace {

constexpr std::string_view BLANKS = " \t\r\n\f\v";
constexpr std::string_view MARKS = ";{}(),=";
constexpr std::string_view ENDS_OF_WORDS = " \t\r\n\f\v;{}(),=\"#";

// The character that an escape other than a number stands for.
char Unescaped(char letter) {
    switch (letter) {
        case 'n':
            return '\n';
        case 't':
            return '\t';
        case 'r':
            return '\r';
        case 'b':
            return '\b';
        default:
            return letter;
    }
}

// Takes up to `most` digits of a base of 8 or 16 from the front.
char TakeByte(std::string_view *text, unsigned base, size_t most) {
    unsigned value = 0;
    size_t taken = 0;
    for (; taken < std::min(most, text->size()); taken++) {
        int letter = static_cast<unsigned char>((*text)[taken]);
        if (isxdigit(letter) == 0) {
            break;
        }
        auto digit = static_cast<unsigned>(isdigit(letter) != 0 ? letter - '0' : tolower(letter) - 'a' + 10);
        if (digit >= base) {
            break;
        }
        value = value * base + digit;
    }
    text->remove_prefix(taken);
    return static_cast<char>(value);
}

}  // namespace

bool DhcpToken::IsWord(std::string_view keyword) const {
    return kind == DhcpTokenKind::WORD && text.size() == keyword.size() &&
           strncasecmp(text.data(), keyword.data(), keyword.size()) == 0;
}

char DhcpTokens::Take() {
    char first = rest_.front();
    rest_.remove_prefix(1);
    line_ += first == '\n' ? 1 : 0;
    return first;
}

void DhcpTokens::SkipBlanksAndComments() {
    bool inComment = false;
    while (!rest_.empty() &&
           (inComment || rest_.front() == '#' || BLANKS.find(rest_.front()) != std::string_view::npos)) {
        char first = Take();
        inComment = first != '\n' && (inComment || first == '#');
    }
}

DhcpToken DhcpTokens::TakeText() {
    DhcpToken token = {DhcpTokenKind::TEXT, "", line_};
    Take();
    while (!rest_.empty() && rest_.front() != '"') {
        char first = Take();
        if (first != '\\' || rest_.empty()) {
            token.text += first;
        } else if (rest_.front() >= '0' && rest_.front() <= '7') {
            token.text += TakeByte(&rest_, 8, 3);
        } else if (rest_.front() == 'x') {
            Take();
            token.text += TakeByte(&rest_, 16, 2);
        } else {
            token.text += Unescaped(Take());
        }
    }
    if (rest_.empty()) {
        return {DhcpTokenKind::FAULT, "the text in quotation marks that begins here does not end",
                token.line};
    }
    Take();
    return token;
}

DhcpToken DhcpTokens::Next() {
    SkipBlanksAndComments();
    if (rest_.empty()) {
        return {DhcpTokenKind::END, "", line_};
    }
    if (rest_.front() == '"') {
        return TakeText();
    }
    if (MARKS.find(rest_.front()) != std::string_view::npos) {
        return {DhcpTokenKind::MARK, std::string(1, Take()), line_};
    }
    size_t length = std::min(rest_.find_first_of(ENDS_OF_WORDS), rest_.size());
    DhcpToken token = {DhcpTokenKind::WORD, std::string(rest_.substr(0, length)), line_};
    rest_.remove_prefix(length);
    return token;
}
