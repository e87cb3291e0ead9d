#include "tests/schedules/actors.h"

#include <ctime>
#include <string>

#include "lib/harbrel/harbrel.h"
#include "tests/schedules/places.h"
#include "tests/support/command.h"

namespace {

constexpr uint32_t VALUES_OF_AN_ACTOR = 1 << 18;
// It takes the lock several times, and each time may have to wait for those who come to its doorway all the
// while.
constexpr std::chrono::seconds EDIT_DEADLINE{60};

void Pause(Actor *actor) {
    if (actor->pauseMicroseconds > 0) {
        const timespec pause = {.tv_sec = 0,
                                .tv_nsec = 1000L * Draw(&actor->random, actor->pauseMicroseconds)};
        nanosleep(&pause, nullptr);
    }
}

// Values that were never used.
uint32_t Take(Actor *actor, uint32_t count) {
    const uint32_t value = actor->number * VALUES_OF_AN_ACTOR + actor->written;
    actor->written += count;
    return value;
}

bool IsOver(const Actor *actor) {
    return Now() >= actor->until || actor->written + PLACES >= VALUES_OF_AN_ACTOR;
}

void Record(Actor *actor, bool acknowledged, const Operation &operation) {
    if (acknowledged) {
        actor->done.push_back(operation);
    } else {
        actor->refused++;
    }
}

// What was read at the load holds at some moment of it.
bool LoadAndRead(Actor *actor) {
    const int64_t begin = Now();
    if (!HBL_Load()) {
        actor->refused++;
        return false;
    }
    const int64_t end = Now();
    for (uint32_t place = 0; place < PLACES; place++) {
        actor->done.push_back({place, false, ReadPlace(place), begin, end});
    }
    return true;
}

std::string BackupOf(const Actor *actor, uint32_t first) {
    std::string path = "/tmp/import." + std::to_string(actor->number);
    WriteFileText(path, "BACKUP_VERSION=1,0\n" + RecordsFrom(first));
    return path;
}

}  // namespace

int64_t Now() {
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * 1'000'000'000LL + now.tv_nsec;
}

uint32_t Draw(std::mt19937 *random, uint32_t limit) {
    return static_cast<uint32_t>((*random)() % limit);
}

bool Write(Actor *actor) {
    while (!IsOver(actor)) {
        if (!LoadAndRead(actor)) {
            continue;
        }
        const uint32_t places =
            actor->withoutLock || Draw(&actor->random, 2) == 0 ? PLACES_WITHOUT_LOCK : PLACES;
        const uint32_t most = actor->withoutLock ? 10000 : 100;
        for (uint32_t left = Draw(&actor->random, most); left > 0 && !IsOver(actor); left--) {
            const uint32_t place = Draw(&actor->random, places);
            const uint32_t value = Take(actor, 1);
            const int64_t begin = Now();
            const bool acknowledged = WritePlace(place, value);
            Record(actor, acknowledged, {place, true, value, begin, Now()});
            Pause(actor);
        }
        HBL_Unload();
    }
    return true;
}

bool Look(Actor *actor) {
    while (!IsOver(actor)) {
        if (LoadAndRead(actor)) {
            HBL_Unload();
        }
        Pause(actor);
    }
    return true;
}

bool Import(Actor *actor) {
    while (!IsOver(actor)) {
        const uint32_t first = Take(actor, PLACES);
        const std::string path = BackupOf(actor, first);
        const int64_t begin = Now();
        const bool acknowledged = HBL_ImportDatabaseFromFile(path.c_str());
        const int64_t end = Now();
        for (uint32_t place = 0; place < PLACES; place++) {
            Record(actor, acknowledged, {place, true, first + place, begin, end});
        }
        const timespec pause = {
            .tv_sec = 0,
            .tv_nsec = 1'000'000L * Draw(&actor->random, actor->pauseMicroseconds > 0 ? 300 : 5)};
        nanosleep(&pause, nullptr);
    }
    return true;
}

bool Sweep(Actor *actor) {
    while (!IsOver(actor)) {
        const CommandResult result = RunCommand({ProgramPath("harbrelCLI"), "--status"});
        if (result.timedOut || result.status > 1) {
            fprintf(stderr, "harbrelCLI --status ended with %d\n", result.status);
            return false;
        }
        Pause(actor);
    }
    return true;
}

bool Edit(Actor *actor) {
    while (!IsOver(actor)) {
        const uint32_t value = Take(actor, 1);
        const int64_t begin = Now();
        const CommandResult result = RunCommand({ProgramPath("harbrelctl"), "--yes", "--no-apply", "set",
                                                 EDITORS_NETWORK, "domain=" + EditorsText(value)},
                                                EDIT_DEADLINE);
        Record(actor, result.status == 0, {EDITORS_PLACE, true, value, begin, Now()});
        if (result.timedOut || result.status > 5) {
            fprintf(stderr, "harbrelctl ended with %d: %s\n", result.status, result.errors.c_str());
            return false;
        }
        Pause(actor);
    }
    return true;
}
