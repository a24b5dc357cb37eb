// A multipart body read twice: once handed over as the socket would in full blocks, once
// in pieces of sizes the input chooses. Both readings must give the same parts, the same
// bytes and the same verdict, since a connection delivers a body in whatever pieces the
// network makes.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "http/MultipartReader.h"

using namespace Zarn;

namespace {

struct Reading {
    std::vector<std::string> names;
    std::vector<std::string> file_names;
    std::vector<std::string> data;
    bool complete = false;
    bool broken = false;

    bool operator==(const Reading&) const = default;
};

Reading Read(std::string_view body, std::string_view pieces, std::string_view boundary) {
    size_t position = 0;
    size_t piece = 0;
    auto source = [&](char* buffer, size_t length) -> size_t {
        size_t count = std::min(length, body.size() - position);
        if (!pieces.empty()) {
            count =
                std::min<size_t>(count, 1 + static_cast<uint8_t>(pieces[piece++ % pieces.size()]));
        }
        std::copy_n(body.data() + position, count, buffer);
        position += count;
        return count;
    };
    MultipartReader reader(boundary, source);
    Reading reading;
    MultipartPart part;
    // Reading data in small buffers as well tests the kept-back delimiter tail.
    char buffer[97];
    while (reader.ReadNextPart(part)) {
        reading.names.push_back(part.name);
        reading.file_names.push_back(part.file_name);
        std::string data;
        bool ended = false;
        while (true) {
            const size_t count = reader.ReadPartData(buffer, sizeof buffer, ended);
            if (count == 0) break;
            data.append(buffer, count);
        }
        reading.data.push_back(std::move(data));
        part = MultipartPart();
    }
    reading.complete = reader.IsComplete();
    reading.broken = reader.IsBroken();
    return reading;
}

}  // namespace

// The input: boundary, newline, piece sizes, newline, body.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    const size_t first = input.find('\n');
    if (first == std::string_view::npos || first == 0 || first > 70) return -1;
    const size_t second = input.find('\n', first + 1);
    if (second == std::string_view::npos) return -1;
    const std::string_view boundary = input.substr(0, first);
    const std::string_view pieces = input.substr(first + 1, second - first - 1);
    const std::string_view body = input.substr(second + 1);

    const Reading whole = Read(body, {}, boundary);
    const Reading pieced = Read(body, pieces, boundary);
    if (!(whole == pieced)) __builtin_trap();
    return 0;
}
