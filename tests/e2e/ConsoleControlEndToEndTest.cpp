// The owner's console steering the real program over real sockets: IP filter rules that
// bite at once and are saved in order, the visitors' listener moved, stopped and started
// while the console stays, and the event stream with its ids and resumption.

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>

#include <chrono>
#include <thread>
#include <vector>

#include "net/TCPServerSocket.h"
#include "support/HttpClient.h"
#include "support/ProgramRunner.h"
#include "support/TempFolder.h"
#include "support/WaitUntil.h"

namespace Zarn {
namespace {

using testing::ConnectTo;
using testing::Fetch;
using testing::HttpResponse;
using testing::ProgramRunner;
using testing::SendAll;
using testing::TempFolder;
using testing::WaitUntil;

struct StreamedEvent {
    uint64_t id = 0;
    std::string name;
    std::string data;
    std::chrono::steady_clock::time_point received;
};

// One open event stream, read as it arrives. Every write of the server carries whole
// events, so the chunk framing never splits one.
class EventStream {
public:
    EventStream(int port, const std::string& headers) : socket_(ConnectTo(port)) {
        SendAll(socket_, "GET /api/v1/events HTTP/1.1\r\n" + headers + "\r\n");
    }

    // Reads until `done` holds for the events so far; false after the time-out.
    template <typename Condition>
    bool ReadUntil(Condition done, std::chrono::seconds timeout = std::chrono::seconds(10)) {
        auto deadline = std::chrono::steady_clock::now() + timeout;
        while (!done(events_)) {
            auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                deadline - std::chrono::steady_clock::now());
            if (left.count() <= 0 || !ReadSome(static_cast<int>(left.count()))) return false;
        }
        return true;
    }
    // True when the server closed the stream within the time.
    bool EndsWithin(std::chrono::seconds timeout) {
        auto deadline = std::chrono::steady_clock::now() + timeout;
        while (std::chrono::steady_clock::now() < deadline) {
            if (!ReadSome(100) && closed_) return true;
        }
        return false;
    }

    [[nodiscard]] const std::string& Raw() const { return raw_; }
    [[nodiscard]] const std::vector<StreamedEvent>& Events() const { return events_; }

private:
    bool ReadSome(int timeout_ms) {
        pollfd wait{socket_.GetHandle(), POLLIN, 0};
        if (::poll(&wait, 1, timeout_ms) <= 0) return false;
        char buffer[8192];
        ssize_t got = ::recv(socket_.GetHandle(), buffer, sizeof buffer, 0);
        if (got <= 0) {
            closed_ = true;
            return false;
        }
        raw_.append(buffer, static_cast<size_t>(got));
        Parse();
        return true;
    }
    void Parse() {
        for (;;) {
            size_t start = raw_.find("id: ", parsed_);
            size_t end = start == std::string::npos ? start : raw_.find("\n\n", start);
            if (end == std::string::npos) return;
            std::string block = raw_.substr(start, end - start);
            auto field = [&](const std::string& name) {
                size_t at = block.find(name);
                if (at == std::string::npos) return std::string();
                at += name.size();
                return block.substr(at, block.find('\n', at) - at);
            };
            events_.push_back({std::stoull(field("id: ")), field("event: "), field("data: "),
                               std::chrono::steady_clock::now()});
            parsed_ = end + 2;
        }
    }

    TCPSocket socket_;
    std::string raw_;
    size_t parsed_ = 0;
    bool closed_ = false;
    std::vector<StreamedEvent> events_;
};

bool Has(const std::vector<StreamedEvent>& events, const std::string& name,
         const std::string& data_part) {
    for (const StreamedEvent& event : events) {
        if (event.name == name && event.data.find(data_part) != std::string::npos) return true;
    }
    return false;
}

// A port nobody listens on now.
int FreePort() {
    TCPServerSocket probe;
    EXPECT_TRUE(probe.Listen(0));
    return probe.GetLocalPort();
}

bool Refuses(int port) {
    TCPSocket socket;
    return socket.Create() && !socket.Connect("127.0.0.1", static_cast<uint16_t>(port));
}

class ConsoleControlEndToEndTest : public ::testing::Test {
protected:
    void SetUp() override { share_.Write("a.txt", "shared"); }

