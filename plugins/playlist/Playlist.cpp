#include "Playlist.h"

#include <sys/stat.h>

#include <array>
#include <string_view>

namespace Zarn {

namespace {

constexpr std::array<std::string_view, 24> kMediaExtensions = {
    "mp3", "m4a", "aac", "flac", "ogg", "oga", "opus", "wav", "wma",  "alac", "aiff", "mka",
    "mp4", "m4v", "mkv", "webm", "mov", "avi", "wmv",  "mpg", "mpeg", "ts",   "ogv",  "3gp"};

// "live/a.mp3" -> "a"
std::string Title(const std::string& name) {
    std::string base = name.substr(name.rfind('/') + 1);
    size_t dot = base.rfind('.');
    return dot == 0 || dot == std::string::npos ? base : base.substr(0, dot);
}

// What a quoted header parameter can carry of a name: printable ASCII but the quote,
// the backslash and "%" (which some clients decode).
std::string AsciiFallback(const std::string& name) {
    std::string plain;
    for (char c : name) {
        bool printable = c >= 0x20 && c < 0x7f && c != '"' && c != '\\' && c != '%';
        plain += printable ? c : '_';
    }
    return plain;
}

}  // namespace

Playlist::Playlist(const HostRequest& request) : request_(request), folder_(request.Path()) {
    for (std::string& name : RequestedNames()) {
        if (IsPlayable(name)) names_.push_back(std::move(name));
    }
}

bool Playlist::Send() const {
    std::optional<std::string> host = UsableHost(request_.Header("Host"));
    if (!host)
        return SendText(400, "Bad Request", Translate("요청에 쓸 수 있는 Host 헤더가 없습니다."));
    if (names_.empty()) {
        return SendText(404, "Not Found",
                        Translate("재생할 수 있는 음악이나 동영상 파일이 없습니다."));
    }
    return request_.Send(200, "OK",
                         {{"Content-Type", "audio/x-mpegurl; charset=utf-8"},
                          {"Content-Disposition", Disposition()},
                          {"Cache-Control", "no-store"}},
                         Body(*host));
}

std::vector<std::string> Playlist::RequestedNames() const {
    std::vector<std::string> names;
    std::optional<std::string> selected = request_.Query("selectedFiles");
    if (!selected || selected->find_first_not_of("\r\n") == std::string::npos) {
        for (FolderEntry& entry : request_.ListFolder()) {
            if (!entry.is_folder) names.push_back(std::move(entry.name));
        }
        return names;
    }
    size_t start = 0;
    while (start <= selected->size()) {
        size_t end = selected->find('\n', start);
        if (end == std::string::npos) end = selected->size();
        std::string name = selected->substr(start, end - start);
        if (name.ends_with('\r')) name.pop_back();
        if (!name.empty()) names.push_back(std::move(name));
        start = end + 1;
    }
    return names;
}

bool Playlist::IsPlayable(const std::string& name) const {
    // A line break in a name would end its entry early and start another.
    if (name.find_first_of("\r\n") != std::string::npos) return false;
    if (!HasExtension(name, kMediaExtensions)) return false;
    std::optional<std::string> local = request_.LocalPath(folder_ + name, LUMIDROP_RIGHT_DOWNLOAD);
    struct stat info {};
    return local && ::stat(local->c_str(), &info) == 0 && S_ISREG(info.st_mode);
}

std::string Playlist::Body(const std::string& host) const {
    std::string body = "#EXTM3U\n";
    for (const std::string& name : names_) {
        body += "#EXTINF:-1," + Title(name) + "\n";
        body += "http://" + host + "/" + request_.UrlEncode(folder_ + name) + "\n";
    }
    return body;
}

std::string Playlist::Disposition() const {
    std::string folder = folder_.substr(0, folder_.size() - (folder_.ends_with('/') ? 1 : 0));
    std::string name = folder.substr(folder.rfind('/') + 1);
    if (name.empty()) name = "playlist";
    // RFC 6266: the quoted name for old clients, the UTF-8 one for the rest. The host's
    // encoding keeps only letters, digits, "_" and ".", all allowed in the extended form.
    return "attachment; filename=\"" + AsciiFallback(name) + ".m3u8\"; filename*=UTF-8''" +
           request_.UrlEncode(name) + ".m3u8";
}

bool Playlist::SendText(int status, const char* reason, const std::string& text) const {
    return request_.Send(status, reason, {{"Content-Type", "text/plain; charset=utf-8"}},
                         text + "\n");
}

std::string Playlist::Translate(const char* key) const {
    return request_.Translate(key);
}

std::optional<std::string> UsableHost(const std::optional<std::string>& header) {
    if (!header || header->empty()) return std::nullopt;
    for (char c : *header) {
        bool allowed = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                       c == '.' || c == '-' || c == ':' || c == '[' || c == ']';
        if (!allowed) return std::nullopt;
    }
    return header;
}

}  // namespace Zarn
