#include "ui/CtlCommand.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "config/HomeFolder.h"
#include "core/JsonValue.h"
#include "core/StringUtil.h"
#include "ui/CtlContext.h"
#include "ui/CtlEditCommands.h"
#include "ui/CtlTable.h"
#include "ui/CtlTrashCommand.h"

extern char** environ;

namespace Zarn {
namespace {

void AddTransferRow(CtlTable& table, const JsonValue& transfer) {
    table.Add({transfer.Text("id"), transfer.Text("kind"), transfer.Text("percent") + "%",
               CtlTable::Speed(transfer.Find("speed") ? transfer.Find("speed")->AsNumber() : 0),
               std::string(Trim(transfer.Text("timeLeft"))), transfer.Text("client"),
               transfer.Text("user"), transfer.Text("file")});
}

CtlTable TransferTable(const JsonValue& transfers) {
    CtlTable table;
    table.Add({"ID", "KIND", "DONE", "SPEED", "LEFT", "CLIENT", "USER", "FILE"});
    for (const JsonValue& transfer : transfers.Items())
        AddTransferRow(table, transfer);
    return table;
}

// Opens the address in the desktop's browser, waiting only for the opener itself.
void OpenInBrowser(const std::string& url) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    const char* argv[] = {"xdg-open", url.c_str(), nullptr};
    pid_t pid = -1;
    if (::posix_spawnp(&pid, "xdg-open", &actions, nullptr, const_cast<char**>(argv), environ) ==
        0) {
        int status = 0;
        ::waitpid(pid, &status, 0);
    }
    posix_spawn_file_actions_destroy(&actions);
}

void PrintPlugins(const JsonValue& answer) {
    CtlTable table;
    table.Add({"FILE", "NAME", "TYPE", "VERSION", "AUTHOR", "STATUS"});
    if (const JsonValue* plugins = answer.Find("plugins")) {
        for (const JsonValue& plugin : plugins->Items()) {
            table.Add({plugin.Text("file"), plugin.Text("name"), plugin.Text("type"),
                       plugin.Text("version"), plugin.Text("author"), plugin.Text("status")});
        }
    }
    table.Print();
}

bool HasDesktop() {
    for (const char* name : {"DISPLAY", "WAYLAND_DISPLAY"}) {
        const char* value = std::getenv(name);
        if (value != nullptr && *value != '\0') return true;
    }
    return false;
}

}  // namespace

int CtlCommand::Run(const std::vector<std::string>& arguments) {
    std::string error;
    std::optional<CtlArguments> parsed = CtlArguments::Parse(arguments, error);
    if (!parsed) return CtlContext::Usage(error);
    if (parsed->words.empty() || parsed->words[0] == "help") {
        std::fputs(HelpText().c_str(), parsed->words.empty() ? stderr : stdout);
        return parsed->words.empty() ? CtlContext::kUsage : CtlContext::kOk;
    }
    std::string home = HomeFolder::Resolve(parsed->home);
    CtlContext context(std::move(*parsed), home);
    const std::string& command = context.Word(0);
    if (command == "status") return Status(context);
    if (command == "transfers") return Transfers(context);
    if (command == "kick") return Kick(context);
    if (command == "log") return Log(context);
    if (command == "console") return Console(context);
    if (command == "plugins") return Plugins(context);
    if (command == "trash") return CtlTrashCommand::Run(context);
    std::optional<int> edited = CtlEditCommands::Run(context);
    if (edited) return *edited;
    return CtlContext::Usage("unknown command '" + command + "'");
}

int CtlCommand::Status(CtlContext& context) {
    if (context.WordCount() != 1) return CtlContext::Usage("status takes no arguments");
    return context.Query(true, "status", [](const JsonValue& status) {
        bool listening = status.IsTrue("listening");
        CtlTable table;
        table.Add(
            {"Version", status.Text("version") + " (revision " + status.Text("revision") + ")"});
        table.Add({"Listening", listening ? "yes, on port " + status.Text("port") : "no"});
        table.Add({"Address", status.Text("address")});
        table.Add({"Up for", CtlTable::Duration(status.Integer("uptimeSeconds").value_or(0))});
        table.Add({"Transfers", status.Text("transfers")});
        table.Add({"Connections", status.Text("connections")});
        table.Print();
    });
}

int CtlCommand::Transfers(CtlContext& context) {
    if (context.WordCount() != 1) return CtlContext::Usage("transfers takes no arguments");
    if (!context.Arguments().follow) {
        return context.Query(true, "transfers",
                             [](const JsonValue& transfers) { TransferTable(transfers).Print(); });
    }
    // With --json every row, now and later, is one line: {"event":NAME,"data":ROW}.
    bool json = context.Arguments().json;
    auto print = [json](const std::string& name, const JsonValue& row) {
        if (json) {
            std::printf("{\"event\":\"%s\",\"data\":%s}\n", name.c_str(), row.ToJson().c_str());
        } else if (name == "transfer") {
            CtlTable table;
            AddTransferRow(table, row);
            table.Print();
        } else {
            std::printf("%s ended\n", row.Text("id").c_str());
        }
    };
    // The console's event stream rather than looking again and again: it paces each
    // transfer's rows to two a second and misses nothing that starts and ends between.
    return context.Follow(
        "transfers",
        [json, &print](const JsonValue& transfers) {
            if (!json) std::printf("ID  KIND  DONE  SPEED  LEFT  CLIENT  USER  FILE\n");
            for (const JsonValue& row : transfers.Items())
                print("transfer", row);
        },
        [&print](const std::string& name, const std::string& data) {
            std::string error;
            std::optional<JsonValue> row = JsonValue::Parse(data, error);
            if (row && (name == "transfer" || name == "transfer-end")) print(name, *row);
            return true;
        });
}

