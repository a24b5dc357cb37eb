#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "log/Log.h"

namespace Zarn::testing {

// Installs itself as the log listener with the given mask for its lifetime and keeps
// every line; restores the default mask and no listener afterwards.
class LogCapture {
public:
    explicit LogCapture(uint32_t mask = 0xFFFFFFFF) {
        SetLogMask(mask);
        InstallLogListener(&LogCapture::Listen, this);
    }
    ~LogCapture() {
        InstallLogListener(nullptr, nullptr);
        SetLogMask(kDefaultLogMask);
    }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<std::pair<uint32_t, std::string>> Lines() {
        std::lock_guard lock(mutex_);
        return lines_;
    }

    bool Contains(uint32_t level, const std::string& text) {
        std::lock_guard lock(mutex_);
        return ContainsLocked(level, text);
    }

    // Waits until the line has been logged (by another thread); false after the time-out.
    bool WaitFor(uint32_t level, const std::string& text,
                 std::chrono::milliseconds timeout = std::chrono::seconds(10)) {
        std::unique_lock lock(mutex_);
        return logged_.wait_for(lock, timeout, [&] { return ContainsLocked(level, text); });
    }

private:
    bool ContainsLocked(uint32_t level, const std::string& text) const {
        for (const auto& [line_level, line] : lines_) {
            if (line_level == level && line == text) return true;
        }
        return false;
    }

    static void Listen(void* context, uint32_t level, const char* text) {
        auto* self = static_cast<LogCapture*>(context);
        std::lock_guard lock(self->mutex_);
        self->lines_.emplace_back(level, text);
        self->logged_.notify_all();
    }

    std::mutex mutex_;
    std::condition_variable logged_;
    std::vector<std::pair<uint32_t, std::string>> lines_;
};

}  // namespace Zarn::testing
