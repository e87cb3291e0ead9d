#include "apps/zelan/posix/harbrelctl/commands/commands.h"
#include "apps/zelan/posix/harbrelctl/commands/context.h"
#include "apps/zelan/posix/harbrelctl/output/findings.h"
#include "apps/zelan/posix/harbrelctl/output/report.h"

namespace {

// A database that cannot be read is a finding too.
int ReportUnreadable(const Arguments &arguments, const std::string &error) {
    const std::vector<Finding> findings = {
        {NO_NETWORK, "database-unreadable", error, "man orvane-networking"}};
    Print((arguments.json ? FindingsJson(findings, {}) : FindingsText(findings, 0)).c_str());
    return STATUS_NOT_RUNNING;
}

}  // namespace

int RunDoctor(const Arguments &arguments) {
    const auto named = ParseNetworks(arguments);
    if (!named) {
        return STATUS_USAGE;
    }
    Context context;
    if (!context.library) {
        return ReportUnreadable(arguments, context.library.error());
    }
    if (!Open(&context)) {
        return STATUS_FAILED;
    }
    const std::vector<int> networks = NamedOrAll(*named, context.host);
    Rehearsal rehearsal;
    std::string reason;
    if (!Rehearse(context.host, {}, networks, &rehearsal, &reason)) {
        Complain("%s", reason.c_str());
        return STATUS_FAILED;
    }
    const Surroundings surroundings = ReadSurroundings(context.host, context.kernel);
    const std::vector<DropRule> drops = ReadDropRules();
    std::vector<Details> details(NETWORK_COUNT);
    for (const int network : networks) {
        details[static_cast<size_t>(network)] = ReadDetails(context.host, context.kernel, network);
    }
    const Patient patient = {context.host, context.kernel, surroundings, rehearsal, drops, details};
    std::vector<Finding> findings = ExamineHost(patient);
    for (const int network : networks) {
        const std::optional<Finding> finding = ExamineNetwork(patient, network, arguments.deep);
        if (finding) {
            findings.push_back(*finding);
        }
    }
    Print((arguments.json ? FindingsJson(findings, networks) : FindingsText(findings, networks.size()))
              .c_str());
    return findings.empty() ? STATUS_DONE : STATUS_NOT_RUNNING;
}
