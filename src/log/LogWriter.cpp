#include "log/LogWriter.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "core/FileContents.h"
#include "core/PathUtil.h"
#include "core/UniqueFd.h"
#include "core/Version.h"
#include "log/Log.h"
#include "log/LogQueue.h"

namespace Zarn {
namespace {}  // namespace

LogWriter::LogWriter(Options options) : options_(std::move(options)) {}

LogWriter::~LogWriter() {
    if (installed_) InstallLogListener(nullptr, nullptr);
}

void LogWriter::Install() {
    InstallLogListener(&LogWriter::Listen, this);
    installed_ = true;
}

void LogWriter::Listen(void* context, uint32_t level, const char* text) {
    static_cast<LogWriter*>(context)->Write(level, text);
}

std::tm LogWriter::LocalNow() {
    std::time_t now = std::time(nullptr);
    std::tm local{};
    ::localtime_r(&now, &local);
    return local;
}

std::string LogWriter::EscapeControls(std::string_view text) {
    std::string escaped;
    escaped.reserve(text.size());
    for (char c : text) {
        auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte == 0x7F) {
            char code[5];
            std::snprintf(code, sizeof code, "\\x%02x", byte);
            escaped += code;
        } else {
            escaped += c;
        }
    }
    return escaped;
}

std::string LogWriter::FilePathFor(const std::tm& time) const {
    char name[64];
    std::snprintf(name, sizeof name, "Log/Lumidrop.%04d%02d%02d.log", time.tm_year + 1900,
                  time.tm_mon + 1, time.tm_mday);
    return JoinPath(options_.home, name);
}

void LogWriter::Write(uint32_t level, const char* text) noexcept {
    try {
        std::string message = EscapeControls(text);
        WriteError(message);
        std::tm time = options_.clock();
        char stamp[32];
        std::snprintf(stamp, sizeof stamp, "[%02d/%02d %02d:%02d:%02d] ", time.tm_mon + 1,
                      time.tm_mday, time.tm_hour, time.tm_min, time.tm_sec);
        std::string line = stamp + message;
        if (level != kLogTrace && options_.write_file()) AppendToFile(time, line);
        if (options_.queue != nullptr) options_.queue->Push(level, line);
        if (level == kLogFatal) WriteError(std::string(kProductName) + ": " + message);
    } catch (...) {
        // Out of memory while logging: the line is lost, the caller goes on.
    }
}

void LogWriter::WriteError(const std::string& text) const {
    if (options_.error_fd >= 0) WriteFully(options_.error_fd, text + "\n");
}

void LogWriter::AppendToFile(const std::tm& time, const std::string& line) {
    std::lock_guard lock(file_mutex_);
    std::string path = FilePathFor(time);
    // The day's file stays open between lines; it is opened again for a new day, and when
    // someone has deleted or moved it (a log rotation), so lines never vanish into it.
    struct stat info {};
    struct stat named {};
    bool stale = !file_.IsValid() || path != file_path_ || ::fstat(file_.Get(), &info) != 0 ||
                 ::stat(path.c_str(), &named) != 0 || named.st_ino != info.st_ino ||
                 named.st_dev != info.st_dev;
    if (stale) {
        file_.Reset();
        if (!MakeFolders(FolderOf(path))) return;
        file_.Reset(::open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644));
        if (!file_.IsValid()) return;  // skipped for this line; logging must never log
        file_path_ = path;
        if (::fstat(file_.Get(), &info) != 0) info = {};
    }
    bool fresh = info.st_size == 0;
    WriteFully(file_.Get(), (fresh ? "\xEF\xBB\xBF" : "") + line + "\n");
}

}  // namespace Zarn
