#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstddef>
#include <cstring>
#include <string>

#include "core/UniqueFd.h"
#include "support/TempFolder.h"
#include "ui/SystemdNotifier.h"

namespace Zarn {
namespace {

// The service manager's end: a datagram socket bound where NOTIFY_SOCKET points.
class ManagerSocket {
public:
    // A path, or "@name" for the abstract namespace.
    explicit ManagerSocket(const std::string& name)
        : socket_(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::memcpy(address.sun_path, name.data(), name.size());
        if (name[0] == '@') address.sun_path[0] = '\0';
        socklen_t length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size());
        EXPECT_EQ(::bind(socket_.Get(), reinterpret_cast<sockaddr*>(&address), length), 0);
    }
    [[nodiscard]] std::string Receive() const {
        char buffer[512];
        ssize_t got = ::recv(socket_.Get(), buffer, sizeof buffer, MSG_DONTWAIT);
        return got < 0 ? "(nothing)" : std::string(buffer, static_cast<size_t>(got));
    }

private:
    UniqueFd socket_;
};

TEST(SystemdNotifierTest, TellsAManagerOnAPathOrAnAbstractSocketEachStepOfTheRun) {
    testing::TempFolder folder;
    std::string path = folder / "notify";
    ManagerSocket manager(path);
    SystemdNotifier notifier(path);
    ASSERT_TRUE(notifier.IsActive());

    EXPECT_TRUE(notifier.Ready("Sharing on port 8080\nowner's console"));
    EXPECT_EQ(manager.Receive(), "READY=1\nSTATUS=Sharing on port 8080 owner's console");
    timespec before{};
    ::clock_gettime(CLOCK_MONOTONIC, &before);
    EXPECT_TRUE(notifier.Reloading());
    std::string reloading = manager.Receive();
    ASSERT_TRUE(reloading.starts_with("RELOADING=1\nMONOTONIC_USEC=")) << reloading;
    long long stamp = std::stoll(reloading.substr(reloading.find('=', 12) + 1));
    EXPECT_GE(stamp, static_cast<long long>(before.tv_sec) * 1000000);
    EXPECT_LT(stamp, (static_cast<long long>(before.tv_sec) + 5) * 1000000);
    EXPECT_TRUE(notifier.Stopping());
    EXPECT_EQ(manager.Receive(), "STOPPING=1");

    std::string name = "@lumidrop-notify-test-" + std::to_string(::getpid());
    ManagerSocket abstract(name);
    EXPECT_TRUE(SystemdNotifier(name).Ready("up"));
    EXPECT_EQ(abstract.Receive(), "READY=1\nSTATUS=up");

    EXPECT_FALSE(SystemdNotifier("").IsActive());
    EXPECT_FALSE(SystemdNotifier("").Ready("up"));
    EXPECT_FALSE(SystemdNotifier("relative/path").Ready("up"));
    EXPECT_FALSE(SystemdNotifier(folder / "nobody-listens").Stopping());
}

}  // namespace
}  // namespace Zarn
