// A response as the client receives it from a server it cannot trust: once in whole, once
// in pieces of sizes the input chooses, read into buffers of those sizes too. Both readings
// must give the same status, headers, body and verdict, and the body never more than its
// framing allows.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

#include "PiecedInput.h"
#include "http/ResponseReader.h"

using namespace Zarn;

namespace {

struct Reading {
    int status = -1;
    HeaderMap headers;
    std::string body;
    int verdict = 0;  // the last Read: 0 for an end, -1 for a failure; 1 for a long head

    bool operator==(const Reading&) const = default;
};

uint8_t NextPiece(std::string_view pieces, size_t& piece) {
    return pieces.empty() ? 255 : static_cast<uint8_t>(pieces[piece++ % pieces.size()]);
}

Reading Read(std::string_view response, std::string_view pieces) {
    size_t position = 0;
    size_t piece = 0;
    ResponseReader reader([&](char* buffer, size_t size) -> long {
        size_t count = std::min(size, response.size() - position);
        if (!pieces.empty()) count = std::min<size_t>(count, 1 + NextPiece(pieces, piece));
        std::copy_n(response.data() + position, count, buffer);
        position += count;
        return static_cast<long>(count);
    });
    Reading reading;
    try {
        reading.status = reader.ReadHead();
    } catch (const std::runtime_error&) {
        reading.verdict = 1;
        return reading;
    }
    reading.headers = reader.GetHeaders();
    char buffer[4096];
    for (int got; (got = reader.Read(buffer, 1 + NextPiece(pieces, piece) * 16)) != 0;) {
        if (got < 0) {
            reading.verdict = -1;
            break;
        }
        reading.body.append(buffer, static_cast<size_t>(got));
    }
    return reading;
}

}  // namespace

// The input: piece sizes, a newline, then the response.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::optional<PiecedInput> input = PiecedInput::From(data, size);
    if (!input) return -1;
    const std::string_view response = input->bytes;
    const Reading whole = Read(response, {});
    if (!(whole == Read(response, input->pieces))) __builtin_trap();

    const size_t head_end = response.find("\r\n\r\n");
    if (whole.body.size() > (head_end == std::string_view::npos ? 0 : response.size() - head_end))
        __builtin_trap();
    std::string value;
    if (!RequestHead::FindHeader(whole.headers, "TRANSFER-ENCODING", value) &&
        RequestHead::FindHeader(whole.headers, "CONTENT-LENGTH", value) &&
        whole.body.size() > RequestHead::ParseContentLength(value)) {
        __builtin_trap();
    }
    return 0;
}
