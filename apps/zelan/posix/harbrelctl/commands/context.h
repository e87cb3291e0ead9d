// What a command starts with: a loaded library and the host as it tells it.
#pragma once

#include <optional>
#include <vector>

#include "apps/zelan/posix/harbrelctl/commands/arguments.h"
#include "apps/zelan/posix/harbrelctl/model/library.h"
#include "apps/zelan/posix/harbrelctl/model/readHost.h"
#include "apps/zelan/posix/harbrelctl/output/networks.h"

// Numbers of the networks on the command line, each once, in their order there; those that have anything when
// none was named. Nothing after a complaint.
std::optional<std::vector<int>> ParseNetworks(const Arguments &arguments);
std::vector<int> NetworksWithAnything(const Host &host);
std::vector<int> NamedOrAll(const std::vector<int> &named, const Host &host);

struct Context {
    Library library;
    Host host;
    KernelView kernel;
};

// Reads the host; false after a complaint.
bool Open(Context *context);

std::vector<NetworkView> ViewsOf(const Context &context, const std::vector<int> &networks);

// Prints a table for people or a document for programs; STATUS_DONE.
int PrintResult(const Arguments &arguments, const Table &table, const std::string &document);
