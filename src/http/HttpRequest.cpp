#include "http/HttpRequest.h"

#include <sys/sendfile.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <stdexcept>

#include "core/StringUtil.h"
#include "core/UrlCodec.h"
#include "http/HttpConnection.h"
#include "http/HttpDate.h"
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
    // RFC 9112 section 6.1: such a body ends where its coding says, and Content-Length
    // must not be trusted beside it. Read by the length, its bytes would reach us as a
    // request of their own that a proxy in front passed along as part of this one.
    body_in_transfer_coding_ = head_.headers.contains("TRANSFER-ENCODING");
    std::string expect;
    awaits_continue_ = content_length_ > 0 && head_.version == "HTTP/1.1" &&
                       GetHeader("EXPECT", expect) && ToLowerAscii(Trim(expect)) == "100-continue";
    std::string override_method;
    if (head_.method == HttpMethod::kPost && GetHeader("X-HTTP-METHOD-OVERRIDE", override_method)) {
        // Clients behind proxies that pass only GET and POST send their resumable uploads'
        // PATCH and DELETE this way; nothing else may be asked for through it.
        std::string_view word = Trim(override_method);
        if (word == "PATCH") head_.method = HttpMethod::kPatch;
        if (word == "DELETE") head_.method = HttpMethod::kDelete;
    }
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

ResponseTerms HttpRequest::GetResponseTerms() const {
    std::string connection;
    (void)GetHeader("CONNECTION", connection);
    bool close = false;
    bool keep_alive = false;
    for (std::string_view token : Split(connection, ',')) {
        close = close || EqualsIgnoringCase(Trim(token), "close");
        keep_alive = keep_alive || EqualsIgnoringCase(Trim(token), "keep-alive");
    }
    bool http11 = head_.version == "HTTP/1.1";
    bool http10 = head_.version == "HTTP/1.0";
    return {.is_head = IsHead(),
            .client_keeps_alive = !close && (http11 || (http10 && keep_alive)),
            .accepts_chunked = http11,
            .http10 = http10,
            .body_read_whole = !body_left_unread_};
}

void HttpRequest::SendHead(const ResponseHead& head, RequestBody body) {
    if (response_begun_) throw std::logic_error("A response has only one head");
    // A client still waiting for "100 Continue" would hear it after the final head.
    if (body == RequestBody::kDispose || awaits_continue_) DisposeBody();
    Log(kLogTrace, "SendHead(%d)", head.GetCode());
    response_begun_ = true;
    response_code_ = head.GetCode();
    ResponseHead::Written written = head.WriteTo(GetResponseTerms(), HttpDate::Now(), Output());
    framing_ = written.framing;
    keep_alive_ = written.keep_alive;
    body_promised_ = head.GetContentLength().value_or(0);
}

void HttpRequest::MarkHeadersEnded() {
    if (!response_begun_) throw std::logic_error("No head to end");
    Flush();
}

std::string& HttpRequest::Output() {
    return connection_ != nullptr ? connection_->GetOutputBuffer() : own_output_;
}

void HttpRequest::Send(const void* bytes, size_t length) {
    length = AdmitBody(length);
    if (length == 0) return;
    Write(static_cast<const char*>(bytes), length);
    body_sent_ += length;
}

void HttpRequest::SendWithNext(std::string_view bytes) {
    // Past this much waiting, what waits leaves anyway: a run of records alone (the central
    // directory, a tree of empty folders) still goes in a few large sends, and the buffer a
    // connection keeps stays small.
    constexpr size_t kWaitingBytes = 4096;
    size_t length = AdmitBody(bytes.size());
    if (length == 0) return;
    Output().append(bytes.data(), length);
    body_sent_ += length;
    if (Output().size() >= kWaitingBytes) Flush(true);
}

size_t HttpRequest::AdmitBody(size_t length) {
    if (!response_begun_) throw std::logic_error("Body bytes before the response head");
    if (length == 0 || response_ended_ || framing_ == BodyFraming::kNone) return 0;
    if (framing_ == BodyFraming::kLength) {
        // Never more than promised: the surplus would be read as the next response.
        length = static_cast<size_t>(
            std::min<uint64_t>(length, body_promised_ - std::min(body_promised_, body_sent_)));
    }
    if (framing_ == BodyFraming::kChunked) BeginChunk(length);
    return length;
}

void HttpRequest::BeginChunk(uint64_t length) {
    // The line break that ends a chunk's data goes out in front of the next chunk (or of
    // the last, empty one), so that every chunk leaves in one write.
    char size_line[32];
    int size_length = std::snprintf(size_line, sizeof size_line, "%s%" PRIx64 "\r\n",
                                    chunk_open_ ? "\r\n" : "", length);
    Output().append(size_line, static_cast<size_t>(size_length));
    chunk_open_ = length > 0;
}

