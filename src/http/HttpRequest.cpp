#include "http/HttpRequest.h"

#include <sys/sendfile.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <stdexcept>

#include "core/StringUtil.h"
#include "core/UrlCodec.h"
#include "http/HttpConnection.h"
#include "log/Log.h"
#include "net/SocketError.h"
#include "net/socket_exception.h"

namespace Zarn {
namespace {

// The boundary parameter of a multipart Content-Type, without quotes.
std::string BoundaryOf(std::string_view content_type) {
    constexpr std::string_view kKey = "boundary=";
    size_t found = FindIgnoringCase(content_type, kKey);
    if (found == std::string_view::npos) return {};
    std::string_view rest = content_type.substr(found + kKey.size());
    if (rest.starts_with('"')) {
        rest.remove_prefix(1);
        return std::string(rest.substr(0, rest.find('"')));
    }
    return std::string(Trim(rest.substr(0, rest.find_first_of(";, \t"))));
}

}  // namespace

HttpRequest::HttpRequest(HttpConnection* connection, TransferStatusAggregator& aggregator)
    : connection_(connection), status_(aggregator) {}

HttpRequest::~HttpRequest() = default;

void HttpRequest::ParseHeader(std::string_view header_text) {
    head_ = RequestHead::Parse(header_text, GetDefaultUrlCodepage());
    Log(kLogTrace, "Get Method Parsed.");

    auto authorization = head_.headers.find("AUTHORIZATION");
    if (authorization != head_.headers.end()) {
        authentication_ = AuthenticationInfo::Parse(authorization->second);
    }
    Log(kLogTrace, "Authentication Info Parsed.");

    // Every method's body is measured, so that an answer to any request that carries one
    // can drain it first and the client reads the answer instead of a reset.
    auto length = head_.headers.find("CONTENT-LENGTH");
    if (length != head_.headers.end()) {
        content_length_ = RequestHead::ParseContentLength(length->second);
    }
    std::string expect;
    awaits_continue_ = content_length_ > 0 && head_.version == "HTTP/1.1" &&
                       GetHeader("EXPECT", expect) && ToLowerAscii(Trim(expect)) == "100-continue";
    if (head_.method == HttpMethod::kPost) {
        PrepareBody();
        Log(kLogTrace, "POST Method Parsed.");
    }
}

void HttpRequest::PrepareBody() {
    std::string content_type;
    if (GetHeader("CONTENT-TYPE", content_type) &&
        content_type.find("multipart") != std::string::npos) {
        // The body stays on the connection for the upload handler to stream.
        boundary_ = BoundaryOf(content_type);
        return;
    }
    form_too_large_ = content_length_ > kMaxFormBytes;
    form_unread_ = !form_too_large_;
}

void HttpRequest::ReadForm() {
    if (!form_unread_) return;
    form_unread_ = false;
    // The buffer grows with what arrives and is never sized by the Content-Length, so a
    // client that only announces a large form costs nothing.
    std::string body;
    char piece[16 * 1024];
    for (int got; (got = ReceiveBody(piece, sizeof piece)) > 0;)
        body.append(piece, static_cast<size_t>(got));
    if (!body.empty()) RequestHead::ParseParameters(body, GetDefaultUrlCodepage(), form_);
}

bool HttpRequest::GetHeader(const std::string& name, std::string& value) const {
    return RequestHead::FindHeader(head_.headers, name, value);
}

bool HttpRequest::GetQueryParameter(const std::string& name, std::string& value) const {
    auto found = head_.query.find(name);
    if (found == head_.query.end()) return false;
    value = found->second;
    return true;
}

bool HttpRequest::GetFormParameter(const std::string& name, std::string& value) {
    ReadForm();
    auto found = form_.find(name);
    if (found == form_.end()) return false;
    value = found->second;
    return true;
}

const ParameterMap& HttpRequest::GetFormParameters() {
    ReadForm();
    return form_;
}

const AuthenticationInfo* HttpRequest::GetAuthenticationInfo() const {
    return authentication_ ? &*authentication_ : nullptr;
}

std::string HttpRequest::GetUserName() const {
    return authentication_ ? authentication_->user_name : std::string();
}

std::string HttpRequest::GetClientAddress() const {
    if (!client_address_) {
        client_address_ = connection_ ? connection_->GetPeerIp() : std::string();
    }
    return *client_address_;
}

std::string HttpRequest::GetServerAddress() const {
    std::string ip;
    uint16_t port = 0;
    if (connection_ == nullptr || !connection_->GetSocket().GetLocalAddress(ip, port)) return {};
    return ip;
}

void HttpRequest::Log(uint32_t level, const char* format, ...) {
    if (!IsLogLevelEnabled(level)) return;
    char text[kLogBufferBytes];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    std::string user = GetUserName();
    if (user.empty()) {
        Zarn::Log(level, "[%s] %s: %s", GetClientAddress().c_str(), text, head_.path.c_str());
    } else {
        Zarn::Log(level, "[%s:%s] %s: %s", GetClientAddress().c_str(), user.c_str(), text,
                  head_.path.c_str());
    }
}

int HttpRequest::ReceiveBody(void* buffer, int length) {
    if (length <= 0 || consumed_ >= content_length_) return 0;
    if (connection_ == nullptr) throw socket_exception("Connection closed");
    if (awaits_continue_) {
        // The client holds the body back until told to go on; without this it waits
        // a second or so and then sends it anyway.
        awaits_continue_ = false;
        connection_->GetSocket().SendAll("HTTP/1.1 100 Continue\r\n\r\n");
    }
    auto wanted = static_cast<int>(
        std::min<uint64_t>(static_cast<uint64_t>(length), content_length_ - consumed_));
    auto got = static_cast<int>(
        connection_->TakeCarryOver(static_cast<char*>(buffer), static_cast<size_t>(wanted)));
    if (got == 0) {
        got = connection_->GetSocket().Receive(buffer, wanted);
        Log(kLogTrace, "Receive(%d bytes)-OK", got);
    }
    consumed_ += static_cast<uint64_t>(got);
    status_.ReportTransferred(kDirectionUpload, static_cast<uint64_t>(got));
    return got;
}

bool HttpRequest::ReadNextPart(MultipartPart& part) {
    if (!IsMultipart()) return false;
    if (!multipart_) {
        multipart_ =
            std::make_unique<MultipartReader>(boundary_, [this](char* buffer, size_t length) {
                int asked = static_cast<int>(std::min<size_t>(length, 1 << 30));
                return static_cast<size_t>(ReceiveBody(buffer, asked));
            });
    }
    return multipart_->ReadNextPart(part);
}

int HttpRequest::ReadPartData(void* buffer, int length, bool& part_ended) {
    part_ended = false;
    if (!multipart_) {
        part_ended = true;
        return 0;
    }
    if (length <= 0) return 0;
    size_t got = multipart_->ReadPartData(static_cast<char*>(buffer), static_cast<size_t>(length),
                                          part_ended);
    if (part_ended && !multipart_->IsBroken()) Log(kLogTrace, "boundary found.");
    return static_cast<int>(got);
}

bool HttpRequest::IsMultipartBroken() const {
    return multipart_ && multipart_->IsBroken();
}

}  // namespace Zarn

