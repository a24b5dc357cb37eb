#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "http/ResponseReader.h"
#include "net/TCPSocket.h"

namespace Zarn {

// A small HTTP/1.1 client for one request per object: GET, or POST with an URL-encoded
// or multipart form (files streamed from disk), then the status and the body, which Read
// returns without any chunked framing. No redirects are followed. Connecting, sending and
// each read give up after the time-out, so a peer that never answers cannot hold the
// calling thread; Abort, from another thread, ends a wait at once.
class BareHttpConnection {
public:
    static constexpr int kDefaultTimeoutSeconds = 10;

    // `url` is "http://host[:port]/path?query" (port 80 by default).
    explicit BareHttpConnection(const std::string& url,
                                int timeout_seconds = kDefaultTimeoutSeconds);

    void AddHeader(const std::string& name, const std::string& value);
    // Form fields; any field makes the request a POST. A file field makes it multipart.
    void AddFormField(const std::string& name, const std::string& value);
    void AddFileField(const std::string& name, const std::string& path);
    // A POST even when no field follows (an empty form).
    void UsePost();

    // Sends the request and reads the response head. The status code, or -1 when the
    // connection could not be made or broke before a whole head arrived. Throws
    // std::runtime_error "Header size is too long" for a head beyond the buffer and
    // "Cannot open file" for a file field that cannot be read.
    int Send();
    // The next bytes of the body: at most `size`, 0 at its end, -1 when the connection
    // fails or times out first.
    int Read(void* buffer, int size);
    // A response header by upper-case name.
    [[nodiscard]] bool GetResponseHeader(const std::string& name, std::string& value) const;

    // Ends any wait of Send or Read; callable from another thread.
    void Abort();

private:
    enum class BodyKind { kNone, kUrlEncoded, kMultipart };
    struct FormField {
        std::string name;
        std::string value;  // the value, or the path of a file field
        bool is_file = false;
    };

    [[nodiscard]] std::string BuildHead(uint64_t body_length) const;
    [[nodiscard]] std::string PartHead(const FormField& field) const;
    // Sends the multipart body, files read in pieces.
    void SendMultipartBody();
    // One receive into the reader's buffer: the count, 0 at a close, -1 on a failure.
    long Receive(char* buffer, size_t size);

    std::string host_;
    std::string path_;
    int timeout_seconds_;
    BodyKind body_kind_ = BodyKind::kNone;
    std::vector<std::pair<std::string, std::string>> headers_;
    std::vector<FormField> fields_;
    std::string boundary_;

    TCPSocket socket_;
    std::atomic<bool> aborted_{false};
    ResponseReader reader_;
};

}  // namespace Zarn
