#include "daemons/zelan-bridge/frameCopier.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>

#include "daemons/common/complain.h"
#include "daemons/zelan-bridge/copyProcess.h"

namespace {

// Starts the process and gives back the keeper's end of its socket; empty after a line in the log.
FileDescriptor StartProcess() {
    int ends[2] = {-1, -1};
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) {
        Complain("socketpair: %s", strerror(errno));
        return FileDescriptor();
    }
    FileDescriptor keepers(ends[0]);
    FileDescriptor copiers(ends[1]);
    signal(SIGCHLD, SIG_IGN);
    pid_t process = fork();
    if (process == 0) {
        CopyProcess_Run(std::move(copiers));
    }
    if (process < 0) {
        Complain("fork: %s", strerror(errno));
        keepers.reset();
    }
    return keepers;
}

bool SendOrder(int socket, const CopyOrder &order, const std::array<int, 2> *descriptors) {
    CopyOrder copy = order;
    iovec part = {&copy, sizeof copy};
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof *descriptors)> control = {};
    msghdr message = {};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    if (descriptors != nullptr) {
        message.msg_control = control.data();
        message.msg_controllen = control.size();
        cmsghdr *header = CMSG_FIRSTHDR(&message);
        header->cmsg_level = SOL_SOCKET;
        header->cmsg_type = SCM_RIGHTS;
        header->cmsg_len = CMSG_LEN(sizeof *descriptors);
        memcpy(CMSG_DATA(header), descriptors->data(), sizeof *descriptors);
    }
    // One that does not take its orders must not keep the keeper from its work.
    return sendmsg(socket, &message, MSG_DONTWAIT | MSG_NOSIGNAL) == static_cast<ssize_t>(sizeof copy);
}

}  // namespace

void FrameCopier::Add(const CableRecord &cable, const FileDescriptor &tap, const FileDescriptor &adapter) {
    cables_.push_back({cable, {tap.get(), adapter.get()}});
    if (orders_) {
        Send(CopyOrder::Kind::ADD, cables_.back());
    } else if (started_) {
        Start();
    }
}

void FrameCopier::Change(const CableRecord &cable) {
    Copied *copied = Find(cable.adapter);
    if (copied != nullptr) {
        copied->cable = cable;
        Send(CopyOrder::Kind::CHANGE, *copied);
    }
}

void FrameCopier::Remove(int adapter) {
    Copied *copied = Find(static_cast<uint32_t>(adapter));
    if (copied != nullptr) {
        Send(CopyOrder::Kind::REMOVE, *copied);
        cables_.erase(cables_.begin() + (copied - cables_.data()));
    }
    if (cables_.empty()) {
        orders_.reset();
    }
}

void FrameCopier::Start() {
    started_ = true;
    if (!IsWanted()) {
        return;
    }
    orders_ = StartProcess();
    for (const Copied &copied : cables_) {
        Send(CopyOrder::Kind::ADD, copied);
    }
}

void FrameCopier::NoteEnd() {
    Complain("the process that copies frames has ended; another one takes over");
    orders_.reset();
}

FrameCopier::Copied *FrameCopier::Find(uint32_t adapter) {
    auto place = std::find_if(cables_.begin(), cables_.end(),
                              [adapter](const Copied &copied) { return copied.cable.adapter == adapter; });
    return place == cables_.end() ? nullptr : &*place;
}

void FrameCopier::Send(CopyOrder::Kind kind, const Copied &copied) {
    if (orders_ && !SendOrder(orders_.get(), {kind, copied.cable},
                              kind == CopyOrder::Kind::ADD ? &copied.descriptors : nullptr)) {
        Complain("the process that copies frames takes no orders: %s", strerror(errno));
        orders_.reset();
    }
}
