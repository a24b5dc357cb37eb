#pragma once

#include <stdlib.h>

#include <filesystem>
#include <string>

namespace Zarn {

// A fresh folder in memory-backed /dev/shm, so that a harness that saves files on every
// input does not wait for the disk; removed with everything in it when the run ends.
class ScratchFolder {
public:
    explicit ScratchFolder(const std::string& prefix) {
        std::string pattern = "/dev/shm/" + prefix + "-XXXXXX";
        if (::mkdtemp(pattern.data()) == nullptr) __builtin_trap();
        path_ = std::filesystem::canonical(pattern).string();
    }
    ~ScratchFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;

    [[nodiscard]] const std::string& Path() const { return path_; }

private:
    std::string path_;
};

}  // namespace Zarn
