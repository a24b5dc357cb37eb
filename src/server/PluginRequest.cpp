#include "server/PluginRequest.h"

#include <sys/stat.h>

#include <cerrno>
#include <climits>
#include <stdexcept>

#include "core/StringUtil.h"
#include "http/HttpRequest.h"
#include "log/Log.h"
#include "server/RequestPath.h"
#include "share/AccountManager.h"
#include "share/MountManager.h"

namespace Zarn {
namespace {

bool HasLineBreak(std::string_view text) {
    return text.find_first_of("\r\n") != std::string_view::npos;
}

// Framing and the connection are the host's to decide.
bool IsHostHeader(std::string_view name) {
    return EqualsIgnoringCase(name, "Connection") ||
           EqualsIgnoringCase(name, "Transfer-Encoding") || EqualsIgnoringCase(name, "Date") ||
           EqualsIgnoringCase(name, "Keep-Alive");
}

// Whether a path that does not exist (yet) would be made inside its folder: its parent
// must be reachable from there.
bool IsCreatableBelow(const LocalTarget& target) {
    std::string_view relative = target.relative;
    while (!relative.empty() && relative.back() == '/')
        relative.remove_suffix(1);
    size_t slash = relative.rfind('/');
    std::string_view parent =
        slash == std::string_view::npos ? std::string_view() : relative.substr(0, slash);
    struct stat info {};
    return target.folder.StatBelow(parent, info) && S_ISDIR(info.st_mode);
}

}  // namespace

PluginRequest::PluginRequest(HttpRequest& http, Visitor visitor)
    : http_(http), visitor_(std::move(visitor)) {}

const char* PluginRequest::Keep(std::string text) {
    return arena_.emplace_back(std::move(text)).c_str();
}

template <typename Step>
bool PluginRequest::Guard(Step step) {
    if (failure_) return false;
    try {
        step();
        return true;
    } catch (...) {
        // Kept for the connection thread, which knows what a broken connection means.
        failure_ = std::current_exception();
        return false;
    }
}

const char* PluginRequest::Path() {
    const std::string& path = http_.GetPath();
    return Keep(path.empty() || path.back() == '/' ? path : path + "/");
}

const char* PluginRequest::Query(const char* name) {
    std::string value;
    if (name == nullptr || !http_.GetQueryParameter(name, value)) return nullptr;
    return Keep(std::move(value));
}

const char* PluginRequest::Form(const char* name) {
    std::string value;
    bool found = false;
    if (name == nullptr || !Guard([&] { found = http_.GetFormParameter(name, value); }))
        return nullptr;
    return found ? Keep(std::move(value)) : nullptr;
}

const char* PluginRequest::Header(const char* name) {
    std::string value;
    if (name == nullptr || !http_.GetHeader(ToUpperAscii(name), value)) return nullptr;
    return Keep(std::move(value));
}

const char* PluginRequest::ClientAddress() {
    return Keep(http_.GetClientAddress());
}

const char* PluginRequest::UserName() {
    return Keep(visitor_.user);
}

const char* PluginRequest::LocalPath(const char* virtual_path, unsigned needed_rights) {
    if (virtual_path == nullptr) return nullptr;
    std::string_view path(virtual_path);
    // The same tests as a visitor's own request for the path passes.
    if (path.empty() || !IsValidRequestPath(path) || !IsVisiblePath(path, visitor_.show_hidden))
        return nullptr;
    std::string mount(MountNameOf(path));
    std::optional<uint32_t> rights = visitor_.accounts->GetRights(
        visitor_.user.empty() ? AccountManager::kAnonymous : visitor_.user, mount);
    if (!rights || (*rights & needed_rights) != needed_rights) return nullptr;
    std::optional<LocalTarget> target = visitor_.mounts->ResolveTarget(path);
    if (!target) return nullptr;
    struct stat info {};
    if (!target->Stat(info) && (errno != ENOENT || !IsCreatableBelow(*target))) return nullptr;
    return Keep(target->local_path);
}

long PluginRequest::ReadBody(void* buffer, size_t length) {
    if (buffer == nullptr) return -1;
    int received = 0;
    int asked = static_cast<int>(std::min<size_t>(length, INT_MAX));
    if (!Guard([&] { received = http_.ReceiveBody(buffer, asked); })) return -1;
    return received;
}

int PluginRequest::SetStatus(int code, const char* reason) {
    std::string_view text = reason == nullptr ? std::string_view() : reason;
    if (head_sent_ || code < 100 || code > 999 || HasLineBreak(text)) return -1;
    code_ = code;
    reason_ = text;
    return 0;
}

int PluginRequest::AddHeader(const char* name, const char* value) {
    if (head_sent_ || name == nullptr || value == nullptr) return -1;
    std::string_view key(name);
    std::string_view text(value);
    if (key.empty() || key.find_first_of(": \t") != std::string_view::npos || HasLineBreak(key) ||
        HasLineBreak(text) || IsHostHeader(key))
        return -1;
    if (EqualsIgnoringCase(key, "Content-Length")) {
        if (text.empty() || text.size() > 19 ||
            text.find_first_not_of("0123456789") != std::string_view::npos)
            return -1;
        length_ = ParseLeadingDecimal(text);
        return 0;
    }
    headers_.emplace_back(key, text);
    return 0;
}

int PluginRequest::WriteBody(const void* bytes, size_t length) {
    if (bytes == nullptr && length > 0) return -1;
    bool sent = Guard([&] {
        SendHeadOnce(false);
        if (length > 0) http_.Send(bytes, length);
    });
    return sent ? 0 : -1;
}

void PluginRequest::Log(unsigned level, const char* text) {
    uint32_t known = level & (kLogProgress | kLogConnection | kLogError | kLogNotice);
    http_.Log(known == 0 ? kLogNotice : known, "%s", text == nullptr ? "" : text);
}

void PluginRequest::SendHeadOnce(bool finishing) {
    if (head_sent_) return;
    head_sent_ = true;
    ResponseHead head(code_, reason_);
    for (const auto& [name, value] : headers_)
        head.Add(name, value);
    if (length_) {
        head.SetContentLength(*length_);
    } else if (finishing) {
        head.SetContentLength(0);
    } else {
        head.SetStreamed();
    }
    http_.SendHead(head.AllowKeepAlive());
}

bool PluginRequest::Finish(int result) {
    if (failure_) std::rethrow_exception(failure_);
    if (result != 0) {
        if (!head_sent_) return false;
        throw std::runtime_error("the plug-in failed after it began its answer");
    }
    SendHeadOnce(true);
    http_.EndResponse();
    return true;
}

}  // namespace Zarn
