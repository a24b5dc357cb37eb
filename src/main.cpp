#include <cstdio>
#include <cstring>
#include <optional>
#include <string>

#include "config/HomeFolder.h"
#include "config/KorvelConfig.h"
#include "core/PathUtil.h"
#include "core/UrlCodec.h"
#include "core/Version.h"
#include "i18n/LocalizationStringTable.h"
#include "log/Log.h"
#include "log/LogQueue.h"
#include "log/LogWriter.h"

namespace {

void PrintHelp() {
    std::printf(
        "Usage: lumidrop [--home DIR] [--version] [--help]\n"
        "\n"
        "Korvel Lumidrop shares folders and files of this machine over HTTP.\n"
        "\n"
        "  --home DIR  keep settings, language files and logs in DIR\n"
        "              (default: ~/.config/lumidrop)\n"
        "  --version   print the version and exit\n"
        "  --help      print this help and exit\n");
}

struct Options {
    std::optional<std::string> home;
};

// Returns the exit code when the program should end at once.
std::optional<int> ParseArguments(int argc, char** argv, Options& options) {
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--version") == 0) {
            std::printf("%s %s (revision %d)\n", Zarn::kProductName, Zarn::kVersionText,
                        Zarn::kRevision);
            return 0;
        }
        if (std::strcmp(argv[i], "--help") == 0) {
            PrintHelp();
            return 0;
        }
        if (std::strcmp(argv[i], "--home") == 0 && i + 1 < argc) {
            options.home = argv[++i];
            continue;
        }
        std::fprintf(stderr, "lumidrop: unknown or incomplete option '%s' (try --help)\n", argv[i]);
        return 2;
    }
    return std::nullopt;
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    if (std::optional<int> exit_code = ParseArguments(argc, argv, options)) return *exit_code;

    std::string home = Zarn::HomeFolder::Resolve(options.home);
    Zarn::KorvelConfig config(Zarn::JoinPath(home, Zarn::KorvelConfig::kFileName));
    Zarn::LogQueue log_queue;
    Zarn::LogWriter log_writer(
        {.home = home, .queue = &log_queue, .write_file = [&config] { return config.writeLog; }});
    log_writer.Install();
    Zarn::SetLogMask(Zarn::kDefaultLogMask);
    Zarn::SetDefaultUrlCodepage(config.defaultUrlCodepage);

    Zarn::LocalizationStringTable::InstallShippedLanguages(home);
    Zarn::LocalizationStringTable::Instance().LoadLanguage(home, config.uiLanguageFile);

    std::printf("%s %s: home folder %s; the server itself is not built yet.\n", Zarn::kProductName,
                Zarn::kVersionText, home.c_str());
    return 0;
}
