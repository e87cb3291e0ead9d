#include "apps/zelan/posix/harbrelctl/output/eventText.h"

#include <nlohmann/json.hpp>

#include "apps/zelan/posix/harbrelctl/output/networks.h"

std::string EventText(const Event &event, time_t moment) {
    return LocalTime(moment) + "  " + (event.network == NO_NETWORK ? "host" : NetworkName(event.network)) +
           "  " + event.kind + "  " + event.text + "\n";
}

std::string EventJson(const Event &event, time_t moment) {
    using Json = nlohmann::ordered_json;
    const Json object = {{"time", UtcTime(moment)},
                         {"event", event.kind},
                         {"network", event.network == NO_NETWORK ? Json() : Json(NetworkName(event.network))},
                         {"subject", event.subject},
                         {"text", event.text}};
    return object.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
}
