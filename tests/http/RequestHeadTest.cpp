#include <gtest/gtest.h>

#include "http/AuthenticationInfo.h"
#include "http/RequestHead.h"

namespace Zarn {
namespace {

TEST(RequestHeadTest, SplitsRequestLineTargetAndQuery) {
    using enum HttpMethod;
    struct Case {
        const char* text;
        HttpMethod method;
        const char* path;
        ParameterMap query;
    };
    const Case cases[] = {
        {"GET /a%20b?x=1+2&y HTTP/1.1", kGet, "a b", {{"x", "1 2"}, {"y", ""}}},
        {"get / HTTP/1.1", kOther, "", {}},
        {"POST /up+load HTTP/1.0", kPost, "up+load", {}},
        {"GET /?a=1&a=2&&b=%zz HTTP/1.1", kGet, "", {{"a", "1"}, {"", ""}, {"b", "%zz"}}},
        {"\r\n\r\nGET /after-blank-lines HTTP/1.1", kGet, "after-blank-lines", {}},
        {"GET", kGet, "", {}},
        {"", kOther, "", {}},
        {"DELETE  /x?q=%3D%26  HTTP/1.1  ", kDelete, "x", {{"q", "=&"}}},
        // Absolute forms serve their path; what only looks like one is an origin form.
        {"GET hTtP://user:pw@host?a=1 HTTP/1.1", kGet, "", {{"a", "1"}}},
        {"GET http://host//a/../b HTTP/1.1", kGet, "/a/../b", {}},
        {"GET ftp://host/a HTTP/1.1", kGet, "tp://host/a", {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        RequestHead head = RequestHead::Parse(c.text, 949);
        EXPECT_EQ(head.method, c.method);
        EXPECT_EQ(head.path, c.path);
        EXPECT_EQ(head.query, c.query);
    }
    RequestHead spaced = RequestHead::Parse("DELETE  /x?q=%3D%26  HTTP/1.1  ", 949);
    EXPECT_EQ(spaced.target + "|" + spaced.version, "/x?q=%3D%26|HTTP/1.1");
}

TEST(RequestHeadTest, UpperCasesTrimmedHeaderNamesAndKeepsTheFirstValue) {
    RequestHead head = RequestHead::Parse(
        "GET / HTTP/1.1\r\ncontent-length:   42 \r\nX-Mixed:a:b\r\n\tHost : h \r\n"
        "no colon here\r\nContent-Length: 7\r\nEmpty:\r\n",
        949);
    const HeaderMap expected = {
        {"CONTENT-LENGTH", "42"}, {"X-MIXED", "a:b"}, {"HOST", "h"}, {"", ""}, {"EMPTY", ""}};
    EXPECT_EQ(head.headers, expected);
}

// Saturation and trailing text are ParseLeadingDecimal's; here, what must not count.
TEST(RequestHeadTest, ReadsContentLengthOnlyFromALeadingDigit) {
    for (const auto& [text, length] :
         {std::pair<const char*, uint64_t>{" 42 ", 42}, {"-5", 0}, {"abc", 0}, {"", 0}}) {
        EXPECT_EQ(RequestHead::ParseContentLength(text), length) << text;
    }
}

TEST(AuthenticationInfoTest, ReadsBasicAndDigestCredentials) {
    struct Case {
        const char* value;
        AuthenticationInfo::Scheme scheme;
        const char* user;
        const char* password;
    };
    const Case cases[] = {
        {"Basic dXNlcjpwYXNz", AuthenticationInfo::Scheme::kBasic, "user", "pass"},
        {"basic   dXNlcjpwYTpzcw==  ", AuthenticationInfo::Scheme::kBasic, "user", "pa:ss"},
        {"Basic OnNlY3JldA==", AuthenticationInfo::Scheme::kBasic, "", "secret"},
        {"Basic bm9jb2xvbg==", AuthenticationInfo::Scheme::kBasic, "", ""},
        {"Basic", AuthenticationInfo::Scheme::kBasic, "", ""},
        {"Digest username=\"u\", realm=\"/\"", AuthenticationInfo::Scheme::kDigest, "", ""},
        {"Bearer abc", AuthenticationInfo::Scheme::kBasic, "", ""},
        {"", AuthenticationInfo::Scheme::kBasic, "", ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.value);
        AuthenticationInfo info = AuthenticationInfo::Parse(c.value);
        EXPECT_EQ(info.scheme, c.scheme);
        EXPECT_EQ(info.user_name, c.user);
        EXPECT_EQ(info.password, c.password);
    }
}

}  // namespace
}  // namespace Zarn
