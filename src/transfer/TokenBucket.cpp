#include "transfer/TokenBucket.h"

#include <algorithm>

namespace Zarn {
namespace {

// More than any one write moves; bounding a draw keeps the arithmetic in range.
constexpr uint64_t kMaxDraw = uint64_t{1} << 40;
// The deepest overdraft kept, in thousandths of a byte; a debt beyond it could never be
// paid back anyway.
constexpr int64_t kMinLevel = -static_cast<int64_t>(kMaxDraw) * 1000;

}  // namespace

void TokenBucket::SetRate(int64_t bytes_per_second, uint64_t now_ms) {
    if (bytes_per_second < 0) {
        rate_ = -1;
        return;
    }
    if (bytes_per_second == rate_) return;
    if (rate_ < 0) {
        rate_ = bytes_per_second;
        level_ = Capacity();
    } else {
        // What the old rate earned so far is kept; a debt stays a debt, since those bytes
        // have gone out already, and only the credit is bounded by the new burst.
        Refill(now_ms);
        rate_ = bytes_per_second;
        level_ = std::min(level_, Capacity());
    }
    stamp_ms_ = now_ms;
}

void TokenBucket::Take(uint64_t bytes, uint64_t now_ms) {
    if (rate_ < 0) return;
    Refill(now_ms);
    level_ = std::max(level_ - static_cast<int64_t>(std::min(bytes, kMaxDraw)) * 1000, kMinLevel);
}

uint64_t TokenBucket::GetWaitMs(uint64_t now_ms) {
    if (rate_ < 0) return 0;
    Refill(now_ms);
    if (level_ >= 0) return 0;
    if (rate_ == 0) return kWaitForever;
    return static_cast<uint64_t>((-level_ + rate_ - 1) / rate_);
}

void TokenBucket::Refill(uint64_t now_ms) {
    if (now_ms <= stamp_ms_) return;
    uint64_t elapsed = now_ms - stamp_ms_;
    stamp_ms_ = now_ms;
    int64_t room = Capacity() - level_;
    if (rate_ <= 0 || room <= 0) return;
    // Past the time that fills the bucket, the product could only overflow.
    if (elapsed > static_cast<uint64_t>(room / rate_)) {
        level_ = Capacity();
    } else {
        level_ += static_cast<int64_t>(elapsed) * rate_;
    }
}

}  // namespace Zarn
