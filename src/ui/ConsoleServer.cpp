#include "ui/ConsoleServer.h"

namespace Zarn {

ConsoleServer::ConsoleServer(ConsoleRequestHandler::Services services) {
    services.port = [this] { return web_server_.GetPort(); };
    handler_ = std::make_unique<ConsoleRequestHandler>(std::move(services));
    web_server_.SetRequestHandler(handler_.get());
    web_server_.SetBindAddress("127.0.0.1");
}

ConsoleServer::~ConsoleServer() {
    web_server_.Stop();
}

bool ConsoleServer::Start(int port) {
    return web_server_.Listen(port);
}

}  // namespace Zarn
