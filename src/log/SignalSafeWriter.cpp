#include "log/SignalSafeWriter.h"

#include <string_view>

#include "core/FileContents.h"

namespace Zarn {

SignalSafeWriter& SignalSafeWriter::Text(const char* text) {
    while (*text != '\0')
        Char(*text++);
    return *this;
}

SignalSafeWriter& SignalSafeWriter::Char(char c) {
    if (used_ == kBufferBytes) Flush();
    buffer_[used_++] = c;
    return *this;
}

SignalSafeWriter& SignalSafeWriter::Decimal(int64_t value, int min_digits) {
    // Negated as unsigned, so that the most negative value does not overflow.
    uint64_t magnitude = value < 0 ? 0 - static_cast<uint64_t>(value) : value;
    char digits[24];
    int count = 0;
    do {
        digits[count++] = static_cast<char>('0' + magnitude % 10);
        magnitude /= 10;
    } while (magnitude != 0);
    while (count < min_digits && count < static_cast<int>(sizeof digits))
        digits[count++] = '0';
    if (value < 0) Char('-');
    while (count > 0)
        Char(digits[--count]);
    return *this;
}

SignalSafeWriter& SignalSafeWriter::Hex(uint64_t value) {
    Text("0x");
    for (int shift = 60; shift >= 0; shift -= 4)
        Char("0123456789abcdef"[(value >> shift) & 0xF]);
    return *this;
}

void SignalSafeWriter::Flush() {
    // WriteFully makes nothing but write() calls.
    (void)WriteFully(fd_, std::string_view(buffer_, used_));
    used_ = 0;
}

}  // namespace Zarn
