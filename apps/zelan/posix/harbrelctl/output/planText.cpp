#include "apps/zelan/posix/harbrelctl/output/planText.h"

std::string ChangesText(const Plan &plan) {
    std::string text;
    for (const RecordChange &change : plan.changes) {
        if (change.before) {
            text += "- " + RecordText(change.key, *change.before) + "\n";
        }
        if (change.after) {
            text += "+ " + RecordText(change.key, *change.after) + "\n";
        }
    }
    return text;
}

std::string PlanText(const Plan &plan) {
    std::string text = ChangesText(plan);
    for (const FileChange &file : plan.files) {
        text += UnifiedDiff(file);
    }
    for (const Step &step : plan.steps) {
        text += "* " + StepText(step) + "\n";
    }
    return text;
}
