#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "transfer/GuiTransferStatusAggregator.h"
#include "ui/LogHistory.h"

namespace Zarn {

class ConsoleControlApi;
class ConsoleEvents;
class ConsoleSettingsApi;
class HttpRequest;
class JsonWriter;
class KorvelConfig;
class KorvelServer;

// The owner's console interface under /api/v1/: answers in JSON, changes through
// url-encoded forms, each change made through the registry that owns it, applied at once
// and saved. The request handler has already checked that the owner asks.
class ConsoleApi {
public:
    struct Services {
        KorvelConfig* config = nullptr;
        KorvelServer* server = nullptr;
        LogHistory* log = nullptr;
        // The program made the home's settings file in this run: the first-run wizard
        // may be due.
        bool new_home = false;
        std::chrono::steady_clock::time_point started = std::chrono::steady_clock::now();
        // The newer revision the start-up check found, 0 when none (may be empty).
        std::function<int()> newer_revision = nullptr;
    };

    explicit ConsoleApi(Services services);
    ~ConsoleApi();
    ConsoleApi(const ConsoleApi&) = delete;
    ConsoleApi& operator=(const ConsoleApi&) = delete;

    // Whether the endpoint changes something (and so must come as a checked POST).
    [[nodiscard]] static bool IsChange(std::string_view endpoint);
    // Answers the endpoint ("status", "transfers/kick", ...); 404 in JSON for one that
    // does not exist.
    void Serve(HttpRequest& request, std::string_view endpoint);

    // Writes a whole JSON answer.
    static void SendJson(HttpRequest& request, int code, std::string_view reason,
                         const std::string& json);
    // A refusal naming the field at fault (may be empty) and why, in the owner's language.
    static void SendError(HttpRequest& request, int code, std::string_view reason,
                          std::string_view field, const std::string& message);

    // {"ok":true}, for a change that has nothing more to tell.
    static void SendOk(HttpRequest& request);
    // The change is made, but the settings file could not be written.
    static void SendSaveFailure(HttpRequest& request);

    // "  1:02:03" for seconds left, "??:??:??" when it cannot be told.
    [[nodiscard]] static std::string TimeLeft(uint64_t total, uint64_t position, uint64_t speed);
    // A whole decimal number within the bounds, or nothing.
    [[nodiscard]] static std::optional<int64_t> ParseInteger(std::string_view text, int64_t low,
                                                             int64_t high);
    // One row of the transfer list, as the list and the event stream show it.
    // One log line, as the log and the event stream show it.
    static void WriteLogLine(JsonWriter& json, const LogHistory::Line& line);
    static void WriteTransfer(JsonWriter& json,
                              const GuiTransferStatusAggregator::Transfer& transfer);

private:
    void SendStatus(HttpRequest& request);
    void SendTransfers(HttpRequest& request);
    void Kick(HttpRequest& request);
    void SendLog(HttpRequest& request);
    void SendLimits(HttpRequest& request);
    void SetLimits(HttpRequest& request);

    Services services_;
    // All null without a server, a log and the settings.
    std::unique_ptr<ConsoleEvents> events_;
    std::unique_ptr<ConsoleControlApi> control_;
    std::unique_ptr<ConsoleSettingsApi> settings_;
};

}  // namespace Zarn
