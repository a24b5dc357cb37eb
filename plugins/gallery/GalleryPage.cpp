#include "GalleryPage.h"

#include <array>
#include <string_view>

namespace Zarn {

namespace {

// What every browser shows without help; HEIC and the raw formats are left out.
constexpr std::array<std::string_view, 9> kPictureExtensions = {"jpg", "jpeg", "png", "gif", "webp",
                                                                "svg", "avif", "bmp", "ico"};

constexpr char kGalleryQuery[] = "?action=Plugin&amp;plugin=gallery";
constexpr char kResource[] = "/?action=PluginResource&amp;plugin=gallery&amp;file=";

// "music/live/" -> "live"
std::string LastName(const std::string& folder) {
    std::string trimmed = folder.substr(0, folder.size() - (folder.ends_with('/') ? 1 : 0));
    return trimmed.substr(trimmed.rfind('/') + 1);
}

}  // namespace

GalleryPage::GalleryPage(const HostRequest& request) : request_(request), folder_(request.Path()) {
    for (FolderEntry& entry : request_.ListFolder()) {
        if (entry.is_folder) {
            folders_.push_back(std::move(entry.name));
        } else if (HasExtension(entry.name, kPictureExtensions)) {
            pictures_.push_back(std::move(entry.name));
        }
    }
}

// Pages are built by appending: GCC 12 warns falsely on a literal put before a temporary.
std::string GalleryPage::Render() const {
    std::string html = "<!DOCTYPE html>\n<html>\n";
    html += Head();
    html += "<body>\n";
    html += Navigation();
    html += Folders();
    html += Pictures();
    html += Viewer();
    html += "</body>\n</html>\n";
    return html;
}

std::string GalleryPage::Head() const {
    std::string html =
        "<head>\n<meta charset=\"utf-8\">\n"
        "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n<title>";
    html += request_.Escape(LastName(folder_));
    html += " - ";
    html += Translate("갤러리");
    html += "</title>\n<link rel=\"stylesheet\" href=\"";
    html += kResource;
    html += "gallery.css\">\n<script defer src=\"";
    html += kResource;
    html += "gallery.js\"></script>\n</head>\n";
    return html;
}

std::string GalleryPage::Navigation() const {
    std::string html = "<header class=\"gallery-header\">\n<h1>";
    html += request_.Escape(LastName(folder_));
    html += "</h1>\n<nav><a id=\"gallery-listing\" href=\"";
    html += Link(folder_);
    html += "\">";
    html += Translate("목록으로 보기");
    html += "</a>";
    // The root is a listing of mounts, never a gallery.
    size_t parent_end = folder_.size() > 1 ? folder_.rfind('/', folder_.size() - 2) : 0;
    if (folder_.size() > 1 && parent_end != std::string::npos) {
        html += " <a id=\"gallery-parent\" href=\"";
        html += Link(folder_.substr(0, parent_end + 1));
        html += kGalleryQuery;
        html += "\">";
        html += Translate("상위 폴더");
        html += "</a>";
    }
    html += "</nav>\n</header>\n";
    return html;
}

std::string GalleryPage::Folders() const {
    if (folders_.empty()) return {};
    std::string html = "<ul class=\"gallery-folders\">\n";
    for (const std::string& name : folders_) {
        html += "<li><a href=\"";
        html += Link(folder_ + name + "/");
        html += kGalleryQuery;
        html += "\">";
        html += request_.Escape(name);
        html += "</a></li>\n";
    }
    html += "</ul>\n";
    return html;
}

std::string GalleryPage::Pictures() const {
    std::string html;
    if (pictures_.empty()) {
        html = "<p class=\"gallery-empty\">";
        html += Translate("이 폴더에는 사진이 없습니다.");
        html += "</p>\n";
        return html;
    }
    html = "<ul id=\"gallery-grid\" class=\"gallery-grid\">\n";
    for (const std::string& name : pictures_) {
        std::string link = Link(folder_ + name);
        std::string text = request_.Escape(name);
        html += "<li><a class=\"gallery-thumb\" href=\"" + link;
        html += "\"><img loading=\"lazy\" decoding=\"async\" src=\"" + link;
        html += "\" alt=\"" + text;
        html += "\"><span>" + text;
        html += "</span></a></li>\n";
    }
    html += "</ul>\n";
    return html;
}

std::string GalleryPage::Viewer() const {
    std::string html = "<dialog id=\"gallery-viewer\" class=\"gallery-viewer\" aria-label=\"";
    html += Translate("사진 보기");
    html +=
        "\">\n<figure>\n<img id=\"gallery-full\" alt=\"\">\n"
        "<figcaption><span id=\"gallery-caption\"></span> "
        "<span id=\"gallery-position\"></span></figcaption>\n</figure>\n"
        "<div class=\"gallery-controls\">\n<button type=\"button\" id=\"gallery-previous\">";
    html += Translate("이전 사진");
    html += "</button>\n<button type=\"button\" id=\"gallery-next\">";
    html += Translate("다음 사진");
    html += "</button>\n<button type=\"button\" id=\"gallery-close\">";
    html += Translate("닫기");
    html += "</button>\n</div>\n</dialog>\n";
    return html;
}

std::string GalleryPage::Translate(const char* key) const {
    return request_.Escape(request_.Translate(key));
}

std::string GalleryPage::Link(const std::string& virtual_path) const {
    std::string address = "/";
    address += request_.UrlEncode(virtual_path);
    return request_.Escape(address);
}

}  // namespace Zarn
