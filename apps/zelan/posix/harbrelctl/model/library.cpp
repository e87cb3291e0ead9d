#include "apps/zelan/posix/harbrelctl/model/library.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>

namespace {

std::string WhyNotLoaded() {
    if (geteuid() != 0) {
        return "the networks belong to the host: run this as root";
    }
    if (!HBL_NetworkingDBExists()) {
        return std::string("there is no database ") + DATABASE +
               ": \"harbrelCLI --postinstall harbrel,0,0.1\" makes one";
    }
    if (!HBL_CheckNetworkingDB()) {
        return std::string("the database ") + DATABASE +
               " is damaged: its first line is not VERSION=1,0; orvane-networking(5) tells how to mend it";
    }
    return "the database could not be read: another program may hold its lock, or the log cannot be written; "
           "see /var/log/harbrel";
}

// Lines of the library that end a failure without telling its cause.
bool SaysNothing(const std::string &message) {
    return message.starts_with("Exiting") || message.find("succe") != std::string::npos ||
           message.starts_with("Argument:") || message.starts_with("Fork and exec");
}

// What zelan-detect sees happen meanwhile.
bool IsNews(const std::string &line) {
    return line.starts_with("zelan-detect - ") &&
           (line.find(" added: ") != std::string::npos || line.find(" changed: ") != std::string::npos ||
            line.find(" removed: ") != std::string::npos);
}

}  // namespace

Library::Library() : loaded_(geteuid() == 0 && HBL_Load()) {
    if (!loaded_) {
        error_ = WhyNotLoaded();
    }
}

void Library::Finish() {
    if (loaded_) {
        HBL_Unload();
        loaded_ = false;
    }
}

HostAdapters ListHostAdapters() {
    HBL_HostAdapterList *list = nullptr;
    return HostAdapters(HBL_GetHostAdapterList(1, &list) ? list : nullptr);
}

QuietLog::QuietLog() : mask_(HBL_GetLogLevel()) {
    HBL_SetLogLevel(0);
}

QuietLog::~QuietLog() {
    HBL_SetLogLevel(mask_);
}

LogMark::LogMark(std::string path) : path_(std::move(path)), start_(0) {
    fflush(nullptr);  // the library's stream is among these
    struct stat status;
    if (stat(path_.c_str(), &status) == 0) {
        start_ = status.st_size;
    }
}

std::string LogMark::LastReason() const {
    fflush(nullptr);
    std::ifstream file(path_);
    file.seekg(start_);
    std::string reason;
    for (std::string line; std::getline(file, line);) {
        const size_t dash = line.find(" - ");
        if (dash == std::string::npos || IsNews(line)) {
            continue;
        }
        const std::string message = line.substr(dash + 3);
        // What the daemon itself has said is nearer to the cause than the library's lines around it.
        const bool daemon = line.starts_with("zelan-") || line.starts_with("orvane-");
        if (!SaysNothing(message) && (daemon || !reason.starts_with("zelan-"))) {
            reason = daemon ? line : message;
        }
    }
    return reason;
}
