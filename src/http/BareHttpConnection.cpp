#include "http/BareHttpConnection.h"

#include <algorithm>
#include <stdexcept>

#include "core/StringUtil.h"
#include "core/TekoFile.h"
#include "core/UrlCodec.h"
#include "net/socket_exception.h"

namespace Zarn {
namespace {

constexpr std::string_view kScheme = "http://";
constexpr size_t kFileBlockBytes = 64 * 1024;

}  // namespace

BareHttpConnection::BareHttpConnection(const std::string& url, int timeout_seconds)
    : timeout_seconds_(timeout_seconds), boundary_("----LumidropFormBoundary8d1c0f7e2b") {
    std::string_view rest = url;
    if (rest.substr(0, kScheme.size()) == kScheme) rest.remove_prefix(kScheme.size());
    size_t slash = rest.find('/');
    host_ = std::string(rest.substr(0, slash));
    path_ = slash == std::string_view::npos ? "/" : std::string(rest.substr(slash));
}

void BareHttpConnection::AddHeader(const std::string& name, const std::string& value) {
    headers_.emplace_back(name, value);
}

void BareHttpConnection::AddFormField(const std::string& name, const std::string& value) {
    fields_.push_back({name, value, false});
    UsePost();
}

void BareHttpConnection::UsePost() {
    if (body_kind_ == BodyKind::kNone) body_kind_ = BodyKind::kUrlEncoded;
}

void BareHttpConnection::AddFileField(const std::string& name, const std::string& path) {
    fields_.push_back({name, path, true});
    body_kind_ = BodyKind::kMultipart;
}

std::string BareHttpConnection::PartHead(const FormField& field) const {
    std::string head =
        Concat({"--", boundary_, "\r\nContent-Disposition: form-data; name=\"", field.name, "\""});
    if (field.is_file) {
        std::string_view path = field.value;
        std::string_view file_name = path.substr(path.find_last_of('/') + 1);
        head +=
            Concat({"; filename=\"", file_name, "\"\r\nContent-Type: application/octet-stream"});
    }
    return head + "\r\n\r\n";
}

std::string BareHttpConnection::BuildHead(uint64_t body_length) const {
    std::string head =
        Concat({body_kind_ == BodyKind::kNone ? "GET " : "POST ", path_, " HTTP/1.1\r\n"});
    for (const auto& [name, value] : headers_)
        head += Concat({name, ": ", value, "\r\n"});
    head += Concat({"Host: ", host_, "\r\n"});
    // One request per connection: the server may close after the answer.
    head += "Connection: close\r\n";
    if (body_kind_ == BodyKind::kMultipart) {
        head += Concat({"Content-Type: multipart/form-data; boundary=", boundary_, "\r\n"});
    } else if (body_kind_ == BodyKind::kUrlEncoded) {
        head += "Content-Type: application/x-www-form-urlencoded\r\n";
    }
    if (body_kind_ != BodyKind::kNone) {
        head += Concat({"Content-Length: ", std::to_string(body_length), "\r\n"});
    }
    return head + "\r\n";
}

void BareHttpConnection::SendMultipartBody() {
    std::vector<char> block(kFileBlockBytes);
    for (const FormField& field : fields_) {
        socket_.SendAll(PartHead(field));
        if (!field.is_file) {
            socket_.SendAll(field.value);
        } else {
            TekoFile file;
            if (!file.Open(field.value, TekoFile::kModeRead))
                throw std::runtime_error("Cannot open file");
            for (uint32_t got; (got = file.Read(block.data(), kFileBlockBytes)) > 0;)
                socket_.SendAll(std::string_view(block.data(), got));
        }
        socket_.SendAll("\r\n");
    }
    socket_.SendAll(Concat({"--", boundary_, "--\r\n"}));
}

int BareHttpConnection::Send() {
    std::string body;
    uint64_t body_length = 0;
    if (body_kind_ == BodyKind::kUrlEncoded) {
        for (const FormField& field : fields_) {
            if (!body.empty()) body += '&';
            body += Concat({UrlEncode(field.name), "=", UrlEncode(field.value)});
        }
        body_length = body.size();
    } else if (body_kind_ == BodyKind::kMultipart) {
        // The length is announced first, so every file is measured before anything is sent.
        for (const FormField& field : fields_) {
            body_length += PartHead(field).size() + 2;
            if (!field.is_file) {
                body_length += field.value.size();
                continue;
            }
            TekoFile file;
            if (!file.Open(field.value, TekoFile::kModeRead))
                throw std::runtime_error("Cannot open file");
            body_length += file.GetSize();
        }
        body_length += boundary_.size() + 6;
    }

    if (aborted_ || !socket_.Create()) return -1;
    socket_.SetTimeouts(timeout_seconds_);  // on Linux this bounds connect() as well
    if (aborted_ || !socket_.Connect(host_, 80)) return -1;
    try {
        socket_.SendAll(BuildHead(body_length));
        if (body_kind_ == BodyKind::kUrlEncoded) socket_.SendAll(body);
        if (body_kind_ == BodyKind::kMultipart) SendMultipartBody();
    } catch (const socket_exception&) {
        return -1;
    }
    input_.resize(kHeadBufferBytes);
    if (!ReadHead()) return -1;
    return status_;
}

bool BareHttpConnection::ReceiveInput() {
    if (aborted_) return false;
    try {
        input_end_ += static_cast<size_t>(socket_.Receive(
            input_.data() + input_end_, static_cast<int>(input_.size() - input_end_)));
        return true;
    } catch (const socket_exception& error) {
        peer_closed_ = std::string_view(error.what()) == "Connection closed";
        failed_ = !peer_closed_;
        return false;
    }
}

bool BareHttpConnection::ReadHead() {
    size_t end;
    while ((end = std::string_view(input_.data(), input_end_).find("\r\n\r\n")) ==
           std::string_view::npos) {
        if (input_end_ == input_.size()) throw std::runtime_error("Header size is too long");
        if (!ReceiveInput()) return false;
    }
    std::string_view head(input_.data(), end);
    input_begin_ = end + 4;
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
        RequestHead::ParseHeaderLine(head.substr(line_end + 2, next - line_end - 2),
                                     response_headers_);
        line_end = next;
    }

