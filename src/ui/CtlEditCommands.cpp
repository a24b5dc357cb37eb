#include "ui/CtlEditCommands.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>

#include "core/JsonValue.h"
#include "core/PathUtil.h"
#include "ui/CtlContext.h"
#include "ui/CtlRights.h"
#include "ui/CtlTable.h"
#include "ui/PasswordInput.h"

namespace Zarn {
namespace {

// "yes"/"no" (or 1/0) as the console's switches take them; nothing for anything else.
std::optional<std::string> Switch(const std::string& text) {
    if (text == "yes" || text == "1") return "1";
    if (text == "no" || text == "0") return "0";
    return std::nullopt;
}

// The path as the console stores it, and whether it names a folder. A path that does not
// exist goes as a folder, so that the console's refusal says which is missing.
void AddPath(ConsoleClient::Form& form, const std::string& path) {
    std::string absolute = MakeAbsolutePath(path);
    struct stat info {};
    bool file = ::stat(absolute.c_str(), &info) == 0 && !S_ISDIR(info.st_mode);
    form.emplace_back("path", absolute);
    form.emplace_back("isFolder", file ? "0" : "1");
}

// The rule index as `ipfilter list` numbers them (from 1), as the console counts (from 0).
std::optional<std::string> RuleIndex(const std::string& text) {
    if (text.empty() || text.size() > 9 || text.find_first_not_of("0123456789") != text.npos)
        return std::nullopt;
    long number = std::stol(text);
    if (number < 1) return std::nullopt;
    return std::to_string(number - 1);
}

bool AnswersYes(const std::string& question) {
    if (!::isatty(STDIN_FILENO)) return false;
    std::fprintf(stderr, "%s [y/N] ", question.c_str());
    std::fflush(stderr);
    char answer[16] = {};
    if (std::fgets(answer, sizeof answer, stdin) == nullptr) return false;
    return answer[0] == 'y' || answer[0] == 'Y';
}

}  // namespace

std::optional<int> CtlEditCommands::Run(CtlContext& context) {
    const std::string& command = context.Word(0);
    if (command == "mount") return Mount(context);
    if (command == "user") return User(context);
    if (command == "rights") return Rights(context);
    if (command == "ipfilter") return IpFilter(context);
    if (command == "limits") return Limits(context);
    if (command == "set") return Set(context);
    if (command == "get") return Get(context);
    return std::nullopt;
}

void CtlEditCommands::PrintMount(const JsonValue& mount) {
    CtlTable table;
    table.Add({mount.Text("name"), mount.IsTrue("isFolder") ? "folder" : "file", mount.Text("path"),
               mount.Text("note")});
    table.Print();
}

void CtlEditCommands::PrintAccount(const JsonValue& account) {
    bool anonymous = account.IsTrue("anonymous");
    std::string name = account.Text("name");
    if (anonymous) name += "  (" + account.Text("displayName") + ")";
    std::printf("%s\n", name.c_str());
}

int CtlEditCommands::Mount(CtlContext& context) {
    const std::string& action = context.Word(1);
    size_t count = context.WordCount();
    const CtlArguments& arguments = context.Arguments();
    if (action == "list" && count == 2) {
        return context.Query(false, "mounts", [](const JsonValue& mounts) {
            CtlTable table;
            table.Add({"NAME", "KIND", "PATH", "NOTE"});
            for (const JsonValue& mount : mounts.Items())
                table.Add({mount.Text("name"), mount.IsTrue("isFolder") ? "folder" : "file",
                           mount.Text("path"), mount.Text("note")});
            table.Print();
        });
    }
    if (action == "rm" && count == 3) {
        return context.Change("mounts/remove", {{"name", context.Word(2)}}, nullptr);
    }
    if ((action != "add" || count != 4) && (action != "edit" || count != 3)) {
        return CtlContext::Usage(
            "mount takes: list | add NAME PATH [--note TEXT] [--option yes|no] | edit NAME "
            "[--name NEW] [--path PATH] [--note TEXT] [--option yes|no] | rm NAME");
    }
    ConsoleClient::Form form;
    form.emplace_back(action == "add" ? "name" : "original", context.Word(2));
    if (action == "add") AddPath(form, context.Word(3));
    if (auto name = arguments.Option("name"); name && action == "edit") {
        form.emplace_back("name", *name);
    }
    if (auto path = arguments.Option("path"); path && action == "edit") AddPath(form, *path);
    if (auto note = arguments.Option("note")) form.emplace_back("note", *note);
    if (auto option = arguments.Option("option")) {
        std::optional<std::string> value = Switch(*option);
        if (!value) return CtlContext::Usage("--option takes yes or no");
        form.emplace_back("option", *value);
    }
    return context.Change(action == "add" ? "mounts/add" : "mounts/edit", form, PrintMount);
}

int CtlEditCommands::User(CtlContext& context) {
    const std::string& action = context.Word(1);
    size_t count = context.WordCount();
    if (action == "list" && count == 2) {
        return context.Query(false, "accounts", [](const JsonValue& accounts) {
            for (const JsonValue& account : accounts.Items())
                PrintAccount(account);
        });
    }
    if (action == "rm" && count == 3) {
        return context.Change("accounts/remove", {{"name", context.Word(2)}}, nullptr);
    }
    if (action == "rename" && count == 4) {
        return context.Change("accounts/rename",
                              {{"name", context.Word(2)}, {"newName", context.Word(3)}},
                              PrintAccount);
    }
    if ((action != "add" && action != "passwd") || count != 3) {
        return CtlContext::Usage(
            "user takes: list | add NAME [--password-file FILE] | passwd NAME "
            "[--password-file FILE] | rename NAME NEW | rm NAME");
    }
    std::string error;
    std::optional<std::string> password =
        PasswordInput::Read(context.Arguments().Option("password-file"), context.Word(2), error);
    if (!password) return CtlContext::Refuse(error);
    return context.Change(action == "add" ? "accounts/add" : "accounts/password",
                          {{"name", context.Word(2)}, {"password", *password}}, PrintAccount);
}

int CtlEditCommands::Rights(CtlContext& context) {
    if (context.WordCount() == 1) {
        return context.Query(false, "rights", CtlRights::PrintTable);
    }
    if (context.WordCount() != 4) {
        return CtlContext::Usage(
            "rights takes ACCOUNT MOUNT BITS (a number 0-15, or letters "
            "of ldua, or -), or nothing to list them");
    }
    std::optional<int> bits = CtlRights::Parse(context.Word(3));
    if (!bits) return CtlContext::Usage("bad rights '" + context.Word(3) + "'");
    ConsoleClient::Form form = {{"account", context.Word(1)},
                                {"mount", context.Word(2)},
                                {"rights", std::to_string(*bits)}};
    if (context.Arguments().yes) form.emplace_back("confirmAdmin", "1");
    int code = CtlContext::kOk;
    const ConsoleClient* client = context.Connect(false, code);
    if (client == nullptr) return code;
    ConsoleClient::Answer answer = client->Post("rights/set", form);
    // Administration lets the account delete the owner's files: asked for once more.
    if (answer.status == 409 && answer.body.find("confirmAdmin") != std::string::npos &&
        AnswersYes("Let " + context.Word(1) + " delete files and folders in " + context.Word(2) +
                   "?")) {
        form.emplace_back("confirmAdmin", "1");
        answer = client->Post("rights/set", form);
    }
    return context.Finish(answer, CtlRights::PrintGrant);
}

int CtlEditCommands::IpFilter(CtlContext& context) {
    const std::string& action = context.Word(1);
    size_t count = context.WordCount();
    if (action == "list" && count == 2) {
        return context.Query(false, "ipfilter", [](const JsonValue& rules) {
            CtlTable table;
            table.Add({"#", "ACTION", "RULE"});
            for (size_t i = 0; i < rules.Items().size(); ++i)
                table.Add({std::to_string(i + 1), rules.Items()[i].Text("action"),
                           rules.Items()[i].Text("rule")});
            table.Print();
        });
    }
    if (action == "add" && count == 4) {
        return context.Change("ipfilter/add",
                              {{"rule", context.Word(2)}, {"action", context.Word(3)}}, nullptr);
    }
    std::optional<std::string> index = count == 3 ? RuleIndex(context.Word(2)) : std::nullopt;
    if (index && action == "rm")
        return context.Change("ipfilter/remove", {{"index", *index}}, nullptr);
    if (index && (action == "up" || action == "down")) {
        return context.Change("ipfilter/move", {{"index", *index}, {"direction", action}}, nullptr);
    }
    return CtlContext::Usage(
        "ipfilter takes: list | add RULE allow|ban | rm INDEX | up INDEX | down INDEX "
        "(INDEX as list numbers the rules, from 1)");
}

int CtlEditCommands::Limits(CtlContext& context) {
    auto print = [](const JsonValue& limits) {
        CtlTable table;
        for (size_t i = 0; i < limits.Items().size(); ++i)
            table.Add({limits.Names()[i], limits.Items()[i].AsText()});
        table.Print();
    };
    if (context.WordCount() == 1) return context.Query(false, "limits", print);
    ConsoleClient::Form form;
    for (size_t i = 1; i < context.WordCount(); ++i) {
        const std::string& pair = context.Word(i);
        size_t equals = pair.find('=');
        if (equals == 0 || equals == std::string::npos) {
            return CtlContext::Usage("limits takes KEY=VALUE, not '" + pair + "'");
        }
        form.emplace_back(pair.substr(0, equals), pair.substr(equals + 1));
    }
    return context.Change("limits/set", form, print);
}

int CtlEditCommands::Set(CtlContext& context) {
    if (context.WordCount() != 3) return CtlContext::Usage("set takes KEY VALUE");
    return context.Change("settings/set", {{context.Word(1), context.Word(2)}}, nullptr);
}

int CtlEditCommands::Get(CtlContext& context) {
    if (context.WordCount() > 2) return CtlContext::Usage("get takes at most one KEY");
    std::string key = context.Word(1);
    bool found = true;
    int code = context.Query(false, "settings", [&key, &found](const JsonValue& answer) {
        const JsonValue* settings = answer.Find("settings");
        if (settings == nullptr) return;
        if (!key.empty()) {
            const JsonValue* value = settings->Find(key);
            found = value != nullptr;
            if (found) std::printf("%s\n", value->AsText().c_str());
            return;
        }
        CtlTable table;
        for (size_t i = 0; i < settings->Items().size(); ++i)
            table.Add({settings->Names()[i], settings->Items()[i].AsText()});
        table.Print();
    });
    if (code == CtlContext::kOk && !found) return CtlContext::Refuse("no setting named " + key);
    return code;
}

}  // namespace Zarn
