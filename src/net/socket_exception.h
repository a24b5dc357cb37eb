#pragma once

#include <exception>
#include <string>

namespace Zarn {

// The only exception of the socket layer. Its text is what users see in the log:
// "Connection closed" for a peer's orderly close, otherwise the socket error's text.
class socket_exception : public std::exception {
public:
    // The text of this thread's last socket error.
    socket_exception();
    explicit socket_exception(std::string text) : text_(std::move(text)) {}

    [[nodiscard]] const char* what() const noexcept override { return text_.c_str(); }

private:
    std::string text_;
};

}  // namespace Zarn
