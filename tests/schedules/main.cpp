// Many processes at one database, under schedules drawn at random: what each call has acknowledged, and what
// each process finds, must be explained by some order of the changes.
//
//   schedules [-t SECONDS] [-s SEED]
//
// Plays one round after another for so long, each with a seed of its own, the first with SEED. A round that
// went wrong is played again by its seed. Changes the host that it runs on: for private hosts only.
#include <getopt.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cinttypes>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <span>
#include <string>

#include "lib/harbrel/harbrel.h"
#include "tests/schedules/actors.h"
#include "tests/schedules/places.h"
#include "tests/support/command.h"

namespace {

constexpr int64_t ROUND_NANOSECONDS = 2'000'000'000;
constexpr unsigned LIMIT_SECONDS = 90;  // for what was begun before a round's end

struct Part {
    const char *name;
    bool (*play)(Actor *actor);
};

constexpr Part PARTS[] = {{"writer", Write}, {"reader", Look}, {"editor", Edit}, {"importer", Import}};

// Who plays together: how many at most of each part, in their order, or none.
constexpr struct {
    bool writersTakeNoLock;
    uint32_t most[std::size(PARTS)];
} PLAYS[] = {
    // One who waits for nobody's lock puts new files in place much more often than several do.
    {true, {3, 1, 0, 0}},  {true, {3, 0, 0, 1}},  {true, {1, 2, 0, 1}},  {false, {2, 1, 1, 0}},
    {false, {1, 0, 0, 1}}, {false, {4, 3, 1, 1}}, {false, {4, 3, 1, 0}},
};

struct Player {
    Part part;
    Actor actor;
    pid_t process = -1;
};

std::string HistoryOf(const Player &player) {
    return "/tmp/history." + std::to_string(player.actor.number);
}

[[noreturn]] void Run(Player player) {
    setpgid(0, 0);  // with the programs that it runs
    alarm(LIMIT_SECONDS);
    JoltCalls(static_cast<uint32_t>(player.actor.random()), player.actor.joltsPerMille);
    const bool good = player.part.play(&player.actor);
    const auto &done = player.actor.done;
    WriteFileText(HistoryOf(player),
                  {reinterpret_cast<const char *>(done.data()), done.size() * sizeof done[0]});
    _exit(good ? 0 : 1);
}

void TakeHistory(Player *player) {
    const std::string text = ReadFileText(HistoryOf(*player));
    player->actor.done.resize(text.size() / sizeof(Operation));
    std::copy(text.begin(), text.end(), reinterpret_cast<char *>(player->actor.done.data()));
}

std::vector<Player> Cast(std::mt19937 *random) {
    constexpr uint32_t PAUSES[] = {0, 1000, 20000, 300000};
    const auto &play = PLAYS[Draw(random, std::size(PLAYS))];
    const uint32_t pause = PAUSES[play.writersTakeNoLock ? 0 : Draw(random, std::size(PAUSES))];
    constexpr uint32_t JOLTS[] = {0, 1, 10, 100};
    const uint32_t jolts = JOLTS[Draw(random, std::size(JOLTS))];
    const int64_t until = Now() + ROUND_NANOSECONDS;
    std::vector<Player> players;
    for (size_t part = 0; part < std::size(PARTS); part++) {
        for (uint32_t count = play.most[part] > 0 ? 1 + Draw(random, play.most[part]) : 0; count > 0;
             count--) {
            const auto number = static_cast<uint32_t>(players.size() + 1);
            players.push_back(
                {PARTS[part],
                 {number, std::mt19937((*random)()), until, pause, jolts, play.writersTakeNoLock}});
        }
    }
    return players;
}

void Prepare(std::mt19937 *random) {
    std::filesystem::remove_all("/etc/orvane/networking.lck");
    // What takes time to read gives the others time to come between.
    std::string database = "VERSION=1,0\n" + RecordsFrom(FIRST_VALUE);
    for (uint32_t port = Draw(random, 1000); port > 0; port--) {
        database += "add_nat_portfwd 9 tcp " + std::to_string(port) + " 10.0.9.9 80\n";
    }
    WriteFileText("/etc/orvane/networking", database);
}

// Stops one process or another for a moment, wherever it is, until all are over.
void Jolt(const std::vector<Player> &players, std::mt19937 *random, int64_t until) {
    while (Now() < until) {
        const pid_t group = -players[(*random)() % players.size()].process;
        kill(group, SIGSTOP);
        usleep(Draw(random, Draw(random, 10) == 0 ? 50000 : 2000));
        kill(group, SIGCONT);
        usleep(Draw(random, Draw(random, 2) == 0 ? 100 : 5000));
    }
}

bool EndsWell(const Player &player) {
    int status = -1;
    waitpid(player.process, &status, 0);
    kill(-player.process, SIGKILL);  // what it has left running
    if (status != 0) {
        printf("  %s %u ended with %d\n", player.part.name, player.actor.number, status);
    }
    return status == 0;
}

bool Explain(const std::vector<Player> &players) {
    bool good = true;
    for (uint32_t place = 0; place < PLACES; place++) {
        std::vector<Operation> history;
        for (const Player &player : players) {
            std::ranges::copy_if(
                player.actor.done, std::back_inserter(history),
                [place](uint32_t other) { return other == place; }, &Operation::place);
        }
        const std::string reason = WhyImpossible(history, place >= PLACES_WITHOUT_LOCK);
        if (!reason.empty()) {
            std::ranges::sort(history, {}, &Operation::end);
            printf("  place %u: %s; the last that happened there, with microseconds:\n", place,
                   reason.c_str());
            for (const Operation &one : std::span(history).last(std::min<size_t>(history.size(), 40))) {
                printf("    %" PRId64 " to %" PRId64 ": %s %u\n", one.begin / 1000, one.end / 1000,
                       one.isWrite ? "write" : "read", one.value);
            }
            good = false;
        }
    }
    return good;
}

// Nothing may be left of the players' work but the database.
bool IsClean() {
    bool clean = true;
    for (const auto &entry : std::filesystem::directory_iterator("/etc/orvane")) {
        const std::string name = entry.path().filename();
        if (name != "networking" && name.find(".bak.") == std::string::npos) {
            printf("  %s is left\n", name.c_str());
            clean = false;
        }
        if (name != "networking") {
            std::filesystem::remove_all(entry);
        }
    }
    return clean;
}

// Prints each player with the number of its operations.
bool PlayRound(unsigned long seed) {
    std::mt19937 random(seed);
    Prepare(&random);
    std::vector<Player> players = Cast(&random);
    for (Player &player : players) {
        player.process = fork();
        if (player.process == 0) {
            Run(player);
        }
        setpgid(player.process, player.process);
    }
    Jolt(players, &random, players.front().actor.until);
    bool good = true;
    std::string cast;
    for (Player &player : players) {
        good = EndsWell(player) && good;
        TakeHistory(&player);
        cast += std::string(" ") + player.part.name + " " + std::to_string(player.actor.done.size());
    }
    Player last = {};
    good = LoadAndRead(&last.actor) && good;  // what is there when all are over
    HBL_Unload();
    players.push_back(last);
    good = IsClean() && Explain(players) && good;
    printf("seed %lu:%s: %s\n", seed, cast.c_str(), good ? "good" : "BAD");
    fflush(stdout);
    return good;
}

}  // namespace

int main(int argc, char **argv) {
    unsigned long seconds = 10;
    unsigned long seed = 1;
    for (int option = 0; (option = getopt(argc, argv, "t:s:")) != -1;) {
        if (option == '?') {
            return 2;
        }
        (option == 't' ? seconds : seed) = strtoul(optarg, nullptr, 10);
    }
    if (getenv("HARBREL_PRIVATE_HOST") == nullptr) {
        fprintf(stderr, "schedules: this is no private host; script/try-schedules makes one\n");
        return 2;
    }
    // A judge who lets everything pass would never see a loss.
    if (WhyImpossible({{0, true, 1, 1, 2}, {0, false, FIRST_VALUE, 3, 4}}, true).empty()) {
        return 2;
    }
    const int64_t until = Now() + static_cast<int64_t>(seconds) * 1'000'000'000;
    unsigned bad = 0;
    unsigned rounds = 0;
    for (; rounds == 0 || Now() < until; rounds++) {
        bad += PlayRound(seed + rounds) ? 0 : 1;
    }
    printf("%u rounds from seed %lu, %u bad\n", rounds, seed, bad);
    return bad == 0 ? 0 : 1;
}
