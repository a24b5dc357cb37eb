#pragma once

#include "lumidrop/plugin.h"

namespace Zarn {

// The table of host functions a plug-in receives in Initialize, for a plug-in whose
// resource folder is `plugin_folder` (which must outlive the table). Every function
// catches what the program might throw, so that nothing unwinds through the plug-in.
[[nodiscard]] LumidropHost MakePluginHost(const char* plugin_folder);

}  // namespace Zarn
