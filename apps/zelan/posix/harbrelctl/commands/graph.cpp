#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>

#include "apps/zelan/posix/harbrelctl/commands/commands.h"
#include "apps/zelan/posix/harbrelctl/commands/context.h"
#include "apps/zelan/posix/harbrelctl/output/graph.h"
#include "apps/zelan/posix/harbrelctl/output/report.h"
#include "lib/misc/owners.h"

namespace {

// Whether Graphviz is there and has made the picture.
bool Draw(const std::string &graph, const std::string &path) {
    const FileDescriptor input(memfd_create("graph", 0));
    if (!input || write(input.get(), graph.data(), graph.size()) != static_cast<ssize_t>(graph.size())) {
        return false;
    }
    std::string words[] = {"dot", "-Tsvg", "-o", path, "/proc/self/fd/" + std::to_string(input.get())};
    std::vector<char *> arguments;
    for (std::string &word : words) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    pid_t child = 0;
    int status = 0;
    return posix_spawnp(&child, "dot", nullptr, nullptr, arguments.data(), environ) == 0 &&
           waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

int WriteGraph(const std::string &graph, const std::string &path) {
    std::ofstream file(path);
    file << graph;
    if (!file.flush()) {
        Complain("%s: %s", path.c_str(), strerror(errno));
        return STATUS_FAILED;
    }
    return STATUS_DONE;
}

}  // namespace

int RunGraph(const Arguments &arguments) {
    Context context;
    if (!Open(&context)) {
        return STATUS_FAILED;
    }
    const std::string graph = GraphText(context.host, ViewsOf(context, NetworksWithAnything(context.host)));
    if (arguments.file.empty()) {
        Print(graph.c_str());
        return STATUS_DONE;
    }
    if (!arguments.file.ends_with(".svg")) {
        return WriteGraph(graph, arguments.file);
    }
    if (Draw(graph, arguments.file)) {
        return STATUS_DONE;
    }
    const std::string path = arguments.file.substr(0, arguments.file.size() - 3) + "dot";
    Complain("the picture cannot be drawn, for which Graphviz is needed; %s has its description",
             path.c_str());
    return WriteGraph(graph, path);
}
