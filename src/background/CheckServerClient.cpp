#include "background/CheckServerClient.h"

#include <algorithm>
#include <atomic>

#include "http/BareHttpConnection.h"
#include "i18n/Translate.h"
#include "log/Log.h"

#ifndef LUMIDROP_CHECK_SERVER
#define LUMIDROP_CHECK_SERVER ""
#endif

namespace Zarn {

std::string CheckServerClient::BuiltInServer() {
    return LUMIDROP_CHECK_SERVER;
}

CheckServerClient::CheckServerClient(std::string server, int timeout_seconds)
    : server_(std::move(server)), timeout_seconds_(timeout_seconds) {}

bool CheckServerClient::IsConfigured() const {
    if (!server_.empty()) return true;
    static std::atomic<bool> noted{false};
    if (!noted.exchange(true)) {
        LogTranslated(kLogNotice,
                      "확인 서버가 설정되지 않아 공개 주소와 새 버전을 확인하지 않습니다.");
    }
    return false;
}

std::optional<std::string> CheckServerClient::Fetch(const std::string& path) {
    BareHttpConnection connection("http://" + server_ + path, timeout_seconds_);
    {
        std::lock_guard hold(mutex_);
        if (aborted_) return std::nullopt;
        current_ = &connection;
    }
    struct Forget {
        CheckServerClient& client;
        ~Forget() {
            std::lock_guard hold(client.mutex_);
            client.current_ = nullptr;
        }
    } forget{*this};

    if (connection.Send() != 200) return std::nullopt;
    char buffer[kBodyBufferBytes];
    size_t filled = 0;
    while (filled < sizeof buffer) {
        int got = connection.Read(buffer + filled, static_cast<int>(sizeof buffer - filled));
        if (got <= 0) break;  // the end, or a failure: what came so far is the answer
        filled += static_cast<size_t>(got);
    }
    return std::string(buffer, std::min(filled, sizeof buffer - 1));
}

void CheckServerClient::Abort() {
    std::lock_guard hold(mutex_);
    aborted_ = true;
    if (current_ != nullptr) current_->Abort();
}

}  // namespace Zarn
