#pragma once

#include <mutex>
#include <string_view>

namespace Zarn {

class ConsoleEvents;
class HttpRequest;
class KorvelConfig;
class KorvelServer;

// The console's endpoints that steer the server: the IP filter rules, starting, stopping
// and re-porting the visitors' listener, and the event stream. Console connection threads
// call it at once; the changes it makes are taken one at a time.
class ConsoleControlApi {
public:
    // All three must outlive this object.
    ConsoleControlApi(KorvelConfig& config, KorvelServer& server, ConsoleEvents& events)
        : config_(config), server_(server), events_(events) {}

    [[nodiscard]] static bool IsChange(std::string_view endpoint);
    // False, answering nothing, for an endpoint that is not one of these.
    [[nodiscard]] bool Serve(HttpRequest& request, std::string_view endpoint);
    // Moves the visitors' listener to the port, or makes it the port of the next start
    // while the listener is stopped; saves nothing. False when the port cannot be had: the
    // old listener keeps serving, and the reason is the thread's last socket error.
    [[nodiscard]] bool MoveListener(int port);

private:
    void SendRules(HttpRequest& request);
    // Adds the form's rule at the end, or with `replace` puts it at the form's index.
    void PutRule(HttpRequest& request, bool replace);
    void RemoveRule(HttpRequest& request);
    void MoveRule(HttpRequest& request);
    void StartServer(HttpRequest& request);
    void StopServer(HttpRequest& request);
    void ChangePort(HttpRequest& request);
    void SendListener(HttpRequest& request);
    // The next launch starts sharing, or not, as the owner last left it; saved at once so
    // that a crash does not forget it.
    [[nodiscard]] bool RecordRunning(bool running);
    [[nodiscard]] bool MoveListenerHeld(int port);  // with change_mutex_ held
    // The port the visitors' listener had when it last ran, or the saved one.
    [[nodiscard]] int ChosenPort();

    KorvelConfig& config_;
    KorvelServer& server_;
    ConsoleEvents& events_;
    std::mutex change_mutex_;  // one change at a time; the listener has one controller
    int port_ = -1;            // guarded by change_mutex_; -1: the saved one
};

}  // namespace Zarn
