#include "server/SystemRequestProcessor.h"

#include "http/HttpDate.h"
#include "http/HttpRequest.h"
#include "http/Validators.h"
#include "server/SystemFileTable.h"
#include "share/MimeTypeTable.h"
#include "skin/SkinManager.h"

namespace Zarn {

void SystemRequestProcessor::SendSystemFile(HttpRequest& request) {
    std::shared_ptr<const std::string> bytes = sources_.files->Find(request.GetPath());
    if (!bytes) return SendNotFound(request, "404 Not found :(");
    SendBytes(request, request.GetPath(), *bytes);
}

void SystemRequestProcessor::SendSkinFile(HttpRequest& request) {
    const std::string& path = request.GetPath();
    size_t slash = path.find('/');
    std::shared_ptr<const Skin> skin = sources_.skins->Find(path.substr(0, slash));
    if (!skin) return SendNotFound(request, "Unable to find the skin.");
    std::string name = slash == std::string::npos ? std::string() : path.substr(slash + 1);
    std::shared_ptr<const std::string> bytes = skin->FindFile(name);
    if (!bytes) return SendNotFound(request, "404 Not found :(");
    SendBytes(request, name, *bytes);
}

void SystemRequestProcessor::SendBytes(HttpRequest& request, const std::string& name,
                                       const std::string& bytes) {
    Validators validators = Validators::OfBytes(bytes);
    bool current = validators.IsNotModified(request.GetHeaders());
    ResponseHead head = current ? ResponseHead(304, "Not Modified") : ResponseHead(200, "OK");
    if (!current) head.Add("Content-Type", sources_.types->LookupFileName(name));
    head.Add("ETag", validators.GetEntityTag())
        .Add("Cache-Control", "max-age=3600")
        .Add("Expires", HttpDate::Format(now_ + 86400))
        .SetContentLength(current ? 0 : bytes.size())
        .AllowKeepAlive();
    request.SendHead(head);
    if (!current) request.Send(bytes);
    request.EndResponse();
}

void SystemRequestProcessor::SendNotFound(HttpRequest& request, std::string_view text) {
    request.SendHead(ResponseHead(404, "Not found").SetContentLength(text.size()).AllowKeepAlive());
    request.Send(text);
    request.EndResponse();
}

}  // namespace Zarn
