#include "ui/ConsoleClient.h"

#include <stdexcept>

#include "http/BareHttpConnection.h"
#include "ui/ConsoleRequestHandler.h"

namespace Zarn {
namespace {

// The name and data of one event block of a text/event-stream; false for a block that
// carries no data (a comment, a retry hint).
bool ParseEvent(std::string_view block, std::string& name, std::string& data) {
    name = "message";
    data.clear();
    bool has_data = false;
    while (!block.empty()) {
        size_t end = block.find('\n');
        std::string_view line = block.substr(0, end);
        block = end == std::string_view::npos ? std::string_view() : block.substr(end + 1);
        if (line.ends_with('\r')) line.remove_suffix(1);
        size_t colon = line.find(':');
        if (colon == 0 || line.empty()) continue;
        std::string_view field = line.substr(0, colon);
        std::string_view value =
            colon == std::string_view::npos ? std::string_view() : line.substr(colon + 1);
        if (value.starts_with(' ')) value.remove_prefix(1);
        if (field == "event") {
            name = value;
        } else if (field == "data") {
            if (has_data) data += '\n';
            data += value;
            has_data = true;
        }
    }
    return has_data;
}

void AddOwnersHeaders(BareHttpConnection& connection, const std::string& token) {
    connection.AddHeader("Cookie", std::string(ConsoleRequestHandler::kCookieName) + "=" + token);
}

}  // namespace

std::string ConsoleClient::Url(std::string_view endpoint) const {
    return "http://127.0.0.1:" + std::to_string(port_) + "/api/v1/" + std::string(endpoint);
}

ConsoleClient::Answer ConsoleClient::Get(std::string_view endpoint) const {
    return Call(endpoint, nullptr);
}

ConsoleClient::Answer ConsoleClient::Post(std::string_view endpoint, const Form& form) const {
    return Call(endpoint, &form);
}

ConsoleClient::Answer ConsoleClient::Call(std::string_view endpoint, const Form* form) const {
    BareHttpConnection connection(Url(endpoint), kTimeoutSeconds);
    AddOwnersHeaders(connection, token_);
    if (form != nullptr) {
        connection.AddHeader("X-Lumidrop-Console", "1");
        connection.UsePost();
        for (const auto& [name, value] : *form)
            connection.AddFormField(name, value);
    }
    Answer answer;
    try {
        answer.status = connection.Send();
    } catch (const std::runtime_error&) {
        return {};
    }
    if (answer.status < 0) return {};
    char buffer[16 * 1024];
    for (int got; (got = connection.Read(buffer, sizeof buffer)) != 0;) {
        if (got < 0) return {};
        answer.body.append(buffer, static_cast<size_t>(got));
    }
    return answer;
}

ConsoleClient::StreamEnd ConsoleClient::Listen(const std::function<bool()>& opened,
                                               const EventHandler& handler) const {
    BareHttpConnection connection(Url("events"), kStreamTimeoutSeconds);
    AddOwnersHeaders(connection, token_);
    connection.AddHeader("Accept", "text/event-stream");
    try {
        if (connection.Send() != 200) return StreamEnd::kFailed;
    } catch (const std::runtime_error&) {
        return StreamEnd::kFailed;
    }
    if (!opened()) return StreamEnd::kStopped;
    std::string pending;
    std::string name;
    std::string data;
    char buffer[16 * 1024];
    for (;;) {
        int got = connection.Read(buffer, sizeof buffer);
        if (got == 0) return StreamEnd::kClosed;
        if (got < 0) return StreamEnd::kFailed;
        pending.append(buffer, static_cast<size_t>(got));
        for (size_t end; (end = pending.find("\n\n")) != std::string::npos;) {
            bool is_event = ParseEvent(std::string_view(pending).substr(0, end), name, data);
            pending.erase(0, end + 2);
            if (is_event && !handler(name, data)) return StreamEnd::kStopped;
        }
    }
}

}  // namespace Zarn
