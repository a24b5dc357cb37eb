#include "ui/CtlContext.h"

#include <cstdio>

#include "core/JsonValue.h"

namespace Zarn {

const std::string& CtlContext::Word(size_t index) const {
    static const std::string kNone;
    return index < arguments_.words.size() ? arguments_.words[index] : kNone;
}

const ConsoleClient* CtlContext::Connect(bool need_program, int& code) {
    if (connection_) return &connection_->Client();
    CtlConnection::Failure failure{};
    std::string message;
    connection_ = CtlConnection::Open(home_, need_program, failure, message);
    if (connection_) return &connection_->Client();
    std::fprintf(stderr, "lumidrop ctl: %s\n", message.c_str());
    code = static_cast<int>(failure);
    return nullptr;
}

int CtlContext::Finish(const ConsoleClient::Answer& answer, const Printer& printer,
                       bool printer_owns_output) const {
    if (answer.status < 0) {
        std::fprintf(stderr, "lumidrop ctl: the console did not answer\n");
        return kUnreachable;
    }
    if (answer.status == 403) {
        std::fprintf(stderr, "lumidrop ctl: the console refused the owner's token\n");
        return kUnreachable;
    }
    std::string error;
    std::optional<JsonValue> json = JsonValue::Parse(answer.body, error);
    if (!json) {
        std::fprintf(stderr, "lumidrop ctl: the console's answer (%d) cannot be read: %s\n",
                     answer.status, error.c_str());
        return kUnreachable;
    }
    bool raw = arguments_.json && !printer_owns_output;
    if (raw) std::printf("%s\n", answer.body.c_str());
    if (answer.status / 100 == 2) {
        if (!raw && printer) printer(*json);
        return kOk;
    }
    const JsonValue* refusal = json->Find("error");
    std::string field = refusal != nullptr ? refusal->Text("field") : "";
    std::string message = refusal != nullptr ? refusal->Text("message") : "";
    if (message.empty()) message = "refused (" + std::to_string(answer.status) + ")";
    if (field.empty()) {
        std::fprintf(stderr, "lumidrop ctl: %s\n", message.c_str());
    } else {
        std::fprintf(stderr, "lumidrop ctl: %s: %s\n", field.c_str(), message.c_str());
    }
    return kRefused;
}

int CtlContext::Query(bool need_program, std::string_view endpoint, const Printer& printer) {
    int code = kOk;
    const ConsoleClient* client = Connect(need_program, code);
    return client == nullptr ? code : Finish(client->Get(endpoint), printer);
}

int CtlContext::Change(std::string_view endpoint, const ConsoleClient::Form& form,
                       const Printer& printer) {
    int code = kOk;
    const ConsoleClient* client = Connect(false, code);
    return client == nullptr ? code : Finish(client->Post(endpoint, form), printer);
}

int CtlContext::Follow(std::string_view endpoint, const Printer& printer,
                       const ConsoleClient::EventHandler& handler) {
    int code = kOk;
    const ConsoleClient* client = Connect(true, code);
    if (client == nullptr) return code;
    ConsoleClient::StreamEnd end = client->Listen(
        [&] {
            code = Finish(client->Get(endpoint), printer, true);
            std::fflush(stdout);
            return code == kOk;
        },
        [&handler](const std::string& name, const std::string& data) {
            bool go_on = handler(name, data);
            std::fflush(stdout);
            return go_on;
        });
    if (code != kOk) return code;
    if (end == ConsoleClient::StreamEnd::kFailed) {
        std::fprintf(stderr, "lumidrop ctl: the console's event stream broke off\n");
        return kUnreachable;
    }
    return kOk;
}

int CtlContext::Usage(const std::string& reason) {
    std::fprintf(stderr, "lumidrop ctl: %s (try lumidrop ctl --help)\n", reason.c_str());
    return kUsage;
}

int CtlContext::Refuse(const std::string& reason) {
    std::fprintf(stderr, "lumidrop ctl: %s\n", reason.c_str());
    return kRefused;
}

}  // namespace Zarn
