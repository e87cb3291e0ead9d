// Network namespaces of the daemons.
#pragma once

#include "lib/misc/owners.h"

// A network namespace of its own for a daemon: made with the loopback up and without IPv6, seen through its
// descriptor, and gone with the last process in it and the last descriptor of it. The calling process stays
// where it is. Empty after a line in the log.
FileDescriptor Namespace_Make();

// Moves the calling process there for good.
bool Namespace_Enter(const FileDescriptor &space);

// Moves the calling process there for the object's life. What it opens there (sockets, settings below
// /proc/sys/net) stays of that namespace.
class NamespaceVisit {
  public:
    explicit NamespaceVisit(const FileDescriptor &space);
    ~NamespaceVisit();
    NamespaceVisit(const NamespaceVisit &) = delete;
    NamespaceVisit &operator=(const NamespaceVisit &) = delete;

    // False after a line in the log; the process is then where it was.
    bool entered() const { return static_cast<bool>(home_); }

  private:
    FileDescriptor home_;
};
