#include "daemons/zelan-bridge/kernelPath.h"

#include <linux/bpf.h>

#include <cerrno>

namespace {

// Addresses remembered on each side. Beyond them the kernel forgets those not heard for the longest time, and
// what is for such a one goes both ways.
constexpr uint32_t MAX_SENDERS = 4096;

constexpr BpfMapPlan GUEST_SENDERS = {"guestSenders", BPF_MAP_TYPE_LRU_HASH, sizeof(__u64), sizeof(Sender),
                                      MAX_SENDERS};
constexpr BpfMapPlan ADAPTER_SENDERS = {"adapterSenders", BPF_MAP_TYPE_LRU_HASH, sizeof(__u64),
                                        sizeof(Sender), MAX_SENDERS};
constexpr BpfMapPlan SENT = {"sentFrames", BPF_MAP_TYPE_ARRAY, sizeof(uint32_t), sizeof(SentFrame),
                             SENT_FRAMES};
constexpr BpfMapPlan RECORD = {"cableRecord", BPF_MAP_TYPE_ARRAY, sizeof(uint32_t), sizeof(CableRecord), 1};

struct Place {
    const char *program;
    bool atTap;
    Direction direction;
};
// The ways in come last: frames flow once both ends are ready.
constexpr std::array<Place, 3> PLACES_IN_ORDER = {{{"adapterOut", false, Direction::OUT},
                                                   {"tapOut", true, Direction::OUT},
                                                   {"adapterIn", false, Direction::IN}}};

}  // namespace

bool KernelTables::Ensure() {
    if (!sentFrames_) {
        guestSenders_ = Bpf_MakeMap(GUEST_SENDERS);
        sentFrames_ = guestSenders_ ? Bpf_MakeMap(SENT) : FileDescriptor();
    }
    return static_cast<bool>(sentFrames_);
}

std::vector<BpfMapName> KernelTables::Names() const {
    return {{GUEST_SENDERS.name, guestSenders_.get()}, {SENT.name, sentFrames_.get()}};
}

KernelPath::~KernelPath() {
    if (filterSocket_ != nullptr) {
        TcFilter_Remove(filterSocket_, adapter_, network_);
    }
}

bool KernelPath::Begin(RtSocket *socket, int network, KernelTables *tables, const CableRecord &record) {
    adapter_ = static_cast<int>(record.adapter);
    tap_ = static_cast<int>(record.tap);
    if (!Load(tables, record)) {
        return false;
    }
    // What a killed predecessor has left would do the same work twice.
    TcFilter_Remove(socket, adapter_, network);
    if (AttachByLinks()) {
        return true;
    }
    return errno == EINVAL && AttachByFilters(socket, network);
}

bool KernelPath::Load(KernelTables *tables, const CableRecord &record) {
    record_ = tables->Ensure() ? Bpf_MakeMap(RECORD) : FileDescriptor();
    adapterSenders_ = record_ ? Bpf_MakeMap(ADAPTER_SENDERS) : FileDescriptor();
    if (!adapterSenders_ || !Change(record)) {
        return false;
    }
    std::vector<BpfMapName> maps = tables->Names();
    maps.push_back({RECORD.name, record_.get()});
    maps.push_back({ADAPTER_SENDERS.name, adapterSenders_.get()});
    for (size_t i = 0; i < PLACES; i++) {
        programs_[i] = Bpf_LoadProgram(PLACES_IN_ORDER[i].program, maps);
        if (!programs_[i]) {
            return false;
        }
    }
    return true;
}

bool KernelPath::AttachByLinks() {
    for (size_t i = 0; i < PLACES; i++) {
        const Place &place = PLACES_IN_ORDER[i];
        links_[i] = Bpf_AttachByLink(programs_[i], place.atTap ? tap_ : adapter_, place.direction);
        if (!links_[i]) {
            int error = errno;
            links_ = {};
            errno = error;
            return false;
        }
    }
    return true;
}

bool KernelPath::AttachByFilters(RtSocket *socket, int network) {
    filterSocket_ = socket;
    network_ = network;
    for (size_t i = 0; i < PLACES; i++) {
        const Place &place = PLACES_IN_ORDER[i];
        int error = TcFilter_Attach(socket, place.atTap ? tap_ : adapter_, place.direction, network,
                                    programs_[i].get());
        if (error != 0) {
            TcFilter_Remove(socket, adapter_, network);
            filterSocket_ = nullptr;
            errno = error;
            return false;
        }
    }
    return true;
}

bool KernelPath::Change(const CableRecord &record) {
    constexpr uint32_t FIRST = 0;
    return Bpf_Put(record_, &FIRST, &record);
}
