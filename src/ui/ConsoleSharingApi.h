#pragma once

#include <string>
#include <string_view>

namespace Zarn {

class HttpRequest;
class KorvelConfig;
class KorvelServer;

// The sharing model in the owner's console: the mounts, the folder picker, the accounts
// and their rights. Routes each of its endpoints to the view that serves it and holds the
// few helpers they share. Built per request on a console connection thread; the
// registries it reaches guard themselves.
class ConsoleSharingApi {
public:
    ConsoleSharingApi(KorvelConfig& config, KorvelServer& server)
        : config_(config), server_(server) {}

    // Whether the endpoint is one of these and changes something.
    [[nodiscard]] static bool IsChange(std::string_view endpoint);
    // Answers the endpoint; false (nothing sent) when it is not one of these.
    [[nodiscard]] bool Serve(HttpRequest& request, std::string_view endpoint);

    // A form field without its surrounding blanks; empty when it was not sent.
    [[nodiscard]] static std::string Field(HttpRequest& request, const std::string& name);
    // Whether the field was sent at all (an empty value counts).
    [[nodiscard]] static bool HasField(HttpRequest& request, const std::string& name);
    // No byte below a blank and no DEL: such names break log lines, headers and forms.
    [[nodiscard]] static bool HasControlCharacter(std::string_view text);
    // "1" or "0"; the fallback when the field was not sent; nothing for anything else.
    [[nodiscard]] static bool ReadSwitch(HttpRequest& request, const std::string& name,
                                         bool fallback, bool& value);

private:
    KorvelConfig& config_;
    KorvelServer& server_;
};

}  // namespace Zarn
