#include "config/KorvelConfig.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>

#include "core/FileContents.h"
#include "core/PathUtil.h"
#include "i18n/Translate.h"
#include "log/Log.h"

namespace Zarn {
namespace {

constexpr char kByteOrderMark[] = "\xEF\xBB\xBF";

}  // namespace

KorvelConfig::KorvelConfig() {
    RegisterAll();
}

KorvelConfig::KorvelConfig(std::string settings_path) : settings_path_(std::move(settings_path)) {
    RegisterAll();
    LoadFile();
}

void KorvelConfig::RegisterAll() {
    Register("singleInstance", &singleInstance, true);
    Register("port", &port, 80);
    Register("consolePort", &consolePort, 8090);
    Register("wasRunning", &wasRunning, false);
    Register("bootOnTray", &bootOnTray, false);
    Register("canRootAccess", &canRootAccess, true);
    Register("showHiddenFiles", &showHiddenFiles, false);
    Register("followLinksOutOfMounts", &followLinksOutOfMounts, false);
    Register("totalUploadSpeedLimit", &totalUploadSpeedLimit, -1);
    Register("totalDownloadSpeedLimit", &totalDownloadSpeedLimit, -1);
    Register("useDownloadConnectionLimit", &useDownloadConnectionLimit, false);
    Register("downloadConnectionLimit", &downloadConnectionLimit, 0);
    Register("usePerIPDownloadConnectionLimit", &usePerIPDownloadConnectionLimit, false);
    Register("perIPdownloadConnectionLimit", &perIPdownloadConnectionLimit, 0);
    Register("keepAliveTimeout", &keepAliveTimeout, kDefaultKeepAliveTimeout);
    Register("useHostName", &useHostName, false);
    Register("getPublicIP", &getPublicIP, true);
    Register("HostName", &HostName, "");
    Register("preferredLancardAddress", &preferredLancardAddress, "");
    Register("writeLog", &writeLog, true);
    Register("useVersionCheck", &useVersionCheck, true);
    Register("skinDevelopersMode", &skinDevelopersMode, false);
    Register("defaultUrlCodepage", &defaultUrlCodepage, 949);
    Register("defaultSkin", &defaultSkin, "");
    Register("uiLanguageFile", &uiLanguageFile, "");
    // The folder first offered when the owner adds a share; the Windows drive root
    // "C:\" becomes the root of the file system.
    Register("lastAddMountDirectory", &lastAddMountDirectory, "/");
    Register("firstRunDone", &firstRunDone, false);
    Register("cgiFolder", &cgiFolder, "");
    Register("cgiTimeout", &cgiTimeout, kDefaultCgiTimeout);
    RegisterList("mounts", &mounts);
    RegisterList("ipFilterTable", &ipFilterTable);
    RegisterList("users", &users);
    RegisterList("authorities", &authorities);
}

bool KorvelConfig::LoadFile() {
    CriticalSectionLock hold(lock_);
    std::ifstream in(settings_path_, std::ios::binary);
    if (!in) return false;
    if (in.peek() == 0xEF) in.ignore(3);
    if (!Load(in)) return false;
    keepAliveTimeout = GetKeepAliveTimeout();
    cgiTimeout = GetCgiTimeout();
    return true;
}

int KorvelConfig::GetKeepAliveTimeout() const {
    // 0 or less is not read as "no limit", which would let forgotten connections hold
    // their threads for ever, but as the shortest allowed.
    return std::clamp(keepAliveTimeout.load(), kMinKeepAliveTimeout, kMaxKeepAliveTimeout);
}

int KorvelConfig::GetCgiTimeout() const {
    return std::clamp(cgiTimeout.load(), kMinCgiTimeout, kMaxCgiTimeout);
}

std::string KorvelConfig::GetHomeFolder() const {
    return FolderOf(settings_path_);
}

bool KorvelConfig::Save() {
    CriticalSectionLock hold(lock_);
    std::ostringstream text;
    text << kByteOrderMark;
    AbstractConfig::Save(text);
    if (WriteFile(text.str())) return true;
    // The reason tells the owner what to mend: a full disk, a folder or file made read-only.
    std::string where = settings_path_ + " (" + std::strerror(errno) + ")";
    LogTranslated(kLogError, "설정 파일을 저장하지 못했습니다: %s", where.c_str());
    return false;
}

bool KorvelConfig::WriteFile(const std::string& text) {
    errno = ENOENT;
    if (settings_path_.empty()) return false;
    // An owner who took every write bit from the file froze the settings on purpose, and
    // the rename that replaces the file would not ask; even root keeps to that.
    struct stat info {};
    if (::stat(settings_path_.c_str(), &info) == 0 && (info.st_mode & 0222) == 0) {
        errno = EACCES;
        return false;
    }
    return MakeFolders(FolderOf(settings_path_)) && WriteFileAtomically(settings_path_, text);
}

}  // namespace Zarn
