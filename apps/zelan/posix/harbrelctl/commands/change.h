// The way of every change: read under the editor's lock, check, try out, write all records or none, and bring
// the services concerned into line.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "apps/zelan/posix/harbrelctl/checks/checks.h"
#include "apps/zelan/posix/harbrelctl/commands/context.h"
#include "apps/zelan/posix/harbrelctl/execution/editorLock.h"
#include "apps/zelan/posix/harbrelctl/model/surroundings.h"
#include "apps/zelan/posix/harbrelctl/plan/plan.h"

// The host, read under the lock, which is held as long as this lives.
struct Editor {
    EditorLock lock;  // before the library, so that what is loaded is the newest
    Context context;
    Surroundings surroundings;
};
// False after a complaint. A change that a killed editor has left half done is taken back first.
bool OpenEditor(Editor *editor);

// What a command wants.
struct Wish {
    Config after;
    std::vector<int> networks;  // that it is about
    Aim aim = AIM_FOLLOW;
    std::vector<int> removed;  // taken out altogether; `after` does not tell of it
};

// Complains about each; the status of the first, STATUS_DONE when there is none.
int ReportProblems(const Problems &problems);

// Checks the wish and makes the plan. Another status than STATUS_DONE comes after a complaint.
int MakePlan(const Editor &editor, const Wish &wish, Plan *plan);

// Prints the plan for --dry-run and with --json, and carries it out unless it is a dry run. The records are
// written by `write` when it is given.
using WriteRecords = std::function<bool()>;
int CarryOut(const Arguments &arguments, Editor *editor, const Plan &plan,
             const WriteRecords &write = nullptr);
void ShowChanges(const Plan &plan);

// Opens, lets the command make its wish, which begins with the networks that the arguments name, and does the
// rest. The command returns a status other than STATUS_DONE after a complaint.
using MakeWish = std::function<int(const Editor &editor, Wish *wish)>;
int Change(const Arguments &arguments, const MakeWish &makeWish);

// A question on the terminal; true also without one and with --yes.
bool Confirm(const Arguments &arguments, const std::string &question);
