#pragma once

#include <cstdint>
#include <ctime>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>

#include "core/UniqueFd.h"

namespace Zarn {

class LogQueue;

// The installed log listener. For each accepted message it writes the text to standard
// error, stamps it "[MM/DD hh:mm:ss] ", appends the line to the day's file
// "Log/Lumidrop.YYYYMMDD.log" in the home folder (when writing is on, never for level 1;
// a new file starts with a UTF-8 byte-order mark), and queues it for the owner's console. A
// level-32 message is also announced on standard error as "Korvel Lumidrop: ...". Control
// characters of a message are written escaped ("\x0d"), so that no request path can forge a log
// line or drive a terminal. Writing never logs, never throws and never waits on the console. Any
// thread may log.
class LogWriter {
public:
    using Clock = std::function<std::tm()>;

    struct Options {
        std::string home;  // the folder that holds "Log/"
        LogQueue* queue = nullptr;
        // Whether lines go to the file ("writeLog"); asked for every line.
        std::function<bool()> write_file = [] { return true; };
        // The local time of a line; tests replace it.
        Clock clock = LocalNow;
        int error_fd = 2;
    };

    explicit LogWriter(Options options);
    ~LogWriter();
    LogWriter(const LogWriter&) = delete;
    LogWriter& operator=(const LogWriter&) = delete;

    // Makes this writer the process's log listener until it is destroyed.
    void Install();
    void Write(uint32_t level, const char* text) noexcept;

    [[nodiscard]] static std::tm LocalNow();
    [[nodiscard]] static std::string EscapeControls(std::string_view text);
    // "Log/Lumidrop.YYYYMMDD.log" inside the home folder.
    [[nodiscard]] std::string FilePathFor(const std::tm& time) const;

private:
    static void Listen(void* context, uint32_t level, const char* text);
    void AppendToFile(const std::tm& time, const std::string& line);
    void WriteError(const std::string& text) const;

    Options options_;
    std::mutex file_mutex_;  // guards the two below
    UniqueFd file_;
    std::string file_path_;
    bool installed_ = false;
};

}  // namespace Zarn
