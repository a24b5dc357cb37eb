#include "ui/AddressRefresher.h"

#include "background/UpdateIPStringThread.h"
#include "core/JsonWriter.h"
#include "log/Log.h"
#include "server/KorvelServer.h"
#include "ui/ConsoleEvents.h"

namespace Zarn {

AddressRefresher::AddressRefresher(KorvelConfig& config, KorvelServer& server,
                                   ConsoleEvents& events)
    : config_(config), server_(server), events_(events) {}

AddressRefresher::~AddressRefresher() {
    std::lock_guard hold(mutex_);
    finder_.reset();  // cancels a run waiting on the check server and joins it
}

void AddressRefresher::Refresh() {
    std::lock_guard hold(mutex_);
    // The run under way may have read the settings before they changed.
    finder_.reset();
    pending_ = true;
    finder_ = std::make_unique<UpdateIPStringThread>(UpdateIPStringThread::Options{
        .config = &config_,
        .on_found = [this](const std::string& address) { Found(address); },
    });
    if (!finder_->Start()) {
        Log(kLogError, "The address could not be worked out again: no thread");
        pending_ = false;
    }
}

void AddressRefresher::Found(const std::string& address) {
    server_.SetDisplayAddress(address);
    pending_ = false;
    JsonWriter json;
    json.BeginObject().Member("address", address).EndObject();
    events_.Publish("address", json.Text());
}

}  // namespace Zarn
