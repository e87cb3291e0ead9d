#include "apps/zelan/posix/harbrelctl/output/findings.h"

#include <nlohmann/json.hpp>

#include "apps/zelan/posix/harbrelctl/model/text.h"

std::string FindingsText(const std::vector<Finding> &findings, size_t examined) {
    std::string text;
    for (const Finding &finding : findings) {
        text += (finding.network == NO_NETWORK ? "host" : NetworkName(finding.network)) + ": " +
                Printable(finding.evidence) + " [" + finding.code + "]\n";
        if (!finding.command.empty()) {
            text += "    " + finding.command + "\n";
        }
    }
    if (findings.empty()) {
        text = std::to_string(examined) + (examined == 1 ? " network is" : " networks are") + " well\n";
    }
    return text;
}

std::string FindingsJson(const std::vector<Finding> &findings, const std::vector<int> &examined) {
    using Json = nlohmann::ordered_json;
    Json list = Json::array();
    for (const Finding &finding : findings) {
        list.push_back(
            {{"network", finding.network == NO_NETWORK ? Json() : Json(NetworkName(finding.network))},
             {"code", finding.code},
             {"evidence", finding.evidence},
             {"command", finding.command.empty() ? Json() : Json(finding.command)}});
    }
    Json names = Json::array();
    for (const int network : examined) {
        names.push_back(NetworkName(network));
    }
    const Json document = {{"format", 1}, {"examined", names}, {"findings", list}};
    return document.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}