    void Start(const std::string& settings = "") {
        home_.Write("mount.ini", "mounts+=docs|" + share_.Path() +
                                     "|x|yes|x|no\r\nuiLanguageFile=English.wul\r\n"
                                     "consolePort=0\r\n" +
                                     settings);
        program_ = std::make_unique<ProgramRunner>(home_.Path());
        std::string line = program_->NextLine();
        size_t token_at = line.find("/?token=");
        ASSERT_NE(token_at, std::string::npos) << line;
        console_port_ = std::stoi(line.substr(line.rfind(':', token_at) + 1));
        owner_ = "Host: 127.0.0.1:" + std::to_string(console_port_) +
                 "\r\nCookie: lumidrop_console=" + line.substr(token_at + 8) + "\r\n";
    }

    HttpResponse Ask(const std::string& endpoint) {
        return Fetch(console_port_, "GET /api/v1/" + endpoint + " HTTP/1.1\r\n" + owner_ +
                                        "Connection: close\r\n\r\n");
    }
    HttpResponse Change(const std::string& endpoint, const std::string& form) {
        return Fetch(console_port_, "POST /api/v1/" + endpoint + " HTTP/1.1\r\n" + owner_ +
                                        "X-Lumidrop-Console: 1\r\nConnection: close\r\n"
                                        "Content-Type: application/x-www-form-urlencoded\r\n"
                                        "Content-Length: " +
                                        std::to_string(form.size()) + "\r\n\r\n" + form);
    }
    int Visit(int port) { return testing::Get(port, "/docs/a.txt").status; }

