#include "ui/ConsoleControlApi.h"

#include <optional>
#include <string>
#include <vector>

#include "config/KorvelConfig.h"
#include "core/JsonWriter.h"
#include "core/StringUtil.h"
#include "http/HttpRequest.h"
#include "i18n/Translate.h"
#include "net/SocketError.h"
#include "server/KorvelServer.h"
#include "share/IpFilter.h"
#include "ui/ConsoleApi.h"
#include "ui/ConsoleEvents.h"

namespace Zarn {
namespace {

void WriteRule(JsonWriter& json, const IpFilterRule& rule) {
    json.BeginObject()
        .Member("rule", rule.pattern)
        .Member("action", rule.allow ? "allow" : "ban")
        .EndObject();
}

void SendBadValue(HttpRequest& request, std::string_view field) {
    ConsoleApi::SendError(request, 400, "Bad Request", field, Translate("값이 올바르지 않습니다."));
}

void SendCannotListen(HttpRequest& request) {
    std::string reason = ErrorText(LastSocketError());
    ConsoleApi::SendError(request, 409, "Conflict", "port",
                          Concat({Translate("그 포트에서 들을 수 없습니다."), " (", reason, ")"}));
}

// The rule the form names, as the owner's rule dialog takes it; nothing (and the refusal
// sent) when it is not one.
std::optional<IpFilterRule> RuleFromForm(HttpRequest& request) {
    std::string pattern;
    std::string action;
    (void)request.GetFormParameter("rule", pattern);
    (void)request.GetFormParameter("action", action);
    if (!IpFilter::IsValidPattern(pattern)) {
        ConsoleApi::SendError(request, 400, "Bad Request", "rule",
                              Translate("규칙이 올바르지 않습니다. 192.168.0.* 처럼 숫자와 *로 된 "
                                        "네 부분을 점으로 나누어 쓰세요."));
        return std::nullopt;
    }
    if (action != "allow" && action != "ban") {
        SendBadValue(request, "action");
        return std::nullopt;
    }
    return IpFilterRule{action == "allow", std::string(Trim(pattern))};
}

// The position the form's "index" names among `count` rules; nothing (and the refusal
// sent) when it names none.
std::optional<size_t> IndexFromForm(HttpRequest& request, size_t count) {
    std::string text;
    (void)request.GetFormParameter("index", text);
    std::optional<int64_t> index = ConsoleApi::ParseInteger(text, 0, INT64_MAX);
    if (!index) {
        SendBadValue(request, "index");
        return std::nullopt;
    }
    if (static_cast<uint64_t>(*index) >= count) {
        ConsoleApi::SendError(request, 404, "Not Found", "index",
                              Translate("그런 규칙이 없습니다."));
        return std::nullopt;
    }
    return static_cast<size_t>(*index);
}

// Whether another rule than the one at `self` is equal to `rule`; sends the refusal.
bool RefuseDuplicate(HttpRequest& request, const IpFilter& filter, const IpFilterRule& rule,
                     std::optional<size_t> self) {
    std::optional<size_t> found = filter.Find(rule.allow, rule.pattern);
    if (!found || found == self) return false;
    ConsoleApi::SendError(request, 409, "Conflict", "rule",
                          Translate("같은 규칙이 이미 있습니다."));
    return true;
}

}  // namespace

bool ConsoleControlApi::IsChange(std::string_view endpoint) {
    return endpoint == "ipfilter/add" || endpoint == "ipfilter/edit" ||
           endpoint == "ipfilter/remove" || endpoint == "ipfilter/move" ||
           endpoint == "server/start" || endpoint == "server/stop" || endpoint == "server/port";
}

bool ConsoleControlApi::Serve(HttpRequest& request, std::string_view endpoint) {
    if (endpoint == "events") {
        events_.Stream(request);
        return true;
    }
    if (endpoint == "ipfilter") {
        SendRules(request);
        return true;
    }
    if (!IsChange(endpoint)) return false;
    std::lock_guard hold(change_mutex_);
    if (endpoint == "ipfilter/add") PutRule(request, false);
    if (endpoint == "ipfilter/edit") PutRule(request, true);
    if (endpoint == "ipfilter/remove") RemoveRule(request);
    if (endpoint == "ipfilter/move") MoveRule(request);
    if (endpoint == "server/start") StartServer(request);
    if (endpoint == "server/stop") StopServer(request);
    if (endpoint == "server/port") ChangePort(request);
    return true;
}

void ConsoleControlApi::SendRules(HttpRequest& request) {
    JsonWriter json;
    json.BeginArray();
    for (const IpFilterRule& rule : server_.GetIpFilter().GetRules())
        WriteRule(json, rule);
    json.EndArray();
    ConsoleApi::SendJson(request, 200, "OK", json.Text());
}

void ConsoleControlApi::PutRule(HttpRequest& request, bool replace) {
    IpFilter& filter = server_.GetIpFilter();
    std::vector<IpFilterRule> rules = filter.GetRules();
    std::optional<size_t> index;
    if (replace && !(index = IndexFromForm(request, rules.size()))) return;
    std::optional<IpFilterRule> rule = RuleFromForm(request);
    if (!rule || RefuseDuplicate(request, filter, *rule, index)) return;
    if (index) {
        rules[*index] = *rule;
    } else {
        rules.push_back(*rule);
    }
    if (!filter.SetRules(std::move(rules))) return ConsoleApi::SendSaveFailure(request);
    JsonWriter json;
    WriteRule(json, *rule);
    ConsoleApi::SendJson(request, 200, "OK", json.Text());
}

void ConsoleControlApi::RemoveRule(HttpRequest& request) {
    IpFilter& filter = server_.GetIpFilter();
    std::vector<IpFilterRule> rules = filter.GetRules();
    std::optional<size_t> index = IndexFromForm(request, rules.size());
    if (!index) return;
    rules.erase(rules.begin() + static_cast<std::ptrdiff_t>(*index));
    if (!filter.SetRules(std::move(rules))) return ConsoleApi::SendSaveFailure(request);
    ConsoleApi::SendOk(request);
}

void ConsoleControlApi::MoveRule(HttpRequest& request) {
    IpFilter& filter = server_.GetIpFilter();
    std::vector<IpFilterRule> rules = filter.GetRules();
    std::optional<size_t> index = IndexFromForm(request, rules.size());
    if (!index) return;
    std::string direction;
    (void)request.GetFormParameter("direction", direction);
    if (direction != "up" && direction != "down") return SendBadValue(request, "direction");
    bool up = direction == "up";
    if (up ? *index == 0 : *index + 1 == rules.size()) {
        return ConsoleApi::SendError(request, 400, "Bad Request", "direction",
                                     Translate("규칙을 더 옮길 수 없습니다."));
    }
    std::swap(rules[*index], rules[up ? *index - 1 : *index + 1]);
    if (!filter.SetRules(std::move(rules))) return ConsoleApi::SendSaveFailure(request);
    ConsoleApi::SendOk(request);
}

int ConsoleControlApi::ChosenPort() {
    if (port_ >= 0) return port_;
    CriticalSectionLock hold(config_.GetLock());
    return config_.port;
}

void ConsoleControlApi::SendListener(HttpRequest& request) {
    int port = server_.GetPort();
    JsonWriter json;
    json.BeginObject()
        .Member("listening", port >= 0)
        .Member("port", port >= 0 ? port : ChosenPort())
        .EndObject();
    ConsoleApi::SendJson(request, 200, "OK", json.Text());
}

void ConsoleControlApi::StartServer(HttpRequest& request) {
    if (server_.GetPort() < 0 && !server_.Start(ChosenPort())) return SendCannotListen(request);
    if (!RecordRunning(true)) return ConsoleApi::SendSaveFailure(request);
    SendListener(request);
}

void ConsoleControlApi::StopServer(HttpRequest& request) {
    // Only the visitors' listener and its connections stop; the console is served apart.
    if (int port = server_.GetPort(); port >= 0) port_ = port;
    server_.Stop();
    if (!RecordRunning(false)) return ConsoleApi::SendSaveFailure(request);
    SendListener(request);
}

bool ConsoleControlApi::RecordRunning(bool running) {
    CriticalSectionLock hold(config_.GetLock());
    config_.wasRunning = running;
    return config_.Save();
}

bool ConsoleControlApi::MoveListener(int port) {
    std::lock_guard hold(change_mutex_);
    return MoveListenerHeld(port);
}

bool ConsoleControlApi::MoveListenerHeld(int port) {
    // A port that cannot be had leaves the old listener serving.
    if (!server_.ChangePort(port)) return false;
    port_ = port;
    return true;
}

void ConsoleControlApi::ChangePort(HttpRequest& request) {
    std::string text;
    (void)request.GetFormParameter("port", text);
    std::optional<int64_t> port = ConsoleApi::ParseInteger(text, 1, 65535);
    if (!port) return SendBadValue(request, "port");
    if (!MoveListenerHeld(static_cast<int>(*port))) return SendCannotListen(request);
    bool saved;
    {
        CriticalSectionLock hold(config_.GetLock());
        config_.port = static_cast<unsigned short>(*port);
        saved = config_.Save();
    }
    if (!saved) return ConsoleApi::SendSaveFailure(request);
    SendListener(request);
}

}  // namespace Zarn
