#include "apps/zelan/posix/harbrelctl/commands/change.h"

#include <unistd.h>

#include <algorithm>
#include <iostream>

#include "apps/zelan/posix/harbrelctl/execution/commit.h"
#include "apps/zelan/posix/harbrelctl/execution/interrupts.h"
#include "apps/zelan/posix/harbrelctl/execution/outdated.h"
#include "apps/zelan/posix/harbrelctl/execution/refresh.h"
#include "apps/zelan/posix/harbrelctl/execution/rehearsal.h"
#include "apps/zelan/posix/harbrelctl/execution/runSteps.h"
#include "apps/zelan/posix/harbrelctl/output/planText.h"
#include "apps/zelan/posix/harbrelctl/output/report.h"

namespace {

bool RecoverFirst(const Context &context) {
    if (!IsInterrupted() || !context.library) {
        return true;
    }
    const DeferInterrupts defer;
    std::string reason;
    if (!Recover(&reason)) {
        Complain("a change was interrupted and cannot be taken back: %s", reason.c_str());
        return false;
    }
    Complain("a change was interrupted before; it is taken back");
    return true;
}

StaleFiles StaleOf(const Rehearsal &rehearsal, int network) {
    for (const auto &[number, stale] : rehearsal.stale) {
        if (number == network) {
            return stale;
        }
    }
    return {};
}

std::vector<Step> StepsOf(const Editor &editor, const Wish &wish, const Rehearsal &rehearsal) {
    const Host &host = editor.context.host;
    std::vector<NetworkAim> aims;
    for (const int network : wish.networks) {
        if (std::find(wish.removed.begin(), wish.removed.end(), network) == wish.removed.end()) {
            const bool nodeMissing = access(host.paths.Node(network).c_str(), F_OK) != 0;
            aims.push_back({network, wish.aim, StaleOf(rehearsal, network), nodeMissing,
                            OutdatedServices(host, network)});
        }
    }
    std::vector<Step> steps = MakeSteps(host, editor.context.kernel, rehearsal.reached, aims);
    for (const int network : wish.removed) {
        const std::vector<Step> removal = RemovalSteps(host, network);
        steps.insert(steps.end(), removal.begin(), removal.end());
    }
    return steps;
}

// What is not done is said when all is over, so that it stands at the end.
int RunAll(const Arguments &arguments, const Editor &editor, const Plan &plan) {
    std::vector<std::string> failures;
    const bool done =
        RunSteps(editor.context.host, plan.steps, [&](const Step &step, const StepReport &report) {
            if (!report.done) {
                failures.push_back(StepText(step) + (report.reason.empty() ? "" : ": " + report.reason));
            } else if (!arguments.json) {
                Tell("%s", StepText(step).c_str());
            }
            if (!report.kept.empty()) {
                Complain("%s is kept, as it is none of ours", report.kept.c_str());
            }
        });
    for (const std::string &failure : failures) {
        Complain("not done: %s", failure.c_str());
    }
    return done ? STATUS_DONE : STATUS_FAILED;
}

// A program that is no editor may have changed something since the host was read.
bool IsAsRead(const Editor &editor) {
    Host now;
    std::string unread;
    return Refresh() && ReadHost(READ_CONFIG, &now, &unread) && now.config == editor.context.host.config;
}

bool Write(const Editor &editor, const Plan &plan, const WriteRecords &write, std::string *reason) {
    const std::string &log = editor.context.host.paths.log;
    if (!write) {
        return Commit(plan.changes, log, reason);
    }
    const LogMark mark(log);
    const bool written = write();
    *reason = written ? "" : mark.LastReason();
    return written;
}

int Execute(const Arguments &arguments, Editor *editor, const Plan &plan, const WriteRecords &write) {
    const DeferInterrupts defer;
    std::string reason;
    if (!plan.changes.empty() && !IsAsRead(*editor)) {
        Complain(
            "another program has changed the networks meanwhile, or holds the database; nothing is changed");
        return STATUS_MOVED_ON;
    }
    if (!Write(*editor, plan, write, &reason)) {
        Complain("nothing is changed: %s", reason.c_str());
        return STATUS_FAILED;
    }
    if (arguments.verbose && !arguments.json) {
        Print(ChangesText(plan).c_str());
    }
    const int status = RunAll(arguments, *editor, plan);
    editor->context.library.Finish();
    return status;
}

}  // namespace

