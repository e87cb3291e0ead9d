// The command line: one table of commands, which yields dispatch, help and refusals.
#pragma once

// Runs the command that the arguments name; the exit status.
int RunCommandLine(int argc, char **argv);
