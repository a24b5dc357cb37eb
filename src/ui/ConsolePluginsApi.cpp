#include "ui/ConsolePluginsApi.h"

#include "core/JsonWriter.h"
#include "server/PluginManager.h"
#include "ui/ConsoleApi.h"

namespace Zarn {

bool ConsolePluginsApi::Serve(HttpRequest& request, std::string_view endpoint,
                              PluginManager& plugins) {
    if (endpoint == "plugins/reload") {
        plugins.Reload();
    } else if (endpoint != "plugins") {
        return false;
    }
    ConsoleApi::SendJson(request, 200, "OK", Json(plugins));
    return true;
}

std::string ConsolePluginsApi::Json(const PluginManager& plugins) {
    JsonWriter json;
    json.BeginObject().Key("plugins").BeginArray();
    for (const PluginStatus& plugin : plugins.List()) {
        const char* type = plugin.type == LUMIDROP_PLUGIN_VIEW     ? "view"
                           : plugin.type == LUMIDROP_PLUGIN_ACTION ? "action"
                                                                   : "";
        json.BeginObject()
            .Member("file", plugin.file)
            .Member("name", plugin.name)
            .Member("author", plugin.author)
            .Member("version", plugin.version)
            .Member("type", type)
            .Member("status", plugin.status)
            .Member("folder", plugin.folder)
            .EndObject();
    }
    json.EndArray().EndObject();
    return json.Text();
}

}  // namespace Zarn
