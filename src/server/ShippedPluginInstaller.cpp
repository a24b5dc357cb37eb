#include "server/ShippedPluginInstaller.h"

#include <string_view>

#include "core/EmbeddedResources.h"
#include "core/FileContents.h"
#include "core/PathUtil.h"
#include "core/TekoFile.h"
#include "log/Log.h"

namespace Zarn {

bool ShippedPluginInstaller::Install(const std::string& home) {
    constexpr std::string_view kPrefix = "Plugin/";
    bool all_written = true;
    for (const EmbeddedResource& resource : AllEmbeddedResources()) {
        std::string_view name = resource.name;
        if (!name.starts_with(kPrefix)) continue;
        std::string target = JoinPath(home, name);
        if (TekoFile::GetFileSize(target) != TekoFile::kInvalidSize) continue;
        // Written aside and renamed, so the loader never opens half a library.
        bool library = name.ends_with(".so");
        bool written = MakeFolders(FolderOf(target)) &&
                       WriteFileAtomically(target, resource.Bytes(), library ? 0755 : 0644);
        if (!written) {
            Log(kLogError, "%s: could not install the shipped plug-in file", target.c_str());
            all_written = false;
        }
    }
    return all_written;
}

}  // namespace Zarn
