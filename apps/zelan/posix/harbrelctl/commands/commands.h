// The commands: each gets the arguments and returns the exit status.
#pragma once

#include "apps/zelan/posix/harbrelctl/commands/arguments.h"

int RunList(const Arguments &arguments);
int RunShow(const Arguments &arguments);
int RunForwardList(const Arguments &arguments);
int RunReserveList(const Arguments &arguments);
int RunAdapterList(const Arguments &arguments);
int RunLeaseList(const Arguments &arguments);
int RunGuestList(const Arguments &arguments);

int RunSet(const Arguments &arguments);
int RunUnset(const Arguments &arguments);
int RunAdd(const Arguments &arguments);
int RunRemove(const Arguments &arguments);
int RunForwardAdd(const Arguments &arguments);
int RunForwardRemove(const Arguments &arguments);
int RunReserveAdd(const Arguments &arguments);
int RunReserveRemove(const Arguments &arguments);
int RunAdapterMove(const Arguments &arguments);
int RunAdapterDefault(const Arguments &arguments);
int RunStart(const Arguments &arguments);
int RunStop(const Arguments &arguments);
int RunRestart(const Arguments &arguments);
int RunApply(const Arguments &arguments);
int RunDoctor(const Arguments &arguments);
int RunEdit(const Arguments &arguments);
int RunExport(const Arguments &arguments);
int RunImport(const Arguments &arguments);
int RunWatch(const Arguments &arguments);
int RunGraph(const Arguments &arguments);
