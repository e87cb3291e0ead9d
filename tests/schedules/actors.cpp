#include "tests/schedules/actors.h"

#include <unistd.h>

#include <ctime>
#include <string>
#include <utility>

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
        usleep(Draw(&actor->random, actor->pauseMicroseconds));
    }
}

// Values that were never used.
uint32_t Take(Actor *actor, uint32_t count) {
    return actor->number * VALUES_OF_AN_ACTOR + std::exchange(actor->taken, actor->taken + count);
}

bool IsOver(const Actor *actor) {
    return Now() >= actor->until || actor->taken + PLACES >= VALUES_OF_AN_ACTOR;
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

bool LoadAndRead(Actor *actor) {
    const int64_t begin = Now();
    if (!HBL_Load()) {
        return false;
    }
    const int64_t end = Now();
    for (uint32_t place = 0; place < PLACES; place++) {
        actor->done.push_back({place, false, ReadPlace(place), begin, end});
    }
    return true;
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
            if (place < PLACES_WITHOUT_LOCK && Draw(&actor->random, 4) == 0) {
                WritePlace(place, NO_VALUE);
            }
            if (WritePlace(place, value)) {
                actor->done.push_back({place, true, value, begin, Now()});
            }
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
    const std::string path = "/tmp/import." + std::to_string(actor->number);
    while (!IsOver(actor)) {
        const uint32_t first = Take(actor, PLACES);
        WriteFileText(path, "BACKUP_VERSION=1,0\n" + RecordsFrom(first));
        const int64_t begin = Now();
        const bool acknowledged = HBL_ImportDatabaseFromFile(path.c_str());
        const int64_t end = Now();
        for (uint32_t place = 0; acknowledged && place < PLACES; place++) {
            actor->done.push_back({place, true, first + place, begin, end});
        }
        usleep(1000 * Draw(&actor->random, actor->pauseMicroseconds > 0 ? 300 : 5));
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
        if (result.Succeeded()) {
            actor->done.push_back({EDITORS_PLACE, true, value, begin, Now()});
        }
        if (result.timedOut || result.status > 5) {
            fprintf(stderr, "harbrelctl ended with %d: %s\n", result.status, result.errors.c_str());
            return false;
        }
        Pause(actor);
    }
    return true;
}
