#include "daemons/zelan-watch/watcher.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <bitset>
#include <cerrno>
#include <cstring>
#include <span>
#include <utility>

#include "daemons/common/complain.h"
#include "daemons/common/deadline.h"
#include "daemons/common/file.h"
#include "daemons/common/switch.h"
#include "daemons/common/watch.h"

namespace {

using std::chrono::milliseconds;

// The kernel holds all interfaces of the host up while it removes some: that waits for a silence this long,
// so that nobody who starts or stops many networks meets it,
constexpr milliseconds QUIET_TIME{200};
// but never longer than this in all.
constexpr milliseconds QUIET_LIMIT{3000};

// How long a daemon that was killed a moment ago may take to end.
constexpr milliseconds PREDECESSOR_TIME{2000};

// The kernel takes some 16 ms for each and 20 ms for the whole, with all interfaces of the host locked.
constexpr size_t SWITCHES_AT_A_TIME = 4;

// When to look again after something was in the way; the next times later, but not much.
constexpr milliseconds RETRY_TIME{100};
constexpr milliseconds RETRY_LIMIT{5000};

// A socket serves who has no business here no more than once.
constexpr size_t MAX_CLIENTS = 2048;

bool HasEnded(const FileDescriptor &process) {
    pollfd end = {process.get(), POLLIN, 0};
    return poll(&end, 1, 0) > 0;
}

// The process of a record, if it is alive and not another one of the same number.
FileDescriptor OpenProcess(const Traces &traces) {
    FileDescriptor process(static_cast<int>(syscall(SYS_pidfd_open, traces.process, 0)));
    uint64_t startTime = process ? Process_StartTime(traces.process) : 0;
    // A process that cannot be looked at is taken for the daemon, and so left alone.
    if (startTime != 0 && startTime != traces.startTime) {
        process.reset();
    }
    return process;
}

bool ReadRecord(const Duty &duty, Traces *traces) {
    std::string text;
    return File_Read(Traces_Path(duty).c_str(), &text) && Traces_Parse(text, traces);
}

}  // namespace

bool Watcher::Begin(FileDescriptor listener) {
    listener_ = std::move(listener);
    ends_.reset(epoll_create1(EPOLL_CLOEXEC));
    Directory folder(opendir(WATCH_FOLDER));
    if (!ends_ || !requests_.Open() || !guests_.Begin(&requests_) || !host_.Begin() || folder == nullptr) {
        Complain("%s: %s", WATCH_FOLDER, strerror(errno));
        return false;
    }
    while (const dirent *entry = readdir(folder.get())) {
        Duty duty;
        if (Traces_IsRecord(entry->d_name, &duty)) {
            TakeOver(duty);
        }
    }
    RemoveSoon();
    return true;
}

void Watcher::TakeOver(const Duty &duty) {
    Traces traces;
    if (!ReadRecord(duty, &traces)) {
        return;
    }
    FileDescriptor process = OpenProcess(traces);
    if (process) {
        Guard(duty, std::move(process), std::move(traces));
    } else {
        guarded_[duty].traces = std::move(traces);
        Bury(duty);
    }
}

void Watcher::Guard(const Duty &duty, FileDescriptor process, Traces traces) {
    epoll_event event = {};
    event.events = EPOLLIN;
    event.data.u64 = static_cast<uint64_t>(duty.service) << 32 | static_cast<uint32_t>(duty.network);
    if (epoll_ctl(ends_.get(), EPOLL_CTL_ADD, process.get(), &event) != 0) {
        Complain("epoll: %s", strerror(errno));
    }
    guarded_[duty] = {std::move(process), std::move(traces)};
    dutiesChanged_ = true;
    if (duty.service == Service::NAT) {
        forwards_.Expect(Clock::now());
    }
}

