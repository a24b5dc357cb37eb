#include "server/PluginHostTable.h"

#include <mutex>
#include <set>
#include <string>

#include "core/UrlCodec.h"
#include "i18n/Translate.h"
#include "log/Log.h"
#include "server/PluginRequest.h"
#include "server/TextFormat.h"

namespace Zarn {
namespace {

// Texts made outside a request (in Initialize) live as long as the program, once each.
const char* KeepForever(std::string text) {
    static std::mutex mutex;
    static std::set<std::string, std::less<>> texts;
    std::lock_guard hold(mutex);
    return texts.insert(std::move(text)).first->c_str();
}

const char* Kept(LumidropRequest* request, std::string text) {
    return request != nullptr ? request->Keep(std::move(text)) : KeepForever(std::move(text));
}

// Calls `call` and gives `failed` when the program threw: an exception must not cross the
// plug-in's frames (only memory running out gets here; a broken connection is caught
// inside PluginRequest).
template <typename Result, typename Call>
Result Shielded(Result failed, Call call) noexcept {
    try {
        return call();
    } catch (...) {
        return failed;
    }
}

const char* Path(LumidropRequest* request) {
    return Shielded<const char*>("", [&] { return request->Path(); });
}
const char* Query(LumidropRequest* request, const char* name) {
    return Shielded<const char*>(nullptr, [&] { return request->Query(name); });
}
const char* Form(LumidropRequest* request, const char* name) {
    return Shielded<const char*>(nullptr, [&] { return request->Form(name); });
}
const char* Header(LumidropRequest* request, const char* name) {
    return Shielded<const char*>(nullptr, [&] { return request->Header(name); });
}
const char* ClientAddress(LumidropRequest* request) {
    return Shielded<const char*>("", [&] { return request->ClientAddress(); });
}
const char* UserName(LumidropRequest* request) {
    return Shielded<const char*>("", [&] { return request->UserName(); });
}
unsigned Rights(LumidropRequest* request) {
    return request->Rights();
}
const char* LocalPath(LumidropRequest* request, const char* virtual_path, unsigned needed) {
    return Shielded<const char*>(nullptr, [&] { return request->LocalPath(virtual_path, needed); });
}
long ReadBody(LumidropRequest* request, void* buffer, size_t length) {
    return Shielded<long>(-1, [&] { return request->ReadBody(buffer, length); });
}
int SetStatus(LumidropRequest* request, int code, const char* reason) {
    return Shielded<int>(-1, [&] { return request->SetStatus(code, reason); });
}
int AddHeader(LumidropRequest* request, const char* name, const char* value) {
    return Shielded<int>(-1, [&] { return request->AddHeader(name, value); });
}
int WriteBody(LumidropRequest* request, const void* bytes, size_t length) {
    return Shielded<int>(-1, [&] { return request->WriteBody(bytes, length); });
}
void WriteLog(LumidropRequest* request, unsigned level, const char* text) {
    Shielded<int>(0, [&] {
        if (request != nullptr) {
            request->Log(level, text);
        } else {
            Log(level == 0 ? kLogNotice : level, "%s", text == nullptr ? "" : text);
        }
        return 0;
    });
}
const char* TranslateText(LumidropRequest* request, const char* key) {
    if (key == nullptr) return "";
    return Shielded<const char*>(key, [&] { return Kept(request, Translate(key)); });
}
const char* EscapeHtml(LumidropRequest* request, const char* text) {
    if (text == nullptr) return "";
    return Shielded<const char*>("", [&] { return Kept(request, HtmlEscape(text)); });
}
const char* EncodeUrl(LumidropRequest* request, const char* text) {
    if (text == nullptr) return "";
    return Shielded<const char*>("", [&] { return Kept(request, UrlEncode(text)); });
}

}  // namespace

LumidropHost MakePluginHost(const char* plugin_folder) {
    return LumidropHost{
        .version = LUMIDROP_PLUGIN_INTERFACE_VERSION,
        .size = sizeof(LumidropHost),
        .plugin_folder = plugin_folder,
        .path = Path,
        .query = Query,
        .form = Form,
        .header = Header,
        .client_address = ClientAddress,
        .user_name = UserName,
        .rights = Rights,
        .local_path = LocalPath,
        .read_body = ReadBody,
        .set_status = SetStatus,
        .add_header = AddHeader,
        .write_body = WriteBody,
        .log = WriteLog,
        .translate = TranslateText,
        .html_escape = EscapeHtml,
        .url_encode = EncodeUrl,
    };
}

}  // namespace Zarn
