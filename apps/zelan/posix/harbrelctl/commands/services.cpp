// start, stop, restart, apply.
#include <algorithm>
#include <fstream>
#include <sstream>

#include "apps/zelan/posix/harbrelctl/commands/change.h"
#include "apps/zelan/posix/harbrelctl/commands/commands.h"
#include "apps/zelan/posix/harbrelctl/commands/progress.h"
#include "apps/zelan/posix/harbrelctl/execution/freeSubnet.h"
#include "apps/zelan/posix/harbrelctl/output/report.h"
#include "lib/harbrel/harbrel.h"

namespace {

// What runs on a network shows that the subnet is its own.
bool MustBeAsked(const Host &host, int network) {
    const auto &services = host.networks[network].services;
    return host.config.networks[network].NetworkSubnet() && !services[SERVICE_DHCP].running &&
           !services[SERVICE_NAT].running && !services[SERVICE_ADAPTER].running;
}

// Takes out of the list the networks on whose subnets something answers; false when there is one.
bool LeaveOutBusy(const Host &host, std::vector<int> *networks) {
    std::vector<int> asked;
    std::copy_if(networks->begin(), networks->end(), std::back_inserter(asked),
                 [&host](int network) { return MustBeAsked(host, network); });
    const Progress progress("asking whether the subnets are free");
    const std::vector<int> busy = BusyNetworks(asked);
    for (const int network : busy) {
        Complain(
            "%s is not started: something answers on its subnet %s; set %s subnet=ADDRESS/PREFIX moves it",
            NetworkName(network).c_str(), SubnetText(*host.config.networks[network].NetworkSubnet()).c_str(),
            NetworkName(network).c_str());
        std::erase(*networks, network);
    }
    return busy.empty();
}

// The detection daemon belongs to the host: it goes with a command for all networks.
int ServeDetection(const Arguments &arguments, Aim aim) {
    const bool stop = aim == AIM_STOP || aim == AIM_RESTART;
    const bool good = (!stop || HBL_StopService(nullptr, HBL_SERVICE_NETDETECT)) &&
                      (aim == AIM_STOP || HBL_StartService(nullptr, HBL_SERVICE_NETDETECT));
    if (!good) {
        Complain("not done: %s the network detection", aim == AIM_STOP ? "stop" : "start");
        return STATUS_FAILED;
    }
    if (!arguments.json) {
        Tell("%s the network detection", aim == AIM_STOP ? "stop" : "start");
    }
    return STATUS_DONE;
}

int Serve(const Arguments &arguments, Aim aim) {
    const auto named = ParseNetworks(arguments);
    if (!named) {
        return STATUS_USAGE;
    }
    Editor editor;
    if (!OpenEditor(&editor)) {
        return STATUS_FAILED;
    }
    const Host &host = editor.context.host;
    Wish wish;
    wish.after = host.config;
    wish.networks = NamedOrAll(*named, host);
    wish.aim = aim;
    const bool allFree = aim == AIM_STOP || arguments.dryRun || LeaveOutBusy(host, &wish.networks);
    int detection = STATUS_DONE;
    if (named->empty() && !arguments.dryRun) {
        detection = ServeDetection(arguments, aim);
    }
    Plan plan;
    int status = MakePlan(editor, wish, &plan);
    if (status == STATUS_DONE) {
        status = CarryOut(arguments, &editor, plan);
    }
    return status == STATUS_DONE && (!allFree || detection != STATUS_DONE) ? STATUS_FAILED : status;
}

int ApplyPlanFile(const Arguments &arguments) {
    std::ifstream file(arguments.planFile);
    std::stringstream text;
    text << file.rdbuf();
    const std::optional<Plan> plan = file ? ReadPlanJson(text.str()) : std::nullopt;
    if (!plan) {
        Complain("%s is no plan: --dry-run --json makes one", arguments.planFile.c_str());
        return STATUS_USAGE;
    }
    Editor editor;
    if (!OpenEditor(&editor)) {
        return STATUS_FAILED;
    }
    const Host &host = editor.context.host;
    if (StateHash(host, plan->networks) != plan->state) {
        Complain("the networks are no longer as they were when the plan was made; nothing is changed");
        return STATUS_MOVED_ON;
    }
    const Config after = Applied(host.config, plan->changes);
    const int status = ReportProblems(NewProblems(host.config, after, plan->networks, editor.surroundings));
    return status == STATUS_DONE ? CarryOut(arguments, &editor, *plan) : status;
}

}  // namespace

int RunStart(const Arguments &arguments) {
    return Serve(arguments, AIM_RUN);
}

int RunStop(const Arguments &arguments) {
    return Serve(arguments, AIM_STOP);
}

int RunRestart(const Arguments &arguments) {
    return Serve(arguments, AIM_RESTART);
}

int RunApply(const Arguments &arguments) {
    return arguments.planFile.empty() ? Serve(arguments, AIM_RUN) : ApplyPlanFile(arguments);
}
