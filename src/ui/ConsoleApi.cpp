#include "ui/ConsoleApi.h"

#include <charconv>
#include <cstdio>
#include <optional>

#include "config/KorvelConfig.h"
#include "core/JsonWriter.h"
#include "core/StringUtil.h"
#include "core/Version.h"
#include "http/HttpRequest.h"
#include "i18n/Translate.h"
#include "log/Log.h"
#include "server/KorvelServer.h"
#include "transfer/TransferStatusReporter.h"
#include "ui/ConsoleControlApi.h"
#include "ui/ConsoleEvents.h"
#include "ui/ConsolePluginsApi.h"
#include "ui/ConsoleQrApi.h"
#include "ui/ConsoleSettingsApi.h"
#include "ui/ConsoleSetupApi.h"
#include "ui/ConsoleSharingApi.h"
#include "ui/ConsoleTexts.h"
#include "ui/ConsoleTrashApi.h"
#include "ui/LogHistory.h"

namespace Zarn {
namespace {

const char* KindName(const std::optional<int>& kind) {
    if (!kind) return "";
    return *kind == kDirectionUpload ? "upload" : "download";
}

// Tells every open console, once the endpoint has answered, that a change went through,
// so that no endpoint has to remember to.
class ChangeAnnouncement {
public:
    ChangeAnnouncement(ConsoleEvents* events, const HttpRequest& request, std::string_view endpoint)
        : events_(events), request_(request), endpoint_(endpoint) {}
    ~ChangeAnnouncement() {
        int code = request_.GetResponseCode();
        if (events_ == nullptr || !ConsoleApi::IsChange(endpoint_) || code <= 0 || code >= 400)
            return;
        JsonWriter json;
        json.BeginObject().Member("what", endpoint_).EndObject();
        events_->Publish("settings", json.Text());
    }
    ChangeAnnouncement(const ChangeAnnouncement&) = delete;
    ChangeAnnouncement& operator=(const ChangeAnnouncement&) = delete;

private:
    ConsoleEvents* events_;
    const HttpRequest& request_;
    std::string_view endpoint_;
};

}  // namespace

ConsoleApi::ConsoleApi(Services services) : services_(services) {
    if (services_.server == nullptr || services_.log == nullptr || services_.config == nullptr)
        return;
    events_ = std::make_unique<ConsoleEvents>(services_.server->GetTransfers(), *services_.log);
    if (!events_->Start()) Log(kLogError, "The console's event thread could not start");
    control_ = std::make_unique<ConsoleControlApi>(*services_.config, *services_.server, *events_);
    settings_ = std::make_unique<ConsoleSettingsApi>(
        ConsoleSettingsApi::Services{.config = services_.config,
                                     .server = services_.server,
                                     .events = events_.get(),
                                     .control = control_.get(),
                                     .newer_revision = services_.newer_revision});
}

ConsoleApi::~ConsoleApi() = default;

std::optional<int64_t> ConsoleApi::ParseInteger(std::string_view text, int64_t low, int64_t high) {
    text = Trim(text);
    int64_t value = 0;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || value < low || value > high) {
        return std::nullopt;
    }
    return value;
}

bool ConsoleApi::IsChange(std::string_view endpoint) {
    if (ConsoleSharingApi::IsChange(endpoint)) return true;
    if (ConsoleControlApi::IsChange(endpoint)) return true;
    if (ConsoleSetupApi::IsChange(endpoint)) return true;
    if (ConsoleSettingsApi::IsChange(endpoint)) return true;
    if (ConsolePluginsApi::IsChange(endpoint)) return true;
    if (ConsoleTrashApi::IsChange(endpoint)) return true;
    return endpoint == "transfers/kick" || endpoint == "limits/set";
}

void ConsoleApi::Serve(HttpRequest& request, std::string_view endpoint) {
    ChangeAnnouncement announcement(events_.get(), request, endpoint);
    if (control_ != nullptr && control_->Serve(request, endpoint)) return;
    if (settings_ != nullptr && settings_->Serve(request, endpoint)) return;
    if (endpoint == "status") return SendStatus(request);
    if (endpoint == "transfers") return SendTransfers(request);
    if (endpoint == "transfers/kick") return Kick(request);
    if (endpoint == "log") return SendLog(request);
    if (endpoint == "limits") return SendLimits(request);
    if (endpoint == "limits/set") return SetLimits(request);
    if (ConsoleSharingApi(*services_.config, *services_.server).Serve(request, endpoint)) return;
    if (ConsoleSetupApi(*services_.config, *services_.server, services_.new_home)
            .Serve(request, endpoint))
        return;
    if (endpoint == "texts") return SendJson(request, 200, "OK", ConsoleTexts::Json());
    if (endpoint == "qr") return ConsoleQrApi::Send(request);
    if (ConsolePluginsApi::Serve(request, endpoint, services_.server->GetPlugins())) return;
    if (ConsoleTrashApi::Serve(request, endpoint, services_.server->GetMounts())) return;
    SendError(request, 404, "Not Found", "", Translate("찾을 수 없습니다."));
}

