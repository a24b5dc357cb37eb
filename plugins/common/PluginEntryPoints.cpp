// The entry points of every shipped plug-in, filled in from its kShippedPlugin.

#include "PluginEntryPoints.h"

namespace {

const LumidropHost* host = nullptr;

}  // namespace

extern "C" {

const char* GetPlugInAuthor(void) {
    return "Korvel Lumidrop team";
}
const char* GetPlugInName(void) {
    return Zarn::kShippedPlugin.name;
}
const char* GetPlugInVersion(void) {
    return "1.0";
}
int GetPlugInType(void) {
    return Zarn::kShippedPlugin.type;
}
unsigned GetRequiredAuthority(void) {
    return Zarn::kShippedPlugin.required_authority;
}

unsigned Initialize(const LumidropHost* offered, unsigned /*host_version*/) {
    host = offered;
    return LUMIDROP_PLUGIN_INTERFACE_VERSION;
}

void Finalize(void) {
    host = nullptr;
}

int OnRequest(LumidropRequest* request) {
    // No exception may cross into the host's C frames.
    try {
        Zarn::kShippedPlugin.serve(Zarn::HostRequest(*host, request));
        return 0;
    } catch (...) {
        return 1;
    }
}

}  // extern "C"
