// The console's QR Code endpoint against the real program, over real sockets: the image
// it serves is the symbol of the very text asked for, and it refuses what no symbol can
// hold.

#include <gtest/gtest.h>

#include "core/QrCode.h"
#include "core/UrlCodec.h"
#include "support/RunningShare.h"

namespace Zarn {
namespace {

using testing::HttpResponse;

class ConsoleQrEndToEndTest : public testing::RunningShare {
protected:
    void SetUp() override { StartWithConsole(); }
};

TEST_F(ConsoleQrEndToEndTest, ServesASymbolOfTheTextAndRefusesWhatNoneHolds) {
    const testing::ConsoleSession& console = *console_;
    // Percent-encoded UTF-8 as the page's encodeURIComponent sends it, "+" included.
    const std::string address = "http://192.168.0.10:" + std::to_string(port_) + "/사진+a b?x=1&y";
    HttpResponse image = console.Get("qr?text=" + UrlEncode(address));
    ASSERT_EQ(image.status, 200) << image.body;
    EXPECT_EQ(image.Header("Content-Type"), "image/svg+xml");
    EXPECT_EQ(image.Header("Cache-Control"), "no-store");
    EXPECT_EQ(image.Header("X-Content-Type-Options"), "nosniff");
    // Sharp at any size: a blurred edge between modules is what a camera misreads.
    EXPECT_NE(image.body.find("shape-rendering=\"crispEdges\""), std::string::npos);
    // The symbol of exactly the decoded text; that a phone reads it is the Home page's test.
    EXPECT_EQ(image.body, QrCode::Encode(address)->ToSvg());

    const std::string kRefused[] = {"qr", "qr?text=", "qr?text=" + std::string(2332, 'a')};
    for (const std::string& target : kRefused) {
        HttpResponse refusal = console.Get(target);
        EXPECT_EQ(refusal.status, 400) << target.substr(0, 20);
        EXPECT_EQ(refusal.Header("Content-Type"), "application/json; charset=utf-8");
        EXPECT_NE(refusal.body.find("\"field\":\"text\""), std::string::npos) << refusal.body;
    }
    EXPECT_EQ(console.Get("qr?text=" + std::string(2331, 'a')).status, 200);

    // Only the owner may have it made.
    EXPECT_EQ(console.Request("GET", "/api/v1/qr?text=x", console.Host()).status, 403);
}

}  // namespace
}  // namespace Zarn
