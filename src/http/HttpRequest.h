#pragma once

#include <sys/types.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "http/AuthenticationInfo.h"
#include "http/MultipartReader.h"
#include "http/RequestHead.h"
#include "http/ResponseHead.h"
#include "transfer/TransferStatusReporter.h"

namespace Zarn {

class HttpConnection;
class TransferStatusAggregator;

// One request on one connection, for both directions: the connection thread parses the
// header into it and the handler reads the request and writes the response through it.
// Every byte received or sent is reported to the request's transfer status.
// Used by one connection thread only.
class HttpRequest {
public:
    // Urlencoded form bodies up to this size are read into memory; a larger one is
    // refused unread (IsFormTooLarge).
    static constexpr uint64_t kMaxFormBytes = 1 << 20;

    // A request on the connection (not owned). A request without a connection only
    // parses: reading its body fails as a closed connection would.
    HttpRequest(HttpConnection* connection, TransferStatusAggregator& aggregator);
    virtual ~HttpRequest();
    HttpRequest(const HttpRequest&) = delete;
    HttpRequest& operator=(const HttpRequest&) = delete;

    // Parses the header text (without its blank line) into this request: request line,
    // headers, path and query, credentials, and for a POST the multipart body's boundary
    // or the size of its urlencoded form. Reads nothing from the connection: a form is
    // read when a parameter of it is first asked for, which comes after the handler has
    // checked the client, so an unchecked client cannot make the server hold its form.
    void ParseHeader(std::string_view header_text);

    [[nodiscard]] HttpMethod GetMethod() const { return head_.method; }
    [[nodiscard]] const std::string& GetTarget() const { return head_.target; }
    [[nodiscard]] const std::string& GetPath() const { return head_.path; }
    [[nodiscard]] const std::string& GetVersion() const { return head_.version; }
    // `name` upper-case, as the map keeps it.
    [[nodiscard]] bool GetHeader(const std::string& name, std::string& value) const;
    [[nodiscard]] bool GetQueryParameter(const std::string& name, std::string& value) const;
    // The first of these calls reads an urlencoded form body from the connection; they
    // throw socket_exception when it closes or breaks first. A form that is too large
    // reads as empty.
    [[nodiscard]] bool GetFormParameter(const std::string& name, std::string& value);
    [[nodiscard]] const ParameterMap& GetFormParameters();
    [[nodiscard]] const HeaderMap& GetHeaders() const { return head_.headers; }
    [[nodiscard]] const ParameterMap& GetQueryParameters() const { return head_.query; }
    // An urlencoded post whose Content-Length is over kMaxFormBytes. Its body is never
    // read, so the connection closes after the answer.
    [[nodiscard]] bool IsFormTooLarge() const { return form_too_large_; }
    // Null when the request carries no Authorization header.
    [[nodiscard]] const AuthenticationInfo* GetAuthenticationInfo() const;
    [[nodiscard]] std::string GetUserName() const;
    [[nodiscard]] uint64_t GetContentLength() const { return content_length_; }
    [[nodiscard]] uint64_t GetConsumedLength() const { return consumed_; }
    [[nodiscard]] bool IsMultipart() const { return !boundary_.empty(); }
    // Dotted addresses of the client and of this server's end; empty when unknown.
    [[nodiscard]] std::string GetClientAddress() const;
    [[nodiscard]] std::string GetServerAddress() const;

    // One diagnostic line about this request, "[client] text: path" or
    // "[client:user] text: path", when the level is enabled.
    void Log(uint32_t level, const char* format, ...) __attribute__((format(printf, 3, 4)));

    // The next bytes of the body, from the carry-over buffer first and then one receive
    // on the socket; 0 once the whole Content-Length has been read. Throws
    // socket_exception when the connection closes or breaks first.
    int ReceiveBody(void* buffer, int length);

    // Multipart bodies, part by part (see MultipartReader). False at the end of the body.
    [[nodiscard]] bool ReadNextPart(MultipartPart& part);
    // The next piece of the current part; 0 with `part_ended` set when the part is over.
    int ReadPartData(void* buffer, int length, bool& part_ended);
    // True when the multipart body ended before its closing delimiter.
    [[nodiscard]] bool IsMultipartBroken() const;

    [[nodiscard]] TransferStatusReporter& GetTransferStatus() { return status_; }
    [[nodiscard]] HttpConnection* GetConnection() const { return connection_; }

