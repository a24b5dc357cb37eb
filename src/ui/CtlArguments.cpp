#include "ui/CtlArguments.h"

#include <algorithm>
#include <iterator>

namespace Zarn {
namespace {

constexpr const char* kValuedOptions[] = {"home", "note",   "path",
                                          "name", "option", "password-file"};

}  // namespace

std::optional<CtlArguments> CtlArguments::Parse(const std::vector<std::string>& arguments,
                                                std::string& error) {
    CtlArguments parsed;
    bool only_words = false;
    for (size_t i = 0; i < arguments.size(); ++i) {
        const std::string& word = arguments[i];
        // After "--" every word is the command's, so a name may begin with a dash.
        bool negative_number = word.size() > 1 && word[1] >= '0' && word[1] <= '9';
        if (only_words || word.empty() || word[0] != '-' || word == "-" || negative_number) {
            parsed.words.push_back(word);
            continue;
        }
        if (word == "--") {
            only_words = true;
        } else if (word == "--json") {
            parsed.json = true;
        } else if (word == "--yes" || word == "-y") {
            parsed.yes = true;
        } else if (word == "--open") {
            parsed.open = true;
        } else if (word == "--watch" || word == "-f" || word == "--follow") {
            parsed.follow = true;
        } else if (std::string name = word.substr(word.find_first_not_of('-'));
                   word.starts_with("--") &&
                   std::find(std::begin(kValuedOptions), std::end(kValuedOptions), name) !=
                       std::end(kValuedOptions)) {
            if (i + 1 >= arguments.size()) {
                error = word + " needs a value";
                return std::nullopt;
            }
            if (name == "home") {
                parsed.home = arguments[++i];
            } else {
                parsed.options[name] = arguments[++i];
            }
        } else {
            error = "unknown option '" + word + "'";
            return std::nullopt;
        }
    }
    return parsed;
}

std::optional<std::string> CtlArguments::Option(const std::string& name) const {
    auto found = options.find(name);
    if (found == options.end()) return std::nullopt;
    return found->second;
}

}  // namespace Zarn