int CtlCommand::Kick(CtlContext& context) {
    if (context.WordCount() != 2) return CtlContext::Usage("kick takes the transfer's ID");
    int code = CtlContext::kOk;
    const ConsoleClient* client = context.Connect(true, code);
    if (client == nullptr) return code;
    return context.Finish(client->Post("transfers/kick", {{"id", context.Word(1)}}), nullptr);
}

int CtlCommand::Log(CtlContext& context) {
    if (context.WordCount() != 1) return CtlContext::Usage("log takes no arguments");
    if (!context.Arguments().follow) {
        return context.Query(true, "log", [](const JsonValue& lines) {
            for (const JsonValue& line : lines.Items())
                std::printf("%s\n", line.Text("text").c_str());
        });
    }
    // The history is read once the stream is open, so the two may overlap; the line ids
    // drop what both bring. With --json every line is one JSON object.
    bool json = context.Arguments().json;
    uint64_t last_shown = 0;
    auto print = [&last_shown, json](const JsonValue& line) {
        std::optional<int64_t> id = line.Integer("id");
        if (id && static_cast<uint64_t>(*id) <= last_shown) return;
        if (id) last_shown = static_cast<uint64_t>(*id);
        std::printf("%s\n", json ? line.ToJson().c_str() : line.Text("text").c_str());
    };
    return context.Follow(
        "log",
        [&print](const JsonValue& lines) {
            for (const JsonValue& line : lines.Items())
                print(line);
        },
        [&print](const std::string& name, const std::string& data) {
            std::string error;
            std::optional<JsonValue> line = JsonValue::Parse(data, error);
            if (name == "log" && line) print(*line);
            return true;
        });
}

int CtlCommand::Plugins(CtlContext& context) {
    bool reload = context.WordCount() == 2 && context.Word(1) == "reload";
    if (context.WordCount() != 1 && !reload) return CtlContext::Usage("plugins [reload]");
    if (!reload) return context.Query(true, "plugins", PrintPlugins);
    // Only the running program holds plug-ins; there is nothing to reload offline.
    int code = CtlContext::kOk;
    const ConsoleClient* client = context.Connect(true, code);
    if (client == nullptr) return code;
    return context.Finish(client->Post("plugins/reload", {}), PrintPlugins);
}

int CtlCommand::Console(CtlContext& context) {
    if (context.WordCount() != 1) return CtlContext::Usage("console takes no arguments");
    int code = CtlContext::kOk;
    const ConsoleClient* client = context.Connect(true, code);
    if (client == nullptr) return code;
    std::string url = "http://127.0.0.1:" + std::to_string(client->GetPort()) +
                      "/?token=" + context.Connection()->Token();
    if (context.Arguments().json) {
        std::printf("{\"url\":%s}\n", ("\"" + url + "\"").c_str());
    } else {
        std::printf("%s\n", url.c_str());
    }
    std::fflush(stdout);
    // A script reading the address wants no browser; a person at a terminal, or the desktop
    // entry (which has no terminal and asks with --open), does.
    if (HasDesktop() && (::isatty(STDOUT_FILENO) || context.Arguments().open)) OpenInBrowser(url);
    return CtlContext::kOk;
}

std::string CtlCommand::HelpText() {
    return "Usage: lumidrop ctl [--home DIR] [--json] COMMAND ...\n"
           "\n"
           "Talks to the Korvel Lumidrop running on the home folder through its owner's\n"
           "console. When none runs, the editing commands change mount.ini directly.\n"
           "\n"
           "  status                       the running program's state\n"
           "  transfers [--watch]          the transfers now (--watch: as they move)\n"
           "  kick ID                      stop a transfer\n"
           "  log [-f]                     the log's last lines (-f: and what follows)\n"
           "  console [--open]             print the console's address and open it (on a\n"
           "                               desktop: from a terminal, or always with --open)\n"
           "  plugins [reload]             the plug-ins of Plugin/ (reload: load them again)\n"
           "  trash [list]                 what each mount's trash holds\n"
           "  trash empty [MOUNT]          empty one mount's trash, or every one\n"
           "  mount list\n"
           "  mount add NAME PATH [--note TEXT] [--option yes|no]\n"
           "  mount edit NAME [--name NEW] [--path PATH] [--note TEXT] [--option yes|no]\n"
           "  mount rm NAME\n"
           "  user list | add NAME | passwd NAME | rename NAME NEW | rm NAME\n"
           "                               passwords come from --password-file FILE, the\n"
           "                               terminal, or a line of standard input\n"
           "  rights [ACCOUNT MOUNT BITS]  list, or set BITS: 0-15 or letters of l(ist)\n"
           "                               d(ownload) u(pload) a(dminister), - for none;\n"
           "                               administration asks first, or give --yes\n"
           "  ipfilter list | add RULE allow|ban | rm N | up N | down N\n"
           "  limits [KEY=VALUE]...        show or change the transfer limits\n"
           "  get [KEY]                    show settings\n"
           "  set KEY VALUE                change a setting\n"
           "\n"
           "  --home DIR   the home folder of the program to talk to\n"
           "  --json       print the console's answers as JSON\n"
           "\n"
           "Exit codes: 0 done; 1 refused (the reason on standard error); 2 bad usage;\n"
           "3 the program is not running; 4 the console cannot be reached or refused the\n"
           "token.\n";
}

}  // namespace Zarn
