#include "apps/zelan/posix/harbrelctl/execution/rehearsal.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <set>
#include <sstream>

#include "apps/zelan/posix/harbrelctl/execution/writeChange.h"
#include "apps/zelan/posix/harbrelctl/model/library.h"
#include "apps/zelan/posix/harbrelctl/model/readHost.h"
#include "lib/harbrel/harbrel.h"
#include "lib/misc/owners.h"

namespace {

namespace fs = std::filesystem;

constexpr const char *HOST_CONFIG = "/etc/orvane/config";
constexpr const char *USUAL_LOG = "/var/log/harbrel";

std::string ReadText(const std::string &path) {
    std::ifstream file(path);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

void WriteText(const std::string &path, const std::string &text) {
    std::error_code ignored;
    fs::create_directories(fs::path(path).parent_path(), ignored);
    std::ofstream(path) << text;
}

// The two generated files of a network.
std::pair<std::string, std::string> FilesOf(const Paths &paths, int network) {
    return {paths.DhcpConf(network), paths.NatConf(network)};
}

// What the child reports: texts, each with its length before it.
void Put(FILE *stream, const std::string &text) {
    fprintf(stream, "%zu ", text.size());
    fwrite(text.data(), 1, text.size(), stream);
}

std::string Take(FILE *stream) {
    size_t size = 0;
    if (fscanf(stream, "%zu", &size) != 1 || fgetc(stream) != ' ') {
        return "";
    }
    std::string text(size, '\0');
    text.resize(fread(text.data(), 1, size, stream));
    return text;
}

// Covers the folders with empty ones and puts the given files there.
bool MakeStage(const Paths &paths, const std::vector<std::pair<std::string, std::string>> &files) {
    if (unshare(CLONE_NEWNS) != 0 || mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
        return false;
    }
    const std::set<std::string> covered = {"/etc/orvane", paths.networks, paths.pidFiles,
                                           fs::path(paths.log).parent_path(),
                                           fs::path(USUAL_LOG).parent_path()};
    for (const std::string &folder : covered) {
        std::error_code ignored;
        fs::create_directories(folder, ignored);  // one may stand below another
        if (mount("tmpfs", folder.c_str(), "tmpfs", MS_NOSUID, "mode=0700") != 0) {
            return false;
        }
    }
    for (const auto &[path, text] : files) {
        if (!text.empty()) {
            WriteText(path, text);
        }
    }
    return true;
}

std::string WriteFiles(const Paths &paths, const std::vector<int> &networks) {
    for (const int network : networks) {
        const LogMark mark(paths.log);
        const std::string name = NetworkName(network);
        if (!HBL_UpdateDHCPFromConfig(name.c_str()) || !HBL_UpdateNATFromConfig(name.c_str())) {
            return "the files of " + name + " cannot be written: " + mark.LastReason();
        }
    }
    return "";
}

using FileTexts = std::vector<std::pair<std::string, std::string>>;

// What is played on the stage; the reason when it fails.
using Act = std::function<std::string()>;

struct Script {
    const Host &host;
    const std::vector<int> &networks;
    const FileTexts &files;  // that the stage begins with
    Act act;
};

std::string Play(const Script &script) {
    if (!MakeStage(script.host.paths, script.files)) {
        return std::string("a private view of the configuration cannot be made: ") + strerror(errno);
    }
    HBL_Unload();  // what was loaded before the stage was there
    if (!HBL_Load()) {
        return "the database cannot be loaded on the stage";
    }
    const std::string reason = script.act();
    return reason.empty() ? WriteFiles(script.host.paths, script.networks) : reason;
}

// In the child: the reason of a failure, or the files in their order and the changes of records.
void PlayAndReport(const Script &script, FILE *report) {
    const std::string reason = Play(script);
    Put(report, reason);
    Host reached;
    std::string unread;
    if (reason.empty() && ReadHost(READ_CONFIG, &reached, &unread)) {
        for (const int network : script.networks) {
            const auto [dhcp, nat] = FilesOf(script.host.paths, network);
            Put(report, ReadText(dhcp));
            Put(report, ReadText(nat));
        }
        Put(report, ChangesJson(Difference(script.host.config, reached.config)));
    }
    fflush(report);
}

// The library notes in a file when it was written.
std::string WithoutTime(const std::string &text) {
    constexpr std::string_view MARK = "\n# Written at: ";
    const size_t start = text.find(MARK);
    return start == std::string::npos ? text
                                      : text.substr(0, start) + text.substr(text.find('\n', start + 1));
}

bool AddFile(const std::string &path, const std::string &after, std::vector<FileChange> *files) {
    const std::string before = ReadText(path);
    if (WithoutTime(before) == WithoutTime(after)) {
        return false;
    }
    files->push_back({path, before, after});
    return true;
}

// What the child has reported.
bool ReadReport(FILE *report, const Host &host, const std::vector<int> &networks, Rehearsal *rehearsal,
                std::string *reason) {
    rewind(report);
    *reason = Take(report);
    if (!reason->empty()) {
        return false;
    }
    for (const int network : networks) {
        const auto [dhcp, nat] = FilesOf(host.paths, network);
        StaleFiles stale;
        stale.dhcp = AddFile(dhcp, Take(report), &rehearsal->files);
        stale.nat = AddFile(nat, Take(report), &rehearsal->files);
        rehearsal->stale.emplace_back(network, stale);
    }
    const auto changes = ReadChangesJson(Take(report));
    if (!changes) {
        *reason = "the rehearsal ended early";
        return false;
    }
    rehearsal->reached = Applied(host.config, *changes);
    return true;
}

FileTexts FilesToBegin(const Host &host, const std::vector<int> &networks) {
    FileTexts files = {{DATABASE, ReadText(DATABASE)}, {HOST_CONFIG, ReadText(HOST_CONFIG)}};
    for (const int network : networks) {
        const auto [dhcp, nat] = FilesOf(host.paths, network);
        files.emplace_back(dhcp, ReadText(dhcp));
        files.emplace_back(nat, ReadText(nat));
    }
    return files;
}

bool Perform(const Script &script, Rehearsal *rehearsal, std::string *reason) {
    const FileStream report = StreamOf(FileDescriptor(memfd_create("rehearsal", MFD_CLOEXEC)), "w+");
    if (report == nullptr) {
        *reason = std::string("no memory for a rehearsal: ") + strerror(errno);
        return false;
    }
    fflush(nullptr);  // the child must not write what this process still holds
    const pid_t child = fork();
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        PlayAndReport(script, report.get());
        _exit(EXIT_SUCCESS);
    }
    if (child < 0 || waitpid(child, nullptr, 0) != child) {
        *reason = std::string("a rehearsal cannot be started: ") + strerror(errno);
        return false;
    }
    return ReadReport(report.get(), script.host, script.networks, rehearsal, reason);
}

// The library takes what has no version line for a database of old, and any text that is none for an empty
// one.
bool HoldsSettings(const std::string &text) {
    for (const char *beginning : {"BACKUP_VERSION=", "VERSION=", "answer "}) {
        if (text.starts_with(beginning)) {
            return true;
        }
    }
    return text.find("\nanswer ") != text.npos;
}

}  // namespace

