// The host functions a plug-in calls with what a visitor sent, against a real mount that
// holds a link leading out of it. A local path handed to a plug-in must name a place inside
// the mount, and escaped text must be safe where the plug-in puts it.
#include <fcntl.h>
#include <limits.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "ScratchFolder.h"
#include "config/KorvelConfig.h"
#include "core/PathUtil.h"
#include "core/UrlCodec.h"
#include "http/HttpConnection.h"
#include "http/HttpRequest.h"
#include "server/PluginHostTable.h"
#include "server/PluginRequest.h"
#include "share/AccountManager.h"
#include "share/MountManager.h"
#include "transfer/NullTransferStatusAggregator.h"

using namespace Zarn;

namespace {

struct Share {
    ScratchFolder home{"lumidrop-plugin"};
    std::string folder = home.Path() + "/share";
    KorvelConfig config;
    MountManager mounts{config};
    AccountManager accounts{config, mounts};

    Share() {
        ::mkdir(folder.c_str(), 0700);
        ::mkdir((folder + "/sub").c_str(), 0700);
        ::close(::open((folder + "/sub/a.txt").c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600));
        if (::symlink(home.Path().c_str(), (folder + "/out").c_str()) != 0) __builtin_trap();
        mounts.SetMounts({Mount{.name = "m", .local_path = folder}.ToElement()});
    }
};

// Whether the path, or the folder it would be made in, lies inside `folder`.
bool IsInside(std::string path, const std::string& folder) {
    while (path.size() > 1 && path.back() == '/')
        path.pop_back();
    char real[PATH_MAX];
    if (::realpath(path.c_str(), real) == nullptr &&
        ::realpath(FolderOf(path).c_str(), real) == nullptr) {
        return false;
    }
    const std::string_view found(real);
    return found == folder || (found.starts_with(folder) && found[folder.size()] == '/');
}

bool IsEscaped(std::string_view html) {
    if (html.find_first_of("<>\"'") != std::string_view::npos) return false;
    for (size_t at = html.find('&'); at != std::string_view::npos; at = html.find('&', at + 1)) {
        const size_t end = html.find(';', at);
        if (end == std::string_view::npos || end - at > 6) return false;
    }
    return true;
}

}  // namespace

// The input: rights asked for (its first byte), a virtual path, a newline, then a text used
// as a name to look up and as text to escape.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static Share share;
    if (size == 0) return -1;
    const std::string input(reinterpret_cast<const char*>(data) + 1, size - 1);
    const size_t newline = input.find('\n');
    const std::string path = input.substr(0, newline);
    const std::string text = newline == std::string::npos ? "" : input.substr(newline + 1);

    HttpConnection connection;
    connection.SetCarryOver(text, false);
    HttpRequest http(&connection, NullTransferStatusAggregator::Instance());
    http.ParseHeader("POST /m/sub/?" + UrlEncode(text) + "=1 HTTP/1.1\r\nX-Note: " +
                     UrlEncode(text) + "\r\nContent-Length: " + std::to_string(text.size()));
    LumidropRequest request(http, {.mounts = &share.mounts, .accounts = &share.accounts});
    const LumidropHost host = MakePluginHost(share.folder.c_str());

    const char* local = host.local_path(&request, path.c_str(), data[0] & 15u);
    if (local != nullptr && !IsInside(local, share.folder)) __builtin_trap();
    if (!IsEscaped(host.html_escape(&request, text.c_str()))) __builtin_trap();
    if (PercentDecode(host.url_encode(&request, text.c_str())) != text.c_str()) __builtin_trap();
    (void)host.translate(&request, text.c_str());
    (void)host.header(&request, text.c_str());
    (void)host.query(&request, text.c_str());
    (void)host.form(&request, text.c_str());
    (void)host.path(&request);
    return 0;
}
