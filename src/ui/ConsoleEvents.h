#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "core/AThread.h"

namespace Zarn {

class GuiTransferStatusAggregator;
class HttpRequest;
class LogHistory;

// What the owner's console hears without asking: transfers as they move and end, log
// lines as they are written, and every change made through the console. Its own thread
// turns the aggregator's and the log queue's notifications into numbered events, kept in
// a bounded history so that a page that lost its connection resumes where it left off.
// Publish and Stream may be called from any thread; each open console's stream runs on
// its own connection thread.
class ConsoleEvents : public AThread {
public:
    static constexpr size_t kHistoryCapacity = 2000;
    // A transfer's row is sent again at most this often.
    static constexpr std::chrono::milliseconds kTransferInterval{500};
    // A stream silent this long sends a comment, so that neither a proxy nor the browser
    // takes it for dead.
    static constexpr std::chrono::seconds kHeartbeat{15};
    // How soon a stream notices that the console stops or its client went away.
    static constexpr std::chrono::milliseconds kCheckInterval{200};

    struct Event {
        uint64_t id = 0;
        std::string name;
        std::string data;  // one line of JSON
    };

    // Both must outlive this object; it subscribes to their notifications until destroyed.
    ConsoleEvents(GuiTransferStatusAggregator& transfers, LogHistory& log);
    ~ConsoleEvents() override;

    // Adds an event for every open stream.
    void Publish(std::string_view name, std::string data);
    // The kept events with an id above `after`, oldest first.
    [[nodiscard]] std::vector<Event> EventsAfter(uint64_t after);
    // Writes the events as a text/event-stream response until the connection's thread is
    // told to stop or the client goes away. A "Last-Event-ID" that the history still
    // covers resumes after that event; otherwise the stream starts with what comes next.
    void Stream(HttpRequest& request);

    uint32_t Run() override;

private:
    using Clock = std::chrono::steady_clock;

    // A transfer's row as last sent, and whether a newer one waits for its interval.
    struct Shown {
        std::string json;
        Clock::time_point at;
        bool waiting = false;
    };

    void Wake();
    void CollectLog();
    // When a transfer next needs looking at; Clock::time_point::max() when none does.
    Clock::time_point CollectTransfers();
    // Waits up to `until` for an event after `after`; the events, or none.
    std::vector<Event> WaitForEvents(uint64_t after, Clock::time_point until);
    // The id to stream after for a client that last saw `last_seen` (0: none).
    uint64_t ResumePoint(uint64_t last_seen);

    GuiTransferStatusAggregator& transfers_;
    LogHistory& log_;

    std::mutex mutex_;                   // guards the fields down to the next comment
    std::condition_variable work_;       // the collecting thread waits on it
    std::condition_variable published_;  // the streams wait on it
    bool pending_ = true;                // the lines logged before the thread started
    bool stopping_ = false;
    std::deque<Event> history_;
    uint64_t next_id_ = 1;

    // The collecting thread's own.
    std::map<uintptr_t, Shown> shown_;
    uint64_t last_log_id_ = 0;
};

}  // namespace Zarn
