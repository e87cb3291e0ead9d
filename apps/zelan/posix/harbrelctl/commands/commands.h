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
