#include "apps/zelan/posix/harbrelctl/model/text.h"

std::string Printable(std::string text) {
    constexpr unsigned char DELETE = 0x7f;
    for (char &character : text) {
        const auto byte = static_cast<unsigned char>(character);
        character = byte < ' ' || byte == DELETE ? '?' : character;
    }
    return text;
}
