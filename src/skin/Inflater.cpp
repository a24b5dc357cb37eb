#include "skin/Inflater.h"

#include <array>

namespace Teko {
namespace {

using Result = Inflater::Result;

constexpr int kEndOfBlock = 256;
constexpr int kFirstLengthSymbol = 257;
constexpr size_t kLiteralLengthSymbols = 286;  // 286 and 287 exist only in the fixed code
constexpr size_t kDistanceSymbols = 30;        // 30 and 31 likewise
constexpr size_t kCodeLengthSymbols = 19;

// RFC 1951, section 3.2.5.
constexpr std::array<uint16_t, 29> kLengthBase = {3,  4,  5,  6,   7,   8,   9,   10,  11, 13,
                                                  15, 17, 19, 23,  27,  31,  35,  43,  51, 59,
                                                  67, 83, 99, 115, 131, 163, 195, 227, 258};
constexpr std::array<uint8_t, 29> kLengthExtraBits = {0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 2, 2, 2,
                                                      2, 3, 3, 3, 3, 4, 4, 4, 4, 5, 5, 5, 5, 0};
constexpr std::array<uint16_t, kDistanceSymbols> kDistanceBase = {
    1,   2,   3,   4,   5,   7,    9,    13,   17,   25,   33,   49,   65,    97,    129,
    193, 257, 385, 513, 769, 1025, 1537, 2049, 3073, 4097, 6145, 8193, 12289, 16385, 24577};
constexpr std::array<uint8_t, kDistanceSymbols> kDistanceExtraBits = {
    0, 0, 0, 0, 1, 1, 2, 2,  3,  3,  4,  4,  5,  5,  6,
    6, 7, 7, 8, 8, 9, 9, 10, 10, 11, 11, 12, 12, 13, 13};

// The order in which a dynamic header lists the code length code's lengths (section 3.2.7):
// the likeliest first, so that HCLEN can cut the unlikely tail.
constexpr std::array<uint8_t, kCodeLengthSymbols> kCodeLengthOrder = {
    16, 17, 18, 0, 8, 7, 9, 6, 10, 5, 11, 4, 12, 3, 13, 2, 14, 1, 15};

struct FixedCodes {
    HuffmanCode literals;
    HuffmanCode distances;
};

// Section 3.2.6. Built once and shared read-only; the statics' initialisation is thread-safe.
// The full 288 and 32 symbols make both codes complete; the reserved ones are refused when
// decoded.
const FixedCodes& GetFixedCodes() {
    static const FixedCodes codes = [] {
        std::array<uint8_t, HuffmanCode::kMaxSymbols> literal_lengths{};
        for (size_t symbol = 0; symbol < literal_lengths.size(); ++symbol) {
            literal_lengths[symbol] = symbol < 144 ? 8 : symbol < 256 ? 9 : symbol < 280 ? 7 : 8;
        }
        std::array<uint8_t, 32> distance_lengths{};
        distance_lengths.fill(5);
        FixedCodes built;
        // Both sets of lengths are complete codes, so neither build can fail.
        (void)built.literals.Build(literal_lengths);
        (void)built.distances.Build(distance_lengths);
        return built;
    }();
    return codes;
}

Result DecodeFailure(int symbol) {
    return symbol == HuffmanCode::kTruncated ? Result::kTruncated : Result::kInvalidSymbol;
}

}  // namespace

Inflater::Result Inflater::Inflate(std::string_view compressed, std::span<char> output) {
    Inflater inflater(compressed, output);
    return inflater.Run();
}

Inflater::Result Inflater::Run() {
    uint32_t is_final = 0;
    do {
        uint32_t type = 0;
        if (!reader_.Read(1, is_final) || !reader_.Read(2, type)) return Result::kTruncated;
        Result result = Result::kOk;
        if (type == 0) {
            result = CopyStoredBlock();
        } else if (type == 1) {
            result = DecodeBlock(GetFixedCodes().literals, GetFixedCodes().distances);
        } else if (type == 2) {
            HuffmanCode literals;
            HuffmanCode distances;
            result = ReadDynamicCodes(literals, distances);
            if (result == Result::kOk) result = DecodeBlock(literals, distances);
        } else {
            return Result::kInvalidBlockType;
        }
        if (result != Result::kOk) return result;
    } while (is_final == 0);
    return written_ == output_.size() ? Result::kOk : Result::kOutputShort;
}

Inflater::Result Inflater::CopyStoredBlock() {
    reader_.AlignToByte();
    uint32_t length = 0;
    uint32_t complement = 0;
    if (!reader_.Read(16, length) || !reader_.Read(16, complement)) return Result::kTruncated;
    if ((length ^ 0xFFFFu) != complement) return Result::kStoredLengthMismatch;
    std::string_view bytes;
    if (!reader_.TakeBytes(length, bytes)) return Result::kTruncated;
    if (bytes.size() > output_.size() - written_) return Result::kOutputOverflow;
    for (char byte : bytes)
        output_[written_++] = byte;
    return Result::kOk;
}

Inflater::Result Inflater::ReadDynamicCodes(HuffmanCode& literals, HuffmanCode& distances) {
    uint32_t literal_count = 0;
    uint32_t distance_count = 0;
    uint32_t length_code_count = 0;
    if (!reader_.Read(5, literal_count) || !reader_.Read(5, distance_count) ||
        !reader_.Read(4, length_code_count)) {
        return Result::kTruncated;
    }
    literal_count += 257;
    distance_count += 1;
    length_code_count += 4;
    if (literal_count > kLiteralLengthSymbols || distance_count > kDistanceSymbols) {
        return Result::kInvalidCodeLengths;
    }

    std::array<uint8_t, kCodeLengthSymbols> length_code_lengths{};
    for (size_t i = 0; i < length_code_count; ++i) {
        uint32_t length = 0;
        if (!reader_.Read(3, length)) return Result::kTruncated;
        length_code_lengths[kCodeLengthOrder[i]] = static_cast<uint8_t>(length);
    }
    HuffmanCode length_code;
    if (!length_code.Build(length_code_lengths)) return Result::kInvalidCodeLengths;

    // One run of lengths for both codes: a repeat may cross from the literal/length lengths
    // into the distance lengths (section 3.2.7).
    std::array<uint8_t, kLiteralLengthSymbols + kDistanceSymbols> lengths{};
    std::span<uint8_t> used(lengths.data(), literal_count + distance_count);
    Result result = ReadCodeLengths(length_code, used);
    if (result != Result::kOk) return result;
    // A block without an end-of-block code could never end.
    if (used[kEndOfBlock] == 0) return Result::kInvalidCodeLengths;
    if (!literals.Build(used.first(literal_count)) ||
        !distances.Build(used.subspan(literal_count))) {
        return Result::kInvalidCodeLengths;
    }
    return Result::kOk;
}

Inflater::Result Inflater::ReadCodeLengths(const HuffmanCode& length_code,
                                           std::span<uint8_t> lengths) {
    size_t filled = 0;
    while (filled < lengths.size()) {
        int symbol = length_code.Decode(reader_);
        if (symbol < 0) return DecodeFailure(symbol);
        if (symbol < 16) {
            lengths[filled++] = static_cast<uint8_t>(symbol);
            continue;
        }
        // 16 repeats the previous length 3-6 times; 17 and 18 write 3-10 and 11-138 zeros.
        if (symbol == 16 && filled == 0) return Result::kInvalidCodeLengths;
        uint8_t value = symbol == 16 ? lengths[filled - 1] : 0;
        unsigned extra_bits = symbol == 16 ? 2 : symbol == 17 ? 3 : 7;
        uint32_t base = symbol == 16 ? 3 : symbol == 17 ? 3 : 11;
        uint32_t extra = 0;
        if (!reader_.Read(extra_bits, extra)) return Result::kTruncated;
        uint32_t repeat = base + extra;
        if (repeat > lengths.size() - filled) return Result::kInvalidCodeLengths;
        for (uint32_t i = 0; i < repeat; ++i)
            lengths[filled++] = value;
    }
    return Result::kOk;
}

Inflater::Result Inflater::DecodeBlock(const HuffmanCode& literals, const HuffmanCode& distances) {
    while (true) {
        int symbol = literals.Decode(reader_);
        if (symbol < 0) return DecodeFailure(symbol);
        if (symbol < kEndOfBlock) {
            if (written_ == output_.size()) return Result::kOutputOverflow;
            output_[written_++] = static_cast<char>(symbol);
        } else if (symbol == kEndOfBlock) {
            return Result::kOk;
        } else {
            Result result = DecodeMatch(symbol, distances);
            if (result != Result::kOk) return result;
        }
    }
}

Inflater::Result Inflater::DecodeMatch(int length_symbol, const HuffmanCode& distances) {
    size_t length_index = static_cast<size_t>(length_symbol - kFirstLengthSymbol);
    if (length_index >= kLengthBase.size()) return Result::kInvalidSymbol;
    uint32_t extra = 0;
    if (!reader_.Read(kLengthExtraBits[length_index], extra)) return Result::kTruncated;
    size_t length = kLengthBase[length_index] + extra;

    int distance_symbol = distances.Decode(reader_);
    if (distance_symbol < 0) return DecodeFailure(distance_symbol);
    size_t distance_index = static_cast<size_t>(distance_symbol);
    if (distance_index >= kDistanceSymbols) return Result::kInvalidSymbol;
    if (!reader_.Read(kDistanceExtraBits[distance_index], extra)) return Result::kTruncated;
    size_t distance = kDistanceBase[distance_index] + extra;

    if (distance > written_) return Result::kDistanceTooFar;
    if (length > output_.size() - written_) return Result::kOutputOverflow;
    // Byte by byte on purpose: when the distance is shorter than the length the match
    // repeats bytes it has just written.
    for (size_t i = 0; i < length; ++i, ++written_)
        output_[written_] = output_[written_ - distance];
    return Result::kOk;
}

}  // namespace Teko
