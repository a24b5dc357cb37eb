#pragma once

#include <cstdio>
#include <string>
#include <vector>

namespace Zarn {

// Plain text for people: rows of columns, each column as wide as its widest cell (in
// terminal columns, not bytes, so that Korean names line up), two blanks between, the
// last column unpadded.
class CtlTable {
public:
    void Add(std::vector<std::string> row) { rows_.push_back(std::move(row)); }
    [[nodiscard]] bool IsEmpty() const { return rows_.empty(); }
    [[nodiscard]] std::string Text() const;
    void Print(std::FILE* out = stdout) const;

    // Bytes per second as people read them: "512 B/s", "1.5 KiB/s", "3.2 MiB/s".
    [[nodiscard]] static std::string Speed(double bytes_per_second);
    // "1:02:03" for seconds.
    [[nodiscard]] static std::string Duration(long long seconds);

private:
    std::vector<std::vector<std::string>> rows_;
};

}  // namespace Zarn
