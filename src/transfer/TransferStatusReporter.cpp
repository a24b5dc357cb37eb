#include "transfer/TransferStatusReporter.h"

#include <algorithm>
#include <thread>

namespace Zarn {

TransferStatusReporter::~TransferStatusReporter() {
    if (aggregator_ != nullptr) aggregator_->Unregister(this);
    aggregator_ = nullptr;
}

void TransferStatusReporter::SetTarget(const std::string& target) {
    std::lock_guard lock(description_mutex_);
    description_.target = target;
}

void TransferStatusReporter::SetClientAddress(const std::string& address) {
    std::lock_guard lock(description_mutex_);
    description_.client_address = address;
}

void TransferStatusReporter::SetUserName(const std::string& name) {
    std::lock_guard lock(description_mutex_);
    description_.user_name = name;
}

TransferDescription TransferStatusReporter::GetDescription() const {
    std::lock_guard lock(description_mutex_);
    return description_;
}

void TransferStatusReporter::SetTotalSize(int direction, uint64_t value) {
    aggregator_->SetTotalSize(this, direction, value);
}

void TransferStatusReporter::SetPosition(int direction, uint64_t value) {
    aggregator_->SetPosition(this, direction, value);
}

uint64_t TransferStatusReporter::GetWriteAllowance(int direction) {
    return aggregator_->GetWriteAllowance(this, direction);
}

uint64_t TransferStatusReporter::GetSpeed(int direction) {
    return aggregator_->GetSpeed(this, direction);
}

void TransferStatusReporter::ReportTransferred(int direction, uint64_t count) {
    aggregator_->AddTransferred(this, direction, count);
    for (;;) {
        std::chrono::milliseconds wait = aggregator_->GetPacingWait(this, direction);
        if (wait.count() <= 0) return;
        if (!Wait(std::min(wait, kPacingStep))) return;
    }
}

bool TransferStatusReporter::Wait(std::chrono::milliseconds wait) {
    if (sleep_) return sleep_(wait);
    if (stop_ != nullptr) return !stop_->WaitFor(wait);
    std::this_thread::sleep_for(wait);
    return true;
}

}  // namespace Zarn