bool OpenEditor(Editor *editor) {
    if (!editor->context.library) {
        Complain("%s", editor->context.library.error().c_str());
        return false;
    }
    if (!editor->lock.Held()) {
        Complain("another harbrelctl is changing the networks; try again when it is done");
        return false;
    }
    if (!RecoverFirst(editor->context) || !Open(&editor->context)) {
        return false;
    }
    editor->surroundings = ReadSurroundings(editor->context.host, editor->context.kernel);
    return true;
}

int ReportProblems(const Problems &problems) {
    int status = STATUS_DONE;
    for (const Problem &problem : problems) {
        Complain("%s: %s", NetworkName(problem.network).c_str(), problem.text.c_str());
        if (status == STATUS_DONE) {  // the later ones may follow from the first
            status = problem.kind == PROBLEM_VALUE ? STATUS_USAGE : STATUS_CONFLICT;
        }
    }
    return status;
}

int MakePlan(const Editor &editor, const Wish &wish, Plan *plan) {
    const Host &host = editor.context.host;
    const int status =
        ReportProblems(NewProblems(host.config, wish.after, wish.networks, editor.surroundings));
    if (status != STATUS_DONE) {
        return status;
    }
    Rehearsal rehearsal;
    std::string reason;
    const std::vector<int> filed = wish.aim == AIM_FILES ? std::vector<int>() : wish.networks;
    if (!Rehearse(host, Difference(host.config, wish.after), filed, &rehearsal, &reason)) {
        Complain("nothing is changed: %s", reason.c_str());
        return STATUS_FAILED;
    }
    plan->networks = wish.networks;
    plan->state = StateHash(host, wish.networks);
    plan->changes = Difference(host.config, rehearsal.reached);
    plan->steps = StepsOf(editor, wish, rehearsal);
    plan->files = std::move(rehearsal.files);
    return STATUS_DONE;
}

int CarryOut(const Arguments &arguments, Editor *editor, const Plan &plan, const WriteRecords &write) {
    if (arguments.json) {
        Print(PlanJson(plan).c_str());
    } else if (plan.IsEmpty()) {
        Tell("nothing to change");
    } else if (arguments.dryRun) {
        Print(PlanText(plan).c_str());
    }
    return arguments.dryRun ? STATUS_DONE : Execute(arguments, editor, plan, write);
}

void ShowChanges(const Plan &plan) {
    Print(ChangesText(plan).c_str());
}

int Change(const Arguments &arguments, const MakeWish &makeWish) {
    const auto named = ParseNetworks(arguments);
    if (!named) {
        return STATUS_USAGE;
    }
    Editor editor;
    if (!OpenEditor(&editor)) {
        return STATUS_FAILED;
    }
    Wish wish;
    wish.after = editor.context.host.config;
    wish.networks = *named;
    int status = makeWish(editor, &wish);
    if (status != STATUS_DONE) {
        return status;
    }
    if (arguments.noApply) {
        wish.aim = AIM_FILES;
    }
    Plan plan;
    status = MakePlan(editor, wish, &plan);
    return status == STATUS_DONE ? CarryOut(arguments, &editor, plan) : status;
}

bool Confirm(const Arguments &arguments, const std::string &question) {
    if (arguments.yes || arguments.dryRun || isatty(STDIN_FILENO) == 0) {
        return true;
    }
    fprintf(stderr, "%s [y/N] ", question.c_str());
    std::string answer;
    std::getline(std::cin, answer);
    return answer == "y" || answer == "yes";
}