bool Rehearse(const Host &host, const std::vector<RecordChange> &changes, const std::vector<int> &networks,
              Rehearsal *rehearsal, std::string *reason) {
    const FileTexts files = FilesToBegin(host, networks);
    const Act write = [&] {
        std::string refusal;
        WriteChanges(changes, host.paths.log, &refusal);
        return refusal;
    };
    return Perform({host, networks, files, write}, rehearsal, reason);
}

bool RehearseImport(const Host &host, const std::string &settingsFile, Rehearsal *rehearsal,
                    std::string *reason) {
    constexpr const char *STAGED = "/etc/orvane/import";
    std::vector<int> networks;
    for (int network = 0; network < NETWORK_COUNT; network++) {
        networks.push_back(network);
    }
    const std::string settings = ReadText(settingsFile);
    if (!HoldsSettings(settings)) {
        *reason = settingsFile + " holds no settings of networks";
        return false;
    }
    FileTexts files = FilesToBegin(host, networks);
    files.emplace_back(STAGED, settings);
    const auto import = [&]() -> std::string {
        const LogMark mark(host.paths.log);
        return HBL_ImportDatabaseFromFile(STAGED) ? "" : settingsFile + " is refused: " + mark.LastReason();
    };
    return Perform({host, networks, files, import}, rehearsal, reason);
}
