#include <cstdio>
#include <cstring>

#include "core/Version.h"

namespace {

void PrintHelp() {
    std::printf(
        "Usage: lumidrop [--version] [--help]\n"
        "\n"
        "Korvel Lumidrop shares folders and files of this machine over HTTP.\n"
        "\n"
        "  --version  print the version and exit\n"
        "  --help     print this help and exit\n");
}

}  // namespace

int main(int argc, char** argv) {
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
        std::fprintf(stderr, "lumidrop: unknown option '%s' (try --help)\n", argv[i]);
        return 2;
    }
    std::printf("%s %s: the server is not built yet; try --help.\n", Zarn::kProductName,
                Zarn::kVersionText);
    return 0;
}