    // The response. SendHead first reads and throws away whatever of the request body the
    // handler left unread, then decides from the head and this request how the body is
    // framed and whether the connection stays (see ResponseHead); the head waits to leave
    // with the first body bytes. Send and SendFileBody write body bytes in that framing (for
    // HEAD they write nothing), EndResponse ends the body. Every send can throw
    // socket_exception, and TransferKickedException when the owner kicked the transfer.
    //
    // kKeepReading is for a handler that goes on reading the request body while it answers
    // (a CGI program gets its input as it answers): the body is left to it, and it must read
    // it to the end before the response ends, or the next request would start inside it.
    enum class RequestBody { kDispose, kKeepReading };
    void SendHead(const ResponseHead& head, RequestBody body = RequestBody::kDispose);
    // Puts the head given to SendHead on the wire now, ahead of any body byte, so that the
    // client sees the answer begin while a source that streams its body (a CGI program)
    // is still at work.
    void MarkHeadersEnded();
    void Send(const void* bytes, size_t length);
    void Send(std::string_view bytes) { Send(bytes.data(), bytes.size()); }
    // Body bytes that may wait to leave in front of the next Send, SendFileBody or
    // EndResponse, in the same segment: for a few small records between large pieces
    // (a zip entry's header), which would otherwise cost a send and a packet each.
    void SendWithNext(std::string_view bytes);
    // Sends `length` bytes of an open file, from `offset`, as body bytes: straight from the
    // file to the socket (sendfile), in writes as large as the transfer status allows for
    // downloads, each reported and paced. Throws socket_exception when the connection
    // fails and std::runtime_error when the file ends early (the promised length can then
    // no longer be kept, so the connection must end).
    void SendFileBody(int file_fd, uint64_t offset, uint64_t length);
    void EndResponse();
    // Ends the response after the handler: a body left open is ended, a response that
    // broke or fell short of its length closes the connection. The connection thread calls
    // it; true when the connection can carry the next request.
    [[nodiscard]] bool FinishResponse();
    // One receive on the connection, counted as received bytes.
    int ReceiveRaw(void* buffer, int length);

    // The value of a WWW-Authenticate header asking for credentials of the scheme.
    [[nodiscard]] static std::string AuthenticateValue(AuthenticationInfo::Scheme scheme,
                                                       const std::string& realm);

    [[nodiscard]] bool IsHead() const { return head_.method == HttpMethod::kHead; }
    // What this request says about the response's framing and connection.
    [[nodiscard]] ResponseTerms GetResponseTerms() const;
    [[nodiscard]] bool IsResponseBegun() const { return response_begun_; }
    // The status code of the head sent; 0 before SendHead.
    [[nodiscard]] int GetResponseCode() const { return response_code_; }
    [[nodiscard]] bool IsKeepAlive() const { return keep_alive_ && !body_left_unread_; }
    // The response went out before the request's body was read (or asked for).
    [[nodiscard]] bool IsBodyLeftUnread() const { return body_left_unread_; }
    // The body is framed by a Transfer-Encoding, which this server does not read: the
    // request must be refused unread and its connection closed.
    [[nodiscard]] bool HasBodyInTransferCoding() const { return body_in_transfer_coding_; }

private:
    void PrepareBody();
    void ReadForm();
    void DisposeBody();
    // Sends what the output buffer holds and then all the bytes, in the same sends,
    // reporting each send to the transfer status and keeping the speed limit after it.
    // `more`: further bytes follow at once, so the kernel may hold these back to fill a
    // segment.
    void SendAll(const char* bytes, size_t length, bool more = false);
    // The sendfile loop of SendFileBody.
    void SendFileBytes(int socket, int file_fd, off_t position, uint64_t left);
    // How many of `length` body bytes the framing lets go now (0 for none), with the
    // chunk's size line already waiting in front of them.
    [[nodiscard]] size_t AdmitBody(size_t length);
    // Writes the size line of the next chunk into the output buffer.
    void BeginChunk(uint64_t length);
    // Body bytes as they go on the wire, sent at once after what the output buffer holds.
    void Write(const char* bytes, size_t length);
    // Sends what the output buffer holds.
    void Flush(bool more = false);
    [[nodiscard]] std::string& Output();

    HttpConnection* connection_;
    TransferStatusReporter status_;
    RequestHead head_;
    ParameterMap form_;
    std::optional<AuthenticationInfo> authentication_;
    uint64_t content_length_ = 0;
    uint64_t consumed_ = 0;
    std::string boundary_;
    bool awaits_continue_ = false;   // "Expect: 100-continue" not yet answered
    bool body_left_unread_ = false;  // answered before the client sent its body
    bool form_unread_ = false;       // an urlencoded body waits for its first parameter
    bool form_too_large_ = false;
    bool body_in_transfer_coding_ = false;
    std::unique_ptr<MultipartReader> multipart_;
    mutable std::optional<std::string> client_address_;

    // Without a connection, the output collects here (it is never sent).
    std::string own_output_;
    bool response_begun_ = false;
    int response_code_ = 0;
    bool response_ended_ = false;
    bool response_broken_ = false;  // a send failed part way: the framing cannot be trusted
    bool keep_alive_ = false;
    bool chunk_open_ = false;  // a chunk's data went out without its closing line break
    BodyFraming framing_ = BodyFraming::kUntilClose;
    uint64_t body_sent_ = 0;
    uint64_t body_promised_ = 0;  // for BodyFraming::kLength
};

}  // namespace Zarn
