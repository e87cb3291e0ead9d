#include "bench/benchRecords.h"

#include <cstdio>
#include <cstdlib>

#include "lib/misc/owners.h"

namespace {

constexpr unsigned NETWORKS = 256;
constexpr unsigned FORWARDS = 230;  // of a network in the large database
constexpr unsigned MAPPINGS = 155;
constexpr unsigned ANSWERS = 5;
constexpr unsigned BRIDGE_MAPPINGS = LARGE_RECORDS - NETWORKS * (FORWARDS + MAPPINGS + ANSWERS);

template <typename... Values>
void AddLine(std::string *text, const char *format, Values... values) {
    char line[256];
    snprintf(line, sizeof line, format, values...);
    text->append(line);
}

void AddForward(std::string *text, unsigned network, unsigned number) {
    AddLine(text, "add_nat_portfwd %u %s %u 172.16.%u.%u %u service %u\n", network,
            number % 2 != 0 ? "udp" : "tcp", 1024 + number, network, 3 + number % 200, 80 + number, number);
}

void AddMapping(std::string *text, unsigned network, unsigned number) {
    AddLine(text, "add_dhcp_mac_to_ip %u 02:00:00:%02X:%02X:%02X 172.16.%u.%u\n", network, network,
            number / 256, number % 256, network, 3 + number % 250);
}

void AddAnswers(std::string *text, unsigned network) {
    AddLine(text, "answer VNET_%u_HOSTONLY_SUBNET 172.16.%u.0\n", network, network);
    AddLine(text, "answer VNET_%u_HOSTONLY_NETMASK 255.255.255.0\n", network);
    for (const char *feature : {"DHCP", "NAT", "VIRTUAL_ADAPTER"}) {
        AddLine(text, "answer VNET_%u_%s yes\n", network, feature);
    }
}

}  // namespace

std::string LargeDatabase() {
    std::string text;
    for (unsigned network = 0; network < NETWORKS; network++) {
        AddAnswers(&text, network);
        for (unsigned number = 0; number < FORWARDS; number++) {
            AddForward(&text, network, number);
        }
        for (unsigned number = 0; number < MAPPINGS; number++) {
            AddMapping(&text, network, number);
        }
    }
    for (unsigned number = 0; number < BRIDGE_MAPPINGS; number++) {
        AddLine(&text, "add_bridge_mapping eth%u %u\n", number, number % NETWORKS);
    }
    return text;
}

std::string NatNetwork(unsigned forwards, unsigned mappings) {
    std::string text;
    AddAnswers(&text, 8);
    for (unsigned number = 0; number < forwards; number++) {
        AddForward(&text, 8, number);
    }
    for (unsigned number = 0; number < mappings; number++) {
        AddMapping(&text, 8, number);
    }
    return text;
}

void WriteFile(const char *path, const std::string &text) {
    const FileStream stream(fopen(path, "we"));
    if (stream == nullptr || fwrite(text.data(), 1, text.size(), stream.get()) != text.size()) {
        perror(path);
        exit(EXIT_FAILURE);
    }
}

void InstallDatabase(const std::string &records) {
    WriteFile("/etc/orvane/config", "bindir = \"/usr/bin\"\n");
    WriteFile("/etc/orvane/networking", "VERSION=1,0\n" + records);
}
