#pragma once

#include <functional>
#include <optional>
#include <string>

#include "http/ResponseHead.h"
#include "template/OutputStream.h"
#include "template/TextContent.h"

namespace Zarn {

class HttpRequest;
class SkinManager;

// Writes every HTML page the server makes itself through the current skin's page template:
// message and error pages, the two 401 pages, and the listings (Render). Adds the server
// variables to the page's own, sends the skin's content type and the rendered page. A page
// that fits the buffer leaves with its Content-Length; a larger one streams out as it is
// rendered, chunked, so that no listing sits whole in memory. A page keeps the
// connection unless its context says otherwise. Lives on the stack for one page; connection errors
// propagate.
class HtmlPageSender : public OutputStream {
public:
    struct Context {
        SkinManager* skins = nullptr;
        int server_port = -1;
        // Runs before a page is rendered (skin developers mode reloads the skins there).
        std::function<void()> before_render{};
        // Whether the page may keep the connection for the client's next request.
        bool keep_alive = true;
    };

    // The head of an answer to a request whose open failed for want of descriptors: 503
    // with a Retry-After long enough for a burst of connections to end and free theirs,
    // short enough that a client which honours it (a sync tool, a download manager, a
    // resumable upload) is not held up long. Logged on `request`.
    [[nodiscard]] static ResponseHead OutOfDescriptors(HttpRequest& request);

    HtmlPageSender(HttpRequest& request, Context context) : request_(request), context_(context) {}

    using OutputStream::Write;
    void Write(const char* bytes, size_t length) override;

    // Texts given here are put into the page as they are: callers escape what came from
    // outside.
    void SendMessagePage(const std::string& title, const std::string& content,
                         bool hide_back_button);
    void SendMessagePageWithAddress(const std::string& title, const std::string& address,
                                    const std::string& content);
    void SendErrorPage(int code, const std::string& reason, const std::string& content);
    // 404 for a path whose open failed with `error` (its errno), unless the failure was a
    // want of descriptors: then 503 with a Retry-After, logged, since the file is there
    // and the owner may need to raise the limit.
    void SendOpenFailure(int error);
    // 401 pages with a Basic challenge for the realm "/", so the browser asks (again).
    void SendLoginRefused();
    void SendLogoutPage();
    // 301 to the target, URL-encoded; no body.
    void SendRedirect(const std::string& target);

    // The shared rendering: server variables, content type, the skin's page, end of the
    // response, under the given status line and headers.
    void Render(TextContent& content, ResponseHead head = ResponseHead(200, "OK"));

private:
    // A page is rendered in many small pieces; they leave in writes of this size, and a
    // page no longer than this leaves whole, with its length.
    static constexpr size_t kBufferBytes = 64 * 1024;

    void FlushBuffer();
    void SendUnauthorized(const std::string& title, const std::string& content);

    HttpRequest& request_;
    Context context_;
    std::string buffer_;
    // The head of the page being rendered, until its length is known or the page
    // outgrows the buffer.
    std::optional<ResponseHead> head_;
};

}  // namespace Zarn
