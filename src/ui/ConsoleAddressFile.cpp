#include "ui/ConsoleAddressFile.h"

#include <unistd.h>

#include "core/FileContents.h"
#include "core/PathUtil.h"
#include "ui/ConsoleApi.h"

namespace Zarn {

bool ConsoleAddressFile::Publish(const std::string& home, int port) {
    return WriteFileAtomically(JoinPath(home, kFileName), std::to_string(port) + "\n", 0600);
}

void ConsoleAddressFile::Withdraw(const std::string& home) {
    (void)::unlink(JoinPath(home, kFileName).c_str());
}

std::optional<int> ConsoleAddressFile::Read(const std::string& home) {
    std::optional<std::string> text = ReadWholeFile(JoinPath(home, kFileName));
    if (!text) return std::nullopt;
    std::optional<int64_t> port = ConsoleApi::ParseInteger(*text, 1, 65535);
    if (!port) return std::nullopt;
    return static_cast<int>(*port);
}

}  // namespace Zarn
