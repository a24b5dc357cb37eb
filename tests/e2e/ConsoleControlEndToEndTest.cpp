// The owner's console steering the real program over real sockets: IP filter rules that
// bite at once and are saved in order, the visitors' listener moved, stopped and started
// while the console stays, running downloads watched and kicked, and the event stream with
// its ids and resumption.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "net/TCPServerSocket.h"
#include "net/socket_exception.h"
#include "support/RunningShare.h"
#include "support/WaitUntil.h"

namespace Zarn {
namespace {

using testing::Contains;
using testing::HttpResponse;
using testing::WaitUntil;

struct StreamedEvent {
    uint64_t id = 0;
    std::string name, data;
    std::chrono::steady_clock::time_point received;
};

// One open event stream, read as it arrives. Every write of the server carries whole
// events, so the chunk framing never splits one.
class EventStream {
public:
    EventStream(int port, const std::string& headers) : socket_(testing::ConnectTo(port)) {
        socket_.SetTimeouts(10);
        testing::SendAll(socket_, "GET /api/v1/events HTTP/1.1\r\n" + headers + "\r\n");
    }

    // Reads until `done` holds; false when the stream ends or stays silent for the timeout.
    template <typename Condition>
    bool ReadUntil(Condition done) {
        char buffer[8192];
        try {
            while (!done()) {
                raw_.append(buffer, static_cast<size_t>(socket_.Receive(buffer, sizeof buffer)));
                for (size_t start, end; (start = raw_.find("id: ", parsed_)) != std::string::npos &&
                                        (end = raw_.find("\n\n", start)) != std::string::npos;
                     parsed_ = end + 2) {
                    std::string block = raw_.substr(start, end - start) + "\n";
                    auto field = [&](const std::string& name) {
                        size_t at = block.find(name);
                        if (at == std::string::npos) return std::string();
                        at += name.size();
                        return block.substr(at, block.find('\n', at) - at);
                    };
                    events_.push_back({std::stoull(field("id: ")), field("event: "),
                                       field("data: "), std::chrono::steady_clock::now()});
                }
            }
        } catch (const socket_exception&) {
            return false;
        }
        return true;
    }
    // True when the server ends the stream within a second.
    bool EndsSoon() {
        socket_.SetTimeouts(1);
        auto started = std::chrono::steady_clock::now();
        (void)ReadUntil([] { return false; });
        return std::chrono::steady_clock::now() - started < std::chrono::milliseconds(900);
    }
    [[nodiscard]] bool Has(const std::string& name, const std::string& data_part) const {
        for (const StreamedEvent& event : events_) {
            if (event.name == name && Contains(event.data, data_part)) return true;
        }
        return false;
    }

