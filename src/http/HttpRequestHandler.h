#pragma once

namespace Zarn {

class HttpRequest;

// What the connection threads hand each parsed request to. One handler serves every
// connection thread at once, so implementations must be safe for concurrent calls.
// The handler writes the whole response through the request.
class HttpRequestHandler {
public:
    virtual ~HttpRequestHandler() = default;
    virtual void HandleRequest(HttpRequest& request) = 0;
};

// Does nothing with a request; the web server's handler until the application sets one.
class NullHttpRequestHandler : public HttpRequestHandler {
public:
    [[nodiscard]] static NullHttpRequestHandler& Instance() {
        static NullHttpRequestHandler instance;
        return instance;
    }
    void HandleRequest(HttpRequest&) override {}
};

}  // namespace Zarn
