#pragma once

#include <string>
#include <string_view>

namespace Zarn {

class HttpRequest;
class PluginManager;

// The console's plug-in endpoints: "plugins" lists every library of the home's Plugin/
// folder with its status, "plugins/reload" loads the folder afresh and answers with the
// new list. Holds nothing of its own; any connection thread may call it.
class ConsolePluginsApi {
public:
    [[nodiscard]] static bool IsChange(std::string_view endpoint) {
        return endpoint == "plugins/reload";
    }
    // False when the endpoint is not one of these.
    [[nodiscard]] static bool Serve(HttpRequest& request, std::string_view endpoint,
                                    PluginManager& plugins);
    // {"plugins":[{"file","name","author","version","type","status","folder"}, ...]}
    [[nodiscard]] static std::string Json(const PluginManager& plugins);
};

}  // namespace Zarn
