#include "apps/zelan/posix/harbrelctl/probes/changes.h"

#include <set>

#include "apps/zelan/posix/harbrelctl/plan/records.h"

namespace {

// Subjects with the words about them; those of the one list that are not in the other.
using Subjects = std::map<std::string, std::string>;

void Add(const Subjects &now, const Subjects &then, const char *kind, int network,
         std::vector<Event> *events) {
    for (const auto &[subject, text] : now) {
        if (!then.contains(subject)) {
            events->push_back({kind, network, subject, text});
        }
    }
}

Subjects Running(const NetworkState &state) {
    Subjects subjects;
    for (int service = 0; service < SERVICE_COUNT; service++) {
        if (state.services[service].running) {
            subjects[SERVICES[service].name] = SERVICES[service].name;
        }
    }
    return subjects;
}

Subjects Leases(const Details &details) {
    Subjects subjects;
    for (const Lease &lease : details.leases) {
        subjects[AddressText(lease.address)] =
            AddressText(lease.address) + " " + lease.mac + (lease.name.empty() ? "" : " " + lease.name);
    }
    return subjects;
}

Subjects Guests(const Details &details) {
    Subjects subjects;
    for (const Guest &guest : details.guests) {
        subjects[guest.port] = guest.port + (guest.mac.empty() ? "" : " " + guest.mac);
    }
    return subjects;
}

// Subnets of the host that overlap the network's.
Subjects Overlaps(const Snapshot &snapshot, int network) {
    Subjects subjects;
    const std::optional<Subnet> subnet = snapshot.host.config.networks[network].NetworkSubnet();
    for (const ForeignSubnet &foreign : snapshot.foreign) {
        if (subnet && Overlap(*subnet, foreign.subnet)) {
            subjects[SubnetText(foreign.subnet)] = SubnetText(foreign.subnet) + " of " + foreign.owner;
        }
    }
    return subjects;
}

void AddRecords(const Snapshot &before, const Snapshot &after, std::vector<Event> *events) {
    for (const RecordChange &change : Difference(before.host.config, after.host.config)) {
        const std::string was = change.before ? RecordText(change.key, *change.before) : "";
        const std::string is = change.after ? RecordText(change.key, *change.after) : "";
        events->push_back({"database-changed", change.key.network, is.empty() ? was : is,
                           (is.empty() ? "removed " + was : "set " + is)});
    }
}

}  // namespace

std::vector<Event> Compare(const Snapshot &before, const Snapshot &after) {
    static const Details NOBODY;
    std::vector<Event> events;
    AddRecords(before, after, &events);
    for (int network = 0; network < NETWORK_COUNT; network++) {
        const auto was = before.details.find(network);
        const auto is = after.details.find(network);
        if (was == before.details.end() && is == after.details.end()) {
            continue;
        }
        const Details &then = was != before.details.end() ? was->second : NOBODY;
        const Details &now = is != after.details.end() ? is->second : NOBODY;
        const auto both = [&](const Subjects &old, const Subjects &fresh, const char *came,
                              const char *went) {
            Add(old, fresh, went, network, &events);
            Add(fresh, old, came, network, &events);
        };
        both(Running(before.host.networks[network]), Running(after.host.networks[network]), "service-started",
             "service-ended");
        both(Leases(then), Leases(now), "lease-given", "lease-ended");
        both(Guests(then), Guests(now), "guest-plugged", "guest-unplugged");
        both(Overlaps(before, network), Overlaps(after, network), "overlap-appeared", "overlap-gone");
    }
    return events;
}
