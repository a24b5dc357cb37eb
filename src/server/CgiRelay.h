#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "server/CgiHeaderBlock.h"

namespace Zarn {

class ChildProcess;
class HttpRequest;

// Carries one CGI exchange between the visitor's connection and the running program: the
// request body to the program's input as it arrives, the program's header block and then
// its body back to the visitor as they come (both at once, so a program that echoes its
// input as it reads never waits for itself), its error output to the log line by line. One
// poll loop watches all of them, the program's silence and the visitor leaving.
// Used by the request's connection thread.
class CgiRelay {
public:
    enum class Outcome {
        kAnswered,   // the program's response went out whole
        kMalformed,  // it ended or spoke without a proper header block; nothing was sent
        kTimedOut,   // it fell silent before its head was complete; nothing was sent
    };

    CgiRelay(HttpRequest& request, ChildProcess& child, std::string name,
             std::chrono::milliseconds silence_limit);

    // Runs until the program closes its output. Throws socket_exception when the visitor
    // goes away or the connection breaks, and std::runtime_error when the program falls
    // silent after its head went out (the connection must then close: the body is cut).
    [[nodiscard]] Outcome Run();

private:
    [[nodiscard]] bool IsBodyOver() const;
    [[nodiscard]] bool WantsBody() const;
    void CloseInputWhenDone();
    void ReceiveBody();
    void WriteInput();
    // False when the output ended.
    [[nodiscard]] bool ReadOutput();
    // False when the error output ended.
    bool ReadErrors();
    void LogErrorLines(bool flush_rest);
    void SendHead();
    // Reads what the program left of the request body, so the connection can go on.
    void DrainBody();
    // The visitor closed or broke the connection: throws.
    [[noreturn]] void VisitorLeft();

    HttpRequest& request_;
    ChildProcess& child_;
    std::string name_;
    std::chrono::milliseconds silence_limit_;
    std::chrono::steady_clock::time_point last_progress_;
    CgiHeaderBlock header_;
    std::string input_;  // body bytes received but not yet taken by the program
    size_t input_taken_ = 0;
    std::string error_text_;
    // On the heap: a buffer in the frame would touch stack pages that each idle
    // connection thread then keeps.
    std::vector<char> piece_;
    bool head_sent_ = false;
};

}  // namespace Zarn
