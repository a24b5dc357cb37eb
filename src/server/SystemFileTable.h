#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

namespace Zarn {

// The server's own small files, served from memory by name ("robots.txt",
// "favicon.ico"). Filled from the files built into the program. Any thread may look up.
class SystemFileTable {
public:
    // Empties the table and fills it with the built-in robots file and icon.
    void LoadBuiltIn();
    void Set(const std::string& name, std::string bytes);
    [[nodiscard]] std::shared_ptr<const std::string> Find(std::string_view name) const;

private:
    mutable std::mutex mutex_;
    std::map<std::string, std::shared_ptr<const std::string>, std::less<>> files_;
};

}  // namespace Zarn
