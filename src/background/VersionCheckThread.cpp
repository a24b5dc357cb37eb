#include "background/VersionCheckThread.h"

#include <limits>
#include <stdexcept>

#include "core/StringUtil.h"
#include "core/Version.h"
#include "i18n/Translate.h"
#include "log/Log.h"

namespace Zarn {

VersionCheckThread::VersionCheckThread(std::string check_server, int timeout_seconds)
    : client_(std::move(check_server), timeout_seconds) {}

VersionCheckThread::~VersionCheckThread() {
    Cancel();
    StopAndJoin();
}

void VersionCheckThread::Cancel() {
    SignalStop();
    client_.Abort();
}

uint32_t VersionCheckThread::Run() {
    if (!client_.IsConfigured()) return 0;
    std::optional<std::string> body;
    try {
        body = client_.Fetch("/lumidrop/check/revision.php");
    } catch (const std::exception& error) {
        Log(kLogError, "%s", error.what());
        return 1;
    }
    if (!body) return 1;
    std::string_view text = Trim(*body);
    // One integer; anything else (an error page, say) tells nothing.
    if (text.empty() || text.front() < '0' || text.front() > '9') return 1;
    uint64_t published = ParseLeadingDecimal(text);
    if (published <= static_cast<uint64_t>(kRevision)) return 0;
    int revision = static_cast<int>(std::min<uint64_t>(published, std::numeric_limits<int>::max()));
    newer_revision_ = revision;
    LogTranslated(kLogNotice, "새 버전(r%d)이 나왔습니다.", revision);
    return 0;
}

}  // namespace Zarn
