#pragma once

#include <sys/wait.h>

#include <cstdio>
#include <string>

namespace Zarn::testing {

struct CommandResult {
    int status = -1;     // the exit status, -1 when the command did not exit normally
    std::string output;  // standard output only, unless the command redirects
};

// Runs the command line through /bin/sh and waits for its end.
inline CommandResult Shell(const std::string& command) {
    CommandResult result;
    FILE* pipe = ::popen(command.c_str(), "r");
    if (pipe == nullptr) return result;
    char buffer[4096];
    for (size_t got; (got = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;)
        result.output.append(buffer, got);
    int status = ::pclose(pipe);
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return result;
}

// One shell word, whatever the text holds: our names and ETags carry quotes and spaces.
inline std::string Quoted(const std::string& text) {
    std::string quoted = "'";
    for (char c : text)
        quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return quoted + "'";
}

}  // namespace Zarn::testing
