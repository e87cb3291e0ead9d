// The pieces of the file lock, for its own files and its tests.
//
// The lock directory "<path>.lck" holds, for each attempt, up to three names with one number:
//   D<nnnnn>.lck  entry directory: its process is choosing a ticket (the doorway)
//   E<nnnnn>.lck  entry file: the member record while it is being written
//   M<nnnnn>.lck  member file: the finished record of a waiter or holder
// Functions that return int give 0 or an errno value unless they say otherwise. Names in the lock directory
// are its raw bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "lib/misc/owners.h"

constexpr char FILE_LOCK_SUFFIX[] = ".lck";
constexpr size_t FILE_LOCK_MEMBER_SIZE = 512;
constexpr char FILE_LOCK_EXCLUSIVE[] = "X";
constexpr char FILE_LOCK_SHARED[] = "S";

// --- The lock directory (fileLockDirectory.cpp)

// Looked up once for an attempt; all work goes through the descriptors. Everyone may write to the directory,
// and to the folder too where that is /tmp, so that what a name leads to may be another thing at each look.
class LockDirectory {
  public:
    // `path` is absolute, UTF-8, and ends in FILE_LOCK_SUFFIX.
    explicit LockDirectory(std::string path) : path_(std::move(path)) {}

    // Finds the folder of the locked file. Comes first.
    int FindFolder();
    // Takes hold of what stands in the folder now. ENOTDIR: no directory, or a link.
    int Open();
    // Makes the directory with the rights that the umask leaves. EEXIST when something stands there.
    int Make() const;
    // The type bits of the st_mode of what stands in the folder, links not followed.
    int Type(mode_t *type) const;
    // Deletes what stands in the folder and is no directory.
    int Discard() const;
    void RemoveIfEmpty() const;

    // --- of an open one
    int Names(std::vector<std::string> *names) const;
    // Deletes what another process has left. EPERM in a directory of a third user, who might have had it put
    // here.
    int Discard(const char *name, int unlinkFlags = 0) const;

    int fd() const { return directory_.get(); }
    const std::string &path() const { return path_; }
    std::string PathOf(const std::string &name) const { return path_ + "/" + name; }

  private:
    std::string path_;   // for messages and the location checksum
    MallocString name_;  // in the folder, as the kernel takes it
    FileDescriptor folder_;
    FileDescriptor directory_;
};

// The values of one member.
struct FileLockValues {
    std::string machineID;
    std::string executionID;
    std::optional<std::string> payload;
    std::string lockType;
    std::optional<std::string> locationChecksum;
    std::string memberName;
    uint32_t lamportNumber = 0;
};

// An entry directory under observation by a process that waits.
struct ActiveLock {
    uint32_t age;  // milliseconds
    bool marked;   // seen in this turn of the scan
    std::string dirName;
};

// One attempt to get the lock.
struct FileLockAttempt {
    LockDirectory directory;
    FileLockValues own = {};
    std::string entryDirName = {};  // "D<nnnnn>.lck"
    std::string entryName = {};     // "E<nnnnn>.lck"
    uint32_t msecMaxWaitTime = 0;   // see FileLock_Lock
    uint32_t waitTime = 0;          // milliseconds slept so far, for all members together
    uint32_t doorwayTime = 0;       // milliseconds slept so far before entry directories
    bool doorwayStuck = false;      // one could not be cleared, which ended the wait
    std::vector<ActiveLock> activeList = {};
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
// Whether the process still lives; yes when in doubt.
bool FileLockValidOwner(const std::string &executionID, const std::optional<std::string> &payload);

// --- Which machine (fileLockMachine.cpp)

const char *FileLockGetMachineID();
bool FileLockMachineIDMatch(std::string_view mine, std::string_view other);

// --- The member record (fileLockMember.cpp)

std::string FileLockLocationChecksum(const std::string &lockDir);
// False when the record is corrupt. memberName is not touched.
bool FileLockParseMember(std::string_view record, FileLockValues *member);
// ENOENT: the member has gone, or it was corrupt and has been deleted.
int FileLockMemberValues(const LockDirectory &directory, const std::string &name, FileLockValues *member);
// Takes the next ticket, writes the record and gives the entry file its member name.
int CreateMemberFile(FileDescriptor entryFile, FileLockAttempt *attempt);

// --- The doorway (fileLockEntry.cpp)

// Opens the lock directory, made where it is missing, and stands in its doorway. EAGAIN: an old style lock
// file stands in place of the directory.
int CreateEntryDirectory(FileLockAttempt *attempt);

// --- Scanning (fileLockScan.cpp)

// Judges one member; a result other than 0 ends the turn.
using FileLockScanner = int (*)(const FileLockValues &member, FileLockAttempt *attempt);

bool FileLockIsValidName(std::string_view name);
// With `cleanUp` the call also waits until nobody stands in the doorway, and clears entries that are stuck.
// EAGAIN: the wait ran out.
int ScanDirectory(FileLockAttempt *attempt, FileLockScanner scanner, bool cleanUp);
// What a turn of the scan does with the entries under observation: forgets those that have gone, ages the
// others by the pause between two turns, and clears away those that are too old.
int FileLockAgeActiveList(FileLockAttempt *attempt);
// Leaves the highest Lamport number in the own record.
int FileLockNumberScan(const FileLockValues &member, FileLockAttempt *attempt);
int RemoveLockingFile(const LockDirectory &directory, const std::string &name);

// --- Waiting (fileLockWait.cpp)

// Waits until the member is out of the way. EAGAIN: the wait ran out.
int WaitForPossession(const FileLockValues &member, FileLockAttempt *attempt);
// The milliseconds to pause when the loop counter has this value.
uint32_t FileLockPauseLength(unsigned loopCounter);
// Counts to the full time, whatever signals arrive.
void FileLockSleep(uint32_t msec);
