#include <gtest/gtest.h>

#include <string>

#include "skin/Inflater.h"
#include "skin/PythonProducer.h"

namespace Teko {
namespace {

using Result = Inflater::Result;

Result InflateTo(std::string_view stream, size_t size, std::string* output = nullptr) {
    std::string buffer(size, '\0');
    Result result = Inflater::Inflate(stream, buffer);
    if (output != nullptr) *output = buffer;
    return result;
}

class InflaterTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (!testing::PythonProducer::IsAvailable()) GTEST_SKIP() << "python3 is not installed";
    }
};

// zlib picks stored blocks for incompressible data and at level 0, fixed codes for short
// inputs and under Z_FIXED, dynamic codes otherwise; flushes insert empty stored blocks.
// The last input's streams are short enough to be refused at every length they are cut to.
TEST_F(InflaterTest, InflatesWhatZlibWritesAtEveryLevelAndStrategyAndRefusesItCut) {
    auto produced = testing::PythonProducer::Run(R"(
rng = random.Random(1951)
words = 'skin folder upload 파일 share the a of download'.split()
text = ' '.join(rng.choice(words) for _ in range(12000)).encode()
block = rng.randbytes(4096)
far = block + rng.randbytes(28000) + block + rng.randbytes(100) + block[:300]
row = b'<tr><td><a href="$name">$name</a></td><td>$size</td></tr>\n' * 40 + bytes(range(256))
for data in [b'', b'x', text, rng.randbytes(1 << 20), bytes(1 << 20), far, row]:
    emit(data)
    settings = [(level, zlib.Z_DEFAULT_STRATEGY) for level in range(10)]
    settings += [(6, zlib.Z_FIXED), (6, zlib.Z_HUFFMAN_ONLY), (6, zlib.Z_RLE)]
    for level, strategy in settings:
        c = zlib.compressobj(level, zlib.DEFLATED, -15, 9, strategy)
        emit(c.compress(data) + c.flush())
    c = zlib.compressobj(6, zlib.DEFLATED, -15)
    pieces = [c.compress(data[i:i + 65536]) + c.flush(zlib.Z_SYNC_FLUSH)
              for i in range(0, len(data), 65536)]
    emit(b''.join(pieces) + c.flush())
)");
    ASSERT_TRUE(produced.has_value());
    ASSERT_EQ(produced->size(), 7u * 15);
    for (size_t i = 0; i < produced->size(); ++i) {
        if (i % 15 == 0) continue;
        SCOPED_TRACE("input " + std::to_string(i / 15) + ", setting " + std::to_string(i % 15));
        const std::string& original = (*produced)[i - i % 15];
        const std::string_view stream = (*produced)[i];
        std::string output;
        ASSERT_EQ(InflateTo(stream, original.size(), &output), Result::kOk);
        EXPECT_TRUE(output == original);
        EXPECT_EQ(InflateTo(stream, original.size() + 1), Result::kOutputShort);
        if (!original.empty()) {
            EXPECT_EQ(InflateTo(stream, original.size() - 1), Result::kOutputOverflow);
        }
        for (size_t cut = 0; i >= 6 * 15 && cut < stream.size(); ++cut) {
            ASSERT_EQ(InflateTo(stream.substr(0, cut), original.size()), Result::kTruncated) << cut;
        }
    }
}

}  // namespace
}  // namespace Teko
