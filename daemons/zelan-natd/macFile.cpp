#include "daemons/zelan-natd/macFile.h"

#include <sys/random.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <string>

#include "daemons/common/complain.h"
#include "daemons/common/file.h"

namespace {

constexpr uint8_t GROUP_BIT = 1;
constexpr uint8_t LOCAL_BIT = 2;
constexpr int HEX = 16;

std::string Line(const MacAddress &mac) {
    char text[sizeof "00:00:00:00:00:00\n"];
    snprintf(text, sizeof text, "%02X:%02X:%02X:%02X:%02X:%02X\n", mac[0], mac[1], mac[2], mac[3], mac[4],
             mac[5]);
    return text;
}

MacAddress RandomAddress() {
    MacAddress mac = {};
    while (getrandom(mac.data(), mac.size(), 0) < 0 && errno == EINTR) {
    }
    mac[0] = static_cast<uint8_t>((mac[0] & ~GROUP_BIT) | LOCAL_BIT);
    return mac;
}

}  // namespace

bool MacFile_Parse(std::string_view text, MacAddress *mac) {
    constexpr size_t DIGITS = 2;
    constexpr size_t STEP = DIGITS + 1;
    text = text.substr(0, text.find('\n'));
    MacAddress value = {};
    if (text.size() != value.size() * STEP - 1) {
        return false;
    }
    for (size_t i = 0; i < value.size(); i++) {
        const char *digits = text.data() + i * STEP;
        auto [stop, error] = std::from_chars(digits, digits + DIGITS, value[i], HEX);
        if (error != std::errc() || stop != digits + DIGITS || (i > 0 && digits[-1] != ':')) {
            return false;
        }
    }
    if ((value[0] & GROUP_BIT) != 0 || value == MacAddress()) {
        return false;
    }
    *mac = value;
    return true;
}

MacAddress MacFile_Obtain(const char *path) {
    std::string text;
    MacAddress mac = {};
    if (File_Read(path, &text) && MacFile_Parse(text, &mac)) {
        return mac;
    }
    mac = RandomAddress();
    if (!File_Replace(path, Line(mac))) {
        Complain("cannot keep the gateway's MAC address in %s: %s", path, strerror(errno));
    }
    return mac;
}