namespace Zarn {

void HttpRequest::BeginResponse(int code, const char* reason) {
    DisposeBody();
    Log(kLogTrace, "BeginResponse(%d, %s)", code, reason);
    response_begun_ = true;
    char status_line[128];
    std::snprintf(status_line, sizeof status_line, "HTTP/1.1 %d %s\r\n", code, reason);
    pending_ += status_line;
}

void HttpRequest::SendHeader(const std::string& name, const std::string& value) {
    Log(kLogTrace, "SendHeader(%s, %s)", name.c_str(), value.c_str());
    header_sent_ = true;
    pending_ += name;
    pending_ += ": ";
    pending_ += value;
    pending_ += "\r\n";
}

void HttpRequest::Send(const void* bytes, size_t length) {
    if (!headers_ended_) {
        if (!IsKeepAlive()) pending_ += "Connection:close\r\n";
        pending_ += "\r\n";
        header_sent_ = true;
        headers_ended_ = true;
    }
    constexpr size_t kCoalesceBytes = 16 * 1024;
    if (!pending_.empty() && length <= kCoalesceBytes) {
        pending_.append(static_cast<const char*>(bytes), length);
        length = 0;
    }
    Flush();
    SendAll(static_cast<const char*>(bytes), length);
}

void HttpRequest::SendFileBody(int file_fd, uint64_t offset, uint64_t length) {
    Send(nullptr, 0);  // the headers go first
    if (connection_ == nullptr) throw socket_exception("Connection closed");
    int socket = connection_->GetSocket().GetHandle();
    auto position = static_cast<off_t>(offset);
    while (length > 0) {
        uint64_t allowance = status_.GetWriteAllowance(kDirectionDownload);
        size_t chunk = static_cast<size_t>(std::min<uint64_t>({length, allowance, 1 << 30}));
        ssize_t sent = ::sendfile(socket, file_fd, &position, std::max<size_t>(chunk, 1));
        if (sent < 0 && errno == EINTR) continue;
        if (sent < 0) {
            if (errno == EAGAIN)
                SetLastSocketError(10060);  // the send time-out ran out
            else
                RecordSocketErrno();
            throw socket_exception();
        }
        if (sent == 0) throw std::runtime_error("The file ended before its length was sent");
        length -= static_cast<uint64_t>(sent);
        status_.ReportTransferred(kDirectionDownload, static_cast<uint64_t>(sent));
    }
}

void HttpRequest::EndResponse() {
    Log(kLogTrace, "EndResponse");
    Send(nullptr, 0);
}

void HttpRequest::MarkHeadersEnded() {
    headers_ended_ = true;
}

void HttpRequest::Flush() {
    if (pending_.empty()) return;
    std::string bytes = std::move(pending_);
    pending_.clear();
    SendAll(bytes.data(), bytes.size());
}

void HttpRequest::SendAll(const char* bytes, size_t length) {
    if (length == 0) return;
    if (connection_ == nullptr) throw socket_exception("Connection closed");
    TCPSocket& socket = connection_->GetSocket();
    while (length > 0) {
        // A send may take fewer bytes than offered (a send time-out, a signal); only what
        // it took is counted, and the rest is offered again from where it stopped.
        int chunk = static_cast<int>(std::min<size_t>(length, 1 << 30));
        auto sent = static_cast<size_t>(socket.Send(bytes, chunk));
        bytes += sent;
        length -= sent;
        status_.ReportTransferred(kDirectionDownload, sent);
    }
}

void HttpRequest::DisposeBody() {
    if (form_too_large_) {
        body_left_unread_ = true;
        Log(kLogTrace, "Form too large, body not read");
        return;
    }
    if (awaits_continue_ && connection_ != nullptr && connection_->CarryOverSize() == 0) {
        // The client still holds the body back for our word: answering without asking for
        // it spares it sending what would be thrown away. The connection cannot serve
        // another request after that, so it closes.
        body_left_unread_ = true;
        Log(kLogTrace, "Body not asked for");
        return;
    }
    char scratch[8192];
    uint64_t disposed = 0;
    while (consumed_ < content_length_) {
        int got = ReceiveBody(scratch, sizeof scratch);
        if (got <= 0) break;
        disposed += static_cast<uint64_t>(got);
    }
    Log(kLogTrace, "Dispose(%llu bytes)-OK", static_cast<unsigned long long>(disposed));
}

int HttpRequest::ReceiveRaw(void* buffer, int length) {
    if (connection_ == nullptr) throw socket_exception("Connection closed");
    int got = connection_->GetSocket().Receive(buffer, length);
    status_.ReportTransferred(kDirectionUpload, static_cast<uint64_t>(got));
    return got;
}

std::string HttpRequest::AuthenticateValue(AuthenticationInfo::Scheme scheme,
                                           const std::string& realm) {
    std::string realm_part = "realm=\"" + realm + "\"";
    switch (scheme) {
        case AuthenticationInfo::Scheme::kBasic:
            return "Basic " + realm_part;
        case AuthenticationInfo::Scheme::kDigest:
            return "Digest " + realm_part;
    }
    return {};
}

}  // namespace Zarn
