#include "ui/ConsoleToken.h"

#include <sys/random.h>
#include <sys/stat.h>

#include "core/FileContents.h"
#include "core/PathUtil.h"
#include "core/StringUtil.h"

namespace Zarn {
namespace {

constexpr size_t kTokenBytes = 16;

std::optional<std::string> RandomToken() {
    unsigned char bytes[kTokenBytes];
    size_t got = 0;
    while (got < sizeof bytes) {
        ssize_t read = ::getrandom(bytes + got, sizeof bytes - got, 0);
        if (read < 0) return std::nullopt;
        got += static_cast<size_t>(read);
    }
    static constexpr char kHex[] = "0123456789abcdef";
    std::string token;
    for (unsigned char byte : bytes) {
        token += kHex[byte >> 4];
        token += kHex[byte & 0xF];
    }
    return token;
}

}  // namespace

bool ConsoleToken::IsWellFormed(std::string_view text) {
    if (text.size() != 2 * kTokenBytes) return false;
    for (char c : text) {
        if (!((c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'))) return false;
    }
    return true;
}

std::optional<std::string> ConsoleToken::LoadOrCreate(const std::string& home) {
    std::string path = JoinPath(home, kFileName);
    if (std::optional<std::string> text = ReadWholeFile(path)) {
        std::string token(Trim(*text));
        if (IsWellFormed(token)) {
            // Whoever can read it can act as the owner: it stays the owner's alone.
            (void)::chmod(path.c_str(), 0600);
            return token;
        }
    }
    std::optional<std::string> token = RandomToken();
    // Whoever can read it can act as the owner: it is the owner's alone from the start.
    if (!token || !WriteFileAtomically(path, *token + "\n", 0600)) return std::nullopt;
    return token;
}

bool ConsoleToken::Matches(const std::string& token, std::string_view offered) {
    if (token.empty() || offered.size() != token.size()) return false;
    unsigned char difference = 0;
    for (size_t i = 0; i < token.size(); ++i)
        difference |= static_cast<unsigned char>(token[i] ^ offered[i]);
    return difference == 0;
}

}  // namespace Zarn
