// export and import.
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "apps/zelan/posix/harbrelctl/commands/change.h"
#include "apps/zelan/posix/harbrelctl/commands/commands.h"
#include "apps/zelan/posix/harbrelctl/execution/rehearsal.h"
#include "apps/zelan/posix/harbrelctl/output/report.h"
#include "lib/harbrel/harbrel.h"

namespace {

constexpr const char *USUAL_FILE = "/tmp/networking_export";

std::string PathOrUsual(const Arguments &arguments) {
    return arguments.file.empty() ? USUAL_FILE : arguments.file;
}

// The networks that the import changes, or whose files it does.
std::vector<int> Concerned(const Host &host, const Config &after, const Rehearsal &rehearsal) {
    std::vector<int> networks;
    for (const auto &[network, stale] : rehearsal.stale) {
        const bool changes = host.config.networks[network] != after.networks[network] ||
                             IsBridged(host.config, network) != IsBridged(after, network);
        if (changes || ((stale.dhcp || stale.nat) && host.HasAnything(network))) {
            networks.push_back(network);
        }
    }
    return networks;
}

Plan PlanOf(const Editor &editor, const Rehearsal &rehearsal, bool apply) {
    const Host &host = editor.context.host;
    Plan plan;
    plan.networks = Concerned(host, rehearsal.reached, rehearsal);
    plan.state = StateHash(host, plan.networks);
    plan.changes = Difference(host.config, rehearsal.reached);
    plan.files = rehearsal.files;
    std::vector<NetworkAim> aims;
    for (const int network : plan.networks) {
        const StaleFiles stale = rehearsal.stale[static_cast<size_t>(network)].second;
        aims.push_back({network, apply ? AIM_FOLLOW : AIM_FILES, stale, false, {}});
    }
    plan.steps = MakeSteps(host, editor.context.kernel, rehearsal.reached, aims);
    return plan;
}

}  // namespace

int RunExport(const Arguments &arguments) {
    const Library library;
    if (!library) {
        Complain("%s", library.error().c_str());
        return STATUS_FAILED;
    }
    const std::string path = PathOrUsual(arguments);
    const LogMark mark("/var/log/harbrel");
    if (!HBL_ExportDatabaseToFile(path.c_str())) {
        Complain("%s is not written: %s", path.c_str(), mark.LastReason().c_str());
        return STATUS_FAILED;
    }
    Tell("%s", path.c_str());
    return STATUS_DONE;
}

int RunImport(const Arguments &arguments) {
    const std::string path = PathOrUsual(arguments);
    if (access(path.c_str(), R_OK) != 0) {
        Complain("%s: %s", path.c_str(), strerror(errno));
        return STATUS_USAGE;
    }
    Editor editor;
    if (!OpenEditor(&editor)) {
        return STATUS_FAILED;
    }
    Rehearsal rehearsal;
    std::string reason;
    if (!RehearseImport(editor.context.host, path, &rehearsal, &reason)) {
        Complain("nothing is changed: %s", reason.c_str());
        return STATUS_FAILED;
    }
    const Plan plan = PlanOf(editor, rehearsal, !arguments.noApply);
    if (!arguments.json && !arguments.dryRun) {
        ShowChanges(plan);
    }
    if (!Confirm(arguments, "Replace the settings by those of " + path + "?")) {
        Complain("nothing is changed");
        return STATUS_FAILED;
    }
    return CarryOut(arguments, &editor, plan, [&path] { return HBL_ImportDatabaseFromFile(path.c_str()); });
}
