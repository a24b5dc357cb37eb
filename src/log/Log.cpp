#include "log/Log.h"

#include <atomic>
#include <cstdio>
#include <mutex>
#include <shared_mutex>

namespace Zarn {
namespace {

std::atomic<uint32_t> log_mask{kDefaultLogMask};

struct Listener {
    LogListener function = nullptr;
    void* context = nullptr;
};

// Held shared while a line is handed to the listener, so that replacing the listener waits
// for the lines under way: its owner may destroy it as soon as InstallLogListener returns.
// Shared, so that threads logging at once do not queue for each other here.
std::shared_mutex listener_mutex;
Listener installed_listener;

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
    std::shared_lock lock(listener_mutex);
    if (installed_listener.function == nullptr) return;
    char text[kLogBufferBytes];
    std::vsnprintf(text, sizeof text, format, args);
    installed_listener.function(installed_listener.context, level, text);
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
    std::unique_lock lock(listener_mutex);
    installed_listener = {listener, context};
}

}  // namespace Zarn
