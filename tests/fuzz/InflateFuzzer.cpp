// Raw deflate streams, checked against zlib. In one mode the input is a stream: wherever
// zlib inflates it completely, ours must give the same bytes, and wherever ours succeeds
// zlib must agree. In the other the input is data zlib compresses at a level the input
// picks, which ours must give back exactly.
#include <zlib.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "skin/Inflater.h"

using Teko::Inflater;

namespace {

constexpr size_t kMaxOutput = 1 << 16;

// The bytes zlib inflates from a raw stream, or false when the stream is not one whole
// valid stream within kMaxOutput.
bool ZlibInflate(std::string_view compressed, std::string& out) {
    z_stream stream{};
    if (inflateInit2(&stream, -15) != Z_OK) return false;
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(compressed.data()));
    stream.avail_in = static_cast<uInt>(compressed.size());
    out.assign(kMaxOutput, '\0');
    stream.next_out = reinterpret_cast<Bytef*>(out.data());
    stream.avail_out = static_cast<uInt>(out.size());
    const int result = inflate(&stream, Z_FINISH);
    out.resize(stream.total_out);
    inflateEnd(&stream);
    return result == Z_STREAM_END;
}

std::string ZlibDeflate(std::string_view bytes, int level) {
    z_stream stream{};
    if (deflateInit2(&stream, level, Z_DEFLATED, -15, 8, Z_DEFAULT_STRATEGY) != Z_OK) {
        __builtin_trap();
    }
    std::string out(deflateBound(&stream, bytes.size()), '\0');
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(bytes.data()));
    stream.avail_in = static_cast<uInt>(bytes.size());
    stream.next_out = reinterpret_cast<Bytef*>(out.data());
    stream.avail_out = static_cast<uInt>(out.size());
    if (deflate(&stream, Z_FINISH) != Z_STREAM_END) __builtin_trap();
    out.resize(stream.total_out);
    deflateEnd(&stream);
    return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return -1;
    const std::string_view input(reinterpret_cast<const char*>(data + 1), size - 1);
    if (data[0] & 0x80) {
        const std::string compressed = ZlibDeflate(input, data[0] % 10);
        std::string output(input.size(), '\0');
        if (Inflater::Inflate(compressed, output) != Inflater::Result::kOk) __builtin_trap();
        if (output != input) __builtin_trap();
        return 0;
    }

    std::string expected;
    const bool zlib_ok = ZlibInflate(input, expected);
    if (zlib_ok) {
        std::string output(expected.size(), '\0');
        if (Inflater::Inflate(input, output) != Inflater::Result::kOk) __builtin_trap();
        if (output != expected) __builtin_trap();
    } else {
        // zlib found no whole stream here: ours must not claim one at any size, least of
        // all the size zlib had reached when it stopped.
        for (size_t length : {size_t{0}, expected.size(), size_t{4096}}) {
            std::string output(length, '\0');
            if (Inflater::Inflate(input, output) == Inflater::Result::kOk) __builtin_trap();
        }
    }
    return 0;
}