void Watcher::Bury(const Duty &duty) {
    auto place = guarded_.find(duty);
    if (place == guarded_.end()) {
        return;
    }
    // The daemon's foreground process may have the same descriptor open, with which its news would go on.
    epoll_ctl(ends_.get(), EPOLL_CTL_DEL, place->second.process.get(), nullptr);
    Leftovers_PutAside(&requests_, place->second.traces);
    // A successor that serves the host need not wait, and may have written its own already.
    Traces newest;
    if (!ReadRecord(duty, &newest) || newest.process == place->second.traces.process) {
        unlink(Traces_Path(duty).c_str());
    }
    guarded_.erase(place);
    dutiesChanged_ = true;
    if (duty.service == Service::NAT) {
        forwards_.Forget(duty.network);
    }
    RemoveSoon();
}

void Watcher::BuryAllDead() {
    constexpr int EVENT_COUNT = 64;
    epoll_event events[EVENT_COUNT];
    int count = 0;
    while ((count = epoll_wait(ends_.get(), events, EVENT_COUNT, 0)) > 0) {
        for (const epoll_event &event : std::span(events, static_cast<size_t>(count))) {
            Bury({static_cast<Service>(event.data.u64 >> 32), static_cast<int>(event.data.u64)});
        }
    }
}

void Watcher::AcceptAll() {
    while (FileDescriptor connection = Watch_Accept(listener_)) {
        Add(std::move(connection));
    }
}

void Watcher::Add(FileDescriptor connection) {
    if (clients_.size() < MAX_CLIENTS) {
        clients_.emplace_back().connection = std::move(connection);
    }
}

void Watcher::Serve(Client *client) {
    std::string request;
    FileDescriptor descriptor;
    if (!Watch_Receive(client->connection, &request, &descriptor) ||
        (!request.empty() && !Answer(client, request, std::move(descriptor)))) {
        Leave(client);
    }
}

// False for what makes no sense.
bool Watcher::Answer(Client *client, const std::string &request, FileDescriptor descriptor) {
    if (request == WATCH_SWEEP) {
        client->awaitsSweep = true;
        removalDue_ = Clock::now();
        return true;
    }
    if (request == WATCH_GUARD) {
        return GuardFor(client, std::move(descriptor));
    }
    Duty duty;
    if (client->duty || !request.starts_with(WATCH_CLAIM) ||
        !Duty_Parse(std::string_view(request).substr(WATCH_CLAIM.size()), &duty)) {
        return false;
    }
    client->duty = duty;
    client->patience = Clock::now() + PREDECESSOR_TIME;
    return TryClaim(client);
}

// False when the other side has ended. Without an answer the claim is tried again later.
bool Watcher::TryClaim(Client *client) {
    const Duty &duty = *client->duty;
    auto guarded = guarded_.find(duty);
    if (guarded != guarded_.end() && HasEnded(guarded->second.process)) {
        Bury(duty);
    }
    // What serves the host makes nothing that two could be in each other's way about.
    if (duty.network < 0 || !IsAlive(duty)) {
        client->holds = true;
        dutiesChanged_ = true;
        KeepNetworksApart();
        return Watch_Send(client->connection, WATCH_DONE);
    }
    if (Clock::now() < client->patience) {
        return true;
    }
    client->duty.reset();
    return Watch_Send(client->connection, WATCH_BUSY);
}

bool Watcher::GuardFor(Client *client, FileDescriptor process) {
    Traces traces;
    if (!client->holds || !process || !ReadRecord(*client->duty, &traces)) {
        return false;
    }
    Guard(*client->duty, std::move(process), std::move(traces));
    client->isGuarded = true;
    return Watch_Send(client->connection, WATCH_DONE);
}

// Removes the client. A start that has failed may have got anywhere: its interfaces are found by themselves.
void Watcher::Leave(Client *client) {
    std::optional<Duty> failed = client->holds && !client->isGuarded ? client->duty : std::nullopt;
    clients_.erase(clients_.begin() + (client - clients_.data()));
    dutiesChanged_ = true;
    if (failed) {
        Traces traces;
        unlink(File_Unfinished(Traces_Path(*failed)).c_str());
        if (guarded_.count(*failed) == 0 && ReadRecord(*failed, &traces)) {
            guarded_[*failed].traces = std::move(traces);
            Bury(*failed);
        }
        removalDue_ = Clock::now();
    }
}

