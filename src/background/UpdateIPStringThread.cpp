#include "background/UpdateIPStringThread.h"

#include <stdexcept>

#include "config/KorvelConfig.h"
#include "core/CriticalSection.h"
#include "core/StringUtil.h"
#include "i18n/Translate.h"
#include "log/Log.h"
#include "net/Networking.h"
#include "share/WildcardMatcher.h"

namespace Zarn {

UpdateIPStringThread::UpdateIPStringThread(Options options)
    : options_(std::move(options)), client_(options_.check_server, options_.timeout_seconds) {}

UpdateIPStringThread::~UpdateIPStringThread() {
    Cancel();
    StopAndJoin();
}

std::vector<std::string> UpdateIPStringThread::DefaultLocalAddresses() {
    std::vector<std::string> addresses;
    GetHostAddresses(addresses);
    return addresses;
}

void UpdateIPStringThread::Cancel() {
    SignalStop();
    client_.Abort();
}

uint32_t UpdateIPStringThread::Run() {
    std::string address = ComputeAddress();
    {
        std::lock_guard hold(mutex_);
        address_ = address;
    }
    // A cancelled run may have given up on the check server half-way; whoever cancelled
    // it has a newer run coming.
    if (options_.on_found && !IsStopSignalled()) options_.on_found(address);
    return 0;
}

std::string UpdateIPStringThread::GetAddress() const {
    std::lock_guard hold(mutex_);
    return address_;
}

bool UpdateIPStringThread::LooksLikeAddress(const std::string& text) {
    if (!WildcardMatch("*.*.*.*", text)) return false;
    // The text ends up in the owner's console and in addresses handed out: an error page
    // or anything else with markup, blanks or control characters is not an address.
    for (char c : text) {
        bool allowed = (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                       c == '.' || c == '-' || c == ':' || c == '[' || c == ']';
        if (!allowed) return false;
    }
    return true;
}

std::optional<std::string> UpdateIPStringThread::FetchPublicAddress() {
    if (!client_.IsConfigured()) return std::nullopt;
    LogTranslated(kLogNotice, "외부에서 IP 주소를 얻어오는 중...");
    std::optional<std::string> body;
    try {
        body = client_.Fetch("/lumidrop/check/ipaddr.php");
    } catch (const std::exception& error) {
        Log(kLogError, "%s", error.what());
        return std::nullopt;
    }
    if (!body) return std::nullopt;
    // A line break after the address is how most scripts end their output.
    std::string text(Trim(*body, " \t\r\n"));
    LogTranslated(kLogNotice, "IP 주소를 얻었습니다: %s", text.c_str());
    return text;
}

std::string UpdateIPStringThread::ComputeAddress() {
    bool get_public_ip;
    bool use_host_name;
    std::string host_name;
    std::string preferred;
    {
        CriticalSectionLock hold(options_.config->GetLock());
        get_public_ip = options_.config->getPublicIP;
        use_host_name = options_.config->useHostName;
        host_name = options_.config->HostName;
        preferred = options_.config->preferredLancardAddress;
    }
    if (get_public_ip) {
        std::optional<std::string> fetched = FetchPublicAddress();
        if (fetched && LooksLikeAddress(*fetched)) return *fetched;
    }
    if (use_host_name) return host_name;
    if (!preferred.empty()) return preferred;
    std::vector<std::string> local = options_.local_addresses();
    return local.empty() ? "?.?.?.?" : local.front();
}

}  // namespace Zarn
