// Symbols made by our encoder, read back by Debian's zbarimg the way a phone's camera
// reads them off the screen: every length that changes the version and every mask. The
// reader checks each block's error-correction codewords, so wrong ones fail every read.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "core/QrCode.h"
#include "support/QrScanner.h"

namespace Zarn {
namespace {

using testing::GridOf;
using testing::ScanQr;

std::string Repeat(size_t length, std::string_view pattern = "0123456789abcdef") {
    std::string text;
    while (text.size() < length)
        text += pattern;
    text.resize(length);
    return text;
}

TEST(QrCodeTest, ZbarReadsBackTextsOfManyKinds) {
    std::string all_bytes;
    for (int byte = 0; byte < 256; ++byte)
        all_bytes += static_cast<char>(byte);
    const std::string kTexts[] = {
        "",
        "http://192.168.0.10:8080/",
        "안녕하세요, 세계! 파일을 나눕니다",
        std::string("nul\0inside", 10),
        all_bytes.substr(128),
    };
    for (const std::string& text : kTexts) {
        std::optional<QrCode> code = QrCode::Encode(text);
        ASSERT_TRUE(code.has_value()) << text;
        EXPECT_EQ(ScanQr(GridOf(*code)), text) << "version " << code->Version();
    }
}

// The most bytes each version holds at level M, and one more, which must take the next;
// from 14 on, versions with version information, many blocks of unequal lengths, and the
// irregular alignment spacing of version 32.
TEST(QrCodeTest, EachVersionHoldsExactlyItsCapacityAndBeyondTheLargestNothingIsMade) {
    const std::pair<size_t, int> kCapacity[] = {
        {14, 1},  {26, 2},  {42, 3},   {62, 4},   {84, 5},    {106, 6},  {122, 7},
        {152, 8}, {180, 9}, {213, 10}, {362, 14}, {1538, 32}, {2331, 40}};
    for (auto [capacity, version] : kCapacity) {
        for (size_t length : {capacity, capacity + 1}) {
            if (version == 40 && length > capacity) continue;
            std::string text = Repeat(length, "QR code of the visitors' address / ");
            std::optional<QrCode> code = QrCode::Encode(text);
            ASSERT_TRUE(code.has_value()) << length;
            EXPECT_EQ(code->Version(), length == capacity ? version : version + 1) << length;
            EXPECT_EQ(ScanQr(GridOf(*code), version > 10 ? 3 : 4), text) << length << " bytes";
        }
    }
    EXPECT_FALSE(QrCode::Encode(Repeat(2332)).has_value());
    EXPECT_FALSE(QrCode::Encode(Repeat(100'000)).has_value());
}

TEST(QrCodeTest, EveryMaskReadsBackAndTheChosenOneScoresLowest) {
    const std::string text = "http://10.0.0.7:8080/";
    std::optional<QrCode> chosen = QrCode::Encode(text);
    ASSERT_TRUE(chosen.has_value());
    for (int mask = 0; mask < 8; ++mask) {
        std::optional<QrCode> code = QrCode::Encode(text, mask);
        ASSERT_TRUE(code.has_value());
        EXPECT_EQ(code->Mask(), mask);
        EXPECT_EQ(ScanQr(GridOf(*code)), text) << "mask " << mask;
        EXPECT_LE(chosen->Penalty(), code->Penalty()) << "mask " << mask;
    }
    EXPECT_EQ(GridOf(*chosen), GridOf(*QrCode::Encode(text, chosen->Mask())));
}

}  // namespace
}  // namespace Zarn
