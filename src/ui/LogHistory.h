#pragma once

#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <vector>

namespace Zarn {

class LogQueue;

// The last lines of the log as the owner's console shows them: the queue the log writer
// fills is drained into a bounded history, each line numbered, so that a page can ask for
// what came after the last line it saw. Any thread may use it.
class LogHistory {
public:
    static constexpr size_t kCapacity = 1000;

    struct Line {
        uint64_t id = 0;  // 1 for the first line ever kept, then counting up
        uint32_t level = 0;
        std::string text;
    };

    explicit LogHistory(LogQueue& queue) : queue_(queue) {}

    // The queue drained here, whose notifications say that lines wait.
    [[nodiscard]] LogQueue& GetQueue() { return queue_; }

    // The kept lines with an id above `after`, oldest first, after taking in what the
    // queue holds.
    [[nodiscard]] std::vector<Line> LinesAfter(uint64_t after);

private:
    LogQueue& queue_;
    std::mutex mutex_;
    std::deque<Line> lines_;
    uint64_t next_id_ = 1;
};

}  // namespace Zarn
