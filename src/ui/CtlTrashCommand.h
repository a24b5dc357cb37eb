#pragma once

namespace Zarn {

class CtlContext;

// `lumidrop ctl trash [list]` shows what each folder mount's trash holds; `lumidrop ctl
// trash empty [MOUNT]` empties one mount's trash, or every one without a name. Works
// against the running program or, when none runs, an offline console over mount.ini.
class CtlTrashCommand {
public:
    // The exit code (see CtlContext::Exit).
    [[nodiscard]] static int Run(CtlContext& context);
};

}  // namespace Zarn
