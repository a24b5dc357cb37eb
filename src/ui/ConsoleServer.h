#pragma once

#include <memory>
#include <string>

#include "http/WebServer.h"
#include "ui/ConsoleRequestHandler.h"

namespace Zarn {

// The owner's console: a listener of its own on 127.0.0.1 that serves the console's
// pages and interface and nothing else, as the visitors' listener never serves them.
class ConsoleServer {
public:
    // `services.port` is filled in here.
    explicit ConsoleServer(ConsoleRequestHandler::Services services);
    ~ConsoleServer();

    // Listens on 127.0.0.1 at the port (0: a free one). False when it cannot be had; the
    // reason is the thread's last socket error.
    [[nodiscard]] bool Start(int port);
    void Stop() { web_server_.Stop(); }
    [[nodiscard]] int GetPort() const { return web_server_.GetPort(); }

private:
    std::unique_ptr<ConsoleRequestHandler> handler_;
    WebServer web_server_;  // last: its threads stop before the handler goes away
};

}  // namespace Zarn
