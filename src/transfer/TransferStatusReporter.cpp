#include "transfer/TransferStatusReporter.h"

#include <thread>

namespace Zarn {

TransferStatusReporter::~TransferStatusReporter() {
    if (aggregator_ != nullptr) aggregator_->Unregister(this);
    aggregator_ = nullptr;
}

void TransferStatusReporter::SetTotalSize(int direction, uint64_t value) {
    aggregator_->SetTotalSize(this, direction, value);
}

void TransferStatusReporter::SetTransferred(int direction, uint64_t value) {
    aggregator_->SetTransferred(this, direction, value);
}

void TransferStatusReporter::SetTarget(const std::string& target) {
    aggregator_->SetTarget(this, target);
}

void TransferStatusReporter::SetClientAddress(const std::string& address) {
    aggregator_->SetClientAddress(this, address);
}

void TransferStatusReporter::SetUserName(const std::string& name) {
    aggregator_->SetUserName(this, name);
}

bool TransferStatusReporter::IsOverLimit(int direction) {
    return aggregator_->IsOverLimit(this, direction);
}

uint64_t TransferStatusReporter::GetSpeed(int direction) {
    return aggregator_->GetSpeed(this, direction);
}

void TransferStatusReporter::ReportTransferred(int direction, uint64_t count) {
    aggregator_->AddTransferred(this, direction, count);
    for (int wait = 0; wait < kMaxThrottleWaits && IsOverLimit(direction); ++wait) {
        if (stop_ == nullptr) {
            std::this_thread::sleep_for(kThrottleWait);
        } else if (stop_->WaitFor(kThrottleWait)) {
            return;
        }
    }
}

}  // namespace Zarn
