#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

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
TEST_F(InflaterTest, InflatesWhatZlibWritesAtEveryLevelAndStrategy) {
    auto produced = testing::PythonProducer::Run(R"(
rng = random.Random(1951)
words = 'skin folder upload 파일 share the a of download'.split()
text = ' '.join(rng.choice(words) for _ in range(12000)).encode()
block = rng.randbytes(4096)
far = block + rng.randbytes(28000) + block + rng.randbytes(100) + block[:300]
for data in [b'', b'x', text, rng.randbytes(1 << 20), bytes(1 << 20), far]:
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
    ASSERT_EQ(produced->size(), 6u * 15);
    for (size_t i = 0; i < produced->size(); ++i) {
        if (i % 15 == 0) continue;
        SCOPED_TRACE("input " + std::to_string(i / 15) + ", setting " + std::to_string(i % 15));
        const std::string& original = (*produced)[i - i % 15];
        std::string output;
        ASSERT_EQ(InflateTo((*produced)[i], original.size(), &output), Result::kOk);
        EXPECT_TRUE(output == original);
        EXPECT_EQ(InflateTo((*produced)[i], original.size() + 1), Result::kOutputShort);
        if (!original.empty()) {
            EXPECT_EQ(InflateTo((*produced)[i], original.size() - 1), Result::kOutputOverflow);
        }
    }
}

TEST_F(InflaterTest, RefusesEveryTruncationOfStoredFixedAndDynamicStreams) {
    auto produced = testing::PythonProducer::Run(R"(
text = b'<tr><td><a href="$name">$name</a></td><td>$size</td></tr>\n' * 40 + bytes(range(256))
emit(text)
for level, strategy in [(0, 0), (6, zlib.Z_FIXED), (9, 0)]:
    c = zlib.compressobj(level, zlib.DEFLATED, -15, 9, strategy)
    emit(c.compress(text) + c.flush())
)");
    ASSERT_TRUE(produced.has_value());
    ASSERT_EQ(produced->size(), 4u);
    size_t size = (*produced)[0].size();
    for (size_t s = 1; s < produced->size(); ++s) {
        std::string_view stream = (*produced)[s];
        ASSERT_EQ(InflateTo(stream, size), Result::kOk);
        for (size_t cut = 0; cut < stream.size(); ++cut) {
            EXPECT_EQ(InflateTo(stream.substr(0, cut), size), Result::kTruncated) << cut;
        }
    }
}

// Writes deflate streams bit by bit, for what zlib never produces: the longest distance,
// codes with one or no distance, and every kind of damage.
class StreamWriter {
public:
    struct Token {
        int symbol;
        int distance = -1;
        uint32_t distance_extra = 0;
        unsigned distance_extra_bits = 0;
    };
    struct DynamicBlock {
        std::vector<uint8_t> literal_lengths;
        std::vector<uint8_t> distance_lengths;
        std::vector<Token> body;
        // Lengths over code length symbols 0-18; the default is complete and codes them all.
        std::vector<uint8_t> length_code{4, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4, 5, 5, 5, 5, 5, 5};
        // Code length symbols with their extra bits, instead of the run the lengths give.
        std::vector<std::pair<int, uint32_t>> raw_lengths;
        // Encodes the body's distances with other lengths than the header announces.
        std::vector<uint8_t> body_distance_lengths;
    };

    StreamWriter& Bits(uint32_t value, unsigned count) {
        for (unsigned i = 0; i < count; ++i) {
            if (bit_count_ == 0) bytes_.push_back('\0');
            bytes_.back() = static_cast<char>(bytes_.back() | ((value >> i) & 1) << bit_count_);
            bit_count_ = (bit_count_ + 1) % 8;
        }
        return *this;
    }
    StreamWriter& Stored(bool final, std::string_view bytes, uint16_t complement_damage = 0) {
        Bits(final, 1).Bits(0, 2);
        Bits(0, (8 - bit_count_) % 8).Bits(bytes.size(), 16);
        Bits(~bytes.size() ^ complement_damage, 16);
        bytes_.append(bytes);
        return *this;
    }
    StreamWriter& Fixed(bool final, const std::vector<Token>& tokens) {
        std::vector<uint8_t> literals(288, 8);
        std::fill(literals.begin() + 144, literals.begin() + 256, 9);
        std::fill(literals.begin() + 256, literals.begin() + 280, 7);
        Bits(final, 1).Bits(1, 2);
        Body(tokens, Canonical(literals), Canonical(std::vector<uint8_t>(32, 5)));
        return *this;
    }
    StreamWriter& Dynamic(bool final, const DynamicBlock& block) {
        Bits(final, 1).Bits(2, 2).Bits(block.literal_lengths.size() - 257, 5);
        Bits(block.distance_lengths.size() - 1, 5).Bits(15, 4);
        for (int symbol : {16, 17, 18, 0, 8, 7, 9, 6, 10, 5, 11, 4, 12, 3, 13, 2, 14, 1, 15}) {
            Bits(block.length_code[symbol], 3);
        }
        std::vector<Code> length_codes = Canonical(block.length_code);
        for (auto [symbol, extra] : block.raw_lengths.empty() ? RunOf(block) : block.raw_lengths) {
            PutCode(length_codes[symbol]);
            Bits(extra, symbol == 16 ? 2 : symbol == 17 ? 3 : symbol == 18 ? 7 : 0);
        }
        Body(block.body, Canonical(block.literal_lengths),
             Canonical(block.body_distance_lengths.empty() ? block.distance_lengths
                                                           : block.body_distance_lengths));
        return *this;
    }
    std::string Finish() const { return bytes_; }

private:
    struct Code {
        uint32_t bits = 0;
        unsigned length = 0;
    };

    // Huffman codes go most significant bit first.
    void PutCode(Code code) {
        for (unsigned i = code.length; i-- > 0;)
            Bits(code.bits >> i, 1);
    }
    // RFC 1951, section 3.2.2, as written there.
    static std::vector<Code> Canonical(const std::vector<uint8_t>& lengths) {
        std::vector<uint32_t> count(16, 0), next(16, 0);
        for (uint8_t length : lengths)
            ++count[length];
        count[0] = 0;
        for (uint32_t bits = 1, code = 0; bits < 16; ++bits)
            next[bits] = code = (code + count[bits - 1]) << 1;
        std::vector<Code> codes;
        for (uint8_t length : lengths)
            codes.push_back({length ? next[length]++ : 0, length});
        return codes;
    }
    static std::vector<std::pair<int, uint32_t>> RunOf(const DynamicBlock& block) {
        std::vector<uint8_t> all = block.literal_lengths;
        all.insert(all.end(), block.distance_lengths.begin(), block.distance_lengths.end());
        std::vector<std::pair<int, uint32_t>> run;
        for (size_t i = 0; i < all.size();) {
            size_t zeros = 0;
            while (i + zeros < all.size() && all[i + zeros] == 0 && zeros < 138)
                ++zeros;
            if (zeros >= 11) run.push_back({18, zeros - 11});
            if (zeros >= 3 && zeros < 11) run.push_back({17, zeros - 3});
            if (zeros < 3) run.push_back({all[i], 0});
            i += zeros >= 3 ? zeros : 1;
        }
        return run;
    }
    void Body(const std::vector<Token>& tokens, const std::vector<Code>& literals,
              const std::vector<Code>& distances) {
        for (const Token& token : tokens) {
            PutCode(literals[token.symbol]);
            if (token.distance < 0) continue;
            PutCode(distances[token.distance]);
            Bits(token.distance_extra, token.distance_extra_bits);
        }
    }

    std::string bytes_;
    unsigned bit_count_ = 0;
};

using Token = StreamWriter::Token;
using Block = StreamWriter::DynamicBlock;
const Token kEnd{256};
Token Literal(char c) {
    return {static_cast<unsigned char>(c)};
}
Token Match(int symbol, int distance) {
    return {symbol, distance};
}

// A dynamic block of "abbbb": 'a', 'b', end of block and the length-3 symbol, two bits each,
// and distance codes 0 and 1; `change` damages or varies it.
template <typename Change>
std::string DynamicWith(Change change) {
    Block block;
    block.literal_lengths.resize(258);
    block.literal_lengths['a'] = block.literal_lengths['b'] = 2;
    block.literal_lengths[256] = block.literal_lengths[257] = 2;
    block.distance_lengths = {1, 1};
    block.body = {Literal('a'), Literal('b'), Match(257, 0), kEnd};
    change(block);
    return StreamWriter().Dynamic(true, block).Finish();
}

std::string Fixed(std::vector<Token> tokens) {
    return StreamWriter().Fixed(true, tokens).Finish();
}

TEST(InflaterCraftedTest, DecodesOrRefusesHandWrittenStreams) {
    std::string window(32768, '\0');
    std::mt19937 random(1951);
    for (char& c : window)
        c = static_cast<char>(random());
    // Two literal lengths, then a repeat that runs on into the distance lengths.
    const std::vector<std::pair<int, uint32_t>> crossing = {{18, 86}, {2, 0}, {2, 0}, {18, 127},
                                                            {18, 8},  {2, 0}, {2, 0}, {16, 1}};
    const struct {
        const char* name;
        std::string stream;
        size_t size;
        Result result;
        std::string output = {};
    } cases[] = {
        {"match across the whole window",
         StreamWriter().Stored(false, window).Fixed(true, {{285, 29, 8191, 13}, kEnd}).Finish(),
         window.size() + 258, Result::kOk, window + window.substr(0, 258)},
        {"dynamic block", DynamicWith([](Block&) {}), 5, Result::kOk, "abbbb"},
        {"lone one-bit distance code", DynamicWith([](Block& b) { b.distance_lengths = {1}; }), 5,
         Result::kOk, "abbbb"},
        {"no distance code in a block of literals", DynamicWith([](Block& b) {
             b.distance_lengths = {0};
             b.body = {Literal('b'), Literal('a'), kEnd};
         }),
         2, Result::kOk, "ba"},
        {"repeat crossing into the distance lengths", DynamicWith([&](Block& b) {
             b.distance_lengths = {2, 2, 2, 2};
             b.raw_lengths = crossing;
         }),
         5, Result::kOk, "abbbb"},

        {"empty input", "", 0, Result::kTruncated},
        {"block type 3", StreamWriter().Bits(1, 1).Bits(3, 2).Finish(), 0,
         Result::kInvalidBlockType},
        {"stored length without its complement", StreamWriter().Stored(true, "abc", 0x100).Finish(),
         3, Result::kStoredLengthMismatch},
        {"stored length past the input", StreamWriter().Stored(true, "abc").Finish().substr(0, 6),
         3, Result::kTruncated},
        {"match before any output", Fixed({Match(257, 0), kEnd}), 3, Result::kDistanceTooFar},
        {"match before the first byte", Fixed({Literal('a'), Match(257, 1), kEnd}), 4,
         Result::kDistanceTooFar},
        {"length symbol 286", Fixed({Literal('a'), Match(286, 0), kEnd}), 4,
         Result::kInvalidSymbol},
        {"distance symbol 30", Fixed({Literal('a'), Match(257, 30), kEnd}), 4,
         Result::kInvalidSymbol},
        {"match past the declared size", Fixed({Literal('a'), Match(264, 0), kEnd}), 10,
         Result::kOutputOverflow},
        {"287 literal/length codes", DynamicWith([](Block& b) { b.literal_lengths.resize(287); }),
         5, Result::kInvalidCodeLengths},
        {"31 distance codes", DynamicWith([](Block& b) { b.distance_lengths.resize(31); }), 5,
         Result::kInvalidCodeLengths},
        {"over-subscribed code length code",
         DynamicWith([](Block& b) { b.length_code.assign(19, 4); }), 5,
         Result::kInvalidCodeLengths},
        {"incomplete code length code", DynamicWith([](Block& b) { b.length_code.assign(19, 5); }),
         5, Result::kInvalidCodeLengths},
        {"over-subscribed literal/length code",
         DynamicWith([](Block& b) { b.literal_lengths['a'] = 1; }), 5, Result::kInvalidCodeLengths},
        {"incomplete literal/length code", DynamicWith([](Block& b) {
             b.literal_lengths[257] = 0;
             b.body = {Literal('a'), kEnd};
         }),
         1, Result::kInvalidCodeLengths},
        {"incomplete distance code", DynamicWith([](Block& b) {
             b.distance_lengths = {2, 2};
         }),
         5, Result::kInvalidCodeLengths},
        {"no end-of-block code", DynamicWith([](Block& b) {
             b.literal_lengths[256] = 0;
             b.literal_lengths[255] = 2;
         }),
         5, Result::kInvalidCodeLengths},
        {"repeat with no previous length", DynamicWith([](Block& b) {
             b.raw_lengths = {{16, 0}};
         }),
         5, Result::kInvalidCodeLengths},
        {"repeat running past the lengths", DynamicWith([&](Block& b) {
             b.distance_lengths = {2, 2, 2, 2};
             b.raw_lengths = crossing;
             b.raw_lengths.back().second = 3;
         }),
         5, Result::kInvalidCodeLengths},
        {"distance the lone code lacks", DynamicWith([](Block& b) {
             b.distance_lengths = {1};
             b.body_distance_lengths = {1, 1};
             b.body = {Literal('a'), Match(257, 1), kEnd};
         }),
         4, Result::kInvalidSymbol},
        {"match in a block without distances", DynamicWith([](Block& b) {
             b.distance_lengths = {0};
             b.body_distance_lengths = {1, 1};
         }),
         5, Result::kInvalidSymbol},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.name);
        std::string output;
        ASSERT_EQ(InflateTo(test.stream, test.size, &output), test.result);
        if (test.result == Result::kOk) {
            EXPECT_TRUE(output == test.output);
        }
    }
}

}  // namespace
}  // namespace Teko
