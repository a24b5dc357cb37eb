#include "http/ResponseReader.h"

#include <algorithm>
#include <stdexcept>

#include "core/StringUtil.h"
#include "core/UrlCodec.h"

namespace Zarn {

ResponseReader::ResponseReader(Source source)
    : source_(std::move(source)), input_(kHeadBufferBytes) {}

bool ResponseReader::ReceiveInput() {
    long got = source_(input_.data() + input_end_, input_.size() - input_end_);
    if (got > 0) {
        input_end_ += static_cast<size_t>(got);
        return true;
    }
    peer_closed_ = got == 0;
    failed_ = !peer_closed_;
    return false;
}

int ResponseReader::ReadHead() {
    size_t end;
    while ((end = std::string_view(input_.data(), input_end_).find("\r\n\r\n")) ==
           std::string_view::npos) {
        if (input_end_ == input_.size()) throw std::runtime_error("Header size is too long");
        if (!ReceiveInput()) return -1;
    }
    input_begin_ = end + 4;
    return ParseHead(std::string_view(input_.data(), end)) ? status_ : -1;
}

bool ResponseReader::ParseHead(std::string_view head) {
    size_t line_end = head.find("\r\n");
    std::string_view status_line = head.substr(0, line_end);
    if (status_line.substr(0, 5) != "HTTP/") return false;
    size_t blank = status_line.find(' ');
    if (blank == std::string_view::npos) return false;
    std::string_view code = Trim(status_line.substr(blank + 1));
    if (code.size() < 3 || code[0] < '1' || code[0] > '9') return false;
    status_ = static_cast<int>(ParseLeadingDecimal(code.substr(0, 3)));
    while (line_end != std::string_view::npos) {
        size_t next = head.find("\r\n", line_end + 2);
        RequestHead::ParseHeaderLine(head.substr(line_end + 2, next - line_end - 2), headers_);
        line_end = next;
    }

    std::string value;
    if (GetHeader("TRANSFER-ENCODING", value) &&
        FindIgnoringCase(value, "chunked") != std::string_view::npos) {
        framing_ = Framing::kChunked;
    } else if (GetHeader("CONTENT-LENGTH", value)) {
        framing_ = Framing::kLength;
        remaining_ = RequestHead::ParseContentLength(value);
    }
    body_done_ = status_ == 204 || status_ == 304 || (status_ >= 100 && status_ < 200);
    return true;
}

bool ResponseReader::GetHeader(const std::string& name, std::string& value) const {
    return RequestHead::FindHeader(headers_, name, value);
}

bool ResponseReader::Fill() {
    if (input_begin_ < input_end_) return true;
    input_begin_ = input_end_ = 0;
    return ReceiveInput();
}

int ResponseReader::TakeInput(char* buffer, size_t size) {
    size_t count = std::min(size, input_end_ - input_begin_);
    std::copy_n(input_.data() + input_begin_, count, buffer);
    input_begin_ += count;
    return static_cast<int>(count);
}

bool ResponseReader::ReadLine(std::string& line) {
    line.clear();
    for (;;) {
        if (!Fill()) return false;
        std::string_view available(input_.data() + input_begin_, input_end_ - input_begin_);
        size_t end = available.find('\n');
        line.append(available.substr(0, end));
        if (line.size() > kHeadBufferBytes) return false;  // no honest chunk line is this long
        if (end != std::string_view::npos) {
            input_begin_ += end + 1;
            if (!line.empty() && line.back() == '\r') line.pop_back();
            return true;
        }
        input_begin_ = input_end_;
    }
}

int ResponseReader::ReadChunked(char* buffer, int size) {
    std::string line;
    while (!in_chunk_) {
        if (!ReadLine(line)) return -1;
        // "1a3f;extension=x": the size in hexadecimal, extensions ignored.
        uint64_t chunk = 0;
        size_t digits = 0;
        for (char c : line) {
            int value = HexValue(c);
            if (value < 0) break;
            if (++digits > 15) return -1;
            chunk = chunk * 16 + static_cast<uint64_t>(value);
        }
        if (digits == 0) return -1;
        if (chunk == 0) {
            // The trailer, up to its empty line.
            do {
                if (!ReadLine(line)) break;
            } while (!line.empty());
            body_done_ = true;
            return 0;
        }
        remaining_ = chunk;
        in_chunk_ = true;
    }
    if (!Fill()) return -1;
    int got = TakeInput(buffer, std::min<uint64_t>(remaining_, static_cast<uint64_t>(size)));
    remaining_ -= static_cast<uint64_t>(got);
    if (remaining_ == 0) {
        in_chunk_ = false;
        // A broken CRLF after the data fails the next read, not this one: the bytes are
        // the chunk's whichever receive brought the line that follows them.
        if (!ReadLine(line) || !line.empty()) failed_ = true;
    }
    return got;
}

int ResponseReader::Read(void* buffer, int size) {
    if (status_ < 0 || size <= 0 || body_done_) return 0;
    if (failed_) return -1;
    auto* out = static_cast<char*>(buffer);
    switch (framing_) {
        case Framing::kChunked: {
            int got = ReadChunked(out, size);
            if (got < 0) failed_ = true;
            return got;
        }
        case Framing::kLength: {
            if (remaining_ == 0) {
                body_done_ = true;
                return 0;
            }
            if (!Fill()) {
                failed_ = true;
                return -1;  // the body was promised longer
            }
            int got = TakeInput(out, std::min<uint64_t>(remaining_, static_cast<uint64_t>(size)));
            remaining_ -= static_cast<uint64_t>(got);
            return got;
        }
        case Framing::kToClose:
            if (!Fill()) {
                body_done_ = peer_closed_;
                return peer_closed_ ? 0 : -1;
            }
            return TakeInput(out, static_cast<size_t>(size));
    }
    return -1;
}

}  // namespace Zarn
