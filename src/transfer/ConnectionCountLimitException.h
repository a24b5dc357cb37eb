#pragma once

#include <exception>

namespace Zarn {

// Refuses a download because a connection-count limit is reached; the dispatcher that
// acquires the token answers the client.
class ConnectionCountLimitException : public std::exception {
public:
    static constexpr int kTotalLimit = 0;
    static constexpr int kPerAddressLimit = 1;

    explicit ConnectionCountLimitException(int limit) : limit_(limit) {}

    // kTotalLimit or kPerAddressLimit.
    [[nodiscard]] int GetLimit() const { return limit_; }

    [[nodiscard]] const char* what() const noexcept override {
        return limit_ == kTotalLimit ? "Too many downloads are running."
                                     : "Too many downloads are running for this address.";
    }

private:
    int limit_;
};

}  // namespace Zarn