    TempFolder share_;
    TempFolder home_;
    std::unique_ptr<ProgramRunner> program_;
    int console_port_ = -1;
    std::string owner_;
};

TEST_F(ConsoleControlEndToEndTest, IpFilterRulesBiteAtOnceAreSavedInOrderAndRefuseNonsense) {
    Start();
    EXPECT_EQ(Ask("ipfilter").body, "[]");
    HttpResponse added = Change("ipfilter/add", "rule=127.0.0.1&action=ban");
    EXPECT_EQ(added.status, 200) << added.body;
    EXPECT_EQ(added.body, "{\"rule\":\"127.0.0.1\",\"action\":\"ban\"}");
    EXPECT_EQ(Visit(program_->Port()), 403);
    EXPECT_NE(home_.Read("mount.ini").find("ipFilterTable+=127.0.0.1:ban"), std::string::npos);

    // Nothing that is not a rule, nor a second copy of one, gets in; nothing is touched.
    const std::string saved = home_.Read("mount.ini");
    struct Refusal {
        std::string endpoint, form, field;
        int status;
    };
    const Refusal refusals[] = {
        {"ipfilter/add", "rule=10.*.*&action=ban", "rule", 400},
        {"ipfilter/add", "rule=10.0.0.%3F&action=ban", "rule", 400},
        {"ipfilter/add", "rule=.10.0.0.1&action=ban", "rule", 400},
        {"ipfilter/add", "rule=10.0.0.1.&action=ban", "rule", 400},
        {"ipfilter/add", "rule=&action=allow", "rule", 400},
        {"ipfilter/add", "rule=10.0.0.1&action=deny", "action", 400},
        {"ipfilter/add", "rule=%20127.0.0.1%20&action=ban", "rule", 409},
        {"ipfilter/edit", "index=1&rule=10.0.0.1&action=ban", "index", 404},
        {"ipfilter/remove", "index=x", "index", 400},
        {"ipfilter/move", "index=0&direction=up", "direction", 400},
        {"ipfilter/move", "index=0&direction=sideways", "direction", 400},
    };
    for (const Refusal& refusal : refusals) {
        HttpResponse refused = Change(refusal.endpoint, refusal.form);
        EXPECT_EQ(refused.status, refusal.status) << refusal.form << " " << refused.body;
        EXPECT_NE(refused.body.find("\"field\":\"" + refusal.field + "\""), std::string::npos)
            << refusal.form << " " << refused.body;
    }
    EXPECT_NE(Change("ipfilter/add", "rule=1.2.3&action=ban").body.find("such as 192.168.0.*"),
              std::string::npos);
    EXPECT_EQ(home_.Read("mount.ini"), saved);
    EXPECT_EQ(Ask("ipfilter").body, "[{\"rule\":\"127.0.0.1\",\"action\":\"ban\"}]");
    // A change asked for by GET is no change.
    EXPECT_EQ(Ask("ipfilter/remove?index=0").status, 403);

    // The first matching rule decides, so moving the allowing rule up lets the visitor in.
    ASSERT_EQ(Change("ipfilter/add", "rule=127.*.*.*&action=allow").status, 200);
    EXPECT_EQ(Visit(program_->Port()), 403);
    ASSERT_EQ(Change("ipfilter/move", "index=1&direction=up").status, 200);
    EXPECT_EQ(Visit(program_->Port()), 200);
    std::string moved = home_.Read("mount.ini");
    EXPECT_LT(moved.find("127.*.*.*:allow"), moved.find("127.0.0.1:ban")) << moved;
    ASSERT_EQ(Change("ipfilter/move", "index=0&direction=down").status, 200);
    EXPECT_EQ(Visit(program_->Port()), 403);

    // An edit may keep its own rule but not take another's; removing lets the visitor in.
    EXPECT_EQ(Change("ipfilter/edit", "index=0&rule=127.*.*.*&action=allow").status, 409);
    EXPECT_EQ(Change("ipfilter/edit", "index=0&rule=127.0.0.1&action=ban").status, 200);
    HttpResponse edited = Change("ipfilter/edit", "index=0&rule=%2010.0.0.*%20&action=ban");
    EXPECT_EQ(edited.body, "{\"rule\":\"10.0.0.*\",\"action\":\"ban\"}");
    EXPECT_EQ(Visit(program_->Port()), 200);
    ASSERT_EQ(Change("ipfilter/add", "rule=*.*.*.*&action=ban").status, 200);
    EXPECT_EQ(Visit(program_->Port()), 200);
    ASSERT_EQ(Change("ipfilter/remove", "index=1").status, 200);
    EXPECT_EQ(Visit(program_->Port()), 403);
    EXPECT_EQ(Ask("ipfilter").body,
              "[{\"rule\":\"10.0.0.*\",\"action\":\"ban\"},"
              "{\"rule\":\"*.*.*.*\",\"action\":\"ban\"}]");
}

TEST_F(ConsoleControlEndToEndTest, TheVisitorsListenerMovesStopsAndStartsWhileTheConsoleStays) {
    Start();
    const int first = program_->Port();

    // A port another program holds is refused in words, and the old one keeps serving.
    TCPServerSocket holder;
    ASSERT_TRUE(holder.Listen(0));
    HttpResponse taken = Change("server/port", "port=" + std::to_string(holder.GetLocalPort()));
    EXPECT_EQ(taken.status, 409);
    EXPECT_NE(taken.body.find("Cannot listen on that port"), std::string::npos) << taken.body;
    EXPECT_EQ(Visit(first), 200);
    EXPECT_EQ(Change("server/port", "port=70000").status, 400);
    EXPECT_NE(Ask("status").body.find("\"port\":" + std::to_string(first)), std::string::npos);

    const int second = FreePort();
    HttpResponse moved = Change("server/port", "port=" + std::to_string(second));
    EXPECT_EQ(moved.body, "{\"listening\":true,\"port\":" + std::to_string(second) + "}");
    EXPECT_TRUE(Refuses(first));
    EXPECT_EQ(Visit(second), 200);
    EXPECT_NE(home_.Read("mount.ini").find("\r\nport=" + std::to_string(second) + "\r\n"),
              std::string::npos);

    HttpResponse stopped = Change("server/stop", "");
    EXPECT_EQ(stopped.body, "{\"listening\":false,\"port\":" + std::to_string(second) + "}");
    EXPECT_TRUE(Refuses(second));
    EXPECT_NE(Ask("status").body.find("\"listening\":false"), std::string::npos);

    HttpResponse started = Change("server/start", "");
    EXPECT_EQ(started.body, "{\"listening\":true,\"port\":" + std::to_string(second) + "}");
    EXPECT_EQ(Visit(second), 200);
}

TEST_F(ConsoleControlEndToEndTest, EventsCarryTransfersLogAndChangesWithIdsAndResume) {
    share_.Write("big.bin", std::string(1 << 20, 'b'));
    Start("totalDownloadSpeedLimit=50\r\n");
    auto stream = std::make_unique<EventStream>(console_port_, owner_);
    ASSERT_TRUE(stream->ReadUntil(
        [&](auto&) { return stream->Raw().find("\r\n\r\n") != std::string::npos; }));
    EXPECT_TRUE(stream->Raw().starts_with("HTTP/1.1 200 "));
    EXPECT_NE(stream->Raw().find("Content-Type: text/event-stream"), std::string::npos);
    EXPECT_NE(stream->Raw().find("Transfer-Encoding: chunked"), std::string::npos);

    std::jthread visitor([&] {
        TCPSocket socket = ConnectTo(program_->Port());
        SendAll(socket, "GET /docs/big.bin HTTP/1.1\r\nHost: t\r\n\r\n");
        (void)testing::ReadToClose(socket);
    });
    // A slow download shows as rows no more often than twice a second, and as log lines.
    auto rows = [](const std::vector<StreamedEvent>& events) {
        std::vector<StreamedEvent> found;
        for (const StreamedEvent& event : events) {
            if (event.name == "transfer" && event.data.find("/docs/big.bin") != std::string::npos)
                found.push_back(event);
        }
        return found;
    };
    ASSERT_TRUE(stream->ReadUntil([&](auto& events) {
        return rows(events).size() >= 4 && Has(events, "log", "SendFile started");
    })) << stream->Raw();
    std::vector<StreamedEvent> shown = rows(stream->Events());
    for (size_t i = 1; i < shown.size(); ++i) {
        EXPECT_GE(shown[i].received - shown[i - 1].received, std::chrono::milliseconds(400));
    }
    // The stream itself is no transfer of a visitor.
    EXPECT_NE(Ask("status").body.find("\"transfers\":1,"), std::string::npos);

    std::string id = shown.back().data.substr(6, shown.back().data.find(',') - 6);
    ASSERT_EQ(Change("transfers/kick", "id=" + id).status, 200);
    ASSERT_TRUE(stream->ReadUntil([&](auto& events) {
        return Has(events, "transfer-end", "{\"id\":" + id + "}") &&
               Has(events, "settings", "{\"what\":\"transfers/kick\"}");
    })) << stream->Raw();
    const std::vector<StreamedEvent> events = stream->Events();
    for (size_t i = 1; i < events.size(); ++i)
        EXPECT_GT(events[i].id, events[i - 1].id);
    // A refused change is announced to nobody.
    ASSERT_EQ(Change("ipfilter/add", "rule=bad&action=ban").status, 400);

    // A page that lost its stream gets what it missed, and nothing it already had.
    const uint64_t seen = events[events.size() - 3].id;
    stream.reset();
    EventStream resumed(console_port_, owner_ + "Last-Event-ID: " + std::to_string(seen) + "\r\n");
    ASSERT_TRUE(resumed.ReadUntil([](auto& got) { return got.size() >= 2; })) << resumed.Raw();
    EXPECT_EQ(resumed.Events()[0].id, events[events.size() - 2].id);
    EXPECT_EQ(resumed.Events()[1].id, events.back().id);

    // A new page starts with what comes next; an accepted change is announced to both.
    EventStream fresh(console_port_, owner_);
    ASSERT_TRUE(
        fresh.ReadUntil([&](auto&) { return fresh.Raw().find("retry:") != std::string::npos; }));
    ASSERT_EQ(Change("ipfilter/add", "rule=10.*.*.*&action=ban").status, 200);
    auto announced = [](auto& got) { return Has(got, "settings", "{\"what\":\"ipfilter/add\"}"); };
    ASSERT_TRUE(fresh.ReadUntil(announced)) << fresh.Raw();
    ASSERT_TRUE(resumed.ReadUntil(announced)) << resumed.Raw();
    EXPECT_FALSE(Has(fresh.Events(), "settings", "transfers/kick"));
    size_t announcements = 0;
    for (const StreamedEvent& event : resumed.Events())
        announcements +=
            event.name == "settings" && event.data.find("ipfilter") != std::string::npos;
    EXPECT_EQ(announcements, 1u);

    // Stopping the program ends the open streams at once instead of waiting for them.
    auto stopping = std::chrono::steady_clock::now();
    EXPECT_EQ(program_->Stop(), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - stopping, std::chrono::seconds(3));
    EXPECT_TRUE(fresh.EndsWithin(std::chrono::seconds(1)));
}

}  // namespace
}  // namespace Zarn
