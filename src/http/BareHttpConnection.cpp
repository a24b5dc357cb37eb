#include "http/BareHttpConnection.h"

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
    : timeout_seconds_(timeout_seconds),
      boundary_("----LumidropFormBoundary8d1c0f7e2b"),
      reader_([this](char* buffer, size_t size) { return Receive(buffer, size); }) {
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
    return reader_.ReadHead();
}

long BareHttpConnection::Receive(char* buffer, size_t size) {
    if (aborted_) return -1;
    try {
        return socket_.Receive(buffer, static_cast<int>(size));
    } catch (const socket_exception& error) {
        return std::string_view(error.what()) == "Connection closed" ? 0 : -1;
    }
}

bool BareHttpConnection::GetResponseHeader(const std::string& name, std::string& value) const {
    return reader_.GetHeader(name, value);
}

int BareHttpConnection::Read(void* buffer, int size) {
    return reader_.Read(buffer, size);
}

void BareHttpConnection::Abort() {
    aborted_ = true;
    socket_.Shutdown();
}

}  // namespace Zarn
