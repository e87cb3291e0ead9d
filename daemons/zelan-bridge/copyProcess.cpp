#include "daemons/zelan-bridge/copyProcess.h"

#include <sys/epoll.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "daemons/common/complain.h"
#include "daemons/confinement/confinement.h"
#include "daemons/zelan-bridge/copiedCable.h"
#include "daemons/zelan-bridge/frameCopier.h"

namespace {

constexpr int SYSTEM_CALLS[] = {SYS_epoll_wait, SYS_epoll_pwait, SYS_epoll_ctl, SYS_read,
                                SYS_write,      SYS_recvmsg,     SYS_sendto,    SYS_close};

void KeepAlone(const FileDescriptor &orders) {
    auto kept = static_cast<unsigned>(orders.get());
    if (kept > STDERR_FILENO + 1) {
        close_range(STDERR_FILENO + 1, kept - 1, 0);
    }
    close_range(kept + 1, UINT_MAX, 0);
    prctl(PR_SET_NAME, "zelan-copy");
}

// The order of the steps is that of what each needs: a change of the user forgets the wish to end with the
// keeper, which is made before system calls are shut off.
void ConfineAll(pid_t keeper) {
    if (!Confine({})) {
        _exit(EXIT_FAILURE);
    }
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != keeper ||
        !Confine({.ownUser = false, .systemCalls = SYSTEM_CALLS, .files = true, .tcp = true})) {
        _exit(EXIT_FAILURE);
    }
}

// One end of a cable, or the orders (without a cable), as epoll hands it back.
enum class Source : uintptr_t { TAP = 0, ADAPTER = 1 };
constexpr uintptr_t SOURCE_MASK = 1;
constexpr uint64_t ORDERS = 0;

uint64_t Tag(CopiedCable *cable, Source source) {
    return reinterpret_cast<uintptr_t>(cable) | static_cast<uintptr_t>(source);
}

uint64_t Now() {
    return static_cast<uint64_t>(
        std::chrono::nanoseconds(std::chrono::steady_clock::now().time_since_epoch()).count());
}

class FrameMover {
  public:
    FrameMover(FileDescriptor orders, FileDescriptor epoll)
        : orders_(std::move(orders)), epoll_(std::move(epoll)) {}

    [[noreturn]] void Run();

  private:
    void Watch(int operation, int descriptor, uint32_t events, uint64_t tag);
    void TakeOrder();
    void Add(const CopyOrder &order, FileDescriptor tap, FileDescriptor adapter);
    void Serve(const epoll_event &event, uint64_t now);
    void ServeTap(CopiedCable *cable, bool wasHeldUp, uint64_t now);

    FileDescriptor orders_;
    FileDescriptor epoll_;
    std::vector<std::unique_ptr<CopiedCable>> cables_;
    HeardGuests guests_;
};

void FrameMover::Watch(int operation, int descriptor, uint32_t events, uint64_t tag) {
    epoll_event event = {};
    event.events = events;
    event.data.u64 = tag;
    if (epoll_ctl(epoll_.get(), operation, descriptor, &event) != 0) {
        Complain("epoll: %s", strerror(errno));
    }
}

void FrameMover::Add(const CopyOrder &order, FileDescriptor tap, FileDescriptor adapter) {
    cables_.push_back(std::make_unique<CopiedCable>(order.cable, std::move(tap), std::move(adapter)));
    CopiedCable *cable = cables_.back().get();
    Watch(EPOLL_CTL_ADD, cable->tap(), EPOLLIN, Tag(cable, Source::TAP));
    Watch(EPOLL_CTL_ADD, cable->adapterSocket(), EPOLLIN, Tag(cable, Source::ADAPTER));
}