void ConsoleApi::SendJson(HttpRequest& request, int code, std::string_view reason,
                          const std::string& json) {
    request.SendHead(ResponseHead(code, reason)
                         .Add("Content-Type", "application/json; charset=utf-8")
                         .Add("Cache-Control", "no-store")
                         .Add("X-Content-Type-Options", "nosniff")
                         .SetContentLength(json.size())
                         .AllowKeepAlive());
    request.Send(json);
    request.EndResponse();
}

void ConsoleApi::SendError(HttpRequest& request, int code, std::string_view reason,
                           std::string_view field, const std::string& message) {
    JsonWriter json;
    json.BeginObject().Key("error").BeginObject();
    json.Member("field", field).Member("message", message).EndObject().EndObject();
    SendJson(request, code, reason, json.Text());
}

void ConsoleApi::SendOk(HttpRequest& request) {
    SendJson(request, 200, "OK", "{\"ok\":true}");
}

void ConsoleApi::SendSaveFailure(HttpRequest& request) {
    // The registry has the change already; only the file lags behind.
    SendError(request, 500, "Internal Server Error", "",
              Translate("설정 파일을 저장하지 못했습니다."));
}

std::string ConsoleApi::TimeLeft(uint64_t total, uint64_t position, uint64_t speed) {
    if (speed == 0 || position > total) return "??:??:??";
    uint64_t seconds = (total - position) / speed;
    if (seconds > 999ull * 3600) return "??:??:??";
    char text[32];
    std::snprintf(text, sizeof text, "%3d:%02d:%02d", static_cast<int>(seconds / 3600),
                  static_cast<int>(seconds / 60 % 60), static_cast<int>(seconds % 60));
    return text;
}

void ConsoleApi::SendStatus(HttpRequest& request) {
    KorvelServer& server = *services_.server;
    auto uptime = std::chrono::duration_cast<std::chrono::seconds>(
        std::chrono::steady_clock::now() - services_.started);
    int port = server.GetPort();
    JsonWriter json;
    json.BeginObject()
        .Member("version", kVersionText)
        .Member("revision", static_cast<int64_t>(kRevision))
        .Member("listening", port >= 0)
        .Member("port", static_cast<int64_t>(port))
        .Member("address", server.GetDisplayAddress())
        .Member("newerRevision", settings_ != nullptr ? settings_->GetNewerRevision() : 0)
        .Member("uptimeSeconds", static_cast<int64_t>(uptime.count()))
        .Member("transfers", static_cast<uint64_t>(server.GetTransfers().Snapshot().size()))
        .Member("connections", static_cast<uint64_t>(server.GetConnectionCount()))
        .EndObject();
    SendJson(request, 200, "OK", json.Text());
}

void ConsoleApi::WriteTransfer(JsonWriter& json,
                               const GuiTransferStatusAggregator::Transfer& transfer) {
    bool upload = transfer.kind && *transfer.kind == kDirectionUpload;
    const GuiTransferStatusAggregator::Figures& figures =
        upload ? transfer.upload : transfer.download;
    uint64_t percent = figures.total_size == 0 ? 0 : figures.position * 100 / figures.total_size;
    json.BeginObject()
        .Member("id", static_cast<uint64_t>(transfer.id))
        .Member("client", transfer.description.client_address)
        .Member("user", transfer.description.user_name)
        .Member("file", transfer.description.target)
        .Member("kind", KindName(transfer.kind))
        .Member("total", figures.total_size)
        .Member("position", figures.position)
        .Member("speed", figures.speed)
        .Member("percent", std::min<uint64_t>(percent, 100))
        .Member("timeLeft", TimeLeft(figures.total_size, figures.position, figures.speed))
        .EndObject();
}

void ConsoleApi::SendTransfers(HttpRequest& request) {
    JsonWriter json;
    json.BeginArray();
    for (const GuiTransferStatusAggregator::Transfer& transfer :
         services_.server->GetTransfers().Snapshot())
        WriteTransfer(json, transfer);
    json.EndArray();
    SendJson(request, 200, "OK", json.Text());
}

