// The gallery, a view plug-in that shows a folder's pictures.

#include "GalleryPage.h"
#include "PluginEntryPoints.h"

namespace Zarn {

namespace {

void Serve(const HostRequest& request) {
    std::string page = GalleryPage(request).Render();
    (void)request.Send(
        200, "OK", {{"Content-Type", "text/html; charset=utf-8"}, {"Cache-Control", "no-cache"}},
        page);
}

}  // namespace

// Showing a picture hands it out as a download does.
extern const PluginDescription kShippedPlugin{"gallery", LUMIDROP_PLUGIN_VIEW,
                                              LUMIDROP_RIGHT_DOWNLOAD, Serve};

}  // namespace Zarn