void FrameMover::TakeOrder() {
    CopyOrder order = {};
    std::array<int, 2> descriptors = {-1, -1};
    iovec part = {&order, sizeof order};
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof descriptors)> control;
    msghdr message = {};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    if (recvmsg(orders_.get(), &message, MSG_CMSG_CLOEXEC) != static_cast<ssize_t>(sizeof order)) {
        _exit(EXIT_SUCCESS);  // the keeper is gone, or needs nothing copied any more
    }
    const cmsghdr *header = CMSG_FIRSTHDR(&message);
    if (header != nullptr && header->cmsg_len == CMSG_LEN(sizeof descriptors)) {
        memcpy(descriptors.data(), CMSG_DATA(header), sizeof descriptors);
    }
    auto place = std::find_if(cables_.begin(), cables_.end(), [&order](const auto &cable) {
        return cable->adapter() == order.cable.adapter;
    });
    if (order.kind == CopyOrder::Kind::ADD) {
        Add(order, FileDescriptor(descriptors[0]), FileDescriptor(descriptors[1]));
    } else if (place != cables_.end() && order.kind == CopyOrder::Kind::CHANGE) {
        (*place)->Change(order.cable);
    } else if (place != cables_.end()) {
        // The keeper's descriptors are of the same files, which epoll would go on watching.
        Watch(EPOLL_CTL_DEL, (*place)->tap(), 0, 0);
        Watch(EPOLL_CTL_DEL, (*place)->adapterSocket(), 0, 0);
        cables_.erase(place);
    }
}

// While a frame waits for room in the adapter's queue nothing more is taken from the switch.
void FrameMover::ServeTap(CopiedCable *cable, bool wasHeldUp, uint64_t now) {
    cable->MoveToAdapter(&guests_, now);
    if (cable->IsHeldUp() != wasHeldUp) {
        bool heldUp = cable->IsHeldUp();
        Watch(EPOLL_CTL_MOD, cable->tap(), heldUp ? uint32_t{0} : EPOLLIN, Tag(cable, Source::TAP));
        Watch(EPOLL_CTL_MOD, cable->adapterSocket(), heldUp ? EPOLLIN | EPOLLOUT : EPOLLIN,
              Tag(cable, Source::ADAPTER));
    }
}

void FrameMover::Serve(const epoll_event &event, uint64_t now) {
    auto *cable = reinterpret_cast<CopiedCable *>(event.data.u64 & ~SOURCE_MASK);
    if (static_cast<Source>(event.data.u64 & SOURCE_MASK) == Source::TAP) {
        if ((event.events & EPOLLERR) != 0) {
            // The TAP was deleted; it reports that without end until the keeper has noticed.
            Watch(EPOLL_CTL_DEL, cable->tap(), 0, 0);
            return;
        }
        ServeTap(cable, cable->IsHeldUp(), now);
        return;
    }
    if ((event.events & EPOLLOUT) != 0) {
        ServeTap(cable, true, now);
    }
    if ((event.events & ~static_cast<uint32_t>(EPOLLOUT)) != 0) {
        cable->MoveToSwitch(&guests_, now);
    }
}

void FrameMover::Run() {
    constexpr int EVENT_COUNT = 64;
    std::array<epoll_event, EVENT_COUNT> events;
    Watch(EPOLL_CTL_ADD, orders_.get(), EPOLLIN, ORDERS);
    for (;;) {
        int count = epoll_wait(epoll_.get(), events.data(), EVENT_COUNT, -1);
        uint64_t now = Now();
        bool ordered = false;
        for (int i = 0; i < count; i++) {
            const epoll_event &event = events[static_cast<size_t>(i)];
            ordered = ordered || event.data.u64 == ORDERS;
            if (event.data.u64 != ORDERS) {
                Serve(event, now);
            }
        }
        // Last, since it may remove cables that other events speak of.
        if (ordered) {
            TakeOrder();
        }
    }
}

}  // namespace

void CopyProcess_Run(FileDescriptor orders) {
    pid_t keeper = getppid();
    KeepAlone(orders);
    FileDescriptor epoll(epoll_create1(EPOLL_CLOEXEC));
    ConfineAll(keeper);
    FrameMover(std::move(orders), std::move(epoll)).Run();
}
