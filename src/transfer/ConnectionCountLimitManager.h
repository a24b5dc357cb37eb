#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "core/CriticalSection.h"
#include "transfer/ConnectionCountLimitException.h"
#include "transfer/CounterToken.h"
#include "transfer/ICounterTokenManager.h"

namespace Zarn {

// Counts the running downloads, in total and per client address, and refuses a new one
// when either count has reached its limit. One lives for the whole run; any thread may
// call any operation, each under the manager's one lock.
class ConnectionCountLimitManager : public ICounterTokenManager {
public:
    // The stored limit of a switched-off check; no count reaches it.
    static constexpr int kNoLimit = 0x7FFFFFFF;

    void SetTotalLimit(bool enabled, int limit);
    void SetPerAddressLimit(bool enabled, int limit);

    // Gives back what the token holds, then counts a download from `address` in the
    // token. Throws ConnectionCountLimitException when a limit is reached; the token then
    // holds nothing. Lowered limits refuse new downloads but end none.
    void Acquire(CounterToken& token, const std::string& address);
    void Release(int slot) override;

    [[nodiscard]] int GetTotalLimit();
    [[nodiscard]] int GetPerAddressLimit();
    // Downloads that hold a token.
    [[nodiscard]] int GetTotalCount();
    // Addresses with a slot; slots leave only from the end, once their count is 0.
    [[nodiscard]] size_t GetSlotCount();

private:
    struct Slot {
        std::string address;
        int count = 0;
    };

    CriticalSection lock_;
    int total_limit_ = kNoLimit;
    int total_count_ = 0;
    int per_address_limit_ = kNoLimit;
    // Tokens hold indices into this array, so it only ever shrinks from the end.
    std::vector<Slot> slots_;
};

}  // namespace Zarn
