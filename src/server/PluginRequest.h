#pragma once

#include <cstdint>
#include <deque>
#include <exception>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "lumidrop/plugin.h"

namespace Zarn {

class AccountManager;
class HttpRequest;
class MountManager;

// One request as a plug-in sees it: what the host functions read of the HTTP request and
// the response they build. Texts handed to the plug-in are kept in an arena until the
// request ends. No C++ exception may pass into the plug-in's C frames, so a failed
// connection is remembered here and rethrown once OnRequest has returned. One thread.
class PluginRequest {
public:
    struct Visitor {
        const MountManager* mounts = nullptr;
        const AccountManager* accounts = nullptr;
        std::string user{};  // the account name, "" for anonymous visitors
        uint32_t rights = 0;
        bool show_hidden = false;
    };

    PluginRequest(HttpRequest& http, Visitor visitor);

    // A copy that lives as long as this request; null for nothing.
    [[nodiscard]] const char* Keep(std::string text);

    [[nodiscard]] const char* Path();
    [[nodiscard]] const char* Query(const char* name);
    [[nodiscard]] const char* Form(const char* name);
    [[nodiscard]] const char* Header(const char* name);
    [[nodiscard]] const char* ClientAddress();
    [[nodiscard]] const char* UserName();
    [[nodiscard]] unsigned Rights() const { return visitor_.rights; }
    [[nodiscard]] const char* LocalPath(const char* virtual_path, unsigned needed_rights);
    [[nodiscard]] long ReadBody(void* buffer, size_t length);
    [[nodiscard]] int SetStatus(int code, const char* reason);
    [[nodiscard]] int AddHeader(const char* name, const char* value);
    [[nodiscard]] int WriteBody(const void* bytes, size_t length);
    void Log(unsigned level, const char* text);

    // After OnRequest: rethrows what broke the connection; sends the head and ends the
    // body when the plug-in answered; false when it failed before writing anything, so
    // that the caller sends an error page. A failure after writing throws, which closes
    // the connection.
    [[nodiscard]] bool Finish(int result);

private:
    // Runs `step`, turning what it throws into a remembered failure.
    template <typename Step>
    bool Guard(Step step);
    // `finishing`: no body was written, so the answer is empty unless a length was set.
    void SendHeadOnce(bool finishing);

    HttpRequest& http_;
    Visitor visitor_;
    std::deque<std::string> arena_;
    int code_ = 200;
    std::string reason_ = "OK";
    std::vector<std::pair<std::string, std::string>> headers_;
    std::optional<uint64_t> length_;
    bool head_sent_ = false;
    std::exception_ptr failure_;
};

}  // namespace Zarn

// The handle the plug-in holds; the C header leaves it opaque.
struct LumidropRequest final : Zarn::PluginRequest {
    using Zarn::PluginRequest::PluginRequest;
};