    std::string raw_;
    std::vector<StreamedEvent> events_;

private:
    TCPSocket socket_;
    size_t parsed_ = 0;
};

bool Refuses(int port) {
    TCPSocket socket;
    return socket.Create() && !socket.Connect("127.0.0.1", static_cast<uint16_t>(port));
}

class ConsoleControlEndToEndTest : public testing::RunningShare {
protected:
    void SetUp() override { share_.Write("a.txt", "shared"); }
    int VisitAt(int port) const { return testing::Get(port, "/docs/a.txt").status; }
    HttpResponse Change(const std::string& endpoint, const std::string& form) const {
        return console_->Post(endpoint, form);
    }
};

// Which patterns are rules and which rule decides is the filter's own test; here, that the
// console's edits bite at once, are saved in order and refuse what would corrupt the list.
// The visitors' listener then moves, stops and starts while the console stays.
TEST_F(ConsoleControlEndToEndTest, IpFilterEditsBiteAtOnceAndTheListenerMovesWhileTheConsoleStays) {
    StartWithConsole();
    EXPECT_EQ(Change("ipfilter/add", "rule=127.0.0.1&action=ban").body,
              "{\"rule\":\"127.0.0.1\",\"action\":\"ban\"}");
    EXPECT_EQ(VisitAt(port_), 403);
    const std::string saved = home_.Read("mount.ini");
    EXPECT_TRUE(Contains(saved, "ipFilterTable+=127.0.0.1:ban"));
    const struct {
        std::string endpoint, form, field;
        int status;
    } refusals[] = {
        {"ipfilter/add", "rule=10.0.0.1&action=deny", "action", 400},
        {"ipfilter/add", "rule=%20127.0.0.1%20&action=ban", "rule", 409},
        {"ipfilter/add", "rule=1.2.3&action=ban", "rule", 400},
        {"ipfilter/edit", "index=1&rule=10.0.0.1&action=ban", "index", 404},
        {"ipfilter/move", "index=0&direction=up", "direction", 400},
        {"ipfilter/move", "index=0&direction=sideways", "direction", 400},
    };
    for (const auto& refusal : refusals) {
        HttpResponse refused = Change(refusal.endpoint, refusal.form);
        EXPECT_EQ(refused.status, refusal.status) << refusal.form << " " << refused.body;
        EXPECT_TRUE(Contains(refused.body, "\"field\":\"" + refusal.field + "\""))
            << refusal.form << " " << refused.body;
    }
    EXPECT_EQ(console_->Get("ipfilter/remove?index=0").status, 403);  // a GET changes nothing
    EXPECT_EQ(home_.Read("mount.ini"), saved);

    ASSERT_EQ(Change("ipfilter/add", "rule=127.*.*.*&action=allow").status, 200);
    ASSERT_EQ(Change("ipfilter/move", "index=1&direction=up").status, 200);
    EXPECT_EQ(VisitAt(port_), 200);
    std::string moved = home_.Read("mount.ini");
    EXPECT_LT(moved.find("127.*.*.*:allow"), moved.find("127.0.0.1:ban")) << moved;
    // An edit may keep its own rule but not take another's.
    EXPECT_EQ(Change("ipfilter/edit", "index=1&rule=127.*.*.*&action=allow").status, 409);
    EXPECT_EQ(Change("ipfilter/edit", "index=0&rule=%2010.0.0.*%20&action=ban").body,
              "{\"rule\":\"10.0.0.*\",\"action\":\"ban\"}");
    EXPECT_EQ(VisitAt(port_), 403);
    ASSERT_EQ(Change("ipfilter/remove", "index=1").status, 200);
    EXPECT_EQ(VisitAt(port_), 200);
    EXPECT_EQ(console_->Get("ipfilter").body, "[{\"rule\":\"10.0.0.*\",\"action\":\"ban\"}]");

    const int first = port_;
    // A port another program holds is refused in words, and the old one keeps serving.
    TCPServerSocket holder;
    ASSERT_TRUE(holder.Listen(0));
    HttpResponse taken = Change("server/port", "port=" + std::to_string(holder.GetLocalPort()));
    EXPECT_EQ(taken.status, 409);
    EXPECT_TRUE(Contains(taken.body, "Cannot listen on that port")) << taken.body;
    EXPECT_EQ(Change("server/port", "port=70000").status, 400);
    EXPECT_EQ(VisitAt(first), 200);

    int second = 0;
    {
        TCPServerSocket probe;  // a port nobody listens on once it closes
        ASSERT_TRUE(probe.Listen(0));
        second = probe.GetLocalPort();
    }
    const std::string at_second = ",\"port\":" + std::to_string(second) + "}";
    EXPECT_EQ(Change("server/port", "port=" + std::to_string(second)).body,
              "{\"listening\":true" + at_second);
    EXPECT_TRUE(Refuses(first));
    EXPECT_EQ(VisitAt(second), 200);
    EXPECT_TRUE(Contains(home_.Read("mount.ini"), "\r\nport=" + std::to_string(second) + "\r\n"));

    EXPECT_EQ(Change("server/stop", "").body, "{\"listening\":false" + at_second);
    EXPECT_TRUE(Refuses(second));
    EXPECT_TRUE(Contains(console_->Get("status").body, "\"listening\":false"));
    EXPECT_EQ(Change("server/start", "").body, "{\"listening\":true" + at_second);
    EXPECT_EQ(VisitAt(second), 200);
}

// A slow download, watched through the transfers list, the event stream and the log, is
// kicked; every page that lost its stream gets what it missed.
TEST_F(ConsoleControlEndToEndTest, TheOwnerWatchesAndKicksADownloadThroughEventsThatResume) {
    share_.Write("big.bin", std::string(1 << 20, 'b'));
    StartWithConsole("totalDownloadSpeedLimit=50\r\n");
    auto stream = std::make_unique<EventStream>(console_->Port(), console_->Owner());
    ASSERT_TRUE(stream->ReadUntil([&] { return Contains(stream->raw_, "\r\n\r\n"); }));
    EXPECT_TRUE(Contains(stream->raw_, "Content-Type: text/event-stream"));

    std::atomic<bool> ended{false};
    std::string received;
    // Joined on every way out, also when a check fails before the kick.
    std::jthread visitor([&] {
        TCPSocket socket = testing::ConnectTo(port_);
        testing::SendAll(socket, "GET /docs/big.bin HTTP/1.1\r\nHost: t\r\n\r\n");
        received = testing::ReadToClose(socket);
        ended = true;
    });
    // The download shows as rows no more often than twice a second, and as log lines. Four
    // rows leave the server over a second and a half; the check allows for the first one
    // being read late on a loaded machine, not for rows sent back to back.
    auto rows = [](const std::vector<StreamedEvent>& events) {
        std::vector<StreamedEvent> found;
        for (const StreamedEvent& event : events) {
            if (event.name == "transfer" && Contains(event.data, "/docs/big.bin"))
                found.push_back(event);
        }
        return found;
    };
    ASSERT_TRUE(stream->ReadUntil([&] {
        return rows(stream->events_).size() >= 4 && stream->Has("log", "SendFile started");
    })) << stream->raw_;
    std::vector<StreamedEvent> shown = rows(stream->events_);
    EXPECT_GE(shown.back().received - shown.front().received, std::chrono::milliseconds(900));
    // The list shows its row, moving with the bytes that leave; the stream is no transfer.
    std::string id = shown.back().data.substr(6, shown.back().data.find(',') - 6);
    std::string list = console_->Get("transfers").body;
    EXPECT_TRUE(Contains(list, "\"id\":" + id + ",") && Contains(list, "\"kind\":\"download\"") &&
                Contains(list, "\"client\":\"127.0.0.1\""))
        << list;
    EXPECT_TRUE(WaitUntil([&] {
        std::string now = console_->Get("transfers").body;
        size_t at = now.find("\"position\":");
        return at != std::string::npos && now[at + 11] != '0';
    }));
    EXPECT_TRUE(Contains(console_->Get("status").body, "\"transfers\":1,"));

    ASSERT_EQ(Change("transfers/kick", "id=" + id).status, 200);
    ASSERT_TRUE(WaitUntil([&] { return ended.load(); }));
    EXPECT_LT(received.size(), size_t{1} << 20);                  // cut off long before its end
    EXPECT_EQ(Change("transfers/kick", "id=" + id).status, 404);  // already over
    ASSERT_TRUE(stream->ReadUntil([&] {
        return stream->Has("transfer-end", "{\"id\":" + id + "}") &&
               stream->Has("settings", "{\"what\":\"transfers/kick\"}") &&
               stream->Has("log", "Connection was kicked.");
    })) << stream->raw_;
    const std::vector<StreamedEvent> events = stream->events_;
    for (size_t i = 1; i < events.size(); ++i)
        EXPECT_GT(events[i].id, events[i - 1].id);
    // The log page, having seen every line, asks for what came after it.
    std::string log = console_->Get("log").body;
    std::string last = log.substr(log.rfind("\"id\":") + 5);
    last = last.substr(0, last.find_first_not_of("0123456789"));
    EXPECT_FALSE(Contains(console_->Get("log?after=" + last).body, "kicked"));
    ASSERT_EQ(Change("ipfilter/add", "rule=bad&action=ban").status, 400);  // announced to nobody

    // A page that lost its stream gets what it missed, and nothing it already had.
    stream.reset();
    EventStream resumed(console_->Port(), console_->Owner() + "Last-Event-ID: " +
                                              std::to_string(events[events.size() - 3].id) +
                                              "\r\n");
    ASSERT_TRUE(resumed.ReadUntil([&] { return resumed.events_.size() >= 2; })) << resumed.raw_;
    EXPECT_EQ(resumed.events_[0].id, events[events.size() - 2].id);
    EXPECT_EQ(resumed.events_[1].id, events.back().id);

    // A new page starts with what comes next; an accepted change is announced to both.
    EventStream fresh(console_->Port(), console_->Owner());
    ASSERT_TRUE(fresh.ReadUntil([&] { return Contains(fresh.raw_, "retry:"); }));
    ASSERT_EQ(Change("ipfilter/add", "rule=10.*.*.*&action=ban").status, 200);
    auto announced = [&](const EventStream& s) { return s.Has("settings", "ipfilter/add"); };
    ASSERT_TRUE(fresh.ReadUntil([&] { return announced(fresh); })) << fresh.raw_;
    ASSERT_TRUE(resumed.ReadUntil([&] { return announced(resumed); })) << resumed.raw_;
    EXPECT_FALSE(fresh.Has("settings", "transfers/kick"));
    size_t announcements = 0;
    for (const StreamedEvent& event : resumed.events_)
        announcements += event.name == "settings" && Contains(event.data, "ipfilter");
    EXPECT_EQ(announcements, 1u);

    // Stopping the program ends the open streams at once instead of waiting for them.
    auto stopping = std::chrono::steady_clock::now();
    console_.reset();
    EXPECT_EQ(program_->Stop(), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - stopping, std::chrono::seconds(3));
    EXPECT_TRUE(fresh.EndsSoon());
}

}  // namespace
}  // namespace Zarn
