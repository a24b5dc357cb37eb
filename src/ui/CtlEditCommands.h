#pragma once

#include <optional>

namespace Zarn {

class CtlContext;
class JsonValue;

// The `lumidrop ctl` commands that read and change the sharing model and the settings:
// mount, user, rights, ipfilter, limits, set and get. Each works against a running
// program's console or, when none runs, an offline one over mount.ini.
class CtlEditCommands {
public:
    // The exit code, or nothing when the command is not one of these.
    [[nodiscard]] static std::optional<int> Run(CtlContext& context);

private:
    static int Mount(CtlContext& context);
    static int User(CtlContext& context);
    static int Rights(CtlContext& context);
    static int IpFilter(CtlContext& context);
    static int Limits(CtlContext& context);
    static int Set(CtlContext& context);
    static int Get(CtlContext& context);

    static void PrintMount(const JsonValue& mount);
    static void PrintAccount(const JsonValue& account);
};

}  // namespace Zarn
