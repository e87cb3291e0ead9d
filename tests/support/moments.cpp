#include "tests/support/moments.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <random>
#include <regex>
#include <sstream>

namespace {

// Most hosts sleep most of the time: a lock whose owner died in its doorway holds others up for 8 seconds.
constexpr int HOSTS_AT_ONCE = 16;
constexpr std::chrono::minutes BATCH_DEADLINE{10};

// Programs that come up and stay, a keeper that makes its interface, and a subnet on which nobody answers.
// The leak check of a sanitizer build cannot work on a traced process.
constexpr char PREPARE[] = R"(
export ASAN_OPTIONS=detect_leaks=0
mkdir /run/programs
cat > /run/programs/daemon <<'END'
#!/bin/sh
while [ $# -gt 0 ]; do case $1 in -s) fd=$2 ;; -d | -pf) file=$2 ;; esac; last=$1; shift; done
case $0 in *netifup) ip link add "$last" type veth ;; esac
setsid sleep 600 > /dev/null 2>&1 &
echo $! > "$file"
printf x > "/proc/self/fd/$fd"
END
printf '#!/bin/sh\nexit 1\n' > /run/programs/orvane-ping
chmod 755 /run/programs/*
for name in bridge netifup dhcpd natd detect; do ln -s daemon /run/programs/zelan-$name; done
echo 'bindir = "/run/programs"' > /etc/orvane/config
)";

// The numbers of calls to disturb among `total`, at most `most`.
std::vector<int> Choose(int total, int most) {
    std::vector<int> chosen;
    const int atEnds = most / 3;
    for (int n = 1; n <= std::min(total, atEnds); n++) {
        chosen.push_back(n);
        chosen.push_back(total + 1 - n);
    }
    for (int n = 1; n <= most - 2 * atEnds; n++) {
        chosen.push_back(atEnds + (total - 2 * atEnds) * n / (most - 2 * atEnds + 1) + 1);
    }
    std::sort(chosen.begin(), chosen.end());
    chosen.erase(std::unique(chosen.begin(), chosen.end()), chosen.end());
    std::erase_if(chosen, [total](int n) { return n < 1 || n > total; });
    return chosen;
}

std::string Normalised(const std::string &database) {
    static const std::regex SUBNET("(172\\.16|192\\.168)(\\.[0-9]+){2}");
    static const std::regex HASH("[0-9A-F]{40}");
    // Network 0 is the default bridge's also where no record says so.
    static const std::regex DEFAULT_BRIDGE("answer HBL_DEFAULT_BRIDGE_VNET 0\n");
    std::string text = std::regex_replace(database, SUBNET, "SUBNET");
    text = std::regex_replace(text, HASH, "HASH");
    return std::regex_replace(text, DEFAULT_BRIDGE, "");
}

void RunAll(const std::string &folder) {
    const std::string line =
        "cd " + folder + " && ls -d */ | xargs -P " + std::to_string(HOSTS_AT_ONCE) +
        " -I{} sh -c '" HARBREL_BIN_DIR "/private-host --keep " HARBREL_BIN_DIR " --keep " + folder +
        " -- timeout -k 1 60 sh " + folder + "/{}script > {}script.log 2>&1 < /dev/null'";
    RunShell(line, BATCH_DEADLINE);
}

CommandResult ReadResult(const std::string &path) {
    CommandResult result;
    const std::string status = ReadFileText(path + ".status");
    result.status = status.empty() ? -1 : std::stoi(status);
    result.output = ReadFileText(path + ".output");
    result.errors = ReadFileText(path + ".errors");
    return result;
}

Outcome Read(const std::string &moment, const std::string &folder) {
    Outcome outcome;
    outcome.moment = moment;
    outcome.hit = ReadFileText(folder + "/hit");
    outcome.disturbed = ReadResult(folder + "/disturbed");
    outcome.files = ReadFileText(folder + "/files");
    outcome.databaseLeft = std::filesystem::exists(folder + "/left");
    outcome.next = ReadResult(folder + "/next");
    outcome.database = Normalised(ReadFileText(folder + "/database"));
    outcome.unreadable = ReadFileText(folder + "/unreadable");
    return outcome;
}

// Behind it runs the tool, traced. A filter in the kernel makes the trace cheap, but lets no signal be sent,
// and cannot let go of daemons, which outlive the tool.
std::string Tracer(bool filter, const std::string &options) {
    return std::string("timeout 20 strace -qq -f -o trace ") + (filter ? "--seccomp-bpf " : "-b execve ") +
           options + " ";
}

