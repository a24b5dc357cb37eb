#pragma once

namespace Zarn {

class HttpRequest;

// Whether the browser says that this request was started by a page of another site:
// "Sec-Fetch-Site: cross-site", or an "Origin" whose host and port are not the ones the
// request was sent to ("Host"), an opaque origin ("null") included. Requests that carry
// neither header (command-line clients, scripts) are not cross-site. Requests that change
// something are refused when this is true, so that no other site can make a visitor's
// browser upload or create folders with the visitor's credentials.
[[nodiscard]] bool IsCrossSiteRequest(const HttpRequest& request);

}  // namespace Zarn
