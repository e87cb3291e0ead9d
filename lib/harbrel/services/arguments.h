// The exact argument vector of each daemon.
#pragma once

#include <cstddef>
#include <cstdint>

#include "lib/harbrel/addresses/addresses.h"
#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/services/programs.h"

// A null-terminated vector of malloc'ed texts that grows by doubling and remembers exhaustion instead of
// stopping the process.
class ArgumentVector {
  public:
    ArgumentVector() = default;
    ~ArgumentVector();
    ArgumentVector(const ArgumentVector &) = delete;
    ArgumentVector &operator=(const ArgumentVector &) = delete;

    // Takes the text over, in any case. A null text, from an allocation that failed, is kept and shows in
    // Complete().
    void Append(char *text);
    bool Overflowed() const { return overflowed_; }  // an Append could not grow the vector
    bool Complete() const;                           // every text was appended, and none is null
    size_t Count() const { return count_; }
    char *const *Data() const { return slots_; }

  private:
    bool EnsureRoom();

    char **slots_ = nullptr;  // slots from count_ to capacity_ are null
    size_t count_ = 0;
    size_t capacity_ = 0;
    bool overflowed_ = false;
};

// What the vectors are made of.
struct ServiceLaunch {
    const ServiceProgram &program;
    uint32_t vnet;
    HBLVnetName vnetName;
    std::string binDir;
    std::string runDir;
    std::string configDir;
    int statusFd;  // the write end of the status pipe, in the daemon's own table
};

// Fills an empty vector, program path first. Logs the reason of a failure.
bool HBLBuildServiceArguments(FunctionLog log, const ServiceLaunch &launch, ArgumentVector *arguments);

// What follows the program path and "-s <fd>". Each logs its own failures.
bool HBLBridgeArguments(FunctionLog log, const ServiceLaunch &launch, ArgumentVector *arguments);
bool HBLNetifupArguments(FunctionLog log, const ServiceLaunch &launch, ArgumentVector *arguments);
bool HBLDHCPArguments(FunctionLog log, const ServiceLaunch &launch, ArgumentVector *arguments);
bool HBLNATArguments(FunctionLog log, const ServiceLaunch &launch, ArgumentVector *arguments);
bool HBLNetdetectArguments(FunctionLog log, const ServiceLaunch &launch, ArgumentVector *arguments);
