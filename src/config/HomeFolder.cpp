#include "config/HomeFolder.h"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <vector>

#include "config/KorvelConfig.h"
#include "core/PathUtil.h"
#include "core/TekoFile.h"

namespace Zarn {
namespace {

std::string UserHome() {
    const char* home = std::getenv("HOME");
    if (home != nullptr && *home != '\0') return home;
    const passwd* entry = ::getpwuid(::getuid());
    return entry != nullptr && entry->pw_dir != nullptr ? entry->pw_dir : "/tmp";
}

}  // namespace

std::string HomeFolder::Resolve(const std::optional<std::string>& requested) {
    if (requested && !requested->empty()) return MakeAbsolutePath(*requested);
    std::string executable_folder = ExecutableFolder();
    if (!executable_folder.empty() &&
        TekoFile::GetFileSize(JoinPath(executable_folder, KorvelConfig::kFileName)) !=
            TekoFile::kInvalidSize) {
        return executable_folder;
    }
    return JoinPath(UserConfigFolder(), "lumidrop");
}

std::string HomeFolder::UserConfigFolder() {
    const char* xdg = std::getenv("XDG_CONFIG_HOME");
    // A relative XDG_CONFIG_HOME is to be ignored, as XDG says.
    std::string config_home =
        xdg != nullptr && xdg[0] == '/' ? std::string(xdg) : JoinPath(UserHome(), ".config");
    return MakeAbsolutePath(config_home);
}

std::string HomeFolder::ExecutableFolder() {
    std::string path = ExecutablePath();
    return path.empty() ? std::string() : FolderOf(path);
}

std::string HomeFolder::ExecutablePath() {
    std::vector<char> buffer(4096);
    ssize_t length = ::readlink("/proc/self/exe", buffer.data(), buffer.size() - 1);
    if (length <= 0) return {};
    return std::string(buffer.data(), static_cast<size_t>(length));
}

}  // namespace Zarn
