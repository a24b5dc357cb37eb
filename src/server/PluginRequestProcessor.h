#pragma once

#include <memory>

#include "server/PluginRequest.h"

namespace Zarn {

class HtmlPageSender;
class HttpRequest;
class LoadedPlugin;
class MimeTypeTable;
class PluginManager;

// Serves what belongs to plug-ins: a static file of a plug-in's folder
// ("?action=PluginResource&plugin=NAME&file=PATH", confined to that folder), and a
// plug-in's own answer for a folder ("?action=Plugin&plugin=NAME"), which the plug-in
// writes through the host functions. The dispatcher has checked the visitor first. Made
// for one request on its connection thread.
class PluginRequestProcessor {
public:
    PluginRequestProcessor(const PluginManager& plugins, HtmlPageSender& pages)
        : plugins_(plugins), pages_(pages) {}

    void SendResource(HttpRequest& request, const MimeTypeTable& types);
    // Runs the plug-in; the visitor's rights on the folder's mount are in `visitor`.
    void Run(HttpRequest& request, const LoadedPlugin& plugin, PluginRequest::Visitor visitor);

private:
    const PluginManager& plugins_;
    HtmlPageSender& pages_;
};

}  // namespace Zarn
