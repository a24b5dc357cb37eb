#include "server/IdentificationRequestProcessor.h"

#include <chrono>
#include <cstdio>
#include <ctime>
#include <mutex>

#include "core/Version.h"
#include "http/HttpRequest.h"

namespace Zarn {
namespace {

std::mutex identifier_mutex;
std::string instance_identifier;

}  // namespace

void IdentificationRequestProcessor::MakeInstanceIdentifier() {
    auto seconds = static_cast<uint32_t>(std::time(nullptr));
    auto milliseconds =
        static_cast<uint32_t>(std::chrono::duration_cast<std::chrono::milliseconds>(
                                  std::chrono::steady_clock::now().time_since_epoch())
                                  .count());
    char text[17];
    std::snprintf(text, sizeof text, "%08x%08x", seconds, milliseconds);
    std::lock_guard lock(identifier_mutex);
    instance_identifier = text;
}

std::string IdentificationRequestProcessor::GetInstanceIdentifier() {
    {
        std::lock_guard lock(identifier_mutex);
        if (!instance_identifier.empty()) return instance_identifier;
    }
    MakeInstanceIdentifier();
    std::lock_guard lock(identifier_mutex);
    return instance_identifier;
}

void IdentificationRequestProcessor::Identify(HttpRequest& request) {
    std::string identifier = GetInstanceIdentifier();
    request.SendHead(ResponseHead(200, "OK")
                         .Add("Server", kProductName)
                         .SetContentLength(identifier.size())
                         .AllowKeepAlive());
    request.Send(identifier);
    request.EndResponse();
}

}  // namespace Zarn
