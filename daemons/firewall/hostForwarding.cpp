#include "daemons/firewall/hostForwarding.h"

#include <net/if.h>

#include <climits>
#include <string_view>

#include "daemons/common/file.h"
#include "daemons/common/options.h"
#include "daemons/common/text.h"
#include "daemons/firewall/hostFiles.h"

namespace {

// Lines of index and name: an index tells whether the name still means the same adapter.
constexpr const char *NOTES_FILE = "forwarding";

struct Adapter {
    int link = 0;
    std::string name;
};

std::string SwitchOf(const std::string &name) {
    return "/proc/sys/net/ipv4/conf/" + name + "/forwarding";
}

std::vector<Adapter> ReadNotes() {
    std::string text = HostFiles_Read(NOTES_FILE);
    std::string_view rest = text;
    std::string_view line;
    std::vector<Adapter> adapters;
    while (Text_TakeLine(&rest, &line)) {
        std::string_view index;
        std::string_view name;
        Adapter adapter;
        if (Text_TakeWord(&line, &index) && Options_Number(index, INT_MAX, &adapter.link) &&
            Text_TakeWord(&line, &name)) {
            adapter.name = name;
            adapters.push_back(adapter);
        }
    }
    return adapters;
}

}  // namespace

std::vector<int> HostForwarding_Noted() {
    std::vector<int> links;
    for (const Adapter &adapter : ReadNotes()) {
        links.push_back(adapter.link);
    }
    return links;
}

bool HostForwarding_IsOn(const std::string &name) {
    std::string text;
    return File_Read(SwitchOf(name).c_str(), &text) && text.starts_with('1');
}

bool HostForwarding_IsOnForAll() {
    return HostForwarding_IsOn("all");
}

bool HostForwarding_TurnOn(const std::string &name) {
    return File_Write(SwitchOf(name).c_str(), "1");
}

bool HostForwarding_Note(int link, const std::string &name) {
    return HostFiles_Write(NOTES_FILE, HostFiles_Read(NOTES_FILE) + std::to_string(link) + " " + name + "\n");
}

void HostForwarding_TakeBack() {
    if (!HostForwarding_IsOnForAll()) {
        for (const Adapter &adapter : ReadNotes()) {
            char name[IF_NAMESIZE];
            if (if_indextoname(static_cast<unsigned>(adapter.link), name) != nullptr &&
                adapter.name == name) {
                File_Write(SwitchOf(name).c_str(), "0");
            }
        }
    }
    HostForwarding_Forget();
}

void HostForwarding_Forget() {
    HostFiles_Remove(NOTES_FILE);
}
