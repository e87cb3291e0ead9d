#include "apps/zelan/posix/harbrelctl/output/graph.h"

#include <set>

namespace {

constexpr size_t MOST_GUESTS = 8;  // of one network that get a node each

std::string Quoted(const std::string &text) {
    std::string quoted = "\"";
    for (const char character : text) {
        quoted += character == '"' || character == '\\' ? "\\" : "";
        quoted += character;
    }
    return quoted + "\"";
}

std::string Node(const std::string &id, const std::string &label, const char *style) {
    return "  " + Quoted(id) + " [label=" + Quoted(label) + ", " + style + "];\n";
}

std::string Edge(const std::string &from, const std::string &to, const std::string &options = "") {
    return "  " + Quoted(from) + " -> " + Quoted(to) + (options.empty() ? "" : " [" + options + "]") + ";\n";
}

std::string NetworkLabel(const Host &host, int network) {
    const std::optional<Subnet> subnet = host.config.networks[network].NetworkSubnet();
    std::string label = NetworkName(network) + "  " + KindName(KindOf(host.config, network));
    label += subnet ? "\n" + SubnetText(*subnet) : "";
    std::string stopped;
    for (int service = 0; service < SERVICE_COUNT; service++) {
        const ServiceState &state = host.networks[network].services[service];
        if (state.configured && !state.running) {
            stopped += std::string(" ") + SERVICES[service].name;
        }
    }
    return label + (stopped.empty() ? "" : "\nstopped:" + stopped);
}

// By address when it is known, so that forwards meet it.
std::string GuestId(int network, const std::optional<uint32_t> &address, const std::string &mac) {
    return NetworkName(network) + " " + (address ? AddressText(*address) : mac);
}

std::string Guests(const NetworkView &view, std::set<std::string> *known) {
    std::string text;
    const std::string network = NetworkName(view.number);
    const std::vector<Guest> &guests = view.details.guests;
    if (guests.size() > MOST_GUESTS) {
        const std::string id = network + " guests";
        return Node(id, std::to_string(guests.size()) + " guests", "shape=box3d") + Edge(network, id);
    }
    for (const Guest &guest : guests) {
        const std::string id =
            GuestId(view.number, guest.address, guest.mac.empty() ? guest.port : guest.mac);
        std::string label = guest.name.empty() ? guest.port : guest.name;
        label += guest.address       ? "\n" + AddressText(*guest.address)
                 : guest.mac.empty() ? ""
                                     : "\n" + guest.mac;
        text += Node(id, label, "shape=box") + Edge(network, id);
        known->insert(id);
    }
    return text;
}

// One edge for all ports that lead to one guest.
std::string Forwards(const Host &host, int network, std::set<std::string> *known) {
    std::map<std::string, std::string> labels;
    for (const Forward &forward : host.config.networks[network].forwards) {
        std::string &label = labels[GuestId(network, forward.guest, "")];
        label += (label.empty() ? "" : "\n") + std::string(forward.tcp ? "tcp " : "udp ") +
                 std::to_string(forward.hostPort);
    }
    std::string text;
    for (const auto &[id, label] : labels) {
        if (known->insert(id).second) {
            text += Node(id, id.substr(id.find(' ') + 1), "shape=box, style=dashed") +
                    Edge(NetworkName(network), id);
        }
        text += Edge("host", id, "label=" + Quoted(label) + ", style=dashed, constraint=false");
    }
    return text;
}

}  // namespace

std::string GraphText(const Host &host, const std::vector<NetworkView> &views) {
    std::string text =
        "digraph networks {\n  rankdir=LR; ranksep=1; nodesep=0.15;\n"
        "  node [fontname=\"sans-serif\", fontsize=10]; edge [fontname=\"sans-serif\", fontsize=9, "
        "dir=none];\n" +
        Node("host", "host", "shape=house, style=bold");
    for (const HostAdapter &adapter : host.adapters) {
        text += Node(adapter.name, adapter.name,
                     adapter.running ? "shape=ellipse" : "shape=ellipse, style=dotted");
        text += Edge("host", adapter.name);
        if (adapter.network != NO_NETWORK) {
            text += Edge(adapter.name, NetworkName(adapter.network));
        }
    }
    for (const NetworkView &view : views) {
        const NetworkState &state = host.networks[view.number];
        text += Node(NetworkName(view.number), NetworkLabel(host, view.number),
                     state.AllConfiguredRun() ? "shape=box, style=\"rounded,filled\", fillcolor=\"#e0f0e0\""
                                              : "shape=box, style=\"rounded,filled\", fillcolor=\"#f0e0e0\"");
        if (host.config.networks[view.number].IsOn(FIELD_ADAPTER) ||
            host.config.networks[view.number].IsOn(FIELD_NAT)) {
            text += Edge("host", NetworkName(view.number));
        }
        std::set<std::string> known;
        text += Guests(view, &known);
        text += Forwards(host, view.number, &known);
    }
    return text + "}\n";
}
