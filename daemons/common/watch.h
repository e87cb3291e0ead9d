// How daemons speak to zelan-watch, the one process of the host that cleans up behind all of them.
//
// Over a connection of a socket in WATCH_FOLDER a daemon claims its duty before it makes anything, and has
// its process guarded once everything is there. A connection that ends before that is a start that has
// failed: what was made under the duty is removed at once.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "lib/misc/owners.h"

// The requests; each is one message, and so is the answer.
inline constexpr std::string_view WATCH_CLAIM = "claim ";  // and the duty
inline constexpr std::string_view WATCH_GUARD = "guard";   // with the process' pidfd; the record is written
inline constexpr std::string_view WATCH_SWEEP = "sweep";   // answered when nothing is left to be removed
inline constexpr std::string_view WATCH_DONE = "done";     // the answer to each when it has succeeded
inline constexpr std::string_view WATCH_BUSY = "busy";     // another living daemon has the duty
inline constexpr size_t WATCH_MESSAGE_SIZE = 64;           // at most

// Connects, and starts the watcher when there is none: the program of that name in the folder of the calling
// one, which writes its log to the descriptor `log`, or with -1 where the caller does. Empty after a line in
// the log. Call before capabilities are given up, which the watcher needs.
FileDescriptor Watch_Connect(int log = -1);

// Sends a request, with a descriptor unless that is -1, and waits for the answer, not longer than half a
// minute. Empty after a line in the log.
std::string Watch_Ask(const FileDescriptor &connection, std::string_view request, int descriptor = -1);

// The same for the first request over a connection of Watch_Connect, with its `log`: a watcher that was
// killed a moment ago still takes connections, so that another one is made when it ends without an answer.
std::string Watch_AskFirst(FileDescriptor *connection, std::string_view request, int log = -1);

// For the watcher's side. One message, and the descriptor that came with it; false when the other side has
// ended. The text is empty when no message is there.
bool Watch_Receive(const FileDescriptor &connection, std::string *text, FileDescriptor *descriptor);
bool Watch_Send(const FileDescriptor &connection, std::string_view text, int descriptor = -1);

// For a watcher that has nothing left to do: takes the socket away. False when it is to go on, for somebody
// is just coming: with the connections in *late and a new listener in place of the old, or to try again
// later.
bool Watch_Close(FileDescriptor *listener, std::vector<FileDescriptor> *late);

// The next who has connected; empty when nobody waits.
FileDescriptor Watch_Accept(const FileDescriptor &listener);