void ConsoleApi::Kick(HttpRequest& request) {
    std::string id_text;
    (void)request.GetFormParameter("id", id_text);
    std::optional<int64_t> id = ParseInteger(id_text, 1, INT64_MAX);
    // The aggregator only looks the id up among its running transfers; it is never
    // followed as a pointer.
    if (!id || !services_.server->GetTransfers().Kick(
                   reinterpret_cast<TransferStatusReporter*>(static_cast<uintptr_t>(*id)))) {
        return SendError(request, 404, "Not Found", "id", Translate("그 전송은 이미 끝났습니다."));
    }
    SendJson(request, 200, "OK", "{\"kicked\":true}");
}

void ConsoleApi::SendLog(HttpRequest& request) {
    std::string after_text;
    (void)request.GetQueryParameter("after", after_text);
    uint64_t after = static_cast<uint64_t>(ParseInteger(after_text, 0, INT64_MAX / 2).value_or(0));
    JsonWriter json;
    json.BeginArray();
    for (const LogHistory::Line& line : services_.log->LinesAfter(after))
        WriteLogLine(json, line);
    json.EndArray();
    SendJson(request, 200, "OK", json.Text());
}

void ConsoleApi::WriteLogLine(JsonWriter& json, const LogHistory::Line& line) {
    json.BeginObject()
        .Member("id", line.id)
        .Member("level", static_cast<uint64_t>(line.level))
        .Member("text", line.text)
        .EndObject();
}

void ConsoleApi::SendLimits(HttpRequest& request) {
    KorvelConfig& config = *services_.config;
    JsonWriter json;
    {
        CriticalSectionLock hold(config.GetLock());
        json.BeginObject()
            .Member("totalUploadSpeedLimit", static_cast<int64_t>(config.totalUploadSpeedLimit))
            .Member("totalDownloadSpeedLimit", static_cast<int64_t>(config.totalDownloadSpeedLimit))
            .Member("useDownloadConnectionLimit", config.useDownloadConnectionLimit)
            .Member("downloadConnectionLimit", static_cast<int64_t>(config.downloadConnectionLimit))
            .Member("usePerIPDownloadConnectionLimit", config.usePerIPDownloadConnectionLimit)
            .Member("perIPdownloadConnectionLimit",
                    static_cast<int64_t>(config.perIPdownloadConnectionLimit))
            .EndObject();
    }
    SendJson(request, 200, "OK", json.Text());
}

void ConsoleApi::SetLimits(HttpRequest& request) {
    struct Field {
        const char* name;
        int64_t low;
        int64_t high;
    };
    // Speeds in KiB/s (-1: none); connection counts; the switches 0 or 1.
    static constexpr Field kFields[] = {
        {"totalUploadSpeedLimit", -1, 10'000'000}, {"totalDownloadSpeedLimit", -1, 10'000'000},
        {"useDownloadConnectionLimit", 0, 1},      {"downloadConnectionLimit", 0, 100'000},
        {"usePerIPDownloadConnectionLimit", 0, 1}, {"perIPdownloadConnectionLimit", 0, 100'000}};
    std::optional<int64_t> values[std::size(kFields)];
    for (size_t i = 0; i < std::size(kFields); ++i) {
        std::string text;
        if (!request.GetFormParameter(kFields[i].name, text)) continue;
        values[i] = ParseInteger(text, kFields[i].low, kFields[i].high);
        if (!values[i]) {
            return SendError(request, 400, "Bad Request", kFields[i].name,
                             Translate("값이 올바르지 않습니다."));
        }
    }
    KorvelConfig& config = *services_.config;
    bool saved;
    {
        CriticalSectionLock hold(config.GetLock());
        auto set = [&](size_t i, auto& setting) {
            if (values[i]) setting = static_cast<decltype(setting.load())>(*values[i]);
        };
        set(0, config.totalUploadSpeedLimit);
        set(1, config.totalDownloadSpeedLimit);
        set(2, config.useDownloadConnectionLimit);
        set(3, config.downloadConnectionLimit);
        set(4, config.usePerIPDownloadConnectionLimit);
        set(5, config.perIPdownloadConnectionLimit);
        saved = config.Save();
    }
    services_.server->ApplyLimits();
    if (!saved) return SendSaveFailure(request);
    SendLimits(request);
}

}  // namespace Zarn
