#include "ui/ConsoleEvents.h"

#include <poll.h>

#include <algorithm>
#include <set>

#include "core/JsonWriter.h"
#include "http/HttpConnection.h"
#include "http/HttpRequest.h"
#include "log/LogQueue.h"
#include "transfer/GuiTransferStatusAggregator.h"
#include "ui/ConsoleApi.h"
#include "ui/LogHistory.h"

namespace Zarn {
namespace {

// The first id of a run: a page that saw the last run's events (their ids all lower)
// is then given everything kept of this run instead of taking ids that meant other
// events for the ones it has.
uint64_t FirstId() {
    auto since_epoch = std::chrono::system_clock::now().time_since_epoch();
    return static_cast<uint64_t>(
               std::chrono::duration_cast<std::chrono::milliseconds>(since_epoch).count()) *
           1000;
}

// The client closed or reset its end, or the console shut the connection down to stop.
bool IsConnectionGone(const HttpRequest& request) {
    HttpConnection* connection = request.GetConnection();
    if (connection == nullptr) return true;
    pollfd wait{connection->GetSocket().GetHandle(), POLLRDHUP, 0};
    return ::poll(&wait, 1, 0) > 0 && (wait.revents & (POLLRDHUP | POLLHUP | POLLERR)) != 0;
}

std::string EventText(const std::vector<ConsoleEvents::Event>& events) {
    std::string text;
    for (const ConsoleEvents::Event& event : events) {
        text += "id: " + std::to_string(event.id) + "\nevent: " + event.name +
                "\ndata: " + event.data + "\n\n";
    }
    return text;
}

}  // namespace

ConsoleEvents::ConsoleEvents(GuiTransferStatusAggregator& transfers, LogHistory& log)
    : transfers_(transfers), log_(log), next_id_(FirstId()) {
    transfers_.SetTarget([this] { Wake(); });
    log_.GetQueue().SetTarget([this] { Wake(); });
}

ConsoleEvents::~ConsoleEvents() {
    transfers_.SetTarget({});
    log_.GetQueue().SetTarget({});
    {
        std::lock_guard hold(mutex_);
        stopping_ = true;
    }
    work_.notify_all();
    published_.notify_all();
    StopAndJoin();
}

void ConsoleEvents::Publish(std::string_view name, std::string data) {
    {
        std::lock_guard hold(mutex_);
        history_.push_back({next_id_++, std::string(name), std::move(data)});
        if (history_.size() > kHistoryCapacity) history_.pop_front();
    }
    published_.notify_all();
}

std::vector<ConsoleEvents::Event> ConsoleEvents::EventsAfter(uint64_t after) {
    std::lock_guard hold(mutex_);
    auto first = std::find_if(history_.begin(), history_.end(),
                              [after](const Event& event) { return event.id > after; });
    return {first, history_.end()};
}

uint64_t ConsoleEvents::ResumePoint(uint64_t last_seen) {
    std::lock_guard hold(mutex_);
    uint64_t newest = next_id_ - 1;
    // An id from the future is no id of ours; one from before the history (or the run)
    // gets what is kept.
    if (last_seen == 0 || last_seen > newest) return newest;
    return history_.empty() ? newest : std::max(last_seen, history_.front().id - 1);
}

void ConsoleEvents::Wake() {
    // Called from whoever logs or reports a transfer: only take note here.
    {
        std::lock_guard hold(mutex_);
        pending_ = true;
    }
    work_.notify_one();
}

uint32_t ConsoleEvents::Run() {
    Clock::time_point next_look = Clock::time_point::max();
    for (;;) {
        {
            std::unique_lock hold(mutex_);
            auto woken = [this] { return pending_ || stopping_; };
            if (next_look == Clock::time_point::max()) {
                work_.wait(hold, woken);
            } else {
                work_.wait_until(hold, next_look, woken);
            }
            if (stopping_) return 0;
            pending_ = false;
        }
        CollectLog();
        next_look = CollectTransfers();
    }
}

void ConsoleEvents::CollectLog() {
    for (const LogHistory::Line& line : log_.LinesAfter(last_log_id_)) {
        JsonWriter json;
        ConsoleApi::WriteLogLine(json, line);
        Publish("log", json.Text());
        last_log_id_ = line.id;
    }
}

ConsoleEvents::Clock::time_point ConsoleEvents::CollectTransfers() {
    Clock::time_point now = Clock::now();
    Clock::time_point next_look = Clock::time_point::max();
    std::set<uintptr_t> running;
    for (const GuiTransferStatusAggregator::Transfer& transfer : transfers_.Snapshot()) {
        running.insert(transfer.id);
        JsonWriter json;
        ConsoleApi::WriteTransfer(json, transfer);
        auto [found, is_new] = shown_.try_emplace(transfer.id);
        Shown& shown = found->second;
        if (!is_new && shown.json == json.Text()) {
            shown.waiting = false;
        } else if (is_new || now - shown.at >= kTransferInterval) {
            Publish("transfer", json.Text());
            shown = {json.Text(), now, false};
        } else {
            // Too soon after the last row of this transfer: the newest figures go out when
            // its interval is over, even if nothing notifies by then.
            shown.waiting = true;
            next_look = std::min(next_look, shown.at + kTransferInterval);
        }
    }
    for (auto it = shown_.begin(); it != shown_.end();) {
        if (running.contains(it->first)) {
            ++it;
            continue;
        }
        JsonWriter json;
        json.BeginObject().Member("id", static_cast<uint64_t>(it->first)).EndObject();
        Publish("transfer-end", json.Text());
        it = shown_.erase(it);
    }
    // Speeds and times left move without any report that would notify, so running
    // transfers are looked at again every interval.
    if (!shown_.empty()) next_look = std::min(next_look, now + kTransferInterval);
    return next_look;
}

std::vector<ConsoleEvents::Event> ConsoleEvents::WaitForEvents(uint64_t after,
                                                               Clock::time_point until) {
    std::unique_lock hold(mutex_);
    published_.wait_until(hold, until, [&] {
        return stopping_ || (!history_.empty() && history_.back().id > after);
    });
    hold.unlock();
    return EventsAfter(after);
}

void ConsoleEvents::Stream(HttpRequest& request) {
    std::string last_event_id;
    uint64_t last_seen = 0;
    if (request.GetHeader("LAST-EVENT-ID", last_event_id)) {
        last_seen = static_cast<uint64_t>(
            ConsoleApi::ParseInteger(last_event_id, 0, INT64_MAX).value_or(0));
    }
    uint64_t after = ResumePoint(last_seen);
    request.SendHead(ResponseHead(200, "OK")
                         .Add("Content-Type", "text/event-stream; charset=utf-8")
                         .Add("Cache-Control", "no-store")
                         .Add("X-Content-Type-Options", "nosniff")
                         .SetStreamed()
                         // Chunked on HTTP/1.1, so the client can tell an ended stream from
                         // a broken one.
                         .AllowKeepAlive());
    // The head waits for the first body bytes; these also tell the browser to come back
    // soon when the stream breaks.
    request.Send("retry: 2000\n\n");
    // HEAD asks only whether the stream is there: it gets the head and nothing goes on.
    if (request.IsHead()) return request.EndResponse();

    const ManualResetEvent* stop = request.GetTransferStatus().GetStopEvent();
    Clock::time_point last_sent = Clock::now();
    while ((stop == nullptr || !stop->IsSet()) && !IsConnectionGone(request)) {
        Clock::time_point now = Clock::now();
        std::vector<Event> events =
            WaitForEvents(after, std::min(now + kCheckInterval, last_sent + kHeartbeat));
        if (!events.empty()) {
            request.Send(EventText(events));
            after = events.back().id;
            last_sent = Clock::now();
        } else if (Clock::now() >= last_sent + kHeartbeat) {
            request.Send(": still here\n\n");
            last_sent = Clock::now();
        }
    }
}

}  // namespace Zarn