void HttpRequest::Write(const char* bytes, size_t length) {
    // Every Send leaves at once (a progress page depends on it), in one segment with the
    // head or chunk line waiting in front of it. A small piece is copied behind them; a
    // larger one goes out beside them in the same send, so that the buffer a connection
    // keeps stays the size of a head.
    constexpr size_t kCopyBytes = 512;
    std::string& output = Output();
    if (output.size() + length <= kCopyBytes || connection_ == nullptr) {
        output.append(bytes, length);
        return Flush();
    }
    SendAll(bytes, length);
}

void HttpRequest::SendFileBody(int file_fd, uint64_t offset, uint64_t length) {
    if (!response_begun_) throw std::logic_error("Body bytes before the response head");
    if (framing_ == BodyFraming::kNone || length == 0) return;
    if (framing_ == BodyFraming::kChunked) BeginChunk(length);
    if (connection_ == nullptr) throw socket_exception("Connection closed");
    Flush(true);  // the head leaves in the segment of the first file bytes
    int socket = connection_->GetSocket().GetHandle();
    auto position = static_cast<off_t>(offset);
    uint64_t left = length;
    try {
        SendFileBytes(socket, file_fd, position, left);
    } catch (...) {
        response_broken_ = true;
        throw;
    }
}

void HttpRequest::SendFileBytes(int socket, int file_fd, off_t position, uint64_t left) {
    while (left > 0) {
        uint64_t allowance = status_.GetWriteAllowance(kDirectionDownload);
        size_t chunk = static_cast<size_t>(std::min<uint64_t>({left, allowance, 1 << 30}));
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
        left -= static_cast<uint64_t>(sent);
        body_sent_ += static_cast<uint64_t>(sent);
        // The owner's console shows where in the file the download stands.
        status_.SetPosition(kDirectionDownload, static_cast<uint64_t>(position));
        status_.ReportTransferred(kDirectionDownload, static_cast<uint64_t>(sent));
    }
}

void HttpRequest::EndResponse() {
    if (!response_begun_ || response_ended_) return;
    Log(kLogTrace, "EndResponse");
    if (framing_ == BodyFraming::kChunked && !response_broken_) {
        BeginChunk(0);
        Output() += "\r\n";
    }
    response_ended_ = true;
    Flush();
}

bool HttpRequest::FinishResponse() {
    if (!response_begun_) return false;
    if (!response_broken_) EndResponse();
    // A body that broke off or fell short of its Content-Length leaves the client unable
    // to find the next response.
    // So does a request body a handler kept reading (SendHead's kKeepReading) but left
    // unfinished: the next request would be read from inside it.
    bool complete = !response_broken_ && consumed_ >= content_length_ &&
                    (framing_ != BodyFraming::kLength || body_sent_ == body_promised_);
    return complete && IsKeepAlive();
}

void HttpRequest::Flush(bool more) {
    if (Output().empty()) return;
    SendAll(nullptr, 0, more);
}

void HttpRequest::SendAll(const char* bytes, size_t length, bool more) {
    if (connection_ == nullptr) throw socket_exception("Connection closed");
    TCPSocket& socket = connection_->GetSocket();
    // What waits in the output buffer goes first, in the same sends.
    std::string& output = Output();
    size_t waiting = output.size();
    if (waiting == 0 && length == 0) return;
    int flags = more ? MSG_MORE : 0;
    try {
        size_t output_sent = 0;
        while (output_sent < waiting || length > 0) {
            // A send may take fewer bytes than offered (a send time-out, a signal); only
            // what it took is counted, and the rest is offered again from where it stopped.
            std::string_view first(output.data() + output_sent, waiting - output_sent);
            std::string_view second(bytes, std::min<size_t>(length, 1 << 30));
            auto sent = static_cast<size_t>(
                first.empty() ? socket.Send(second.data(), static_cast<int>(second.size()), flags)
                              : socket.SendPair(first, second, flags));
            size_t from_output = std::min(sent, first.size());
            output_sent += from_output;
            bytes += sent - from_output;
            length -= sent - from_output;
            // HEAD moves no file: its head is not counted as a transfer.
            if (!IsHead()) status_.ReportTransferred(kDirectionDownload, sent);
        }
        output.clear();
    } catch (...) {
        response_broken_ = true;
        throw;
    }
}

void HttpRequest::DisposeBody() {
    if (form_too_large_ || body_in_transfer_coding_) {
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
    if (consumed_ >= content_length_) return;
    // On the heap: every response passes here, and a buffer in this frame would touch stack
    // pages that each idle connection thread then keeps.
    constexpr int kScratchBytes = 8192;
    auto scratch = std::make_unique_for_overwrite<char[]>(kScratchBytes);
    uint64_t disposed = 0;
    while (consumed_ < content_length_) {
        int got = ReceiveBody(scratch.get(), kScratchBytes);
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
