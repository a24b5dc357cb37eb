// The playlist, an action plug-in that hands a media player the selected audio and video
// files.

#include "Playlist.h"
#include "PluginEntryPoints.h"

namespace Zarn {

namespace {

void Serve(const HostRequest& request) {
    (void)Playlist(request).Send();
}

}  // namespace

// The playlist is only worth having if its player may download what it lists.
extern const PluginDescription kShippedPlugin{"playlist", LUMIDROP_PLUGIN_ACTION,
                                              LUMIDROP_RIGHT_DOWNLOAD, Serve};

}  // namespace Zarn
