#include "server/SystemRequestProcessor.h"

#include <cstring>

#include "http/HttpRequest.h"
#include "server/SystemFileTable.h"
#include "share/MimeTypeTable.h"
#include "skin/SkinManager.h"

namespace Zarn {

void SystemRequestProcessor::SendSystemFile(HttpRequest& request) {
    std::shared_ptr<const std::string> bytes = SystemFileTable::Instance().Find(request.GetPath());
    if (!bytes) return SendNotFound(request, "404 Not found :(");
    SendBytes(request, request.GetPath(), *bytes);
}

void SystemRequestProcessor::SendSkinFile(HttpRequest& request) {
    const std::string& path = request.GetPath();
    size_t slash = path.find('/');
    std::shared_ptr<const Skin> skin = SkinManager::Instance().Find(path.substr(0, slash));
    if (!skin) return SendNotFound(request, "Unable to find the skin.");
    std::string name = slash == std::string::npos ? std::string() : path.substr(slash + 1);
    std::shared_ptr<const std::string> bytes = skin->FindFile(name);
    if (!bytes) return SendNotFound(request, "404 Not found :(");
    SendBytes(request, name, *bytes);
}

void SystemRequestProcessor::SendBytes(HttpRequest& request, const std::string& name,
                                       const std::string& bytes) {
    request.BeginResponse(200, "OK");
    request.SendHeader("Content-Type", MimeTypeTable::Instance().LookupFileName(name));
    request.SendHeader("Content-Length", std::to_string(bytes.size()));
    request.SendHeader("Expires", HttpDate(now_ + 86400));
    request.Send(bytes.data(), bytes.size());
    request.EndResponse();
}

void SystemRequestProcessor::SendNotFound(HttpRequest& request, const char* text) {
    request.BeginResponse(404, "Not found");
    request.Send(text, std::strlen(text));
    request.EndResponse();
}

std::string SystemRequestProcessor::HttpDate(std::time_t time) {
    std::tm utc{};
    ::gmtime_r(&time, &utc);
    // Day and month names are fixed by the protocol (RFC 9110, section 5.6.7), whatever
    // the locale.
    static constexpr const char* kDays[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
    static constexpr const char* kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                              "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    char text[64];
    std::snprintf(text, sizeof text, "%s, %02d %s %04d %02d:%02d:%02d GMT", kDays[utc.tm_wday],
                  utc.tm_mday, kMonths[utc.tm_mon], utc.tm_year + 1900, utc.tm_hour, utc.tm_min,
                  utc.tm_sec);
    return text;
}

}  // namespace Zarn
