// The pieces of the file lock, for its own files and its tests.
//
// The lock directory "<path>.lck" holds, for each attempt, up to three names with one number:
//   D<nnnnn>.lck  entry directory: its process is choosing a ticket (the doorway)
//   E<nnnnn>.lck  entry file: the member record while it is being written
//   M<nnnnn>.lck  member file: the finished record of a waiter or holder
// Functions that return int give 0 or an errno value unless they say otherwise. Names and paths are UTF-8,
// names read from the directory are its raw bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

constexpr char FILE_LOCK_SUFFIX[] = ".lck";
constexpr size_t FILE_LOCK_MEMBER_SIZE = 512;
constexpr char FILE_LOCK_EXCLUSIVE[] = "X";
constexpr char FILE_LOCK_SHARED[] = "S";

// An entry directory under observation by a process that waits.
struct ActiveLock {
    uint32_t age;  // milliseconds
    bool marked;   // seen in this turn of the scan
    std::string dirName;
};

// The values of one member. The texts belong to whoever filled the record in: the reader's buffer, or the
// frame of the attempt.
struct FileLockValues {
    const char *machineID;
    const char *executionID;
    const char *payload;  // may be null
    const char *lockType;
    const char *locationChecksum;  // may be null
    const char *memberName;
    uint32_t lamportNumber;
    // The rest is used in the own record only.
    uint32_t waitTime;         // milliseconds slept so far, for all members together
    uint32_t msecMaxWaitTime;  // see FileLock_Lock
    std::vector<ActiveLock> activeList;
};

// The names of one attempt.
struct FileLockEntry {
    std::string directoryPath;
    std::string filePath;
    std::string memberPath;
    std::string memberName;
};

// --- Who owns a member (fileLockOwner.cpp)

// The process id, or the override while one above 0 is set.
int FileLockGetPid();
void FileLockSetPidOverride(int pid);
// In clock ticks since the boot; 0 when it cannot be had.
unsigned long FileLockProcessCreationTime(int pid);
// The same from the text of /proc/<pid>/stat.
unsigned long FileLockCreationTimeFromStat(const char *text);
// The same for the own process, whose time is read once.
unsigned long FileLockOwnCreationTime(int ownPid);
bool IsValidProcess(int pid);
// Whether the process still lives; yes when in doubt. The payload may be null.
bool FileLockValidOwner(const char *executionID, const char *payload);

// --- Which machine (fileLockMachine.cpp)

const char *FileLockGetMachineID();
bool FileLockMachineIDMatch(const char *mine, const char *other);

// --- The member record (fileLockMember.cpp)

std::string FileLockLocationChecksum(const char *lockDir);
// Splits a terminated record in place; false when it is corrupt. memberName is not touched.
bool FileLockParseMember(char *text, FileLockValues *member);
// Reads a member into a buffer of `size` + 1 bytes, to which the texts of *member then point. ENOENT: it has
// gone, or it was corrupt and has been deleted.
int FileLockMemberValues(const char *lockDir, const char *name, char *buffer, size_t size,
                         FileLockValues *member);
// Takes the next ticket, writes the record through `entryFd`, which is closed in any case, and gives the file
// its member name.
int CreateMemberFile(int entryFd, FileLockValues *own, const FileLockEntry &entry);

// --- The doorway (fileLockEntry.cpp)

// EAGAIN: an old style lock file stands in place of the directory.
int CreateEntryDirectory(const char *machineID, const char *executionID, const char *lockDir,
                         FileLockEntry *entry);

// --- Scanning (fileLockScan.cpp)

// Judges one member; a result other than 0 ends the turn.
using FileLockScanner = int (*)(const char *lockDir, const char *name, const FileLockValues *member,
                                FileLockValues *own);

bool FileLockIsValidName(std::string_view name);
// With `cleanUp` the call also waits until nobody stands in the doorway, and clears entries that are stuck.
int ScanDirectory(const char *lockDir, FileLockScanner scanner, FileLockValues *own, bool cleanUp);
// What a turn of the scan does with the entries under observation: forgets those that have gone, ages the
// others by the pause between two turns, and clears away those that are too old.
void FileLockAgeActiveList(const char *lockDir, FileLockValues *own);
// Leaves the highest Lamport number in the own record.
int FileLockNumberScan(const char *lockDir, const char *name, const FileLockValues *member,
                       FileLockValues *own);
int RemoveLockingFile(const char *lockDir, const char *name);

// --- Waiting (fileLockWait.cpp)

// Waits until the member is out of the way. EAGAIN: the wait ran out.
int WaitForPossession(const char *lockDir, const char *name, const FileLockValues *member,
                      FileLockValues *own);
// The milliseconds to pause when the loop counter has this value.
uint32_t FileLockPauseLength(unsigned loopCounter);
// Counts to the full time, whatever signals arrive.
void FileLockSleep(uint32_t msec);
