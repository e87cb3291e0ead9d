// The five daemon programs: what each is called, and where the database says its things lie.
#pragma once

#include <cstdint>
#include <string>

#include "lib/harbrel/base/hblLog.h"

// How a PID file's name tells the network apart.
enum class PidFileForm : uint8_t {
    WithNumber,  // <program>-8.pid
    WithName,    // <program>-zelan8.pid
    ForTheHost,  // <program>.pid
};

class ArgumentVector;
struct ServiceLaunch;

struct ServiceProgram {
    uint32_t service;       // HBLServiceId
    const char *program;    // the file in BINDIR that is executed, and the PID file's base name by default
    const char *answerKey;  // the answer that changes the PID file's base name, and nothing else
    PidFileForm pidFile;
    bool (*arguments)(FunctionLog log, const ServiceLaunch &launch, ArgumentVector *arguments);
};

const ServiceProgram *HBLFindServiceProgram(uint32_t service);  // null for any other id

// The answer's value, or the fallback.
std::string HBLAnswerOr(const char *key, const char *fallback);
std::string HBLRunDir();  // RUNDIR
