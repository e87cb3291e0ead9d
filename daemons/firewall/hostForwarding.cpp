#include "daemons/firewall/hostForwarding.h"

#include <net/if.h>

#include <algorithm>
#include <climits>
#include <string_view>

#include "daemons/common/file.h"
#include "daemons/common/options.h"
#include "daemons/common/text.h"
#include "daemons/firewall/hostFiles.h"

namespace {

// Lines of index and name; the latter is for people, since an adapter may be given another one.
constexpr const char *NOTES_FILE = "forwarding";

std::string SwitchOf(const std::string &name) {
    return "/proc/sys/net/ipv4/conf/" + name + "/forwarding";
}

}  // namespace

std::vector<int> HostForwarding_Noted() {
    std::string text = HostFiles_Read(NOTES_FILE);
    std::string_view rest = text;
    std::string_view line;
    std::string_view index;
    std::vector<int> links;
    int link = 0;
    while (Text_TakeLine(&rest, &line)) {
        if (Text_TakeWord(&line, &index) && Options_Number(index, INT_MAX, &link)) {
            links.push_back(link);
        }
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
    std::vector<int> noted = HostForwarding_Noted();
    return std::find(noted.begin(), noted.end(), link) != noted.end() ||
           HostFiles_Write(NOTES_FILE, HostFiles_Read(NOTES_FILE) + std::to_string(link) + " " + name + "\n");
}

void HostForwarding_TakeBack() {
    if (!HostForwarding_IsOnForAll()) {
        for (int link : HostForwarding_Noted()) {
            char name[IF_NAMESIZE];
            if (if_indextoname(static_cast<unsigned>(link), name) != nullptr) {
                File_Write(SwitchOf(name).c_str(), "0");
            }
        }
    }
    HostForwarding_Forget();
}

void HostForwarding_Forget() {
    HostFiles_Remove(NOTES_FILE);
}
