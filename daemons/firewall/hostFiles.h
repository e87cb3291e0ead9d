// What the daemons of the host know of each other's share in its packet filter: files in WATCH_FOLDER, which
// only root enters.
//
// A file says that a living daemon needs what it stands for while the daemon holds it. It is held by a lock
// that the kernel drops with the daemon, through a descriptor that can neither write the file nor lock
// anybody out, since the daemon may come to be ruled by a guest.
#pragma once

#include <string>
#include <vector>

#include "lib/misc/owners.h"

// Held by every daemon that needs the host's table.
inline constexpr const char *HOST_TABLE_FILE = "host-table";
// Held by every NAT daemon that has a share in it.
inline constexpr const char *NAT_FILE = "nat";

// The file of a network's NAT daemon, which holds its share as text.
std::string HostFiles_OfNat(int network);
std::vector<int> HostFiles_NatNetworks();

// Serialises all changes of the host's table and of these files. Not to be taken twice by one process.
class HostEdit {
  public:
    // Waits up to ten seconds.
    HostEdit();
    // False after a line in the log.
    bool held() const { return static_cast<bool>(file_); }

  private:
    FileDescriptor file_;
};

// All below are to be called with HostEdit held.

// Makes the file if need be and holds it; empty after a line in the log. Other descriptors may hold it as
// well.
FileDescriptor HostFiles_Hold(const std::string &name);
bool HostFiles_IsHeld(const std::string &name);

// Empty when there is none.
std::string HostFiles_Read(const std::string &name);
// False after a line in the log.
bool HostFiles_Write(const std::string &name, const std::string &text);
void HostFiles_Remove(const std::string &name);
