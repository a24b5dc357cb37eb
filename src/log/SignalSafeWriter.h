#pragma once

#include <cstddef>
#include <cstdint>

namespace Zarn {

// Text written to a borrowed descriptor through a fixed buffer, with nothing but write(): no
// allocation, no locale, no stdio, so that a handler of a fatal signal can use it whatever
// state the thread it interrupted left the heap and the C library in. One object per thread;
// numbers are formatted here because snprintf may not be called there.
class SignalSafeWriter {
public:
    explicit SignalSafeWriter(int fd) : fd_(fd) {}
    ~SignalSafeWriter() { Flush(); }
    SignalSafeWriter(const SignalSafeWriter&) = delete;
    SignalSafeWriter& operator=(const SignalSafeWriter&) = delete;

    SignalSafeWriter& Text(const char* text);
    SignalSafeWriter& Char(char c);
    SignalSafeWriter& Decimal(int64_t value, int min_digits = 1);
    SignalSafeWriter& Hex(uint64_t value);
    // Writes out what is buffered; errors are dropped, as there is nobody left to tell.
    void Flush();

private:
    static constexpr size_t kBufferBytes = 512;

    int fd_;
    size_t used_ = 0;
    char buffer_[kBufferBytes];
};

}  // namespace Zarn
