#pragma once

#include <gtest/gtest.h>

#include <string>

#include "support/HttpClient.h"
#include "support/ProgramRunner.h"

namespace Zarn::testing {

// The owner at the console of a running program: reads the console's address from the
// program's second line and calls its JSON interface with the owner's cookie, changes as
// the console's own checked POSTs.
class ConsoleSession {
public:
    // Reads the console line; call once, right after the program started.
    explicit ConsoleSession(ProgramRunner& program) {
        std::string line = program.NextLine();
        const std::string prefix = "Owner's console: http://127.0.0.1:";
        size_t token_at = line.find("/?token=");
        EXPECT_TRUE(line.starts_with(prefix) && token_at != std::string::npos) << line;
        if (!line.starts_with(prefix) || token_at == std::string::npos) return;
        port_ = std::stoi(line.substr(prefix.size()));
        headers_ = "Host: 127.0.0.1:" + std::to_string(port_) +
                   "\r\nCookie: lumidrop_console=" + line.substr(token_at + 8) + "\r\n";
    }

    // GET /api/v1/ENDPOINT (with its query, if any).
    [[nodiscard]] HttpResponse Get(const std::string& endpoint) const {
        return Fetch(port_, "GET /api/v1/" + endpoint + " HTTP/1.1\r\n" + headers_ +
                                "Connection: close\r\n\r\n");
    }
    // POST /api/v1/ENDPOINT with an url-encoded form.
    [[nodiscard]] HttpResponse Post(const std::string& endpoint, const std::string& form) const {
        return Fetch(port_, "POST /api/v1/" + endpoint + " HTTP/1.1\r\n" + headers_ +
                                "X-Lumidrop-Console: 1\r\nConnection: close\r\n"
                                "Content-Type: application/x-www-form-urlencoded\r\n"
                                "Content-Length: " +
                                std::to_string(form.size()) + "\r\n\r\n" + form);
    }

private:
    int port_ = -1;
    std::string headers_;
};

}  // namespace Zarn::testing
