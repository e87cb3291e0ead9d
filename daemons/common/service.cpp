#include "daemons/common/service.h"

#include <iterator>
#include <string_view>

#include "daemons/common/options.h"
#include "daemons/common/switch.h"

namespace {

// By the values of Service.
constexpr std::string_view NAMES[] = {"bridge", "netifup", "dhcp", "nat", "detect"};

}  // namespace

std::string Duty_Text(const Duty &duty) {
    std::string text(NAMES[static_cast<size_t>(duty.service)]);
    return duty.network < 0 ? text : text + "-" + std::to_string(duty.network);
}

bool Duty_Parse(std::string_view text, Duty *duty) {
    size_t dash = text.find('-');
    std::string_view name = text.substr(0, dash);
    duty->network = -1;
    if (dash != std::string_view::npos &&
        !Options_Number(text.substr(dash + 1), SWITCH_MAX_NETWORK, &duty->network)) {
        return false;
    }
    for (size_t i = 0; i < std::size(NAMES); i++) {
        if (NAMES[i] == name) {
            duty->service = static_cast<Service>(i);
            return true;
        }
    }
    return false;
}
