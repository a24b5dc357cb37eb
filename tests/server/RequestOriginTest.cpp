#include <gtest/gtest.h>

#include "http/HttpRequest.h"
#include "server/RequestOrigin.h"
#include "transfer/NullTransferStatusAggregator.h"

namespace Zarn {
namespace {

bool IsCrossSite(const std::string& headers) {
    HttpRequest request(nullptr, NullTransferStatusAggregator::Instance());
    request.ParseHeader("GET /docs/?action=MakeDirectory&name=x HTTP/1.1\r\n" + headers);
    return IsCrossSiteRequest(request);
}

// The plain forgeries and the server's own pages the exposure end-to-end test sends over a
// socket; here, the spellings and ports that must compare alike or apart.
TEST(RequestOriginTest, TellsForgedRequestsFromTheServersOwn) {
    struct Case {
        const char* headers;
        bool cross_site;
    };
    const Case cases[] = {
        {"Host: files.example:8080\r\nSec-Fetch-Site: same-site", false},
        {"Host: files.example:8080\r\nSec-Fetch-Site: none", false},
        {"Host: files.example:8080\r\nSec-Fetch-Site: Cross-Site", true},
        {"Host: FILES.example:8080\r\nOrigin: http://files.EXAMPLE:8080", false},
        {"Host: files.example:8080\r\nOrigin: http://files.example", true},
        {"Host: files.example:8080\r\nOrigin: files.example:8080", true},
        {"Host: files.example:8080\r\nOrigin: http://files.example:8080/path", true},
        {"Origin: http://files.example:8080", true},  // nothing to compare with
        // A port left out is the scheme's own, on both sides (a TLS proxy in front).
        {"Host: files.example\r\nOrigin: http://files.example", false},
        {"Host: files.example:80\r\nOrigin: http://files.example", false},
        {"Host: files.example\r\nOrigin: https://files.example", false},
        {"Host: files.example:80\r\nOrigin: https://files.example", true},
        {"Host: [::1]:8080\r\nOrigin: http://[::1]:8080", false},
        {"Host: [::1]:8080\r\nOrigin: http://[::2]:8080", true},
        {"Host: [::1\r\nOrigin: http://[::1]:8080", true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.headers);
        EXPECT_EQ(IsCrossSite(c.headers), c.cross_site);
    }
}

}  // namespace
}  // namespace Zarn
