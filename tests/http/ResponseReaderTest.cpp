#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <string>

#include "http/ResponseReader.h"

namespace Zarn {
namespace {

struct Reading {
    int status = -1;
    std::string body;
    int end = 0;  // the Read that stopped the reading: 0 at the end, -1 on a failure
};

// Serves the response from memory in receives of random sizes, 1 up to `max_chunk` bytes,
// then reports the close.
Reading ReadAll(const std::string& response, uint32_t seed, size_t max_chunk) {
    std::mt19937 random(seed);
    std::uniform_int_distribution<size_t> chunk(1, max_chunk);
    size_t offset = 0;
    ResponseReader reader([&](char* buffer, size_t size) {
        size_t count = std::min({size, chunk(random), response.size() - offset});
        std::memcpy(buffer, response.data() + offset, count);
        offset += count;
        return static_cast<long>(count);
    });
    Reading reading;
    reading.status = reader.ReadHead();
    char buffer[7];
    while ((reading.end = reader.Read(buffer, sizeof buffer)) > 0)
        reading.body.append(buffer, static_cast<size_t>(reading.end));
    return reading;
}

// Lengths, chunks, a broken chunk, a cut body and a head too large cross real sockets in the
// address check's tests, and the fuzz harness compares pieced readings with whole ones; here,
// the framings those do not meet.
TEST(ResponseReaderTest, ReadsFramingsTheCheckServersDoNotSend) {
    struct Case {
        const char* name;
        std::string response;
        int status;
        std::string body;
        int end;
    } cases[] = {
        {"length", "HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nhelloextra", 200, "hello", 0},
        {"chunk size too large",
         "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n1000000000000000\r\nab", 200, "",
         -1},
        {"to the close", "HTTP/1.0 200 OK\r\nServer: x\r\n\r\nall of it", 200, "all of it", 0},
        {"no content", "HTTP/1.1 204 No Content\r\nContent-Length: 4\r\n\r\nnope", 204, "", 0},
        {"not a status line", "HTTP/1.1 OK\r\n\r\nbody", -1, "", 0},
        {"head cut off", "HTTP/1.1 200 OK\r\nContent-Le", -1, "", 0},
    };
    for (const Case& test : cases) {
        Reading reading = ReadAll(test.response, 0, 1 << 20);
        EXPECT_EQ(reading.status, test.status) << test.name;
        EXPECT_EQ(reading.body, test.body) << test.name;
        EXPECT_EQ(reading.end, test.end) << test.name;
    }
}

// Caught by the response harness: a chunk's bytes were handed out or dropped depending on whether
// the bad line after them arrived in the same receive.
TEST(ResponseReaderTest, KeepsAChunksBytesWhenTheLineAfterThemIsBroken) {
    const std::string response =
        "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n3\r\nabcdef\r\n0\r\n\r\n";
    for (uint32_t seed = 0; seed < 20; ++seed) {
        Reading reading = ReadAll(response, seed, seed == 0 ? 1 << 20 : 1 + seed % 5);
        EXPECT_EQ(reading.body, "abc") << "seed " << seed;
        EXPECT_EQ(reading.end, -1) << "seed " << seed;
    }
}

}  // namespace
}  // namespace Zarn
