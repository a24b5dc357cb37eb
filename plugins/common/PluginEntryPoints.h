#pragma once

#include "HostRequest.h"

namespace Zarn {

// What sets one shipped plug-in apart; PluginEntryPoints.cpp turns it into the entry
// points the host looks for. Each plug-in defines kShippedPlugin once.
struct PluginDescription {
    const char* name;
    int type;  // LUMIDROP_PLUGIN_VIEW or LUMIDROP_PLUGIN_ACTION
    unsigned required_authority;
    // Answers one request; an exception becomes the host's error page.
    void (*serve)(const HostRequest& request);
};

extern const PluginDescription kShippedPlugin;

}  // namespace Zarn
