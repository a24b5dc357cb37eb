#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "http/MultipartReader.h"

namespace Zarn {
namespace {

struct ReadPart {
    std::string name;
    std::string file_name;
    bool has_file_name = false;
    std::string data;
    bool malformed_name = false;

    bool operator==(const ReadPart&) const = default;
};

struct ReadResult {
    std::vector<ReadPart> parts;
    bool complete = false;
    bool broken = false;
    size_t largest_request = 0;
};

// Serves the body from memory in receives of at most `receive` bytes and reads the parts'
// data in pieces of `piece` bytes; with `piece` 0 the data is skipped unread.
ReadResult ReadAll(const std::string& boundary, const std::string& body, size_t receive,
                   size_t piece) {
    size_t offset = 0;
    ReadResult result;
    MultipartReader reader(boundary, [&](char* buffer, size_t length) {
        result.largest_request = std::max(result.largest_request, length);
        size_t count = std::min({length, receive, body.size() - offset});
        std::memcpy(buffer, body.data() + offset, count);
        offset += count;
        return count;
    });
    MultipartPart part;
    std::vector<char> data(std::max<size_t>(piece, 1));
    while (reader.ReadNextPart(part)) {
        ReadPart read{
            part.name, part.file_name, part.has_file_name, {}, part.has_malformed_file_name};
        for (bool ended = piece == 0; !ended;)
            read.data.append(data.data(), reader.ReadPartData(data.data(), piece, ended));
        result.parts.push_back(std::move(read));
    }
    result.complete = reader.IsComplete();
    result.broken = reader.IsBroken();
    return result;
}

std::string RandomBytes(size_t size, uint32_t seed) {
    std::mt19937 random(seed);
    std::string bytes(size, '\0');
    for (char& c : bytes)
        c = static_cast<char>(random() & 0xFF);
    return bytes;
}

constexpr char kBoundary[] = "----WebKitFormBoundary7MA4YWxk";

struct BodyCase {
    const char* label;
    std::string body;
    std::vector<ReadPart> parts;
    bool complete;
};

std::vector<BodyCase> Cases() {
    const std::string b = kBoundary;
    const std::string open = "--" + b + "\r\n", end = "--" + b + "--\r\n";
    auto field = [&](const std::string& disposition, const std::string& data) {
        return open + "Content-Disposition: form-data; " + disposition + "\r\n\r\n" + data + "\r\n";
    };
    // Data that looks like a delimiter without being one must come through untouched.
    const std::string tricky =
        "a\r\n--" + b.substr(0, 10) + "\r\n-" + "\r\n--" + b.substr(0, b.size() - 1) + "Y\r\r\n";
    const std::string large = RandomBytes(100000, 7);
    // A raw line break in a quoted file name ends the header line inside the quotes; the
    // name is refused rather than cut there, and the next part is read as usual. Single
    // breaks are refused over real sockets end to end and in the disposition table below.
    const std::string broken_name = "name=\"f\"; filename=\"x\r\n\r\ny.txt\"";
    return {
        {"fields and a file",
         "preamble to ignore\r\n" + field("name=\"key\"", "k1") +
             field("name=\"f\"; filename=\"report.txt\"", "hello\r\n") +
             field("name=\"empty\"", "") + end + "epilogue",
         {{"key", "", false, "k1"},
          {"f", "report.txt", true, "hello\r\n"},
          {"empty", "", false, ""}},
         true},
        {"delimiter look-alikes",
         field("name=\"t\"", tricky) + "--" + b + "--",
         {{"t", "", false, tricky}},
         true},
        {"large binary part",
         field("name=\"f\"; filename=\"x;y.bin\"", large) + end,
         {{"f", "x;y.bin", true, large}},
         true},
        {"part without headers", open + "\r\nraw\r\n" + end, {{"", "", false, "raw"}}, true},
        {"body ends inside a part",
         field("name=\"a\"", "full") + open + "\r\ncut off",
         {{"a", "", false, "full"}, {"", "", false, "cut off"}},
         false},
        {"part header never ends", open + "Content-Disposition: form", {}, false},
        {"boundary never comes", std::string(30000, 'z'), {}, false},
        {"a blank line inside a file name",
         field(broken_name, "data") + field("name=\"f\"; filename=\"ok.txt\"", "fine") + end,
         {{"f", "x", true, "y.txt\"\r\n\r\ndata", true}, {"f", "ok.txt", true, "fine"}},
         true},
        {"nothing after the last delimiter",
         field("name=\"a\"", "1") + "--" + b,
         {{"a", "", false, "1"}},
         false},
    };
}

// Readings split at every byte are the fuzz harness's, which compares them with whole ones.
TEST(MultipartReaderTest, YieldsTheSamePartsWholeAndWhenSkipped) {
    for (const BodyCase& body_case : Cases()) {
        SCOPED_TRACE(body_case.label);
        ReadResult whole = ReadAll(kBoundary, body_case.body, SIZE_MAX, 4096);
        EXPECT_EQ(whole.parts, body_case.parts);
        EXPECT_EQ(whole.complete, body_case.complete);
        EXPECT_EQ(whole.broken, !body_case.complete);
        EXPECT_LE(whole.largest_request, MultipartReader::kBlockBytes);
        // Moving on to the next part skips what was left unread of this one.
        ReadResult skipped = ReadAll(kBoundary, body_case.body, 3000, 0);
        ASSERT_EQ(skipped.parts.size(), whole.parts.size());
        for (size_t i = 0; i < skipped.parts.size(); ++i)
            EXPECT_EQ(skipped.parts[i].name, whole.parts[i].name);
        EXPECT_EQ(skipped.complete, whole.complete);
    }
}

TEST(MultipartReaderTest, ReadsDispositionParameters) {
    struct Case {
        const char* value;
        const char* name;
        const char* file_name;
        bool has_file_name;
        bool malformed = false;
    };
    const Case cases[] = {
        {"form-data; name=\"a\"", "a", "", false},
        {"form-data; NAME=a ;  Filename=\"C:\\dir\\b.txt\"", "a", "C:\\dir\\b.txt", true},
        {"form-data; name=\"x\"; filename=\"\"", "x", "", true},
        {"form-data; filename=\"semi;colon.txt\"; name=\"f\"", "f", "semi;colon.txt", true},
        {"form-data; filename=plain.txt", "", "plain.txt", true},
        {"form-data; name", "", "", false},
        {"", "", "", false},
        {"form-data; name=\"f\"; filename=\"open", "f", "open", true, true},
        {"form-data; name=\"f\"; filename=\"", "f", "", true, true},
        {"form-data; filename=\"a\rb\"", "", "a\rb", true, true},
        {"form-data; filename=a\nb", "", "a\nb", true, true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.value);
        MultipartPart part;
        MultipartReader::ParseDisposition(c.value, part);
        EXPECT_EQ(part.name, c.name);
        EXPECT_EQ(part.file_name, c.file_name);
        EXPECT_EQ(part.has_file_name, c.has_file_name);
        EXPECT_EQ(part.has_malformed_file_name, c.malformed);
    }
}

}  // namespace
}  // namespace Zarn