void Watcher::RetryClaims() {
    for (size_t i = clients_.size(); i-- > 0;) {
        Client &client = clients_[i];
        if (client.duty && !client.holds && !TryClaim(&client)) {
            Leave(&client);
        }
    }
}

bool Watcher::IsAlive(const Duty &duty) const {
    return guarded_.count(duty) != 0 ||
           std::any_of(clients_.begin(), clients_.end(),
                       [&duty](const Client &client) { return client.holds && client.duty == duty; });
}

bool Watcher::IsNetworkInUse(int network) const {
    for (Service service : {Service::BRIDGE, Service::NETIFUP, Service::DHCP, Service::NAT}) {
        if (IsAlive({service, network})) {
            return true;
        }
    }
    return false;
}

bool Watcher::IsAnyNetworkInUse() const {
    auto isNetworks = [](const Duty &duty) { return duty.network >= 0; };
    return std::any_of(guarded_.begin(), guarded_.end(),
                       [&](const auto &entry) { return isNetworks(entry.first); }) ||
           std::any_of(clients_.begin(), clients_.end(),
                       [&](const Client &client) { return client.holds && isNetworks(*client.duty); });
}

// Those in use that are not bridged.
std::vector<int> Watcher::ClosedNetworks() const {
    std::bitset<SWITCH_MAX_NETWORK + 1> used;
    std::bitset<SWITCH_MAX_NETWORK + 1> bridged;
    auto take = [&](const Duty &duty) {
        if (duty.network >= 0) {
            (duty.service == Service::BRIDGE ? bridged : used).set(static_cast<size_t>(duty.network));
        }
    };
    for (const auto &entry : guarded_) {
        take(entry.first);
    }
    for (const Client &client : clients_) {
        if (client.holds) {
            take(*client.duty);
        }
    }
    used &= ~bridged;
    std::vector<int> networks;
    for (int network = 0; network <= SWITCH_MAX_NETWORK; network++) {
        if (used.test(static_cast<size_t>(network))) {
            networks.push_back(network);
        }
    }
    return networks;
}

// Before a daemon makes anything. A bridged network is the outside's, whose routers and servers its guests
// may be.
void Watcher::KeepNetworksApart() {
    if (!table_ && IsAnyNetworkInUse()) {
        table_.emplace();
        table_->Ensure();
    }
    if (std::exchange(dutiesChanged_, false)) {
        closed_ = ClosedNetworks();
    }
    GuardedNetworks guarded = {closed_, guests_.On([this](int network) {
                                   return std::binary_search(closed_.begin(), closed_.end(), network);
                               })};
    guestPorts_.Guard(guarded);
}

void Watcher::RemoveSoon() {
    Clock::time_point now = Clock::now();
    if (!removalDue_) {
        removalLimit_ = now + QUIET_LIMIT;
    }
    removalDue_ = std::min(now + QUIET_TIME, removalLimit_);
}

void Watcher::RemoveNow() {
    removalDue_.reset();
    if (!IsAnyNetworkInUse()) {
        table_.reset();
    }
    HostTable_Sweep();
    LeftoversFound found = Leftovers_Remove(
        &requests_, [this](const Duty &duty) { return IsAlive(duty); },
        [this](int network) { return IsNetworkInUse(network); });
    guestsRemain_ = found.guestsRemain;
    switches_ = std::move(found.switches);
    RetryAfter(found.error);
}

// Says what is in the way when it is news.
void Watcher::RetryAfter(int error) {
    if (error != 0 && error != removalError_) {
        Complain("cannot remove what dead daemons have left: %s", strerror(error));
        retryTime_ = RETRY_TIME;
    }
    removalError_ = error;
    if (error != 0) {
        removalDue_ = Clock::now() + retryTime_;
        retryTime_ = std::min(2 * retryTime_, RETRY_LIMIT);
    }
}

