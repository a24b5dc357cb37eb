#include "HostRequest.h"

#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <memory>

namespace Zarn {

namespace {

std::optional<std::string> Text(const char* text) {
    return text == nullptr ? std::nullopt : std::optional<std::string>(text);
}

char FoldAscii(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

// Compares the digit runs at the front of both texts by value and consumes them; 0 when
// they are equal.
int CompareNumbers(std::string_view& left, std::string_view& right) {
    auto take = [](std::string_view& text) {
        size_t end = 0;
        while (end < text.size() && IsDigit(text[end]))
            ++end;
        std::string_view digits = text.substr(0, end);
        text.remove_prefix(end);
        size_t zeros = digits.find_first_not_of('0');
        return zeros == std::string_view::npos ? std::string_view() : digits.substr(zeros);
    };
    std::string_view a = take(left);
    std::string_view b = take(right);
    if (a.size() != b.size()) return a.size() < b.size() ? -1 : 1;
    return a.compare(b);
}

int NaturalCompare(std::string_view left, std::string_view right) {
    while (!left.empty() && !right.empty()) {
        if (IsDigit(left.front()) && IsDigit(right.front())) {
            int order = CompareNumbers(left, right);
            if (order != 0) return order;
            continue;
        }
        auto a = static_cast<unsigned char>(FoldAscii(left.front()));
        auto b = static_cast<unsigned char>(FoldAscii(right.front()));
        if (a != b) return a < b ? -1 : 1;
        left.remove_prefix(1);
        right.remove_prefix(1);
    }
    return left.empty() && right.empty() ? 0 : (left.empty() ? -1 : 1);
}

}  // namespace

std::string HostRequest::Path() const {
    return host_.path(request_);
}

std::optional<std::string> HostRequest::Query(const char* name) const {
    return Text(host_.query(request_, name));
}

std::optional<std::string> HostRequest::Header(const char* name) const {
    return Text(host_.header(request_, name));
}

std::string HostRequest::Translate(const char* key) const {
    return host_.translate(request_, key);
}

std::string HostRequest::Escape(const std::string& text) const {
    return host_.html_escape(request_, text.c_str());
}

std::string HostRequest::UrlEncode(const std::string& text) const {
    return host_.url_encode(request_, text.c_str());
}

std::optional<std::string> HostRequest::LocalPath(const std::string& virtual_path,
                                                  unsigned needed_rights) const {
    return Text(host_.local_path(request_, virtual_path.c_str(), needed_rights));
}

std::vector<FolderEntry> HostRequest::ListFolder() const {
    std::vector<FolderEntry> entries;
    std::string folder = Path();
    std::optional<std::string> local = LocalPath(folder, LUMIDROP_RIGHT_LIST);
    if (!local) return entries;
    std::unique_ptr<DIR, int (*)(DIR*)> directory(::opendir(local->c_str()), ::closedir);
    if (!directory) return entries;
    while (const dirent* entry = ::readdir(directory.get())) {
        std::string name = entry->d_name;
        if (name.starts_with('.')) continue;
        // The host's check also refuses links out of the mount and names it hides.
        std::optional<std::string> path = LocalPath(folder + name, LUMIDROP_RIGHT_LIST);
        struct stat info {};
        if (!path || ::stat(path->c_str(), &info) != 0) continue;
        if (S_ISDIR(info.st_mode) || S_ISREG(info.st_mode))
            entries.push_back({std::move(name), S_ISDIR(info.st_mode)});
    }
    std::sort(entries.begin(), entries.end(), [](const FolderEntry& a, const FolderEntry& b) {
        return NaturalLess(a.name, b.name);
    });
    return entries;
}

bool HostRequest::Send(int status, const char* reason, const std::vector<HeaderLine>& headers,
                       std::string_view body) const {
    if (host_.set_status(request_, status, reason) != 0) return false;
    for (const auto& [name, value] : headers) {
        if (host_.add_header(request_, name.c_str(), value.c_str()) != 0) return false;
    }
    std::string length = std::to_string(body.size());
    if (host_.add_header(request_, "Content-Length", length.c_str()) != 0) return false;
    return host_.write_body(request_, body.data(), body.size()) == 0;
}

bool HasExtension(std::string_view name, std::span<const std::string_view> extensions) {
    size_t dot = name.rfind('.');
    if (dot == std::string_view::npos) return false;
    std::string extension(name.substr(dot + 1));
    std::transform(extension.begin(), extension.end(), extension.begin(), FoldAscii);
    return std::find(extensions.begin(), extensions.end(), extension) != extensions.end();
}

bool NaturalLess(std::string_view left, std::string_view right) {
    int order = NaturalCompare(left, right);
    // Names that only differ in case or leading zeros still need one fixed order.
    return order != 0 ? order < 0 : left < right;
}

}  // namespace Zarn
