#pragma once

#include <functional>
#include <string>

#include "template/OutputStream.h"
#include "template/TextContent.h"

namespace Zarn {

class HttpRequest;
class SkinManager;

// Writes every HTML page the server makes itself through the current skin's page template:
// message and error pages, the two 401 pages, and the listings (Render). Adds the server
// variables to the page's own, sends the skin's content type and streams the rendered page
// to the connection. Lives on the stack for one page; connection errors propagate.
class HtmlPageSender : public OutputStream {
public:
    struct Context {
        SkinManager* skins = nullptr;
        int server_port = -1;
        // Runs before a page is rendered (skin developers mode reloads the skins there).
        std::function<void()> before_render{};
    };

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
    // 401 pages with a Basic challenge for the realm "/", so the browser asks (again).
    void SendLoginRefused();
    void SendLogoutPage();
    // 301 to the target, URL-encoded; no body.
    void SendRedirect(const std::string& target);

    // The shared rendering: server variables, content type, the skin's page, end of the
    // response. The status line (and any header) must already be written.
    void Render(TextContent& content);

private:
    // A page is rendered in many small pieces; they leave in writes of this size.
    static constexpr size_t kBufferBytes = 64 * 1024;

    void FlushBuffer();
    void SendUnauthorized(const std::string& title, const std::string& content);

    HttpRequest& request_;
    Context context_;
    std::string buffer_;
};

}  // namespace Zarn
