#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "http/RequestHead.h"
#include "net/TCPSocket.h"

namespace Zarn {

// A small HTTP/1.1 client for one request per object: GET, or POST with an URL-encoded
// or multipart form (files streamed from disk), then the status and the body, which Read
// returns without any chunked framing. No redirects are followed. Connecting, sending and
// each read give up after the time-out, so a peer that never answers cannot hold the
// calling thread; Abort, from another thread, ends a wait at once.
class BareHttpConnection {
public:
    static constexpr size_t kHeadBufferBytes = 16 * 1024;
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
    enum class Framing { kLength, kChunked, kToClose };
    struct FormField {
        std::string name;
        std::string value;  // the value, or the path of a file field
        bool is_file = false;
    };

    [[nodiscard]] std::string BuildHead(uint64_t body_length) const;
    [[nodiscard]] std::string PartHead(const FormField& field) const;
    // Sends the multipart body, files read in pieces.
    void SendMultipartBody();
    [[nodiscard]] bool ReadHead();
    // Makes input available; false at the end of the stream or on a failure.
    [[nodiscard]] bool Fill();
    [[nodiscard]] bool ReadLine(std::string& line);
    int ReadChunked(char* buffer, int size);
    [[nodiscard]] int TakeInput(char* buffer, size_t size);
    // One receive into the input buffer's free end; false at a close or a failure.
    [[nodiscard]] bool ReceiveInput();

    std::string host_;
    std::string path_;
    int timeout_seconds_;
    BodyKind body_kind_ = BodyKind::kNone;
    std::vector<std::pair<std::string, std::string>> headers_;
    std::vector<FormField> fields_;
    std::string boundary_;

    TCPSocket socket_;
    std::atomic<bool> aborted_{false};
    bool failed_ = false;
    bool peer_closed_ = false;
    int status_ = -1;
    HeaderMap response_headers_;

    std::vector<char> input_;
    size_t input_begin_ = 0;
    size_t input_end_ = 0;
    Framing framing_ = Framing::kToClose;
    uint64_t remaining_ = 0;  // of the body (by length) or of the current chunk
    bool in_chunk_ = false;   // inside a chunk's data (remaining_ counts what is left)
    bool body_done_ = false;
};

}  // namespace Zarn
