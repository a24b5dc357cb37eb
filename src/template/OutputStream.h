#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace Zarn {

// A byte sink that pages are rendered into: the connection, or memory.
class OutputStream {
public:
    virtual ~OutputStream() = default;
    virtual void Write(const char* bytes, size_t length) = 0;
    void Write(std::string_view text) { Write(text.data(), text.size()); }
};

// Collects everything written, for tests and for text rendered once and kept.
class MemoryOutputStream : public OutputStream {
public:
    using OutputStream::Write;
    void Write(const char* bytes, size_t length) override { data_.append(bytes, length); }
    [[nodiscard]] const std::string& Data() const { return data_; }
    [[nodiscard]] std::string TakeData() { return std::move(data_); }

private:
    std::string data_;
};

}  // namespace Zarn
