// Pipelined request heads on a real socket, read by the connection's own reader: once sent
// all at once, once in pieces of sizes the input chooses, each sent only after the reader
// has taken the one before. The reader must find the same heads and end the same way, since
// a client's bytes arrive in whatever pieces the network makes.
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "PiecedInput.h"
#include "http/HttpConnection.h"
#include "http/HttpRequest.h"
#include "transfer/NullTransferStatusAggregator.h"

using namespace Zarn;

namespace {

struct Reading {
    std::vector<std::string> heads;  // each head as the request came to see it
    std::string end;

    bool operator==(const Reading&) const = default;
};

std::string Describe(const HttpRequest& request) {
    std::string text = request.GetTarget() + '|' + request.GetPath() + '|' + request.GetVersion() +
                       '|' + std::to_string(static_cast<int>(request.GetMethod())) + '|' +
                       std::to_string(request.GetContentLength());
    for (const auto& [name, value] : request.GetHeaders())
        text += '|' + name + ':' + value;
    for (const auto& [name, value] : request.GetQueryParameters())
        text += '|' + name + '=' + value;
    return text;
}

void Feed(TCPSocket& writer, const TCPSocket& reader, std::string_view stream,
          std::string_view pieces, const std::atomic<bool>& done) {
    for (size_t position = 0, piece = 0; position < stream.size() && !done;) {
        const size_t count = 1 + static_cast<uint8_t>(pieces[piece++ % pieces.size()]);
        writer.SendAll(stream.substr(position, count));
        position += count;
        int pending = 1;
        while (!done && ::ioctl(reader.GetHandle(), FIONREAD, &pending) == 0 && pending > 0)
            sched_yield();
    }
    writer.Shutdown();
}

Reading Read(std::string_view stream, std::string_view pieces) {
    int ends[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) __builtin_trap();
    TCPSocket reader;
    TCPSocket writer;
    reader.Attach(ends[0]);
    writer.Attach(ends[1]);
    HttpConnection connection(std::move(reader));
    std::atomic<bool> done{false};
    std::thread feeder;
    if (pieces.empty()) {
        writer.SendAll(stream);
        writer.Shutdown();
    } else {
        feeder = std::thread([&] { Feed(writer, connection.GetSocket(), stream, pieces, done); });
    }
    Reading reading;
    try {
        for (;;) {
            HttpRequest request(nullptr, NullTransferStatusAggregator::Instance());
            if (!connection.ReadHeader(request)) break;
            reading.heads.push_back(Describe(request));
        }
        reading.end = "idle";
    } catch (const std::exception& error) {
        reading.end = error.what();
    }
    done = true;
    if (feeder.joinable()) feeder.join();
    return reading;
}

}  // namespace

// The input: piece sizes, a newline, then what the client sends.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::optional<PiecedInput> input = PiecedInput::From(data, size);
    // The whole stream must fit the socket's buffer, as nothing reads it while it is sent.
    if (!input || input->pieces.empty() || size > 64 * 1024) return -1;
    if (!(Read(input->bytes, {}) == Read(input->bytes, input->pieces))) __builtin_trap();
    return 0;
}
