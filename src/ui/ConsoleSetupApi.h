#pragma once

#include <string>
#include <string_view>

namespace Zarn {

class HttpRequest;
class KorvelConfig;
class KorvelServer;

// The first-run wizard's endpoints: "setup" tells whether the wizard is due and what it
// starts from, "setup/language" switches the program's language at once (the wizard's
// first step), "setup/finish" makes the owner's choices through FirstRunSetup or, with
// skip=1, only records that the wizard is done. The port step uses "server/port". One
// object per request, on a console connection thread.
class ConsoleSetupApi {
public:
    // `new_home`: the program made the home's settings file in this run. Only then is the
    // wizard offered, so a home from before it existed never sees it.
    ConsoleSetupApi(KorvelConfig& config, KorvelServer& server, bool new_home)
        : config_(config), server_(server), new_home_(new_home) {}

    [[nodiscard]] static bool IsChange(std::string_view endpoint);
    // False, answering nothing, for an endpoint that is not one of these.
    [[nodiscard]] bool Serve(HttpRequest& request, std::string_view endpoint);

private:
    [[nodiscard]] bool IsDue();
    void SendSetup(HttpRequest& request);
    void SetLanguage(HttpRequest& request);
    void Finish(HttpRequest& request);

    KorvelConfig& config_;
    KorvelServer& server_;
    bool new_home_;
};

}  // namespace Zarn
