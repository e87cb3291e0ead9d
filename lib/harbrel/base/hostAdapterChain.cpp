#include "lib/harbrel/base/hostAdapterChain.h"

#include <cstdlib>
#include <utility>

HostAdapterChain::~HostAdapterChain() {
    while (HBL_HostAdapter *const record = TakeFirst()) {
        free(record);
    }
}

HostAdapterChain &HostAdapterChain::operator=(HostAdapterChain &&other) noexcept {
    std::swap(first_, other.first_);
    std::swap(last_, other.last_);
    std::swap(count_, other.count_);
    return *this;
}

void HostAdapterChain::Append(HBL_HostAdapter *record) {
    record->next = nullptr;
    if (last_ != nullptr) {
        last_->next = record;
    } else {
        first_ = record;
    }
    last_ = record;
    count_++;
}

void HostAdapterChain::PushFront(HBL_HostAdapter *record) {
    record->next = first_;
    first_ = record;
    if (last_ == nullptr) {
        last_ = record;
    }
    count_++;
}

HBL_HostAdapter *HostAdapterChain::TakeFirst() {
    HBL_HostAdapter *const record = first_;
    if (record != nullptr) {
        first_ = record->next;
        last_ = first_ != nullptr ? last_ : nullptr;
        count_--;
        record->next = nullptr;
    }
    return record;
}
