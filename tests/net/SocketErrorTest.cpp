#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include "net/SocketError.h"
#include "net/socket_exception.h"

namespace Zarn {
namespace {

TEST(SocketErrorTest, ErrnoValuesMapToWindowsCodesAndTexts) {
    struct Case {
        int error;
        int code;
        const char* text;
    };
    const Case cases[] = {
        {ECONNRESET, 10054, "Connection reset by peer"},
        {ECONNREFUSED, 10061, "Connection refused"},
        {EADDRINUSE, 10048, "Address already in use"},
        {ETIMEDOUT, 10060, "Connection timed out"},
        {EPIPE, 10053, "Software caused connection abort"},
        {EBADF, 10038, "Socket operation on nonsocket"},
        {EAGAIN, 10035, "Socket would block"},
        {ENOENT, 0, "Unknown error"},
        {0, 0, "Unknown error"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.error);
        EXPECT_EQ(SocketErrorFromErrno(c.error), c.code);
        EXPECT_STREQ(ErrorText(SocketErrorFromErrno(c.error)), c.text);
        errno = c.error;
        EXPECT_EQ(RecordSocketErrno(), c.code);
        EXPECT_EQ(LastSocketError(), c.code);
        EXPECT_STREQ(socket_exception().what(), c.text);
    }
}

TEST(SocketErrorTest, UnknownCodeHasUnknownText) {
    EXPECT_STREQ(ErrorText(12345), "Unknown error");
    EXPECT_STREQ(ErrorText(-1), "Unknown error");
    EXPECT_STREQ(ErrorText(11001), "Host not found");
}

}  // namespace
}  // namespace Zarn
