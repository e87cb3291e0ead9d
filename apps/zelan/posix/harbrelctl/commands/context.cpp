#include "apps/zelan/posix/harbrelctl/commands/context.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "apps/zelan/posix/harbrelctl/model/surroundings.h"
#include "apps/zelan/posix/harbrelctl/output/report.h"

std::optional<std::vector<int>> ParseNetworks(const Arguments &arguments) {
    std::vector<std::string> names = arguments.networks;
    if (!arguments.network.empty()) {
        names.push_back(arguments.network);
    }
    std::vector<int> numbers;
    for (const std::string &name : names) {
        const std::optional<int> number = ParseNetwork(name);
        if (!number) {
            Complain("\"%s\" is no network: zelan0 to zelan255, or 0 to 255", name.c_str());
            return std::nullopt;
        }
        if (std::find(numbers.begin(), numbers.end(), *number) == numbers.end()) {
            numbers.push_back(*number);
        }
    }
    return numbers;
}

std::vector<int> NetworksWithAnything(const Host &host) {
    std::vector<int> numbers;
    for (int network = 0; network < NETWORK_COUNT; network++) {
        if (host.HasAnything(network)) {
            numbers.push_back(network);
        }
    }
    return numbers;
}

std::vector<int> NamedOrAll(const std::vector<int> &named, const Host &host) {
    return named.empty() ? NetworksWithAnything(host) : named;
}

bool Open(Context *context) {
    if (!context->library) {
        Complain("%s", context->library.error().c_str());
        return false;
    }
    std::string error;
    if (!ReadHost(READ_ALL, &context->host, &error)) {
        Complain("%s", error.c_str());
        return false;
    }
    if (!ReadKernel(&context->kernel)) {
        Complain("the kernel does not tell its interfaces: %s", strerror(errno));
        return false;
    }
    AddMissingAdapters(context->kernel, &context->host);
    return true;
}

std::vector<NetworkView> ViewsOf(const Context &context, const std::vector<int> &networks) {
    std::vector<NetworkView> views;
    views.reserve(networks.size());
    for (const int network : networks) {
        views.push_back({network, ReadDetails(context.host, context.kernel, network)});
    }
    return views;
}

int PrintResult(const Arguments &arguments, const Table &table, const std::string &document) {
    Print((arguments.json ? document : RenderTable(table, !arguments.noLegend, MayColour())).c_str());
    return STATUS_DONE;
}
