#pragma once

#include <atomic>
#include <string>
#include <vector>

#include "config/AbstractConfig.h"
#include "core/CriticalSection.h"

namespace Zarn {

// The application's settings, bound to the keys of "mount.ini" in the home folder.
// Scalars are atomics: request threads read them on every request while the console
// changes them, and a lock there would serialise the request path for values that are
// read whole anyway. Strings and lists are read and changed under GetLock() (the settings lock,
// always taken before the mount registry's lock), and every change is followed by Save().
class KorvelConfig : public AbstractConfig {
public:
    static constexpr char kFileName[] = "mount.ini";
    static constexpr int kDefaultKeepAliveTimeout = 15;
    static constexpr int kMinKeepAliveTimeout = 1;
    // An hour: longer only keeps forgotten connections, and their threads, alive.
    static constexpr int kMaxKeepAliveTimeout = 3600;
    static constexpr int kDefaultCgiTimeout = 60;
    static constexpr int kMinCgiTimeout = 1;
    static constexpr int kMaxCgiTimeout = 86400;

    // Registers every key with its default; reads nothing yet.
    KorvelConfig();
    // The same, then loads `settings_path` (a missing or unreadable file leaves the
    // defaults).
    explicit KorvelConfig(std::string settings_path);

    // Reads the settings file, skipping a UTF-8 byte-order mark, and brings values out of
    // their range to the nearer bound. False when it cannot be opened (the values stay as
    // they were).
    bool LoadFile();
    // Writes the whole file anew: a byte-order mark, then the store's lines. The bytes go
    // to "mount.ini.tmp" beside it, which is flushed to the disk and renamed over the old
    // file, so a crash or a full disk never leaves a truncated settings file. Creates the
    // folder when it is missing. A failure keeps the old file and is logged at level 8.
    bool Save();

    [[nodiscard]] const std::string& GetPath() const { return settings_path_; }
    // The home folder: where mount.ini lives, beside Language/, skin/ and Log/.
    [[nodiscard]] std::string GetHomeFolder() const;
    void SetPath(std::string settings_path) { settings_path_ = std::move(settings_path); }
    [[nodiscard]] CriticalSection& GetLock() { return lock_; }
    // keepAliveTimeout within its bounds, however it was set.
    [[nodiscard]] int GetKeepAliveTimeout() const;
    // cgiTimeout within its bounds, however it was set.
    [[nodiscard]] int GetCgiTimeout() const;

    std::atomic<bool> singleInstance = true;
    std::atomic<unsigned short> port = 80;
    // Where the owner's console listens, on the loopback address only (0: any free port).
    std::atomic<unsigned short> consolePort = 8090;
    std::atomic<bool> wasRunning = false;
    std::atomic<bool> bootOnTray = false;
    std::atomic<bool> canRootAccess = true;
    std::atomic<bool> showHiddenFiles = false;
    // Off: a link inside a shared folder that leads out of it is treated as missing.
    std::atomic<bool> followLinksOutOfMounts = false;
    std::atomic<int> totalUploadSpeedLimit = -1;
    std::atomic<int> totalDownloadSpeedLimit = -1;
    std::atomic<bool> useDownloadConnectionLimit = false;
    std::atomic<int> downloadConnectionLimit = 0;
    std::atomic<bool> usePerIPDownloadConnectionLimit = false;
    std::atomic<int> perIPdownloadConnectionLimit = 0;
    // Seconds a connection may stay idle waiting for a request before it is closed
    // (1..3600).
    std::atomic<int> keepAliveTimeout = kDefaultKeepAliveTimeout;
    std::atomic<bool> useHostName = false;
    std::atomic<bool> getPublicIP = true;
    std::string HostName;
    std::string preferredLancardAddress;
    std::atomic<bool> writeLog = true;
    std::atomic<bool> useVersionCheck = true;
    std::atomic<bool> skinDevelopersMode = false;
    std::atomic<int> defaultUrlCodepage = 949;
    std::string defaultSkin;
    std::string uiLanguageFile;
    std::string lastAddMountDirectory;
    // The first-run wizard was finished or skipped (or the home was made by `lumidrop
    // init`), so the console never offers it again.
    std::atomic<bool> firstRunDone = false;
    // The one folder CGI programs run from (an absolute path); empty: CGI is off.
    std::string cgiFolder;
    // Seconds a CGI program may stay silent before it is stopped (1..86400).
    std::atomic<int> cgiTimeout = kDefaultCgiTimeout;
    std::vector<std::string> mounts;
    std::vector<std::string> ipFilterTable;
    std::vector<std::string> users;
    std::vector<std::string> authorities;

private:
    void RegisterAll();
    [[nodiscard]] bool WriteFile(const std::string& text);

    std::string settings_path_;
    CriticalSection lock_;
};

}  // namespace Zarn
