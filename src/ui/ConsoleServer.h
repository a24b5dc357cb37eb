#pragma once

#include <memory>
#include <string>

#include "http/WebServer.h"
#include "ui/ConsoleRequestHandler.h"

namespace Zarn {

// The owner's console: listeners of its own on 127.0.0.1 and, where the machine has IPv6,
// on ::1 at the same port, that serve the console's pages and interface and nothing else,
// as the visitors' listener never serves them.
class ConsoleServer {
public:
    // `services.port` is filled in here.
    explicit ConsoleServer(ConsoleRequestHandler::Services services);
    ~ConsoleServer();

    // Listens on 127.0.0.1 at the port (0: a free one), then on [::1] at the port it got.
    // False when the IPv4 port cannot be had (the reason is the thread's last socket
    // error); a machine without IPv6, or with its port taken there, keeps IPv4 alone.
    [[nodiscard]] bool Start(int port);
    void Stop();
    [[nodiscard]] int GetPort() const { return web_server_.GetPort(); }
    [[nodiscard]] bool ListensOnIPv6() const { return v6_server_.GetPort() > 0; }

private:
    std::unique_ptr<ConsoleRequestHandler> handler_;
    // Last: their threads stop before the handler goes away.
    WebServer web_server_;
    WebServer v6_server_;
};

}  // namespace Zarn
