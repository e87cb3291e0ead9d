// One load of the network library, and what went wrong in words for people.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <memory>
#include <string>

#include "lib/harbrel/harbrel.h"

inline constexpr const char *DATABASE = "/etc/orvane/networking";

// Loads in the constructor. Only Finish unloads, which writes the database out anew: a run that has merely
// read leaves the file alone.
class Library {
  public:
    Library();
    Library(Library &&) = delete;

    explicit operator bool() const { return loaded_; }
    const std::string &error() const { return error_; }  // why it is not loaded
    void Finish();

  private:
    bool loaded_ = false;
    std::string error_;
};

struct HostAdaptersDeleter {
    void operator()(HBL_HostAdapterList *list) const { HBL_FreeHostAdapterList(list); }
};
using HostAdapters = std::unique_ptr<HBL_HostAdapterList, HostAdaptersDeleter>;

// Those that the library knows; on a host with many interfaces these are not all. Null when it cannot list
// any.
HostAdapters ListHostAdapters();

// While it lives the library writes nothing to its log: services that are stopped leave lines there whenever
// they are asked about.
class QuietLog {
  public:
    QuietLog();
    ~QuietLog();
    QuietLog(QuietLog &&) = delete;

  private:
    uint32_t mask_;
};

// The log from a moment on, to give a failed call its reason.
class LogMark {
  public:
    explicit LogMark(std::string path);
    // The last line that was added since then and says something of an error; empty when there is none.
    std::string LastReason() const;

  private:
    std::string path_;
    off_t start_;
};
