#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Zarn {

// The command line's side of the owner's console: one HTTP request per call to the
// console at 127.0.0.1:PORT, carrying the owner's cookie, and for changes the checked POST
// the console's own pages send. Used by one thread at a time.
class ConsoleClient {
public:
    using Form = std::vector<std::pair<std::string, std::string>>;
    struct Answer {
        int status = -1;  // -1: the console could not be reached or broke off
        std::string body;
    };
    enum class StreamEnd { kStopped, kClosed, kFailed };
    // An event's name and its data line; false stops the stream.
    using EventHandler = std::function<bool(const std::string&, const std::string&)>;

    static constexpr int kTimeoutSeconds = 10;
    // The stream sends a heartbeat every 15 s; three missed ones mean it is gone.
    static constexpr int kStreamTimeoutSeconds = 45;

    ConsoleClient(int port, std::string token) : port_(port), token_(std::move(token)) {}

    // GET /api/v1/ENDPOINT (a query may follow the endpoint).
    [[nodiscard]] Answer Get(std::string_view endpoint) const;
    // POST /api/v1/ENDPOINT with the form url-encoded.
    [[nodiscard]] Answer Post(std::string_view endpoint, const Form& form) const;
    // Follows the event stream: `opened` runs once the stream is there (so that what the
    // caller reads then cannot fall between it and the first event) and may stop it at
    // once, then `handler` for every event until it returns false or the stream ends.
    [[nodiscard]] StreamEnd Listen(const std::function<bool()>& opened,
                                   const EventHandler& handler) const;

    [[nodiscard]] int GetPort() const { return port_; }

private:
    [[nodiscard]] Answer Call(std::string_view endpoint, const Form* form) const;
    [[nodiscard]] std::string Url(std::string_view endpoint) const;

    int port_;
    std::string token_;
};

}  // namespace Zarn
