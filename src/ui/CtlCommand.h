#pragma once

#include <string>
#include <vector>

namespace Zarn {

class CtlContext;

// `lumidrop ctl COMMAND ...`: the owner's console from the command line. Reads the
// command, finds the running program's console (or an offline one over mount.ini) and
// runs the command against it; the commands that only watch a running program live here,
// the editing ones in CtlEditCommands.
class CtlCommand {
public:
    // The arguments after "ctl"; the exit code (see CtlContext::Exit).
    [[nodiscard]] static int Run(const std::vector<std::string>& arguments);
    [[nodiscard]] static std::string HelpText();

private:
    static int Status(CtlContext& context);
    static int Transfers(CtlContext& context);
    static int Kick(CtlContext& context);
    static int Log(CtlContext& context);
    static int Console(CtlContext& context);
    static int Plugins(CtlContext& context);
};

}  // namespace Zarn
