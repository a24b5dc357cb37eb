#include "server/HtmlPageSender.h"

#include "core/UniqueFd.h"
#include "core/UrlCodec.h"
#include "core/Version.h"
#include "http/HttpRequest.h"
#include "i18n/Translate.h"
#include "log/Log.h"
#include "server/TextFormat.h"
#include "skin/SkinManager.h"

namespace Zarn {
namespace {

// Used only when no skin at all could be loaded (the built-in one damaged): the page
// still says what happened.
constexpr std::string_view kFallbackPage =
    "<!DOCTYPE html><html><head><meta charset=\"utf-8\"><title>$title</title></head>"
    "<body><h1>$title</h1><p>$content</p></body></html>";

}  // namespace

void HtmlPageSender::Write(const char* bytes, size_t length) {
    buffer_.append(bytes, length);
    if (buffer_.size() >= kBufferBytes) FlushBuffer();
}

void HtmlPageSender::FlushBuffer() {
    if (head_) {
        request_.SendHead(head_->SetStreamed());
        head_.reset();
    }
    if (buffer_.empty()) return;
    request_.Send(buffer_.data(), buffer_.size());
    buffer_.clear();
}

void HtmlPageSender::SendMessagePage(const std::string& title, const std::string& content,
                                     bool hide_back_button) {
    TextContent page;
    page.SetScalar("$title", title);
    page.SetScalar("$content", content);
    if (hide_back_button) page.SetScalar("$content_hide_back_button", "1");
    Render(page);
}

void HtmlPageSender::SendMessagePageWithAddress(const std::string& title,
                                                const std::string& address,
                                                const std::string& content) {
    TextContent page;
    if (!title.empty()) page.SetScalar("$title", title);
    if (!address.empty()) page.SetScalar("$address", address);
    page.SetScalar("$content", content);
    Render(page);
}

void HtmlPageSender::SendErrorPage(int code, const std::string& reason,
                                   const std::string& content) {
    TextContent page;
    page.SetScalar("$title", std::to_string(code) + " " + HtmlEscape(reason));
    page.SetScalar("$content", content);
    Render(page, ResponseHead(code, HeaderSafe(reason)));
}

void HtmlPageSender::SendOpenFailure(int error) {
    if (!IsOutOfDescriptors(error)) {
        return SendErrorPage(404, "Not Found", Translate("찾을 수 없습니다."));
    }
    TextContent page;
    page.SetScalar("$title", "503 Service Unavailable");
    page.SetScalar("$content",
                   Translate("서버에 열린 파일이 너무 많습니다. 잠시 후 다시 시도해 주세요."));
    Render(page, OutOfDescriptors(request_));
}

ResponseHead HtmlPageSender::OutOfDescriptors(HttpRequest& request) {
    constexpr int kRetryAfterSeconds = 5;
    request.Log(kLogError, "No file descriptor left to open it, answered 503");
    return ResponseHead(503, "Service Unavailable")
        .Add("Retry-After", std::to_string(kRetryAfterSeconds));
}

void HtmlPageSender::SendLoginRefused() {
    SendUnauthorized("401 Unauthorized", Translate("로그인하지 못했습니다."));
}

void HtmlPageSender::SendLogoutPage() {
    SendUnauthorized("Logout", Translate("로그아웃했습니다."));
}

void HtmlPageSender::SendUnauthorized(const std::string& title, const std::string& content) {
    ResponseHead head(401, "Unauthorized");
    head.Add("WWW-Authenticate",
             HttpRequest::AuthenticateValue(AuthenticationInfo::Scheme::kBasic, "/"));
    TextContent page;
    page.SetScalar("$title", title);
    page.SetScalar("$content", content);
    Render(page, std::move(head));
}

void HtmlPageSender::SendRedirect(const std::string& target) {
    request_.SendHead(ResponseHead(301, "Moved Permanently")
                          .Add("Location", UrlEncode(target))
                          .SetContentLength(0)
                          .AllowKeepAlive());
    request_.EndResponse();
}

void HtmlPageSender::Render(TextContent& content, ResponseHead head) {
    if (context_.before_render) context_.before_render();
    // "$skin" goes into script and style addresses, so it is only ever the name of the
    // skin that renders the page: a "skin" parameter naming anything else cannot make
    // the page load code from elsewhere.
    std::shared_ptr<const Skin> skin;
    if (context_.skins != nullptr) {
        std::string asked;
        if (request_.GetQueryParameter("skin", asked)) skin = context_.skins->Find(asked);
        if (!skin) skin = context_.skins->GetSelected();
    }
    std::string skin_name = skin ? skin->GetName() : std::string(SkinManager::kBuiltInName);
    const std::string& path = request_.GetPath();
    content.SetScalar("$skin", HtmlEscape(skin_name));
    content.SetScalar("$version", kVersionText);
    content.SetScalar("$revision", std::to_string(kRevision));
    content.SetScalar("$server_addr", HtmlEscape(request_.GetServerAddress()));
    content.SetScalar("$server_port", std::to_string(context_.server_port));
    content.SetScalar("$server_path", HtmlEscape(path));
    content.SetScalar("$server_path_encoded", UrlEncode(path));
    content.SetScalar("$current_login_id", HtmlEscape(request_.GetUserName()));
    head.Add("Content-Type", skin ? skin->GetMimeType() : "text/html");
    if (context_.keep_alive) head.AllowKeepAlive();
    head_ = std::move(head);
    if (skin) {
        skin->GetPage().Write(content, *this);
    } else {
        TextTemplate fallback;
        fallback.Parse(kFallbackPage);
        fallback.Write(content, *this);
    }
    if (head_) {
        // The whole page fit: it leaves with its length, in one piece with its head.
        request_.SendHead(head_->SetContentLength(buffer_.size()));
        head_.reset();
    }
    FlushBuffer();
    request_.EndResponse();
}

}  // namespace Zarn
