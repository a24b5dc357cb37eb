#include "ui/LogHistory.h"

#include "log/LogQueue.h"

namespace Zarn {

std::vector<LogHistory::Line> LogHistory::LinesAfter(uint64_t after) {
    std::lock_guard hold(mutex_);
    LogQueue::Entry entry;
    while (queue_.Pop(entry)) {
        lines_.push_back({next_id_++, entry.level, std::move(entry.line)});
        if (lines_.size() > kCapacity) lines_.pop_front();
    }
    std::vector<Line> result;
    for (const Line& line : lines_) {
        if (line.id > after) result.push_back(line);
    }
    return result;
}

}  // namespace Zarn
