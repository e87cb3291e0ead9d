#include "lib/harbrel/cache/keptTexts.h"

#include <functional>
#include <mutex>
#include <set>
#include <string>

namespace {

struct KeptTexts {
    std::mutex guard;
    std::set<std::string, std::less<>> texts;
};

KeptTexts kept;

}  // namespace

const char *NetCfgKeepText(std::string_view text) {
    const std::lock_guard hold(kept.guard);
    auto place = kept.texts.find(text);
    if (place == kept.texts.end()) {
        place = kept.texts.emplace(text).first;
    }
    return place->c_str();
}

void NetCfgForgetTexts() {
    const std::lock_guard hold(kept.guard);
    kept.texts.clear();
}
