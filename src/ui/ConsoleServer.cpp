#include "ui/ConsoleServer.h"

#include "log/Log.h"

namespace Zarn {

ConsoleServer::ConsoleServer(ConsoleRequestHandler::Services services) {
    services.port = [this] { return web_server_.GetPort(); };
    handler_ = std::make_unique<ConsoleRequestHandler>(std::move(services));
    web_server_.SetRequestHandler(handler_.get());
    web_server_.SetBindAddress("127.0.0.1");
    v6_server_.SetRequestHandler(handler_.get());
    v6_server_.SetBindAddress("::1");
}

ConsoleServer::~ConsoleServer() {
    Stop();
}

bool ConsoleServer::Start(int port) {
    if (!web_server_.Listen(port)) return false;
    if (!v6_server_.Listen(web_server_.GetPort())) {
        Log(kLogNotice, "The owner's console listens on 127.0.0.1 only: [::1]:%d is not available",
            web_server_.GetPort());
    }
    return true;
}

void ConsoleServer::Stop() {
    v6_server_.Stop();
    web_server_.Stop();
}

}  // namespace Zarn
