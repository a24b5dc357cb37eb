#pragma once

#include <cstdint>
#include <deque>
#include <string>

#include "core/CriticalSection.h"
#include "log/MessageNotifier.h"

namespace Zarn {

// The log lines waiting for the owner's console, which drains them when notified.
// At most 1,024 wait; later lines are dropped until the console catches up (the log
// file still has them). Any thread may push or pop.
class LogQueue : public MessageNotifier {
public:
    static constexpr size_t kCapacity = 1024;

    struct Entry {
        uint32_t level = 0;
        std::string line;
    };

    ~LogQueue() override = default;

    void Push(uint32_t level, std::string line);
    [[nodiscard]] bool Pop(Entry& entry);
    [[nodiscard]] size_t Size();

private:
    CriticalSection lock_;
    std::deque<Entry> entries_;
};

}  // namespace Zarn
