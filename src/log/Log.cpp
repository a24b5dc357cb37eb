#include "log/Log.h"

#include <atomic>
#include <cstdio>
#include <mutex>

namespace Zarn {
namespace {

std::atomic<uint32_t> log_mask{kDefaultLogMask};

struct Listener {
    LogListener function = nullptr;
    void* context = nullptr;
};

std::mutex listener_mutex;
Listener installed_listener;

Listener CurrentListener() {
    std::lock_guard lock(listener_mutex);
    return installed_listener;
}

}  // namespace

void Log(uint32_t level, const char* format, ...) {
    if (!IsLogLevelEnabled(level)) return;
    va_list args;
    va_start(args, format);
    VLog(level, format, args);
    va_end(args);
}

void VLog(uint32_t level, const char* format, va_list args) {
    if (!IsLogLevelEnabled(level)) return;
    Listener listener = CurrentListener();
    if (listener.function == nullptr) return;
    char text[kLogBufferBytes];
    std::vsnprintf(text, sizeof text, format, args);
    listener.function(listener.context, level, text);
}

bool IsLogLevelEnabled(uint32_t level) {
    return (level & log_mask.load()) != 0;
}

void SetLogMask(uint32_t mask) {
    log_mask.store(mask);
}

uint32_t GetLogMask() {
    return log_mask.load();
}

void InstallLogListener(LogListener listener, void* context) {
    std::lock_guard lock(listener_mutex);
    installed_listener = {listener, context};
}

}  // namespace Zarn
