#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "http/RequestHead.h"

namespace Zarn {

// The reading half of the client: an HTTP/1.1 response's head, then its body without the
// framing (by Content-Length, chunked, or up to the close). The bytes come from a source
// the owner hands in, so the client reads its socket through it and tests read memory.
// Used by one thread.
class ResponseReader {
public:
    static constexpr size_t kHeadBufferBytes = 16 * 1024;

    // Fills up to `size` bytes of `buffer`: the count, 0 when the peer has closed, -1 on a
    // failure (a time-out, an abort).
    using Source = std::function<long(char* buffer, size_t size)>;

    explicit ResponseReader(Source source);

    // Reads the head. The status code, or -1 when the input ended or failed before a whole
    // head, or the status line is not one. Throws std::runtime_error "Header size is too
    // long" when no head ends within the buffer.
    [[nodiscard]] int ReadHead();
    // The next bytes of the body: at most `size`, 0 at its end, -1 when the input fails or
    // ends before the framing said it would, or the chunked framing is broken.
    int Read(void* buffer, int size);
    // A response header by upper-case name.
    [[nodiscard]] bool GetHeader(const std::string& name, std::string& value) const;
    [[nodiscard]] const HeaderMap& GetHeaders() const { return headers_; }

private:
    enum class Framing { kLength, kChunked, kToClose };

    [[nodiscard]] bool ParseHead(std::string_view head);
    // Makes input available; false at the end of the stream or on a failure.
    [[nodiscard]] bool Fill();
    // One read into the buffer's free end; false at a close or a failure.
    [[nodiscard]] bool ReceiveInput();
    [[nodiscard]] bool ReadLine(std::string& line);
    int ReadChunked(char* buffer, int size);
    int TakeInput(char* buffer, size_t size);

    Source source_;
    bool failed_ = false;
    bool peer_closed_ = false;
    int status_ = -1;
    HeaderMap headers_;

    std::vector<char> input_;
    size_t input_begin_ = 0;
    size_t input_end_ = 0;
    Framing framing_ = Framing::kToClose;
    uint64_t remaining_ = 0;  // of the body (by length) or of the current chunk
    bool in_chunk_ = false;   // inside a chunk's data (remaining_ counts what is left)
    bool body_done_ = false;
};

}  // namespace Zarn
