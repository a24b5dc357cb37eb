#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "lumidrop/plugin.h"

namespace Zarn {

// What the owner's Plug-ins page shows of one library in Plugin/, loaded or refused.
struct PluginStatus {
    std::string file{};  // the library's file name ("hello.so")
    std::string name{};
    std::string author{};
    std::string version{};
    int type = 0;          // LUMIDROP_PLUGIN_VIEW or LUMIDROP_PLUGIN_ACTION; 0 when unknown
    std::string status{};  // "loaded", or why it was refused (translated)
    std::string folder{};  // its resource folder, HOME/Plugin/NAME/
};

// One plug-in library that passed every check and was initialised: its entry points and
// the host table it was given. Finalize and the closing of the library happen in the
// destructor, so holding it by shared_ptr for the length of a request keeps the code
// mapped until the request is over. Immutable after loading; any thread may call it.
class LoadedPlugin {
public:
    // The library opened and checked, or nothing with `status.status` saying why (already
    // logged). `home` is the home folder; the status is filled either way. A library that
    // is open already (under another name, or a link to it) is refused: the system would
    // hand out the same copy, and it must not be initialised twice.
    [[nodiscard]] static std::unique_ptr<LoadedPlugin> Load(const std::string& path,
                                                            const std::string& home,
                                                            PluginStatus& status);
    // Only Load makes one.
    class Passkey {
        friend class LoadedPlugin;
        Passkey() = default;
    };
    explicit LoadedPlugin(Passkey /*unused*/);
    ~LoadedPlugin();
    LoadedPlugin(const LoadedPlugin&) = delete;
    LoadedPlugin& operator=(const LoadedPlugin&) = delete;

    [[nodiscard]] const PluginStatus& GetStatus() const { return status_; }
    [[nodiscard]] const std::string& GetName() const { return status_.name; }
    [[nodiscard]] bool IsView() const { return status_.type == LUMIDROP_PLUGIN_VIEW; }
    // The rights a visitor needs on the folder's mount, the list right included.
    [[nodiscard]] uint32_t GetNeededRights() const { return needed_rights_; }
    // Runs the plug-in's OnRequest; C frames in between, so nothing may be thrown through.
    [[nodiscard]] int OnRequest(LumidropRequest* request) const { return on_request_(request); }

private:
    struct Library;
    // Finds the eight entry points and asks the plug-in who it is; false with the reason
    // in `status_` when one is missing.
    [[nodiscard]] bool Describe();
    // Describe, the checks of name and type, then the plug-in's Initialize; false with
    // the reason in `status_`.
    [[nodiscard]] bool Initialize(const std::string& home);

    std::unique_ptr<Library> library_;
    PluginStatus status_;
    uint32_t needed_rights_ = 0;
    LumidropHost host_{};
    bool initialized_ = false;
    unsigned (*initialize_)(const LumidropHost*, unsigned) = nullptr;
    int (*on_request_)(LumidropRequest*) = nullptr;
    void (*finalize_)() = nullptr;
};

}  // namespace Zarn
