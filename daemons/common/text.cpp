#include "daemons/common/text.h"

#include <algorithm>

namespace {

constexpr std::string_view BLANKS = " \t";

}  // namespace

bool Text_TakeLine(std::string_view *text, std::string_view *line) {
    if (text->empty()) {
        return false;
    }
    size_t length = std::min(text->find('\n'), text->size());
    *line = text->substr(0, length);
    text->remove_prefix(std::min(length + 1, text->size()));
    return true;
}

bool Text_TakeWord(std::string_view *text, std::string_view *word) {
    text->remove_prefix(std::min(text->find_first_not_of(BLANKS), text->size()));
    size_t length = std::min(text->find_first_of(BLANKS), text->size());
    *word = text->substr(0, length);
    text->remove_prefix(length);
    return length != 0;
}

std::string_view Text_Trim(std::string_view text) {
    text.remove_prefix(std::min(text.find_first_not_of(BLANKS), text.size()));
    text.remove_suffix(text.size() - (text.find_last_not_of(BLANKS) + 1));
    return text;
}
