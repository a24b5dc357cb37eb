#pragma once

#include <string>

namespace Zarn {

// Puts the plug-ins built into the program (the embedded "Plugin/..." resources: each
// library and its static files) into the home folder's Plugin/ folder at start. Only
// missing files are written, so a new home gets them, a deleted one comes back at the
// next start, and a file the owner changed stays as it is. Called once, before the
// plug-ins are loaded.
class ShippedPluginInstaller {
public:
    // False when a file could not be written (each one is logged); the rest are still
    // tried.
    static bool Install(const std::string& home);
};

}  // namespace Zarn
