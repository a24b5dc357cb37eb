// The fixed parts of a symbol checked against the figures the QR Code standard publishes,
// so that a misplaced pattern shows here rather than as a symbol some phones cannot read.

#include <gtest/gtest.h>

#include <vector>

#include "core/QrMatrix.h"

namespace Zarn {
namespace {

TEST(QrMatrixTest, FormatAndVersionBitsMatchTheStandardsExamples) {
    // Level M with mask 101: data 00101, check bits 0011011100, masked with 101010000010010.
    EXPECT_EQ(QrMatrix::FormatBits(5), 0b100000011001110);
    EXPECT_EQ(QrMatrix::VersionBits(7), 0b000111110010010100u);
    EXPECT_EQ(QrMatrix::VersionBits(40), 0b101000110001101001u);
}

TEST(QrMatrixTest, FunctionPatternsLeaveTheStandardsDataModules) {
    // Codewords times eight plus the remainder bits of each range of versions.
    const std::pair<int, int> kModules[] = {{1, 208},    {2, 359},   {6, 1383},  {7, 1568},
                                            {13, 4256},  {14, 4651}, {21, 9252}, {28, 15371},
                                            {35, 23008}, {40, 29648}};
    for (auto [version, modules] : kModules)
        EXPECT_EQ(QrMatrix(version).DataModuleCount(), modules) << "version " << version;
}

TEST(QrMatrixTest, AlignmentCentresMatchTheStandardsTable) {
    const std::pair<int, std::vector<int>> kCentres[] = {
        {1, {}},
        {2, {6, 18}},
        {6, {6, 34}},
        {7, {6, 22, 38}},
        {15, {6, 26, 48, 70}},
        {16, {6, 26, 50, 74}},
        {32, {6, 34, 60, 86, 112, 138}},
        {36, {6, 24, 50, 76, 102, 128, 154}},
        {40, {6, 30, 58, 86, 114, 142, 170}},
    };
    for (const auto& [version, centres] : kCentres)
        EXPECT_EQ(QrMatrix::AlignmentCentres(version), centres) << "version " << version;
}

}  // namespace
}  // namespace Zarn