    std::string value;
    if (GetResponseHeader("TRANSFER-ENCODING", value) &&
        FindIgnoringCase(value, "chunked") != std::string_view::npos) {
        framing_ = Framing::kChunked;
    } else if (GetResponseHeader("CONTENT-LENGTH", value)) {
        framing_ = Framing::kLength;
        remaining_ = RequestHead::ParseContentLength(value);
    }
    body_done_ = status_ == 204 || status_ == 304 || (status_ >= 100 && status_ < 200);
    return true;
}

bool BareHttpConnection::GetResponseHeader(const std::string& name, std::string& value) const {
    return RequestHead::FindHeader(response_headers_, name, value);
}

bool BareHttpConnection::Fill() {
    if (input_begin_ < input_end_) return true;
    input_begin_ = input_end_ = 0;
    return ReceiveInput();
}

int BareHttpConnection::TakeInput(char* buffer, size_t size) {
    size_t count = std::min(size, input_end_ - input_begin_);
    std::copy_n(input_.data() + input_begin_, count, buffer);
    input_begin_ += count;
    return static_cast<int>(count);
}

bool BareHttpConnection::ReadLine(std::string& line) {
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

int BareHttpConnection::ReadChunked(char* buffer, int size) {
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
        if (!ReadLine(line) || !line.empty()) return -1;  // the CRLF after the data
    }
    return got;
}

int BareHttpConnection::Read(void* buffer, int size) {
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

void BareHttpConnection::Abort() {
    aborted_ = true;
    socket_.Shutdown();
}

}  // namespace Zarn
