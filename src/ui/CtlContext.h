#pragma once

#include <functional>
#include <memory>
#include <string>

#include "ui/ConsoleClient.h"
#include "ui/CtlArguments.h"
#include "ui/CtlConnection.h"

namespace Zarn {

class JsonValue;

// What every `lumidrop ctl` command shares: its arguments, the connection made on first
// use, and the one place that turns a console's answer into output and an exit code.
class CtlContext {
public:
    // The exit codes, as --help and the manual list them.
    enum Exit : int { kOk = 0, kRefused = 1, kUsage = 2, kNotRunning = 3, kUnreachable = 4 };
    using Printer = std::function<void(const JsonValue&)>;

    CtlContext(CtlArguments arguments, std::string home)
        : arguments_(std::move(arguments)), home_(std::move(home)) {}

    [[nodiscard]] const CtlArguments& Arguments() const { return arguments_; }
    [[nodiscard]] const std::string& Word(size_t index) const;
    [[nodiscard]] size_t WordCount() const { return arguments_.words.size(); }
    [[nodiscard]] const std::string& Home() const { return home_; }

    // The console to talk to, or null with `code` set (and the reason printed).
    [[nodiscard]] const ConsoleClient* Connect(bool need_program, int& code);
    [[nodiscard]] const CtlConnection* Connection() const { return connection_.get(); }

    // Prints the answer (the JSON as it came with --json, else through `printer`) and
    // gives the exit code: a refusal's message goes to standard error naming its field.
    // `printer_owns_output`: the printer is called with --json too, and prints for both.
    [[nodiscard]] int Finish(const ConsoleClient::Answer& answer, const Printer& printer,
                             bool printer_owns_output = false) const;
    // GET or POST and Finish in one, connecting first.
    [[nodiscard]] int Query(bool need_program, std::string_view endpoint, const Printer& printer);
    [[nodiscard]] int Change(std::string_view endpoint, const ConsoleClient::Form& form,
                             const Printer& printer);
    // Opens the running program's event stream, prints what `endpoint` holds now through
    // `printer` (which prints for --json as well), then hands every event to `handler`
    // until the stream ends.
    [[nodiscard]] int Follow(std::string_view endpoint, const Printer& printer,
                             const ConsoleClient::EventHandler& handler);

    // A bad command line: the reason, a hint, exit code 2.
    static int Usage(const std::string& reason);
    // A refusal made here rather than by the console: exit code 1.
    static int Refuse(const std::string& reason);

private:
    CtlArguments arguments_;
    std::string home_;
    std::unique_ptr<CtlConnection> connection_;
};

}  // namespace Zarn
