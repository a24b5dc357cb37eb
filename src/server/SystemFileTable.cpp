#include "server/SystemFileTable.h"

#include "core/EmbeddedResources.h"

namespace Zarn {

void SystemFileTable::LoadBuiltIn() {
    {
        std::lock_guard lock(mutex_);
        files_.clear();
    }
    for (const char* name : {"robots.txt", "favicon.ico"}) {
        if (std::optional<std::string_view> bytes = FindEmbeddedResource(name)) {
            Set(name, std::string(*bytes));
        }
    }
}

void SystemFileTable::Set(const std::string& name, std::string bytes) {
    std::lock_guard lock(mutex_);
    files_[name] = std::make_shared<const std::string>(std::move(bytes));
}

std::shared_ptr<const std::string> SystemFileTable::Find(std::string_view name) const {
    std::lock_guard lock(mutex_);
    auto found = files_.find(name);
    return found == files_.end() ? nullptr : found->second;
}

}  // namespace Zarn
