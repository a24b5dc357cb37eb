#include "ui/InitCommand.h"

#include <cstdio>

#include "config/HomeFolder.h"
#include "config/KorvelConfig.h"
#include "core/FileContents.h"
#include "core/PathUtil.h"
#include "core/TekoFile.h"
#include "core/UrlCodec.h"
#include "i18n/LocalizationStringTable.h"
#include "share/AccountManager.h"
#include "share/MountManager.h"
#include "ui/ConsoleApi.h"
#include "ui/ConsoleToken.h"
#include "ui/FirstRunSetup.h"
#include "ui/SettingsCatalog.h"
#include "ui/SharingRules.h"
#include "ui/SingleInstanceLock.h"

namespace Zarn {
namespace {

constexpr size_t kMaxPasswordFileBytes = 64 * 1024;

int Refuse(int code, const std::string& message) {
    std::fprintf(stderr, "lumidrop init: %s\n", message.c_str());
    return code;
}

// The option of this command that carries a field of the wizard.
const char* OptionOf(const std::string& field) {
    if (field == "language") return "--language";
    if (field == "port") return "--port";
    if (field == "anonymousRights") return "--anonymous-rights";
    if (field == "user") return "--user";
    if (field == "password") return "--password-file";
    return "--mount";
}

// The password as the file holds it, without the line end an editor or `echo` adds.
std::optional<std::string> ReadPassword(const std::string& path) {
    std::optional<std::string> text = ReadWholeFile(path);
    if (!text || text->size() > kMaxPasswordFileBytes) return std::nullopt;
    if (text->ends_with('\n')) text->pop_back();
    if (text->ends_with('\r')) text->pop_back();
    return text;
}

std::string RightsText(uint32_t rights) {
    std::string text;
    auto add = [&text](const char* what) {
        text += text.empty() ? what : std::string(", ") + what;
    };
    if (rights & kRightList) add("list");
    if (rights & kRightDownload) add("download");
    if (rights & kRightUpload) add("upload and make folders");
    if (rights & kRightAdmin) add("delete");
    return text.empty() ? "nothing" : text;
}

void Report(const std::string& home, KorvelConfig& config, AccountManager& accounts,
            const Mount& mount, const std::string& user, const std::string& address) {
    std::printf("Set up the home folder %s\n", home.c_str());
    std::printf(
        "Sharing %s as \"%s\"; anonymous visitors may: %s\n", mount.local_path.c_str(),
        mount.name.c_str(),
        RightsText(accounts.GetRights(AccountManager::kAnonymous, mount.name).value_or(0)).c_str());
    if (!user.empty()) {
        std::printf("The account \"%s\" may: %s\n", user.c_str(),
                    RightsText(accounts.GetRights(user, mount.name).value_or(0)).c_str());
    }
    int port = config.port;
    std::string link = UrlEncode("/" + mount.name + (mount.is_folder ? "/" : ""));
    std::string visitors = port == 80 ? "http://" + address + link
                                      : "http://" + address + ":" + std::to_string(port) + link;
    std::printf("Visitors' address: %s\n", visitors.c_str());
    std::optional<std::string> token = ConsoleToken::LoadOrCreate(home);
    if (config.consolePort == 0 || !token) {
        std::printf("Owner's console: printed when the program starts\n");
    } else {
        std::printf("Owner's console: http://127.0.0.1:%d/?token=%s\n",
                    static_cast<int>(config.consolePort), token->c_str());
    }
    std::printf("Start sharing with: lumidrop --home %s\n", home.c_str());
}

}  // namespace

std::optional<InitCommand::Arguments> InitCommand::Parse(const std::vector<std::string>& arguments,
                                                         std::string& error) {
    Arguments parsed;
    for (size_t i = 0; i < arguments.size(); ++i) {
        const std::string& option = arguments[i];
        if (option == "--help" || option == "-h") {
            parsed.show_help = true;
            continue;
        }
        if (option == "--force") {
            parsed.force = true;
            continue;
        }
        std::optional<std::string>* slot = nullptr;
        std::optional<std::string> mount;
        std::optional<std::string> user;
        if (option == "--home") slot = &parsed.home;
        if (option == "--anonymous-rights") slot = &parsed.anonymous_rights;
        if (option == "--port") slot = &parsed.port;
        if (option == "--password-file") slot = &parsed.password_file;
        if (option == "--language") slot = &parsed.language;
        if (option == "--mount") slot = &mount;
        if (option == "--user") slot = &user;
        if (slot == nullptr) {
            error = "unknown option '" + option + "'";
            return std::nullopt;
        }
        if (i + 1 >= arguments.size()) {
            error = option + " needs a value";
            return std::nullopt;
        }
        *slot = arguments[++i];
        if (user) parsed.user = *user;
        if (!mount) continue;
        size_t equals = mount->find('=');
        if (equals == 0 || equals == std::string::npos || equals + 1 == mount->size() ||
            !parsed.mount_name.empty()) {
            error = parsed.mount_name.empty() ? "--mount takes NAME=PATH, not '" + *mount + "'"
                                              : "give --mount once";
            return std::nullopt;
        }
        parsed.mount_name = mount->substr(0, equals);
        parsed.mount_path = mount->substr(equals + 1);
    }
    if (parsed.show_help) return parsed;
    if (parsed.mount_name.empty()) {
        error = "--mount NAME=PATH is needed";
        return std::nullopt;
    }
    if (parsed.user.empty() != !parsed.password_file) {
        error = "--user and --password-file go together";
        return std::nullopt;
    }
    return parsed;
}

std::string InitCommand::HelpText() {
    return "Usage: lumidrop init --mount NAME=PATH [--anonymous-rights N] [--port N]\n"
           "                     [--user NAME --password-file FILE] [--language FILE.wul]\n"
           "                     [--home DIR] [--force]\n"
           "\n"
           "Sets up a new home folder without a browser, as the console's first-run wizard\n"
           "does, and prints the addresses to use. Run it while the program is stopped.\n"
           "\n"
           "  --mount NAME=PATH       share the folder or file PATH as /NAME/\n"
           "  --anonymous-rights N    what visitors without an account may do there: the sum\n"
           "                          of 1 list, 2 download, 4 upload and make folders,\n"
           "                          8 delete (default 3: list and download)\n"
           "  --port N                the visitors' port, 1 to 65535 (default 80)\n"
           "  --user NAME             an account of your own, which may also upload there\n"
           "  --password-file FILE    its password: the first line of FILE\n"
           "  --language FILE.wul     the language file of the home's Language/ folder\n"
           "                          (default: English, or Korean for a Korean locale)\n"
           "  --home DIR              the home folder (default: ~/.config/lumidrop)\n"
           "  --force                 also add to a home that is set up already; nothing\n"
           "                          there is removed, a taken name is still refused\n"
           "\n"
           "Exit status: 0 done; 1 refused (the home is set up already, or the program runs\n"
           "on it) or the settings could not be saved; 2 a wrong option or value, and then\n"
           "nothing was saved.\n";
}

int InitCommand::Run(const std::vector<std::string>& arguments, const Options& options) {
    std::string error;
    std::optional<Arguments> parsed = Parse(arguments, error);
    if (!parsed) return Refuse(kBadUsage, error + " (try lumidrop init --help)");
    if (parsed->show_help) {
        std::fputs(HelpText().c_str(), stdout);
        return kDone;
    }
    return SetUp(*parsed, options);
}

int InitCommand::SetUp(const Arguments& arguments, const Options& options) {
    FirstRunChoices choices{.language = arguments.language,
                            .mount_name = arguments.mount_name,
                            .mount_path = MakeAbsolutePath(arguments.mount_path),
                            .account_name = arguments.user};
    if (arguments.anonymous_rights) {
        std::optional<uint32_t> rights = SharingRules::ParseRights(*arguments.anonymous_rights);
        if (!rights) return Refuse(kBadUsage, "--anonymous-rights takes a number from 0 to 15");
        choices.anonymous_rights = *rights;
    }
    if (arguments.port) {
        std::optional<int64_t> port = ConsoleApi::ParseInteger(*arguments.port, 1, 65535);
        if (!port) return Refuse(kBadUsage, "--port takes a number from 1 to 65535");
        choices.port = static_cast<int>(*port);
    }
    if (arguments.password_file) {
        std::optional<std::string> password = ReadPassword(*arguments.password_file);
        if (!password)
            return Refuse(kBadUsage, "--password-file: cannot read " + *arguments.password_file);
        choices.password = *password;
    }

    std::string home = HomeFolder::Resolve(arguments.home);
    std::string settings_path = JoinPath(home, KorvelConfig::kFileName);
    bool exists = TekoFile::GetFileSize(settings_path) != TekoFile::kInvalidSize;
    if (exists && !arguments.force) {
        return Refuse(kFailed, home + " is set up already (it has " + KorvelConfig::kFileName +
                                   "); add --force to add to its settings");
    }
    SingleInstanceLock instance;
    if (!instance.Acquire(home)) {
        return Refuse(
            kFailed, "Korvel Lumidrop is running with the home folder " + home + "; stop it first");
    }
    LocalizationStringTable::InstallShippedLanguages(home);
    KorvelConfig config(settings_path);
    if (!exists) config.uiLanguageFile = FirstRunSetup::LanguageFromLocale();
    // Refusals below are told in the language the home will speak.
    std::string unused;
    bool chosen = choices.language &&
                  SettingsCatalog::Check(config, "uiLanguageFile", *choices.language, unused);
    (void)LocalizationStringTable::Instance().LoadLanguage(
        home, chosen ? *choices.language : config.uiLanguageFile);

    MountManager mounts(config);
    AccountManager accounts(config, mounts);
    FirstRunSetup setup(config, mounts, accounts, home);
    if (std::optional<FirstRunSetup::Fault> fault = setup.Apply(choices)) {
        if (fault->code == 500) return Refuse(kFailed, fault->message);
        return Refuse(kBadUsage, std::string(OptionOf(fault->field)) + ": " + fault->message);
    }
    std::optional<Mount> mount = mounts.GetMount(choices.mount_name);
    if (!mount) return Refuse(kFailed, "the share was not kept");
    std::string address = options.find_address ? options.find_address(config) : "127.0.0.1";
    Report(home, config, accounts, *mount, arguments.user, address);
    return kDone;
}

}  // namespace Zarn
