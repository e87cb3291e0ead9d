// The links that are files: settings, what is generated from them, the device node.
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <cerrno>

#include "apps/zelan/posix/harbrelctl/checks/checks.h"
#include "apps/zelan/posix/harbrelctl/probes/finding.h"

namespace {

constexpr unsigned NODE_MAJOR = 119;

// The first line in which two texts differ, as the first has it.
std::string FirstDifference(const std::string &now, const std::string &wanted) {
    size_t start = 0;
    while (start < now.size()) {
        const size_t end = now.find('\n', start);
        const std::string line = now.substr(start, end - start);
        if (wanted.find(line) == std::string::npos && !line.starts_with("# Written at: ")) {
            return line;
        }
        start = end == std::string::npos ? now.size() : end + 1;
    }
    return "";
}

}  // namespace

std::optional<Finding> ProbeSettings(const Patient &patient, int network) {
    const Problems problems = CheckNetwork(patient.host.config, network, patient.surroundings);
    if (problems.empty()) {
        return std::nullopt;
    }
    return Finding{network, problems.front().code, problems.front().text,
                   "harbrelctl edit " + NetworkName(network)};
}

std::optional<Finding> ProbeFiles(const Patient &patient, int network) {
    const std::string folder = patient.host.paths.networks + "/" + NetworkName(network) + "/";
    for (const FileChange &file : patient.rehearsal.files) {
        if (!file.path.starts_with(folder) || file.after.empty()) {
            continue;  // one too many harms nobody
        }
        if (file.before.empty()) {
            return Finding{network, "file-missing", "there is no " + file.path, ApplyCommand(network)};
        }
        const std::string line = FirstDifference(file.before, file.after);
        return Finding{
            network, "file-differs",
            file.path + " is not what the settings make" + (line.empty() ? "" : ": \"" + line + "\""),
            ApplyCommand(network)};
    }
    return std::nullopt;
}

std::optional<Finding> ProbeNode(const Patient &patient, int network) {
    if (!patient.host.networks[network].IsRunning()) {
        return std::nullopt;  // a start makes it
    }
    const std::string path = patient.host.paths.Node(network);
    struct stat status = {};
    if (stat(path.c_str(), &status) != 0) {
        return Finding{network, "node-missing", "there is no " + path, ApplyCommand(network)};
    }
    if (!S_ISCHR(status.st_mode) || status.st_rdev != makedev(NODE_MAJOR, static_cast<unsigned>(network))) {
        return Finding{
            network, "node-wrong",
            path + " is no device of number " + std::to_string(NODE_MAJOR) + "," + std::to_string(network),
            "rm " + path + " && " + ApplyCommand(network)};
    }
    return std::nullopt;
}