std::string Options(const std::string &call, const std::string &injection, int n) {
    return "-e trace=" + call + " -e inject=" + call + ":" + injection + ":when=" + std::to_string(n);
}

}  // namespace

void PrintTo(const Scenario &scenario, std::ostream *stream) {
    *stream << scenario.name;
}

Moments::Moments(const Scenario &scenario) : scenario_(scenario) {
    // The first process of the trace is the tool.
    const std::string folder = folder_ / "undisturbed";
    std::filesystem::create_directory(folder);
    WriteFileText(folder + "/script",
                  Script(folder, Tracer(!scenario_.daemonsRun, ""), "") +
                      "awk '$2 ~ /^[a-z]/ { sub(/\\(.*/, \"\", $2); if (NR == 1) tool = $1; if ($1 == "
                      "tool) count[$2]++ } END { for (call in count) print call, "
                      "count[call] }' trace > calls\n");
    RunAll(folder_.Path());
    std::istringstream lines(ReadFileText(folder + "/calls"));
    std::string call;
    for (int count = 0; lines >> call >> count;) {
        calls_[call] = count;
    }
    const Outcome undisturbed = Read("undisturbed", folder);
    twin_ = undisturbed.database;
    EXPECT_EQ(scenario_.status, undisturbed.disturbed.status) << undisturbed.disturbed;
    EXPECT_NE("", twin_);
    std::filesystem::remove_all(folder);
}

std::string Moments::Script(const std::string &folder, const std::string &trace,
                            const std::string &next) const {
    const std::string tool = ProgramPath("harbrelCLI") + " ";
    std::string script = PREPARE;
    script += "cd " + folder + "\n";
    if (!scenario_.settings.empty()) {
        script += "cat > /run/settings <<'END'\nBACKUP_VERSION=1,0\n" + scenario_.settings + "END\n" + tool +
                  "--migrate-network-settings /run/settings || exit\nrm -f /etc/orvane/networking.bak.*\n";
    }
    script += trace + tool + scenario_.arguments +
              " > disturbed.output 2> disturbed.errors\necho $? > disturbed.status\n"
              "grep -m 1 -e INJECTED -e 'killed by SIGKILL' trace > hit\n"
              "[ ! -e /etc/orvane/networking ] || cp /etc/orvane/networking left\n";
    if (!next.empty()) {
        script += tool + next + " > next.output 2> next.errors\necho $? > next.status\n";
    }
    return script +
           "cp /etc/orvane/networking database\nls -A /etc/orvane /tmp > files\n"
           "grep 'Failed to parse record' /var/log/harbrel > unreadable\n";
}

std::vector<Outcome> Moments::Run(const Plan &plan, const std::string &next) const {
    const TempFolder folder;
    for (const auto &[moment, options] : plan) {
        const bool kills = options.find("signal=") != std::string::npos;
        const std::string own = folder / moment;
        std::filesystem::create_directory(own);
        WriteFileText(own + "/script", Script(own, Tracer(!scenario_.daemonsRun && !kills, options), next));
    }
    RunAll(folder.Path());
    std::vector<Outcome> outcomes;
    for (const auto &[moment, options] : plan) {
        outcomes.push_back(Read(moment, folder / moment));
    }
    return outcomes;
}

std::vector<Outcome> Moments::Disturb(const Injections &injections, int most, const std::string &next,
                                      const std::string &path) const {
    Plan plan;
    for (const auto &[call, injection] : injections) {
        const auto total = calls_.find(call);
        if (total == calls_.end()) {
            continue;
        }
        for (const int n : path.empty() ? Choose(total->second, most) : Choose(most, 3 * most)) {
            plan[call + "." + std::to_string(n)] =
                Options(call, injection, n) + (path.empty() ? "" : " -P " + path);
        }
    }
    return Run(plan, next);
}

std::vector<Outcome> Moments::KillAtRandom(int moments, const std::string &next) const {
    std::vector<std::pair<std::string, int>> all;
    for (const auto &[call, count] : calls_) {
        for (int n = 1; n <= count; n++) {
            all.emplace_back(call, n);
        }
    }
    std::vector<std::pair<std::string, int>> chosen;
    std::sample(all.begin(), all.end(), std::back_inserter(chosen), moments,
                std::mt19937(std::random_device{}()));
    Plan plan;
    for (const auto &[call, n] : chosen) {
        plan[call + "." + std::to_string(n)] = Options(call, "signal=KILL", n);
    }
    return Run(plan, next);
}