// A few at a time, so that others get at the host's interfaces; one, while daemons are being started.
void Watcher::RemoveSomeSwitches() {
    std::vector<UnusedSwitch> next;
    const bool othersWait =
        std::any_of(clients_.begin(), clients_.end(), [](const Client &c) { return c.duty; });
    for (size_t limit = othersWait ? 1 : SWITCHES_AT_A_TIME; next.size() < limit && !switches_.empty();) {
        if (!IsNetworkInUse(switches_.back().network)) {
            next.push_back(switches_.back());
        }
        switches_.pop_back();
    }
    if (!Leftovers_RemoveSwitches(&requests_, next)) {
        guestsRemain_ = true;
    }
}

void Watcher::AnswerSweeps() {
    for (size_t i = clients_.size(); i-- > 0;) {
        if (clients_[i].awaitsSweep) {
            clients_[i].awaitsSweep = false;
            if (!Watch_Send(clients_[i].connection, WATCH_DONE)) {
                Leave(&clients_[i]);
            }
        }
    }
}

bool Watcher::HasNothingToDo() const {
    return guarded_.empty() && clients_.empty() && !IsRemoving() && !guestsRemain_;
}

// False when there is something to do after all.
bool Watcher::End() {
    std::vector<FileDescriptor> late;
    if (Watch_Close(&listener_, &late)) {
        return true;
    }
    for (FileDescriptor &connection : late) {
        Add(std::move(connection));
    }
    return false;
}

void Watcher::Collect(std::vector<pollfd> *waits) {
    waits->assign(
        {{listener_.get(), POLLIN, 0}, {ends_.get(), POLLIN, 0}, {guests_.descriptor(), POLLIN, 0}});
    host_.Collect(waits);
    firstClient_ = waits->size();
    for (const Client &client : clients_) {
        waits->push_back({client.connection.get(), POLLIN, 0});
    }
}

int Watcher::WaitMilliseconds() const {
    if (!switches_.empty()) {
        return 0;
    }
    Clock::time_point next = std::min(removalDue_.value_or(Clock::time_point::max()), forwards_.due());
    for (const Client &client : clients_) {
        if (client.duty && !client.holds) {
            next = std::min(next, client.patience);
        }
    }
    // An end that was held up is tried again.
    return next == Clock::time_point::max() && HasNothingToDo() ? static_cast<int>(RETRY_TIME.count())
                                                                : Deadline_Milliseconds(next);
}

void Watcher::Dispatch(const std::vector<pollfd> &waits) {
    // From the last, since one that leaves moves those behind it.
    for (size_t i = waits.size(); i-- > firstClient_;) {
        if (waits[i].revents != 0) {
            Serve(&clients_[i - firstClient_]);
        }
    }
    if (waits[0].revents != 0) {
        AcceptAll();
    }
    if (waits[1].revents != 0) {
        BuryAllDead();
    }
    if (waits[2].revents != 0 && guests_.TakeNews(&requests_) && guestsRemain_) {
        RemoveSoon();
    }
    if (host_.Serve()) {
        guestPorts_.Distrust();
    }
}

void Watcher::Run() {
    std::vector<pollfd> waits;
    while (!HasNothingToDo() || !End()) {
        Collect(&waits);
        if (poll(waits.data(), waits.size(), WaitMilliseconds()) > 0) {
            Dispatch(waits);
        }
        RetryClaims();
        KeepNetworksApart();
        if (removalDue_ && *removalDue_ <= Clock::now()) {
            RemoveNow();
        } else if (!switches_.empty()) {
            RemoveSomeSwitches();
        }
        if (forwards_.due() <= Clock::now()) {
            forwards_.Look(Clock::now());
        }
        if (!IsRemoving()) {
            AnswerSweeps();
        }
    }
}
