#pragma once

#include <string>
#include <vector>

#include "HostRequest.h"

namespace Zarn {

// The gallery's page of one folder: its pictures as a grid of thumbnails (the pictures
// themselves, scaled by the browser and loaded as they scroll into view), a full-size
// viewer that gallery.js drives, and links to the sub-folders' galleries. Built on the
// request's thread for that request alone.
class GalleryPage {
public:
    explicit GalleryPage(const HostRequest& request);

    [[nodiscard]] std::string Render() const;

private:
    [[nodiscard]] std::string Head() const;
    [[nodiscard]] std::string Navigation() const;
    [[nodiscard]] std::string Folders() const;
    [[nodiscard]] std::string Pictures() const;
    [[nodiscard]] std::string Viewer() const;
    // The translation, escaped for the page.
    [[nodiscard]] std::string Translate(const char* key) const;
    // The quoted-attribute form of the address of a path below the root.
    [[nodiscard]] std::string Link(const std::string& virtual_path) const;

    const HostRequest& request_;
    std::string folder_;
    std::vector<std::string> folders_;
    std::vector<std::string> pictures_;
};

}  // namespace Zarn
