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
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <string>

#include "lib/harbrel/harbrel.h"
#include "tests/schedules/actors.h"
#include "tests/schedules/places.h"
#include "tests/support/command.h"

namespace {

constexpr int64_t ROUND_NANOSECONDS = 2'000'000'000;
constexpr int64_t END_NANOSECONDS = 90'000'000'000;  // for what was begun before a round's end
constexpr const char *DATABASE = "/etc/orvane/networking";

struct Part {
    const char *name;
    bool (*play)(Actor *actor);
};

constexpr Part WRITER = {"writer", Write};
constexpr Part READER = {"reader", Look};
constexpr Part SWEEP = {"sweep", Sweep};
constexpr Part EDITOR = {"editor", Edit};
constexpr Part IMPORTER = {"importer", Import};
constexpr Part OWNER = {"owner", Own};

// Who plays together, and how many of each at most.
struct Play {
    bool writersTakeNoLock;
    std::vector<std::pair<Part, uint32_t>> parts;
};

const Play PLAYS[] = {
    // One who waits for nobody's lock puts new files in place much more often than several do.
    {true, {{WRITER, 3}, {READER, 1}}},
    {true, {{WRITER, 3}, {IMPORTER, 1}}},
    {true, {{WRITER, 1}, {OWNER, 1}}},
    {true, {{READER, 2}, {IMPORTER, 1}, {WRITER, 1}}},
    {false, {{WRITER, 2}, {EDITOR, 1}, {READER, 1}}},
    {false, {{WRITER, 1}, {IMPORTER, 1}}},
    {false, {{WRITER, 4}, {READER, 3}, {SWEEP, 1}, {EDITOR, 1}, {IMPORTER, 1}}},
    // An import takes an owner's records away.
    {false, {{WRITER, 4}, {READER, 3}, {SWEEP, 1}, {EDITOR, 1}, {OWNER, 3}}},
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
    JoltCalls(static_cast<uint32_t>(player.actor.random()), player.actor.joltsPerMille);
    const bool good = player.part.play(&player.actor);
    FILE *const file = fopen(HistoryOf(player).c_str(), "w");
    bool saved = file != nullptr &&
                 fwrite(&player.actor.refused, sizeof player.actor.refused, 1, file) == 1 &&
                 fwrite(&player.actor.written, sizeof player.actor.written, 1, file) == 1;
    for (const Operation &operation : player.actor.done) {
        saved = saved && fwrite(&operation, sizeof operation, 1, file) == 1;
    }
    saved = saved && fclose(file) == 0;
    _exit(good && saved ? 0 : 1);
}

bool TakeHistory(Player *player) {
    FILE *const file = fopen(HistoryOf(*player).c_str(), "r");
    Operation operation = {};
    bool taken = file != nullptr &&
                 fread(&player->actor.refused, sizeof player->actor.refused, 1, file) == 1 &&
                 fread(&player->actor.written, sizeof player->actor.written, 1, file) == 1;
    while (taken && fread(&operation, sizeof operation, 1, file) == 1) {
        player->actor.done.push_back(operation);
    }
    return taken && fclose(file) == 0;
}

std::vector<Player> Cast(std::mt19937 *random) {
    constexpr uint32_t PAUSES[] = {0, 1000, 20000, 300000};
    const Play &play = PLAYS[Draw(random, std::size(PLAYS))];
    const uint32_t pause = PAUSES[play.writersTakeNoLock ? 0 : Draw(random, std::size(PAUSES))];
    constexpr uint32_t JOLTS[] = {0, 1, 10, 100};
    const uint32_t jolts = JOLTS[Draw(random, std::size(JOLTS))];
    const int64_t until = Now() + ROUND_NANOSECONDS;
    std::vector<Player> players;
    for (const auto &[part, most] : play.parts) {
        for (uint32_t count = 1 + Draw(random, most); count > 0; count--) {
            const auto number = static_cast<uint32_t>(players.size() + 1);
            players.push_back(
                {part, {number, std::mt19937((*random)()), until, pause, jolts, play.writersTakeNoLock}});
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
    FILE *const file = fopen(DATABASE, "w");
    if (file == nullptr || fputs(database.c_str(), file) < 0 || fclose(file) != 0) {
        perror(DATABASE);
        exit(1);
    }
}

// Stops one process or another for a moment, wherever it is, until all are over.
void Jolt(const std::vector<Player> &players, std::mt19937 *random, int64_t until) {
    const auto sleep = [random](uint32_t most) {
        const timespec time = {.tv_sec = 0, .tv_nsec = static_cast<long>(Draw(random, most)) * 1000};
        nanosleep(&time, nullptr);
    };
    while (Now() < until) {
        const pid_t group = -players[(*random)() % players.size()].process;
        kill(group, SIGSTOP);
        sleep(Draw(random, 10) == 0 ? 50000 : 2000);
        kill(group, SIGCONT);
        sleep(Draw(random, 2) == 0 ? 100 : 5000);
    }
}

bool EndsWell(const Player &player) {
    const int64_t deadline = Now() + END_NANOSECONDS;
    int status = 0;
    pid_t ended = 0;
    while ((ended = waitpid(player.process, &status, WNOHANG)) == 0 && Now() < deadline) {
        usleep(2000);
    }
    if (ended == 0) {
        printf("  %s %u does not end\n", player.part.name, player.actor.number);
        kill(-player.process, SIGKILL);
        waitpid(player.process, &status, 0);
    } else if (status != 0) {
        printf("  %s %u ended with %d\n", player.part.name, player.actor.number, status);
    }
    return ended != 0 && status == 0;
}

void Tell(const std::vector<Operation> &history) {
    constexpr size_t LAST = 40;
    for (size_t i = history.size() > LAST ? history.size() - LAST : 0; i < history.size(); i++) {
        const Operation &operation = history[i];
        printf("    %lld to %lld: %s %u\n", static_cast<long long>(operation.begin / 1000),
               static_cast<long long>(operation.end / 1000), operation.isWrite ? "write" : "read",
               operation.value);
    }
}

bool Explain(const std::vector<Player> &players, const std::vector<Operation> &last) {
    bool good = true;
    for (uint32_t place = 0; place < PLACES; place++) {
        std::vector<Operation> history;
        const auto take = [&](const std::vector<Operation> &done) {
            std::copy_if(done.begin(), done.end(), std::back_inserter(history),
                         [place](const Operation &operation) { return operation.place == place; });
        };
        take(last);
        for (const Player &player : players) {
            take(player.actor.done);
        }
        const std::string reason = WhyImpossible(history, place >= PLACES_WITHOUT_LOCK);
        if (!reason.empty()) {
            std::sort(history.begin(), history.end(),
                      [](const Operation &left, const Operation &right) { return left.end < right.end; });
            printf("  %s: %s\n", PlaceName(place).c_str(), reason.c_str());
            Tell(history);
            good = false;
        }
    }
    return good;
}

// What is there when all are over; nothing may be left of their work but the database.
bool ReadTheLast(std::vector<Operation> *last) {
    const int64_t begin = Now();
    if (!HBL_Load()) {
        printf("  the database does not load\n");
        return false;
    }
    for (uint32_t place = 0; place < PLACES; place++) {
        last->push_back({place, false, ReadPlace(place), begin, Now()});
    }
    HBL_Unload();
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

// Prints each player with the number of its operations, and behind a dash of those that were refused.
bool PlayRound(unsigned seed) {
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
        good = EndsWell(player) && TakeHistory(&player) && good;
        cast.append(" ").append(player.part.name).append(" ");
        const bool isOwner = player.part.play == Own;
        const size_t done = isOwner ? player.actor.written : player.actor.done.size();
        cast.append(std::to_string(done)).append("-");
        cast.append(std::to_string(player.actor.refused));
    }
    std::vector<Operation> last;
    good = ReadTheLast(&last) && good;
    good = Explain(players, last) && good;
    printf("seed %u:%s: %s\n", seed, cast.c_str(), good ? "good" : "BAD");
    fflush(stdout);
    return good;
}

}  // namespace

int main(int argc, char **argv) {
    int64_t seconds = 10;
    unsigned seed = 1;
    for (int option = 0; (option = getopt(argc, argv, "t:s:")) != -1;) {
        if (option == 't') {
            seconds = atoll(optarg);
        } else if (option == 's') {
            seed = static_cast<unsigned>(atoll(optarg));
        } else {
            return 2;
        }
    }
    if (getenv("HARBREL_PRIVATE_HOST") == nullptr) {
        fprintf(stderr, "schedules: this is no private host; script/try-schedules makes one\n");
        return 2;
    }
    const int64_t until = Now() + seconds * 1'000'000'000;
    unsigned bad = 0;
    unsigned rounds = 0;
    for (; rounds == 0 || Now() < until; rounds++) {
        bad += PlayRound(seed + rounds) ? 0 : 1;
    }
    printf("%u rounds from seed %u, %u bad\n", rounds, seed, bad);
    return bad == 0 ? 0 : 1;
}
