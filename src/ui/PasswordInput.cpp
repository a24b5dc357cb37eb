#include "ui/PasswordInput.h"

#include <termios.h>
#include <unistd.h>

#include <cstdio>
#include <iostream>

#include "core/FileContents.h"

namespace Zarn {
namespace {

// The text up to its first line break.
std::string FirstLine(const std::string& text) {
    std::string line = text.substr(0, text.find('\n'));
    if (line.ends_with('\r')) line.pop_back();
    return line;
}

// Turns the terminal's echo off for its life and back on after.
class EchoOff {
public:
    EchoOff() {
        if (::tcgetattr(STDIN_FILENO, &saved_) != 0) return;
        termios quiet = saved_;
        quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        changed_ = ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &quiet) == 0;
    }
    ~EchoOff() {
        if (changed_) (void)::tcsetattr(STDIN_FILENO, TCSAFLUSH, &saved_);
    }
    EchoOff(const EchoOff&) = delete;
    EchoOff& operator=(const EchoOff&) = delete;

private:
    termios saved_{};
    bool changed_ = false;
};

}  // namespace

std::optional<std::string> PasswordInput::Read(const std::optional<std::string>& file,
                                               const std::string& account, std::string& error) {
    if (file) {
        std::optional<std::string> text = ReadWholeFile(*file);
        if (!text) {
            error = "cannot read " + *file;
            return std::nullopt;
        }
        return FirstLine(*text);
    }
    if (!::isatty(STDIN_FILENO)) {
        std::string line;
        if (!std::getline(std::cin, line)) {
            error = "no password on standard input";
            return std::nullopt;
        }
        return FirstLine(line);
    }
    std::optional<std::string> first = Prompt("Password for " + account + ": ");
    std::optional<std::string> again = first ? Prompt("The same again: ") : std::nullopt;
    if (!first || !again) {
        error = "no password typed";
        return std::nullopt;
    }
    if (*first != *again) {
        error = "the two passwords differ";
        return std::nullopt;
    }
    return first;
}

std::optional<std::string> PasswordInput::Prompt(const std::string& prompt) {
    std::fputs(prompt.c_str(), stderr);
    std::fflush(stderr);
    std::string line;
    bool got;
    {
        EchoOff quiet;
        got = static_cast<bool>(std::getline(std::cin, line));
    }
    std::fputs("\n", stderr);
    if (!got) return std::nullopt;
    return FirstLine(line);
}

}  // namespace Zarn
