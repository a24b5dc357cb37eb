#pragma once

#include <cstdarg>
#include <cstdint>

namespace Zarn {

// Every part of the program reports events through Log(level, format, ...). A message
// whose level is masked off costs one test; an accepted one is formatted (at most 1,023
// bytes, longer text is cut) and handed to the one installed listener, which writes it
// out. Any thread may log.
inline constexpr uint32_t kLogTrace = 1;       // thread and socket life; off by default
inline constexpr uint32_t kLogProgress = 2;    // start and result of each request
inline constexpr uint32_t kLogConnection = 4;  // connections that broke
inline constexpr uint32_t kLogError = 8;       // errors the server survives
inline constexpr uint32_t kLogNotice = 16;     // notices for the owner
inline constexpr uint32_t kLogFatal = 32;      // fatal errors, also shown to the owner
inline constexpr uint32_t kDefaultLogMask = 0x7FFFFFFE;
inline constexpr int kLogBufferBytes = 1024;

using LogListener = void (*)(void* context, uint32_t level, const char* text);

void Log(uint32_t level, const char* format, ...) __attribute__((format(printf, 2, 3)));
void VLog(uint32_t level, const char* format, va_list args) __attribute__((format(printf, 2, 0)));

[[nodiscard]] bool IsLogLevelEnabled(uint32_t level);
void SetLogMask(uint32_t mask);
[[nodiscard]] uint32_t GetLogMask();

// Replaces the listener; a null function drops every message. Returns once no line is
// being handed to the old one, which may then be destroyed. A listener must not log.
void InstallLogListener(LogListener listener, void* context);

}  // namespace Zarn
