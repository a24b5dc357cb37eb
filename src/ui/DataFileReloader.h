#pragma once

#include <string>

namespace Zarn {

class KorvelConfig;
class KorvelServer;
class SkinManager;

// Reads mount.ini, mime-type.txt, the chosen language file and the skins again while the
// program runs (on SIGHUP), all or nothing: every file is checked first, and only when
// all of them are good are the settings, mounts, accounts, IP filter, MIME table,
// language and skins replaced (and the plug-ins loaded afresh). Otherwise the log says what was
// wrong and where, and the program goes on with what it had. Called from the main thread only.
class DataFileReloader {
public:
    // All three must outlive the reloader.
    DataFileReloader(KorvelConfig& config, KorvelServer& server, SkinManager& skins,
                     std::string home)
        : config_(config), server_(server), skins_(skins), home_(std::move(home)) {}

    // True when the files were taken; false when a problem kept the running settings.
    bool Reload();

private:
    // The new settings in place of the running ones, then what is built from them, in
    // the lock order settings before mounts.
    void Apply(const KorvelConfig& fresh);

    KorvelConfig& config_;
    KorvelServer& server_;
    SkinManager& skins_;
    std::string home_;
};

}  // namespace Zarn
