#pragma once

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "ui/AddressRefresher.h"

namespace Zarn {

class ConsoleControlApi;
class ConsoleEvents;
class HttpRequest;
class KorvelConfig;
class KorvelServer;
class VersionCheckThread;

// The console's settings pages: every setting of the catalogue read and changed by its
// mount.ini key, the language files and skins to choose from, and the visitors' address
// with the machine's addresses to prefer. A change is checked whole before anything is
// stored, then stored, saved once and set in motion at once: the language and skins are
// reloaded, the listener moved, the address worked out again. Console connection threads
// call it at once; changes are taken one at a time.
class ConsoleSettingsApi {
public:
    struct Services {
        KorvelConfig* config = nullptr;
        KorvelServer* server = nullptr;
        ConsoleEvents* events = nullptr;
        ConsoleControlApi* control = nullptr;  // moves the visitors' listener
        // The newer revision the start-up check found; 0 when none (may be empty).
        std::function<int()> newer_revision = nullptr;
    };

    // Everything the services point to must outlive this object.
    explicit ConsoleSettingsApi(Services services);
    ~ConsoleSettingsApi();
    ConsoleSettingsApi(const ConsoleSettingsApi&) = delete;
    ConsoleSettingsApi& operator=(const ConsoleSettingsApi&) = delete;

    // Loads the chosen language and builds the skins again in it, so that the console's
    // texts and the visitors' pages follow at once; pages under way keep what they began
    // with.
    static void ApplyLanguage(KorvelConfig& config);
    [[nodiscard]] static bool IsChange(std::string_view endpoint);
    // False, answering nothing, for an endpoint that is not one of these.
    [[nodiscard]] bool Serve(HttpRequest& request, std::string_view endpoint);

    // A published revision newer than this program's, while the owner wants to hear of
    // them; 0 otherwise.
    [[nodiscard]] int GetNewerRevision();

private:
    void SendSettings(HttpRequest& request);
    void SetSettings(HttpRequest& request);
    // The form's fields as they would be stored; nothing (and the refusal sent) when one
    // is refused or the form changes nothing.
    [[nodiscard]] std::optional<std::map<std::string, std::string>> CheckForm(HttpRequest& request);
    // Sets the stored values in motion; `before` holds the old value of each changed key.
    void Apply(const std::map<std::string, std::string>& values,
               const std::map<std::string, std::string>& before);
    void SendLanguages(HttpRequest& request);
    void SendSkins(HttpRequest& request);
    void SendAddress(HttpRequest& request);

    Services services_;
    AddressRefresher address_;
    std::mutex change_mutex_;  // guards version_check_ and takes changes one at a time
    std::unique_ptr<VersionCheckThread> version_check_;
};

}  // namespace Zarn
