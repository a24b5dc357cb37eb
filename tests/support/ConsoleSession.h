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
        token_ = line.substr(token_at + 8);
    }

    [[nodiscard]] int Port() const { return port_; }
    [[nodiscard]] const std::string& Token() const { return token_; }
    [[nodiscard]] std::string Host() const {
        return "Host: 127.0.0.1:" + std::to_string(port_) + "\r\n";
    }
    // The headers every request of the owner's pages carries.
    [[nodiscard]] std::string Owner() const {
        return Host() + "Cookie: lumidrop_console=" + token_ + "\r\n";
    }

    // Any request to the console, with exactly these headers; a form body for POST.
    [[nodiscard]] HttpResponse Request(const std::string& method, const std::string& target,
                                       const std::string& headers,
                                       const std::string& form = "") const {
        std::string request =
            method + " " + target + " HTTP/1.1\r\n" + headers + "Connection: close\r\n";
        if (method == "POST") {
            request += "Content-Type: application/x-www-form-urlencoded\r\nContent-Length: " +
                       std::to_string(form.size()) + "\r\n";
        }
        return Fetch(port_, request + "\r\n" + form);
    }
    // GET /api/v1/ENDPOINT (with its query, if any).
    [[nodiscard]] HttpResponse Get(const std::string& endpoint) const {
        return Request("GET", "/api/v1/" + endpoint, Owner());
    }
    // POST /api/v1/ENDPOINT with an url-encoded form, as the console's pages send it.
    [[nodiscard]] HttpResponse Post(const std::string& endpoint, const std::string& form,
                                    const std::string& extra = "X-Lumidrop-Console: 1\r\n") const {
        return Request("POST", "/api/v1/" + endpoint, Owner() + extra, form);
    }

private:
    int port_ = -1;
    std::string token_;
};

}  // namespace Zarn::testing
