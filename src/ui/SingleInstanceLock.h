#pragma once

#include <string>

#include "core/UniqueFd.h"

namespace Zarn {

// Keeps a second program from running on the same home folder: an exclusive lock on
// "lumidrop.lock" there, which the kernel releases when the process ends in any way.
class SingleInstanceLock {
public:
    static constexpr char kFileName[] = "lumidrop.lock";

    // False when another process holds the lock (or the file cannot be made).
    [[nodiscard]] bool Acquire(const std::string& home);

private:
    UniqueFd fd_;
};

}  // namespace Zarn
