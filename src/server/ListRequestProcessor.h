#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "server/HtmlPageSender.h"

namespace Zarn {

class HttpRequest;
class KorvelConfig;
class ListingRows;
class MimeTypeTable;
class MountManager;
class PluginManager;
class TekoFileFind;
struct LocalTarget;

// Answers a request for a folder: the list of mounts at the root, or the entries of a
// mounted folder, rendered through the skin. Folders come first, then files, each by
// name. Names and paths are HTML-escaped before they reach the page.
class ListRequestProcessor {
public:
    struct Options {
        KorvelConfig* config = nullptr;
        MountManager* mounts = nullptr;
        HtmlPageSender::Context page{};
        // The user's rights on the mount of the path (ignored at the root).
        uint32_t rights = 0;
        // The local folder of the path (ignored at the root): opened through `target` when
        // there is one, so that the listing stays inside the mount; by path otherwise.
        std::string local_path{};
        const LocalTarget* target = nullptr;
        // Offered in folders whose mount grants the rights they need; null: none.
        const PluginManager* plugins = nullptr;
        // Gives each file row its "$mime"; null: none.
        const MimeTypeTable* types = nullptr;
    };

    explicit ListRequestProcessor(Options options) : options_(std::move(options)) {}
    virtual ~ListRequestProcessor() = default;

    void SendList(HttpRequest& request);
    // A page of other rows than a folder's (search results), in the order they come, with
    // what every listing page has beside them.
    void SendRows(HttpRequest& request, std::unique_ptr<ListingRows> rows, TextContent page);

    // Whether a folder entry is listed: not "." or "..", visible by name, and not a link
    // that leads out of `target` (when there is one). The folder tree uses it too, so
    // that it never shows what the listing hides.
    [[nodiscard]] static bool IsListed(const TekoFileFind& find, bool show_hidden,
                                       const LocalTarget* target);

private:
    void SendRoot(HttpRequest& request);
    void SendFolder(HttpRequest& request);
    // Null when the folder could not be read for want of descriptors.
    [[nodiscard]] std::unique_ptr<ListingRows> ReadFolder(int folder_fd) const;
    // "$view_plugins" and "$action_plugins": the plug-ins this visitor may run here.
    void SetPluginRows(TextContent& page, bool in_folder) const;
    void SendPage(HttpRequest& request, std::unique_ptr<ListingRows> rows, TextContent page,
                  bool show_upper);

    Options options_;
};

}  // namespace Zarn
